#include "pellor/friends/internal/PLListReader.h"

#include <utility>
#include <vector>

#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/platform/Platform.h"

namespace pellor {
namespace {

// The others are of arrays that were attached.
constexpr std::size_t KeysOfList = 3;

std::optional<LongArray> longArrayIn(const Value& value) {
  if (const LongArray* array = value.longArray()) return *array;
  const Array* array = value.array();
  return array ? std::optional<LongArray>(*array) : std::nullopt;
}

}  // namespace

PLListReader::PLListReader(Process& process, std::string domain)
    : _process(process),
      _domain(std::move(domain)),
      _keys{std::string(PLFriendListKey), std::string(PLGroupTitlesKey), std::string(PLFirstListIsDueKey)} {}

PLListReader::Answer PLListReader::read(PLStoredList& stored) {
  const auto answer = platformOf(_process).preferences->read(_keys, _domain);
  if (!answer.isReadable()) return Answer::unreadable;
  const VersionedPreference &list = answer.value()->at(_keys[0]), &titles = answer.value()->at(_keys[1]);
  stored.listVersion = list.version;
  stored.titlesVersion = titles.version;
  if (titles.value && titles.value->array()) stored.titles = *titles.value->array();
  stored.awaitsFavorites = answer.value()->at(_keys[2]).value == Value(true);
  readAttached(*answer.value(), stored);
  auto array = list.value ? longArrayIn(*list.value) : std::nullopt;
  if (list.value && !array) return recover(list, stored);
  _damaged.reset();
  if (!array) return Answer::none;
  stored.list = *std::move(array);
  return Answer::loaded;
}

void PLListReader::readAttached(const VersionedPreferences& found, PLStoredList& stored) {
  for (std::size_t index = KeysOfList; index < _keys.size(); ++index) {
    const VersionedPreference& value = found.at(_keys[index]);
    auto array = value.value ? longArrayIn(*value.value) : LongArray();
    if (array) {
      _damagedArrays.erase(_keys[index]);
    } else if (_damagedArrays.insert(_keys[index]).second) {
      _PLGetLogSystem().log(LogFormat("stored %@ is damaged and counts as empty").as("_loadFriendList"), _keys[index]);
    }
    stored.attached[_keys[index]] = {array ? *std::move(array) : LongArray(), value.version};
  }
}

// One that was whole meanwhile has another version, and another good copy, also where the damage is the same.
PLListReader::Answer PLListReader::recover(const VersionedPreference& damaged, PLStoredList& stored) {
  const bool isKnown = _damaged && _damaged->version == damaged.version && _damaged->value == damaged.value;
  if (!isKnown) {
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
  const auto stored = platformOf(_process).preferences->read(_keys, _domain);
  if (!stored.isReadable()) return std::nullopt;
  Versions versions{stored.value()->at(_keys[0]).version, stored.value()->at(_keys[1]).version, {}};
  for (std::size_t index = KeysOfList; index < _keys.size(); ++index) {
    versions.attached[_keys[index]].version = stored.value()->at(_keys[index]).version;
  }
  return versions;
}

}  // namespace pellor
