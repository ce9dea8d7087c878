// What every address book must do, written against the interface alone. Needs GoogleTest.
//
// A factory has the address book of one program and does to it what the world does. Contacts are named by their GUIDs,
// which the address book chooses; national phone numbers are German ones.
//
//   struct MyContacts {
//     Process& process();
//     AddressBookStore& store();
//     std::string add(const TestContact& contact);
//     void change(const std::string& guid, const TestContact& contact);
//     void remove(const std::string& guid);
//     void link(const std::string& guid, const std::string& other);
//     void breakReading();    // lookups fail
//     void restoreReading();
//     template <class Condition> bool runUntil(Condition condition);  // runs the program; false after a long time
//   };
//   INSTANTIATE_TYPED_TEST_SUITE_P(Mine, AddressBookStoreContract, MyContacts);
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/platform/AddressBookStore.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/TestContact.h"

namespace pellor {

template <class Factory>
class AddressBookStoreContract : public testing::Test {
 protected:
  using GUIDs = std::vector<std::string>;
  using Records = std::vector<RecordRef>;

  template <class Work>
  void with(Work work) {
    const Process::Scope scope(_contacts.process());
    _contacts.store().performWithAddressBook([&](AddressBook& book) { work(book); });
  }
  std::int32_t sequence() {
    std::int32_t number = 0;
    with([&](AddressBook& book) { number = book.sequenceNumber(); });
    return number;
  }
  /// Counts the notifications from now on.
  void observe() {
    sequence();
    _observation = _contacts.process().notificationCenter().addObserver(
        _contacts.store().addressBookChangedNotification(), [this](const Notification&) { ++_posts; });
  }
  /// Makes a change and waits until it is told of.
  void await(const std::function<void()>& change) {
    const int before = _posts;
    change();
    ASSERT_TRUE(_contacts.runUntil([&] { return _posts > before; }));
  }
  std::string add(const TestContact& contact) {
    std::string guid;
    await([&] { guid = _contacts.add(contact); });
    return guid;
  }
  static TestContact anna() {
    return {.first = "Anna",
            .last = "Novak",
            .phones = {{"cell", "+49 30 23125 001"}},
            .emails = {{"home", "Anna@Example.org"}}};
  }
  static Records byIdentifier(Records records) {
    std::sort(records.begin(), records.end(),
              [](const RecordRef& one, const RecordRef& other) { return one->recordID() < other->recordID(); });
    return records;
  }

