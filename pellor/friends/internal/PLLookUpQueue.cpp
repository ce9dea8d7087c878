#include "pellor/friends/internal/PLLookUpQueue.h"

#include <utility>

namespace pellor {

void PLLookUpQueue::note(const std::shared_ptr<PLPerson>& person, AddressBook& addressBook) {
  if (person && !addressBook.isReadable()) _persons.push_back(person);
}

void PLLookUpQueue::lookUpAgain(AddressBookStore& store) {
  if (_persons.empty()) return;
  store.performWithAddressBook([&](AddressBook& addressBook) {
    if (store.contactsFall() || !addressBook.isReadable()) return;
    for (const auto& weak : std::exchange(_persons, {})) {
      const auto person = weak.lock();
      if (!person) continue;
      person->refreshWithAddressBook(&addressBook);
      note(person, addressBook);
    }
  });
}

}  // namespace pellor
