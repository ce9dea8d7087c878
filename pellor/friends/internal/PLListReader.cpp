#include "pellor/friends/internal/PLListReader.h"

#include <utility>
#include <vector>

#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/platform/Platform.h"

namespace pellor {
namespace {

// Of the list, its titles, and whether it waits for favorites.
const std::vector<std::string>& keysOfList() {
  static const std::vector<std::string> keys = {std::string(PLFriendListKey), std::string(PLGroupTitlesKey),
                                                std::string(PLFirstListIsDueKey)};
  return keys;
}

std::optional<LongArray> longArrayIn(const Value& value) {
  if (const LongArray* array = value.longArray()) return *array;
  const Array* array = value.array();
  return array ? std::optional<LongArray>(*array) : std::nullopt;
}

}  // namespace

PLListReader::Answer PLListReader::read(PLStoredList& stored) {
  const auto answer = platformOf(_process).preferences->read(keysOfList(), _domain);
  if (!answer.isReadable()) return Answer::unreadable;
  const VersionedPreference &list = answer.value()->at(keysOfList()[0]), &titles = answer.value()->at(keysOfList()[1]);
  stored.listVersion = list.version;
  stored.titlesVersion = titles.version;
  if (titles.value && titles.value->array()) stored.titles = *titles.value->array();
  stored.awaitsFavorites = answer.value()->at(keysOfList()[2]).value == Value(true);
  auto array = list.value ? longArrayIn(*list.value) : std::nullopt;
  if (list.value && !array) return recover(*list.value, stored);
  _damaged.reset();
  if (!array) return Answer::none;
  stored.list = *std::move(array);
  return Answer::loaded;
}

PLListReader::Answer PLListReader::recover(const Value& damaged, PLStoredList& stored) {
  if (_damaged != damaged) {
    const PutAside aside = platformOf(_process).preferences->putAside(PLFriendListKey, _domain);
    if (!aside.kept) return Answer::unreadable;
    _damaged = damaged;
    _lastGood = aside.lastGood;
    _PLGetLogSystem().log(LogFormat("stored friend list is damaged and was put aside, %@").as("_loadFriendList"),
                          aside.lastGood ? "using its last good copy" : "there is no good copy of it");
  }
  auto lastGood = _lastGood ? longArrayIn(*_lastGood) : std::nullopt;
  if (!lastGood) return Answer::damaged;
  stored.list = *std::move(lastGood);
  return Answer::recovered;
}

std::optional<PLListReader::Versions> PLListReader::versions() const {
  const auto stored = platformOf(_process).preferences->read(keysOfList(), _domain);
  if (!stored.isReadable()) return std::nullopt;
  return Versions{stored.value()->at(keysOfList()[0]).version, stored.value()->at(keysOfList()[1]).version};
}

}  // namespace pellor
