// Contacts as an app's contact picker hands them out.
#pragma once

#include <string>

#include "pellor/platform/AddressBookStore.h"

namespace pellor {

/// A contact of a contact store, named by the store's own identifier.
struct Contact {
  std::string identifier;
};

/// Main queue.
class ContactStore {
 public:
  virtual ~ContactStore() = default;
  /// The record of a contact, by the process's shared handle; null when there is none any more.
  virtual RecordRef personFromContact(const Contact& contact) = 0;
};

}  // namespace pellor
