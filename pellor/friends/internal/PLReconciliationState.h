// Which friends are in step with the contacts already, so that a refresh need not look at their records again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/detail/PLPersonRecord.h"
#include "pellor/platform/AddressBookStore.h"

namespace pellor {

/// Notes, slot by slot, the record in which the last refresh left each linked friend, and what the contacts were then.
/// A friend that has another record or slot now, or whose record may have changed since, counts as not in step: that
/// costs a look at a record, and nothing else. So does one whose slot the last refresh did not come to: only what
/// changed since that refresh is known. Friends without a record are never in step, they are searched each time. Main
/// queue.
class PLReconciliationState {
 public:
  /// Begins a refresh of a list of that many slots: finds out what changed since the last one that ran to its end.
  void begin(const AddressBookStore& store, AddressBook& addressBook, std::uint64_t slotCount);
  /// Comes to the friend in a slot, and tells whether reconciling it would change nothing and log nothing. The note
  /// about a friend that is passed over so stays; for another friend, `note` follows.
  bool passOver(std::uint64_t index, const PLPerson& person, AddressBook& addressBook);
  /// Notes that the friend in a slot was reconciled just now.
  void note(std::uint64_t index, const PLPerson& person);
  /// Ends a refresh, and forgets the slots that it did not come to. One that could not look everybody up leaves nobody
  /// in step.
  void end(bool isComplete);

 private:
  // What the values that friends take from their records depend on.
  struct Contacts {
    std::optional<std::string> databaseUID;
    bool shortNames = false;
    bool prefersNicknames = false;
    friend bool operator==(const Contacts&, const Contacts&) = default;
  };

  Contacts _contacts;
  std::int32_t _sequenceNumber = 0;        // of the contacts when the refresh began
  std::vector<PLPersonRecord> _records;    // of the friends, by slot
  std::vector<bool> _isNoted;              // by slot, whether this refresh found the friend with that record
  std::vector<std::string> _changedGUIDs;  // ascending
};

}  // namespace pellor
