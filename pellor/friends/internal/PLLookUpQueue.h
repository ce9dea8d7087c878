// Who has to be looked up again.
#pragma once

#include <memory>
#include <vector>

#include "pellor/friends/PLPerson.h"
#include "pellor/platform/AddressBookStore.h"

namespace pellor {

/// The persons who were looked up while the contacts could not be read, and have not been since they can. Main queue.
class PLLookUpQueue {
 public:
  /// A person was just looked up in that address book.
  void note(const std::shared_ptr<PLPerson>& person, AddressBook& addressBook);
  bool isEmpty() const { return _persons.empty(); }
  /// Brings them in step with the contacts, if these can be read. Posts PLPersonValuesChangedNotification of whoever
  /// changes by it.
  void lookUpAgain(AddressBook& addressBook);

 private:
  std::vector<std::weak_ptr<PLPerson>> _persons;
};

}  // namespace pellor
