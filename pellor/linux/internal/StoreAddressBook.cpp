#include "pellor/linux/internal/StoreAddressBook.h"

namespace pellor {

// Work that throws ends it too.
class StoreAddressBook::Inside {
 public:
  explicit Inside(StoreAddressBook& store) : _store(store) { ++_store._depth; }
  ~Inside() {
    if (--_store._depth == 0) _store._inside.reset();
  }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

 private:
  StoreAddressBook& _store;
};

void StoreAddressBook::performWithAddressBook(const std::function<void(AddressBook&)>& work) {
  const Inside inside(*this);
  _contacts->performWithAddressBook(work);
}

NameSettings StoreAddressBook::settings() const {
  if (_depth == 0) return _settings.current();
  if (!_inside) _inside = _settings.current();
  return *_inside;
}

}  // namespace pellor