  Factory _contacts;
  int _posts = 0;
  std::shared_ptr<Observation> _observation;
};

TYPED_TEST_SUITE_P(AddressBookStoreContract);

TYPED_TEST_P(AddressBookStoreContract, FindsAContactByEachOfItsKeys) {
  using Expected = std::optional<typename TestFixture::Records>;
  const std::string annasGUID = this->_contacts.add(this->anna());
  const std::string borisGUID = this->_contacts.add(
      {.first = "Boris", .nickname = "Bo", .phones = {{"", "030 23125001"}, {"work", "+441234567"}}});
  this->with([&](AddressBook& book) {
    EXPECT_TRUE(book.isReadable());
    EXPECT_FALSE(book.databaseUID().value_or("").empty());
    const RecordRef anna = book.copyPersonMatchingGUID(annasGUID), boris = book.copyPersonMatchingGUID(borisGUID);
    ASSERT_TRUE(anna && boris && anna != boris);
    EXPECT_EQ(anna->recordGUID(), annasGUID);
    EXPECT_EQ(anna->compositeName(), "Anna Novak");
    EXPECT_EQ(anna->recordValue(RecordProperty::lastName), "Novak");
    EXPECT_EQ(anna->phoneValues(), std::vector<std::string>{"+49 30 23125 001"});
    EXPECT_EQ(anna->emailValues(), std::vector<std::string>{"Anna@Example.org"});
    EXPECT_EQ(boris->nickname(), "Bo");
    EXPECT_EQ(boris->emailValues(), std::nullopt);
    EXPECT_EQ(boris->copyMultiValue(RecordProperty::phone)->entries.at(1).label, "work");

    EXPECT_EQ(book.personForRecordID(anna->recordID()), anna);
    EXPECT_EQ(book.copyPeopleMatchingName("anna NOVAK"), Expected({anna}));
    const auto both = this->byIdentifier({anna, boris});
    EXPECT_EQ(book.allPeople(), both);
    for (const char* number : {"+493023125001", "030 2312 5001", "+49 (30) 23125-001"})
      EXPECT_EQ(book.orderedPeopleForDestination(number), Expected(both)) << number;
    EXPECT_EQ(book.orderedPeopleForDestination("anna@EXAMPLE.org"), Expected({anna}));

    EXPECT_EQ(book.copyPersonMatchingGUID("nobody"), nullptr);
    EXPECT_EQ(book.copyPersonMatchingGUID(""), nullptr);
    EXPECT_EQ(book.personForRecordID(InvalidRecordID), nullptr);
    EXPECT_EQ(book.copyPeopleMatchingName("Anna Nowhere"), std::nullopt);
    EXPECT_EQ(book.orderedPeopleForDestination("+493023125009"), std::nullopt);
  });
}

TYPED_TEST_P(AddressBookStoreContract, LinkedContactsHaveOneThatStandsForThemAndOneThatNamesThem) {
  const std::vector<LabelledValue> phones = {{"", "+493023125001"}};
  const std::string a = this->_contacts.add({.phones = phones});
  const std::string b = this->_contacts.add({.first = "Boris", .phones = phones});
  const std::string c = this->_contacts.add({.first = "Clara", .phones = phones});
  this->observe();
  this->await([&] { this->_contacts.link(a, c); });
  this->with([&](AddressBook& book) {
    const RecordRef nameless = book.copyPersonMatchingGUID(a), boris = book.copyPersonMatchingGUID(b),
                    clara = book.copyPersonMatchingGUID(c);
    const auto linked = clara->allLinkedPeople();
    ASSERT_EQ(linked.size(), 2U);
    EXPECT_EQ(this->byIdentifier(linked), this->byIdentifier({nameless, clara}));
    EXPECT_EQ(nameless->allLinkedPeople(), linked);
    EXPECT_EQ(clara->linkID(), linked.front()->recordID());
    EXPECT_EQ(nameless->linkID(), clara->linkID());
    EXPECT_EQ(boris->linkID(), InvalidRecordID);
    EXPECT_EQ(boris->allLinkedPeople(), (typename TestFixture::Records{boris}));
    EXPECT_EQ(nameless->preferredLinkedPersonForName(), clara);
    auto expected = this->byIdentifier({linked.front(), boris});
    expected.push_back(linked.back());
    EXPECT_EQ(book.orderedPeopleForDestination("+493023125001"), expected);

    // The links are read at once as well.
    const std::vector<std::string_view> guids{a, "nobody", b};
    book.withPeopleMatchingGUIDs(guids, [&] {
      EXPECT_EQ(book.copyPersonMatchingGUID(a), nameless);
      EXPECT_EQ(book.copyPersonMatchingGUID(a)->allLinkedPeople(), linked);
      EXPECT_EQ(book.copyPersonMatchingGUID("nobody"), nullptr);
      EXPECT_EQ(book.copyPersonMatchingGUID(c), clara) << "the others are found as ever";
    });
  });
  this->await([&] { this->_contacts.remove(c); });
  this->with([&](AddressBook& book) {
    const RecordRef nameless = book.copyPersonMatchingGUID(a);
    EXPECT_EQ(nameless->linkID(), InvalidRecordID);
    EXPECT_EQ(nameless->preferredLinkedPersonForName(), nullptr);
  });
}

TYPED_TEST_P(AddressBookStoreContract, EachChangeIsToldOfOnceAndNamesWhoeverItConcerns) {
  const std::string a = this->_contacts.add(this->anna()), b = this->_contacts.add({.first = "Boris"});
  this->observe();
  std::string added;
  TestContact changed = this->anna();
  changed.last = "Neu";
  const struct {
    const char* what;
    std::function<void()> change;
    std::function<typename TestFixture::GUIDs()> concerned;
  } rows[] = {
      {"a new contact", [&] { added = this->_contacts.add({.first = "Dora"}); }, [&] { return std::vector{added}; }},
      {"a link", [&] { this->_contacts.link(a, added); },
       [&] {
         return std::vector{a, added};
       }},
      {"a change of a linked one", [&] { this->_contacts.change(a, changed); },
       [&] {
         return std::vector{a, added};
       }},
      {"one that goes", [&] { this->_contacts.remove(added); },
       [&] {
         return std::vector{a, added};
       }},
      {"a change of an unlinked one", [&] { this->_contacts.change(b, changed); }, [&] { return std::vector{b}; }},
  };
  int changes = 0;
  for (const auto& row : rows) {
    const std::int32_t before = this->sequence();
    this->await(row.change);
    EXPECT_EQ(this->_posts, ++changes) << row.what;
    auto concerned = row.concerned();
    std::sort(concerned.begin(), concerned.end());
    this->with([&](AddressBook& book) {
      EXPECT_NE(book.sequenceNumber(), before) << row.what;
      EXPECT_EQ(book.guidsOfPeopleChangedSince(before, concerned.size()), concerned) << row.what;
      EXPECT_EQ(book.guidsOfPeopleChangedSince(before, concerned.size() - 1), std::nullopt) << "more than asked for";
      EXPECT_EQ(book.guidsOfPeopleChangedSince(book.sequenceNumber(), 9), typename TestFixture::GUIDs());
      EXPECT_EQ(book.guidsOfPeopleChangedSince(book.sequenceNumber() + 1, 9), std::nullopt) << "no number of its own";
    });
  }
  this->with([&](AddressBook& book) {
    EXPECT_EQ(book.copyPersonMatchingGUID(a)->compositeName(), "Anna Neu");
    EXPECT_EQ(book.copyPeopleMatchingName("Anna Novak"), std::nullopt);
  });
}

TYPED_TEST_P(AddressBookStoreContract, AContactThatIsMadeAgainIsAnotherRecord) {
  this->observe();
  const std::string former = this->add(this->anna());
  std::int32_t formerID = InvalidRecordID;
  RecordRef held;
  this->with([&](AddressBook& book) { held = book.copyPersonMatchingGUID(former); });
  ASSERT_NE(held, nullptr);
  formerID = held->recordID();
  this->await([&] { this->_contacts.remove(former); });
  const std::string again = this->add(this->anna());
  EXPECT_NE(again, former);
  this->with([&](AddressBook& book) {
    EXPECT_EQ(book.copyPersonMatchingGUID(former), nullptr);
    EXPECT_EQ(book.personForRecordID(formerID), nullptr);
    const auto found = book.orderedPeopleForDestination("+493023125001");
    ASSERT_TRUE(found && found->size() == 1);
    EXPECT_EQ(found->front()->recordGUID(), again);
    EXPECT_NE(found->front()->recordID(), formerID);
    EXPECT_EQ(held->compositeName(), "Anna Novak") << "the values as they were";
  });
}

TYPED_TEST_P(AddressBookStoreContract, WhatIsSetOnARecordStaysInTheHandle) {
  this->observe();
  const std::string guid = this->add(this->anna());
  const Process::Scope scope(this->_contacts.process());
  AddressBookStore& store = this->_contacts.store();
  const auto own = store.openPrivateAddressBook();
  const RecordRef anna = own->copyPersonMatchingGUID(guid);
  MultiValue phones = anna->copyMultiValue(store.propertyType(RecordProperty::phone) == RecordPropertyTypeMultiString
                                               ? RecordProperty::phone
                                               : RecordProperty::email)
                          .value();
  const std::int32_t added = store.addMultiValueEntry(phones, "+493023125002", "work");
  phones.entries.pop_back();
  EXPECT_GT(store.addMultiValueEntry(phones, "+493023125003", "home"), added);
  anna->setRecordValue(RecordProperty::phone, phones);
  anna->setRecordValue(RecordProperty::nickname, std::string("Ann"));
  // The record is asked for again, and the contact has changed meanwhile.
  this->await([&] { this->_contacts.change(guid, {.first = "Anne"}); });
  EXPECT_EQ(own->copyPersonMatchingGUID(guid), anna);
  EXPECT_EQ(anna->nickname(), "Ann");
  EXPECT_EQ(anna->phoneValues(), (std::vector<std::string>{"+49 30 23125 001", "+493023125003"}));
  EXPECT_EQ(own->guidsOfPeopleChangedSince(own->sequenceNumber(), 9), std::nullopt) << "they are not the database's";
  this->with([&](AddressBook& shared) {
    EXPECT_EQ(shared.copyPersonMatchingGUID(guid)->phoneValues(), std::nullopt);
    EXPECT_EQ(shared.copyPersonMatchingGUID(guid)->compositeName(), "Anne");
  });
}

TYPED_TEST_P(AddressBookStoreContract, WhatCannotBeReadIsNotEmptyAndIsToldOfWhenItCan) {
  const std::string guid = this->_contacts.add(this->anna());
  this->observe();
  this->with([&](AddressBook& book) { EXPECT_NE(book.copyPersonMatchingGUID(guid), nullptr); });
  this->_contacts.breakReading();
  this->with([&](AddressBook& book) {
    EXPECT_EQ(book.copyPersonMatchingGUID(guid), nullptr);
    EXPECT_FALSE(book.isReadable());
    EXPECT_EQ(book.guidsOfPeopleChangedSince(1, 9), std::nullopt);
  });
  this->await([&] { this->_contacts.restoreReading(); });
  EXPECT_TRUE(this->_contacts.runUntil([&] {
    RecordRef anna;
    bool isReadable = false;
    this->with([&](AddressBook& book) {
      anna = book.copyPersonMatchingGUID(guid);
      isReadable = book.isReadable();
    });
    return anna && isReadable;
  }));
}

TYPED_TEST_P(AddressBookStoreContract, ItIsToldWhenMostContactsAreGone) {
  std::vector<std::string> guids;
  for (int number = 0; number < 8; ++number)
    guids.push_back(this->_contacts.add({.first = "Person " + std::to_string(number)}));
  this->observe();
  std::optional<ContactsFall> fall;
  const auto look = [&] {
    this->with([&](AddressBook&) { fall = this->_contacts.store().contactsFall(); });
    return fall.has_value();
  };
  const auto remove = [&](std::size_t first, std::size_t end) {
    for (; first < end; ++first) this->_contacts.remove(guids[first]);
  };
  EXPECT_FALSE(look()) << "nobody was refreshed yet";
  this->with([&](AddressBook&) { this->_contacts.store().noteRefresh(); });
  remove(0, 5);
  EXPECT_TRUE(this->_contacts.runUntil([&] { return look() && fall->now == 3; }));
  EXPECT_EQ(fall->before, 8U);
  this->_contacts.breakReading();
  this->with([&](AddressBook& book) {
    book.copyPersonMatchingGUID("anybody");
    EXPECT_FALSE(this->_contacts.store().contactsFall().has_value()) << "what cannot be read has not fallen";
  });
  this->await([&] { this->_contacts.restoreReading(); });
  EXPECT_TRUE(this->_contacts.runUntil(look));
  guids.push_back(this->_contacts.add({.first = "Somebody else"}));
  EXPECT_TRUE(this->_contacts.runUntil([&] { return !look(); })) << "half are there, by number";
  remove(8, 9);
  EXPECT_TRUE(this->_contacts.runUntil(look));
  this->_contacts.store().acceptContacts();
  EXPECT_FALSE(look());
}

REGISTER_TYPED_TEST_SUITE_P(AddressBookStoreContract, FindsAContactByEachOfItsKeys,
                            LinkedContactsHaveOneThatStandsForThemAndOneThatNamesThem,
                            EachChangeIsToldOfOnceAndNamesWhoeverItConcerns, AContactThatIsMadeAgainIsAnotherRecord,
                            WhatIsSetOnARecordStaysInTheHandle, WhatCannotBeReadIsNotEmptyAndIsToldOfWhenItCan,
                            ItIsToldWhenMostContactsAreGone);

}  // namespace pellor
