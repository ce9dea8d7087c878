// What a friends manager tells and asks about steps: edits that are stored together or not at all.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/platform/PreferencesStore.h"
#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/Value.h"

namespace pellor {

class PLPerson;

/// One slot of a list that is stored. Both are null for an empty slot.
struct PLStoredSlot {
  std::shared_ptr<PLPerson> stored;  ///< the friend as it is stored there: a person of no list
  std::shared_ptr<PLPerson> known;   ///< the manager's friend that it is, also one that a step has removed; null: none
};

/// A list as other processes stored it, for steps to be judged by.
struct PLStoredPages {
  std::vector<PLStoredSlot> contents;  ///< by slot, of all pages; the last page may lack some at its end
  std::vector<std::string> titles;     ///< by page; empty without one, and absent for the last pages without
  std::uint64_t groupSize = 1;         ///< slots of a page
  std::map<std::string, LongArray, std::less<>> attached;        ///< the attached arrays that are stored with it
  std::map<std::string, LongArray, std::less<>> attachedBefore;  ///< the same as this process knew them
  /// Whether a program that keeps a history may have written it since this process knew the list: else there is nothing
  /// new in the history.
  bool hasNewHistory = true;
  std::uint64_t storedStep = 0;  ///< steps up to this number are stored, though it may not have been told yet
};

/// What programs that keep no history made of a list.
struct PLForeignEdit {
  struct Version {
    std::vector<Dictionary> forms;    ///< by slot, as a friend of that form is written; empty for an empty slot
    std::vector<std::string> titles;  ///< by page; empty without one, and absent for the last pages without
    PreferenceVersion listVersion, titlesVersion;
  };
  Version before, after;
  std::vector<std::optional<std::uint64_t>> origins;  ///< by slot of `after`, where its friend was; absent: nowhere
  std::uint64_t groupSize = 1;                        ///< slots of a page
};

/// Why a list became another one.
enum class PLChangeOrigin {
  load,          ///< it was read for the first time
  otherProcess,  ///< another process wrote it
  device,        ///< the paired device sent it
  contacts,      ///< friends were brought in step with the contacts, or the list was cleaned up
};

/// What a manager decides about a friend by itself.
enum class PLDecisionKind {
  relinked,      ///< it is linked with another record, or with its first one, by which it is shown otherwise
  unlinked,      ///< its record is gone, and no other one fits
  deduplicated,  ///< it leaves the list: a friend in a lower slot has its record
  cleanedUp,     ///< it leaves the list: it has no destinations left
};

/// One such decision, with what it rests on.
struct PLAutomaticDecision {
  PLDecisionKind kind = PLDecisionKind::relinked;
  std::shared_ptr<PLPerson> person;  ///< the friend, changed already; who leaves the list is still in it
  Dictionary cardBefore =
      {};  ///< of a link: the entries of the friend's stored form that follow the card, as they were
  /// relinked: "before", absent for a first link, and "after", the GUIDs; "foundBy": "name" or "destinations"; "score",
  /// how well the record fits, and "candidates", of how many. unlinked: "before". deduplicated: "guid", and "stays",
  /// the name, else a destination, of the friend who stays. cleanedUp: "guid", absent without a link.
  Dictionary evidence = {};
  std::uint64_t slot =
      0;  ///< of a friend who leaves, counted over all groups, before anybody leaves for the same reason
  std::uint64_t step = 0;  ///< the number of the step with which it is stored
};

/// Told by a friends manager of its steps, and asked about them. Main queue.
class PLStepClient {
 public:
  virtual ~PLStepClient() = default;

  /// The steps up to this number are stored: a write that has them was accepted, or what they made is what is stored.
  /// Called once for a number, ascending, in a task of its own: never inside a call of the manager. May edit.
  virtual void stepsWereStored(std::uint64_t last) = 0;

  /// Steps are not stored, or what is attached waits for a write, and both are about to be merged with what other
  /// processes stored. The client takes back, by the operations of the manager, its groups and its persons, those steps
  /// that no longer hold there; what is left is merged. A group that loses its last friend here stays.
  /// Attached arrays may be set. The call is made inside a load: it must not begin a step, load, or run the main
  /// queue.
  virtual void judgeSteps(const PLStoredPages& theirs) = 0;

  /// Somebody who keeps no history has changed the stored list, which is taken over next. Arrays that are attached to
  /// the list may be set: they go out with the next write that there is another reason for. Called inside a load: else
  /// it must not edit, load, or run the main queue.
  virtual void foreignEditWasFound(const PLForeignEdit& /*edit*/) {}

  /// A decision was made about a friend of the list; `listChangedBy` of the contacts follows once all are made that
  /// come of one change of theirs. Arrays that are attached to the list may be set from here to the end of that call:
  /// they go out in the write of what was decided. Called inside a load or refresh: else it must not edit, load, or run
  /// the main queue.
  virtual void decisionWasMade(const PLAutomaticDecision& /*decision*/) {}

  /// There was no room for these favorites, in the order of the favorites: at least one. Arrays that are attached to
  /// the list may be set: they are a step, with which goes what the import brought. Else the client must not edit,
  /// load, or run the main queue.
  virtual void favoritesWereLeftOut(const std::vector<std::shared_ptr<PLPerson>>& /*persons*/) {}

  /// The list has just become another one: after a load that took over what was stored and before the refresh that may
  /// follow, or after a refresh or clean-up. Called inside a load or refresh: it must not edit, load, or run the main
  /// queue.
  virtual void listChangedBy(PLChangeOrigin origin) = 0;
};

}  // namespace pellor
