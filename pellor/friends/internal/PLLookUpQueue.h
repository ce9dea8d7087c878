// The persons to be looked up again.
#pragma once

#include <memory>
#include <vector>

#include "pellor/friends/PLPerson.h"
#include "pellor/platform/AddressBookStore.h"

namespace pellor {

/// The persons that were looked up while the contacts could not be read, and have not been since they can. Main queue.
class PLLookUpQueue {
 public:
  /// A person was just looked up in that address book.
  void note(const std::shared_ptr<PLPerson>& person, AddressBook& addressBook);
  /// Brings them in step with the contacts, if these can be read and most of them are there: some of the persons may be
  /// friends by now, and wait as a refresh does. Posts PLPersonValuesChangedNotification for each that changes.
  void lookUpAgain(AddressBookStore& store);

 private:
  std::vector<std::weak_ptr<PLPerson>> _persons;
};

}  // namespace pellor
