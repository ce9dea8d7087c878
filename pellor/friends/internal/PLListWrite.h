// One write of the friend list, from what a save takes to the baseline that it leaves.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLAttachedArrays.h"
#include "pellor/friends/internal/PLBaseline.h"
#include "pellor/friends/internal/PLSlotList.h"
#include "pellor/friends/internal/PLStepCount.h"
#include "pellor/friends/internal/PLStoredVersion.h"
#include "pellor/platform/PreferencesStore.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// What the main queue has published for saves. Immutable.
struct PLPublishedList {
  std::shared_ptr<const PLSlotSnapshot> list;
  PLPageNumbers pages;
  std::shared_ptr<const Array> titles;  ///< null before some were set
};

/// A save fills it with the marks that it took and with what was published after they were taken. Its owner's queue.
struct PLListWrite {
  PreferenceWriteID id;
  bool layoutChanged = false;
  bool titlesChanged = false;
  bool marksNormalized = false;
  std::optional<std::int32_t> sequenceNumber;
  std::optional<bool> awaitsFavorites;             ///< whether the list waits for favorites from now on
  PLAttachedArrays::Changes attached;              ///< arrays that it takes along
  std::vector<std::shared_ptr<PLPerson>> persons;  ///< whose own changes it takes along
  PLPublishedList published;
  PLStepMoment moment;  ///< before anything was taken: the steps made until then are in it, and no part of a later one
  std::shared_ptr<const PLBaseline> base;  ///< that it is made from
  std::shared_ptr<PLStoredVersion> list;   ///< as it is to be stored; null before `preferenceChanges`, or without one
  PreferenceVersion listVersion, titlesVersion;
  std::uint64_t elsewhere = 0;  ///< touches of persons, counted before any flag was taken
  std::uint64_t changes = 0;    ///< of persons, counted before any of them was looked at and after its flag was taken
  bool knowsTouched = false;    ///< whether all of these are in chunks that were gathered

  bool writesList() const { return layoutChanged || !persons.empty(); }
  bool changesList() const { return writesList() || titlesChanged; }
  bool isEmpty() const {
    return !changesList() && !marksNormalized && !sequenceNumber && !awaitsFavorites && attached.empty();
  }
  /// Whether a new baseline comes of it, once it has its list.
  bool changesBase() const { return list || titlesChanged || !attached.empty(); }

  /// Makes the list, and what the store is asked to store. `touched`, if not null, are the only chunks in which persons
  /// changed since the baseline.
  PreferenceChanges preferenceChanges(const std::vector<std::uint64_t>* touched);
  /// The keys that the paired device is told of: none for a write that only persons' own changes caused.
  std::set<std::string> pushedKeys() const;
  /// Whether `stored` came of it.
  bool isIn(const PLStoredList& stored) const;
  /// Takes over list and versions as the store has them now.
  void takeOver(const VersionedPreferences& written);
  /// The baseline after `takeOver`; null when it has neither list nor titles nor arrays.
  std::shared_ptr<PLBaseline> baseAfter() const;
};

}  // namespace pellor
