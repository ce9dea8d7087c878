// The contact picker over a contacts folder.
#pragma once

#include <memory>

#include "linux/VdirAddressBook.h"
#include "platform/ContactStore.h"

namespace pellor {

/// A contact's identifier is the GUID of its record. Records are those of the process's shared handle.
class VdirContactStore final : public ContactStore {
 public:
  explicit VdirContactStore(std::shared_ptr<VdirAddressBook> addressBook) : _addressBook(std::move(addressBook)) {}

  RecordRef personFromContact(const Contact& contact) override {
    RecordRef person;
    _addressBook->performWithAddressBook(
        [&](AddressBook& addressBook) { person = addressBook.copyPersonMatchingGUID(contact.identifier); });
    return person;
  }

 private:
  const std::shared_ptr<VdirAddressBook> _addressBook;
};

}  // namespace pellor
