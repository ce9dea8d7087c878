#include "pellor/friends/internal/PLListWrite.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "pellor/friends/PLFriendsManagerKeys.h"

namespace pellor {
namespace {

PreferenceChange set(Value value, std::optional<PreferenceVersion> madeFrom) {
  return {PreferenceChange::Kind::set, std::move(value), madeFrom};
}

PreferenceChange remove() { return {PreferenceChange::Kind::remove, std::nullopt, std::nullopt}; }

PreferenceChange keep(const PreferenceVersion& madeFrom) {
  return {PreferenceChange::Kind::keep, std::nullopt, madeFrom};
}

}  // namespace

// Titles belong to the pages of a list: alone they go out only while that list is the stored one, and pages come and go
// only while the titles are those that are known.
PreferenceChanges PLListWrite::preferenceChanges(const std::vector<std::uint64_t>* touched) {
  PreferenceChanges stored;
  if (writesList()) {
    list = std::make_shared<PLStoredVersion>(PLStoredVersion::made(*base->list, *published.list, changes, touched));
    stored.emplace(PLFriendListKey, set(list->array(), base->listVersion));
  }
  if (titlesChanged) {
    stored.emplace(PLGroupTitlesKey, set(*published.titles, base->titlesVersion));
    stored.try_emplace(std::string(PLFriendListKey), keep(base->listVersion));
  } else if (list && published.pages != base->pages) {
    stored.emplace(PLGroupTitlesKey, keep(base->titlesVersion));
  }
  for (const auto& [key, array] : attached) {
    stored.emplace(key, set(array.elements, array.version));
    stored.try_emplace(std::string(PLFriendListKey), keep(base->listVersion));
  }
  if (marksNormalized) stored.emplace(PLDidNormalizeFriendListDestinationsKey, set(true, std::nullopt));
  if (sequenceNumber) stored.emplace(PLAddressBookSequenceNumberKey, set(*sequenceNumber, std::nullopt));
  if (awaitsFavorites) stored.emplace(PLFirstListIsDueKey, *awaitsFavorites ? set(true, std::nullopt) : remove());
  return stored;
}

std::set<std::string> PLListWrite::pushedKeys() const {
  std::set<std::string> keys;
  if (layoutChanged) keys.emplace(PLFriendListKey);
  if (titlesChanged) keys.emplace(PLGroupTitlesKey);
  if (marksNormalized) keys.emplace(PLDidNormalizeFriendListDestinationsKey);
  return keys;
}

bool PLListWrite::isIn(const PLStoredList& stored) const {
  if (list) return id == stored.listVersion.write;
  if (titlesChanged) return id == stored.titlesVersion.write;
  return std::ranges::all_of(attached, [&](const auto& array) {
    const auto found = stored.attached.find(array.first);
    return found != stored.attached.end() && id == found->second.version.write;
  });
}

void PLListWrite::takeOver(const VersionedPreferences& written) {
  const auto writtenUnder = [&](std::string_view key) {
    const auto found = written.find(key);
    return found == written.end() ? VersionedPreference() : found->second;
  };
  if (list) {
    const VersionedPreference stored = writtenUnder(PLFriendListKey);
    const LongArray* array = stored.value ? stored.value->longArray() : nullptr;
    // The store keeps the list in a form of its own, which the next save builds on.
    list->takeOver(array ? *array : LongArray());
    listVersion = stored.version;
  }
  if (titlesChanged) titlesVersion = writtenUnder(PLGroupTitlesKey).version;
}

std::shared_ptr<PLBaseline> PLListWrite::baseAfter() const {
  if (!changesBase()) return nullptr;
  auto after = std::make_shared<PLBaseline>(*base);
  if (list) {
    after->list = list;
    after->listVersion = listVersion;
    after->elsewhere = elsewhere;
  }
  if (titlesChanged) {
    after->titles = *published.titles;
    after->titlesVersion = titlesVersion;
  }
  if (list || titlesChanged) after->pages = published.pages;
  return after;
}

}  // namespace pellor
