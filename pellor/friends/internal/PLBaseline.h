// The stored list that a process builds on.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "pellor/friends/internal/PLStoredVersion.h"
#include "pellor/platform/PreferencesStore.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// A version of an array that is attached to the list; one that is not stored is empty.
struct PLAttachedArray {
  LongArray elements;
  PreferenceVersion version;
};
/// By key.
using PLAttachedVersions = std::map<std::string, PLAttachedArray, std::less<>>;

/// A list as the store has it, with its titles.
struct PLStoredList {
  LongArray list;
  PreferenceVersion listVersion;
  Array titles;  ///< empty when none are stored
  PreferenceVersion titlesVersion;
  bool awaitsFavorites = false;  ///< whether it is a first list that waits for them
  PLAttachedVersions attached;   ///< of the keys that were attached
};

/// Names the groups of a list in their order: a group keeps its number as long as the manager has it, and no other
/// group gets it. Shared by all versions of the list that have the same groups.
using PLPageNumbers = std::shared_ptr<const std::vector<std::uint64_t>>;

/// The baseline of a process: the version of the stored list and titles that it wrote or took over last. A save names
/// the version it was made from, and a merge starts from it. Immutable once it is shared; any thread.
struct PLBaseline {
  std::shared_ptr<const PLStoredVersion> list = std::make_shared<const PLStoredVersion>();
  PreferenceVersion listVersion;
  Array titles;  ///< empty when none are stored
  PreferenceVersion titlesVersion;
  std::vector<std::uint64_t> passedOver;  ///< slots whose friends a load left out, without destinations: no edit
  std::uint64_t slotsNotMade = 0;  ///< slots at the end that a load had no friend for, and the live list does not have
  PLPageNumbers pages;             ///< of the groups that showed its pages, from the first page on
  std::uint64_t elsewhere = 0;  ///< touches of persons (PLTouches::countElsewhere), counted before the list's changes
};

/// Whether what is stored comes from the baseline: it is of its store, or of one that began with that very list.
inline bool comesFrom(const PLBaseline& base, const PLStoredList& stored) {
  return base.listVersion.store == stored.listVersion.store ||
         (base.list->array() == stored.list && base.titles == stored.titles);
}

}  // namespace pellor
