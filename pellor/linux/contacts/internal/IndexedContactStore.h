// The contact picker over an indexed address book.
#pragma once

#include <memory>

#include "pellor/linux/contacts/internal/IndexedAddressBook.h"
#include "pellor/platform/ContactStore.h"

namespace pellor {

/// A contact's identifier is the GUID of its record. Records are those of the process's shared handle.
class IndexedContactStore final : public ContactStore {
 public:
  explicit IndexedContactStore(std::shared_ptr<IndexedAddressBook> addressBook)
      : _addressBook(std::move(addressBook)) {}

  RecordRef personFromContact(const Contact& contact) override {
    RecordRef person;
    _addressBook->performWithAddressBook(
        [&](AddressBook& addressBook) { person = addressBook.copyPersonMatchingGUID(contact.identifier); });
    return person;
  }

 private:
  const std::shared_ptr<IndexedAddressBook> _addressBook;
};

}  // namespace pellor
