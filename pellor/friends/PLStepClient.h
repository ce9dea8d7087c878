// What a friends manager tells and asks about steps: edits that are stored together or not at all.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

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
  std::uint64_t storedStep = 0;        ///< steps up to this number are stored, though it may not have been told yet
};

/// Why a list became another one.
enum class PLChangeOrigin {
  load,          ///< it was read for the first time
  otherProcess,  ///< another process wrote it
  device,        ///< the paired device sent it
  contacts,      ///< friends were brought in step with the contacts, or the list was cleaned up
};

/// Told by a friends manager of its steps, and asked about them. Main queue.
class PLStepClient {
 public:
  virtual ~PLStepClient() = default;

  /// The steps up to this number are stored: a write that has them was accepted, or what they made is what is stored.
  /// Called once for a number, ascending, in a task of its own: never inside a call of the manager. May edit.
  virtual void stepsWereStored(std::uint64_t last) = 0;

  /// Steps are not stored, and are about to be merged with what other processes stored. The client takes back, by the
  /// operations of the manager, its groups and its persons, those of them that no longer hold there; what is left is
  /// merged. A group that loses its last friend here stays. The call is made inside a load: it must not begin a step,
  /// load, or run the main queue.
  virtual void judgeSteps(const PLStoredPages& theirs) = 0;

  /// The list has just become another one: after a load that took over what was stored and before the refresh that may
  /// follow, or after a refresh or clean-up. Called inside a load or refresh: it must not edit, load, or run the main
  /// queue.
  virtual void listChangedBy(PLChangeOrigin origin) = 0;
};

}  // namespace pellor
