#include "linux/eds/EDSContacts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/contract/AddressBookStoreContract.h"
#include "tests/contract/FavoritesSourceContract.h"
#include "tests/linux/CardContacts.h"
#include "tests/services/EDSService.h"

namespace pellor {
namespace {

class ContactsInEDS final : public CardContacts {
 public:
  ContactsInEDS() { _service.removeAll(); }
  ~ContactsInEDS() override { end(); }

 private:
  std::shared_ptr<CardSource> makeSource() override {
    return std::make_shared<EDSContacts>(EDSContactsOptions{{}, 60});
  }
  std::string put(const std::string& guid, const TestContact& contact, const CardMarks& marks) override {
    if (guid.empty()) return _service.add({cardOf("", contact, marks)}).front();
    _service.change(cardOf(guid, contact, marks));
    return guid;
  }
  void drop(const std::string& guid) override { _service.remove(guid); }

  EDSService& _service = EDSService::shared();
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(EDS, AddressBookStoreContract, ContactsInEDS);
INSTANTIATE_TYPED_TEST_SUITE_P(EDS, FavoritesSourceContract, ContactsInEDS);

}  // namespace pellor
