// What every contact store must do, written against the interface alone. Needs GoogleTest.
//
// A factory is one of AddressBookStoreContract.h that also has the contact store over its contacts:
//
//   ContactStore& contacts();
//   Contact contactFor(const std::string& guid);  // as the contact picker hands it out
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "pellor/platform/ContactStore.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/TestContact.h"

namespace pellor {

template <class Factory>
class ContactStoreContract : public testing::Test {
 protected:
  /// What a look at the contact gives now: the composite name, or that there is no record.
  std::string nameOf(const Contact& contact) {
    const Process::Scope scope(_contacts.process());
    const RecordRef person = _contacts.contacts().personFromContact(contact);
    return person ? person->compositeName().value_or("no name") : "nobody";
  }

  Factory _contacts;
};

TYPED_TEST_SUITE_P(ContactStoreContract);

TYPED_TEST_P(ContactStoreContract, AContactIsTheRecordOfTheSharedHandleAsLongAsThereIsOne) {
  const std::string anna = this->_contacts.add({.first = "Anna", .phones = {{"cell", "+493023125001"}}});
  const std::string boris = this->_contacts.add({.first = "Boris"});
  const Contact annas = this->_contacts.contactFor(anna), borises = this->_contacts.contactFor(boris);
  for (const auto& [contact, guid] : {std::pair{annas, anna}, std::pair{borises, boris}}) {
    const Process::Scope scope(this->_contacts.process());
    const RecordRef person = this->_contacts.contacts().personFromContact(contact);
    ASSERT_NE(person, nullptr);
    EXPECT_EQ(person->recordGUID(), guid);
    this->_contacts.store().performWithAddressBook(
        [&](AddressBook& book) { EXPECT_EQ(book.copyPersonMatchingGUID(guid), person) << "the very object"; });
  }
  EXPECT_EQ(this->nameOf({"unknown"}), "nobody");
  EXPECT_EQ(this->nameOf({""}), "nobody");

  this->_contacts.change(anna, {.first = "Anne"});
  EXPECT_TRUE(this->_contacts.runUntil([&] { return this->nameOf(annas) == "Anne"; }));
  this->_contacts.remove(boris);
  EXPECT_TRUE(this->_contacts.runUntil([&] { return this->nameOf(borises) == "nobody"; }));
  EXPECT_EQ(this->nameOf(annas), "Anne");
}

REGISTER_TYPED_TEST_SUITE_P(ContactStoreContract, AContactIsTheRecordOfTheSharedHandleAsLongAsThereIsOne);

}  // namespace pellor
