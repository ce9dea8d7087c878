#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/testing/SimulatedProcess.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class InMemoryAddressBookTest : public ::testing::Test {
 protected:
  void with(const std::function<void(AddressBook&)>& work) {
    process.platform.addressBook->performWithAddressBook(work);
  }
  RecordRef record(const std::string& guid) {
    RecordRef found;
    with([&](AddressBook& handle) { found = handle.copyPersonMatchingGUID(guid); });
    return found;
  }
  static std::vector<std::string> guids(const std::optional<std::vector<RecordRef>>& records) {
    std::vector<std::string> result;
    for (const RecordRef& one : records.value_or(std::vector<RecordRef>())) result.push_back(one->recordGUID());
    return result;
  }
  std::vector<std::string> named(const std::string& name) {
    std::vector<std::string> result;
    with([&](AddressBook& handle) { result = guids(handle.copyPeopleMatchingName(name)); });
    return result;
  }
  std::vector<std::string> reachedBy(const std::string& destination) {
    std::vector<std::string> result;
    with([&](AddressBook& handle) { result = guids(handle.orderedPeopleForDestination(destination)); });
    return result;
  }

  SimulatedWorld world;
  InMemoryAddressBook& book = world.addressBook();
  std::shared_ptr<SimulatedScheduler> scheduler = std::make_shared<SimulatedScheduler>(1);
  SimulatedProcess process{world, scheduler};
};

TEST_F(InMemoryAddressBookTest, LinksFollowTheirRecords) {
  book.add({.guid = "nameless", .emails = {{"home", "ada@example.org"}}, .recordID = 40});
  book.add({.guid = "ada", .first = "Ada", .recordID = 30});
  book.add({.guid = "countess", .last = "Lovelace", .recordID = 20, .isPreferredForName = true});
  book.add({.guid = "other", .first = "Other", .recordID = 10});
  EXPECT_EQ(record("ada")->linkID(), InvalidRecordID);
  EXPECT_THAT(record("ada")->allLinkedPeople(), ElementsAre(record("ada")));
  EXPECT_EQ(record("nameless")->preferredLinkedPersonForName(), nullptr);

  book.link({"nameless", "ada", "countess"});
  const RecordRef ada = record("ada");
  EXPECT_EQ(ada->linkID(), 40);
  EXPECT_THAT(guids(ada->allLinkedPeople()), ElementsAre("nameless", "ada", "countess"));
  EXPECT_EQ(ada->allLinkedPeople()[1], ada) << "the record itself, not another object for it";
  EXPECT_EQ(ada->preferredLinkedPersonForName()->recordGUID(), "countess");

  book.change("nameless", [](TestContact& contact) { contact.recordID = 41; });
  EXPECT_EQ(ada->linkID(), 41);
  book.remove("nameless");
  EXPECT_EQ(ada->linkID(), 30) << "the next one stands for the set";
  book.link({"countess", "other"});
  EXPECT_EQ(ada->linkID(), InvalidRecordID) << "alone again";
  EXPECT_EQ(record("other")->linkID(), 20);
  book.unlink("countess");
  EXPECT_EQ(record("other")->linkID(), InvalidRecordID);
}

TEST_F(InMemoryAddressBookTest, OneObjectForARecordAndItsLastValuesAfterItVanished) {
  book.add({.guid = "ada", .first = "Ada", .phones = {{"home", "030 1234567"}, {"work", "030 7654321"}}});
  const RecordRef ada = record("ada");
  const std::int32_t idBefore = ada->recordID();
  const auto entriesBefore = ada->copyMultiValue(RecordProperty::phone)->entries;
  EXPECT_EQ(process.platform.contacts->personFromContact({"ada"}), ada);
  EXPECT_EQ(process.platform.contacts->personFromContact({"nobody"}), nullptr);

  book.rebuild();
  EXPECT_NE(ada->recordID(), idBefore);
  with([&](AddressBook& handle) {
    EXPECT_EQ(handle.personForRecordID(ada->recordID()), ada);
    EXPECT_EQ(handle.personForRecordID(idBefore), nullptr);
  });

  book.change("ada", [](TestContact& contact) {
    contact.first = "Augusta";
    contact.phones = {{"work", "030 7654321"}, {"mobile", "0151 2345678"}};
  });
  EXPECT_EQ(ada->compositeName(), "Augusta");
  const auto entries = ada->copyMultiValue(RecordProperty::phone)->entries;
  EXPECT_EQ(entries[0], entriesBefore[1]) << "an entry that stays keeps its identifier";
  for (const auto& before : entriesBefore) EXPECT_NE(entries[1].identifier, before.identifier);

  book.remove("ada");
  EXPECT_EQ(record("ada"), nullptr);
  EXPECT_EQ(ada->compositeName(), "Augusta");
  EXPECT_THAT(*ada->phoneValues(), ElementsAre("030 7654321", "0151 2345678"));
}

TEST_F(InMemoryAddressBookTest, FindsByWordsAndByEverySpellingInTheFixedOrder) {
  book.add({.guid = "first", .first = "Zoë", .last = "Ärmel", .phones = {{"", "+49 151 2345678"}}, .recordID = 3});
  book.add({.guid = "second", .nickname = "Zoë", .phones = {{"", "0151/2345678"}}, .recordID = 2});
  book.add({.guid = "third",
            .kind = TestContact::Kind::organization,
            .organization = "Zoo",
            .emails = {{"", "Info@Zoo.example"}},
            .recordID = 1});
  EXPECT_THAT(named("zo"), ElementsAre("third", "second", "first"));
  EXPECT_THAT(named("ärm ZOË"), ElementsAre("first"));
  EXPECT_THAT(named("oo"), IsEmpty());
  EXPECT_THAT(named(" "), IsEmpty());

  EXPECT_THAT(reachedBy("tel:00491512345678"), ElementsAre("second", "first"));
  book.link({"first", "second"});
  EXPECT_THAT(reachedBy("0151 2345678"), ElementsAre("first", "second")) << "the one that stands for the set first";
  EXPECT_THAT(reachedBy("mailto:info@zoo.EXAMPLE"), ElementsAre("third"));
  book.change("third", [](TestContact& contact) { contact.emails.clear(); });
  EXPECT_THAT(reachedBy("info@zoo.example"), IsEmpty());
  world.phoneNumbers().setHomeCountry("FR");
  EXPECT_THAT(reachedBy("+49 151 2345678"), ElementsAre("first")) << "national spellings belong to the home country";
  EXPECT_EQ(book.lookups(), (InMemoryAddressBook::Lookups{.byName = 4, .byDestination = 5}));
}

TEST_F(InMemoryAddressBookTest, AChangeIsAnnouncedToEveryProcessOnceAndLater) {
  SimulatedProcess second{world, scheduler};
  std::vector<std::shared_ptr<Observation>> observations;
  std::map<SimulatedProcess*, int> announced;
  for (SimulatedProcess* one : {&process, &second}) {
    one->run([&] {
      observations.push_back(one->process.notificationCenter().addObserver(
          one->platform.addressBook->addressBookChangedNotification(), [&announced, one](const Notification&) {
            EXPECT_EQ(&Process::current(), &one->process);
            ++announced[one];
          }));
    });
  }
  const std::int32_t before = book.sequenceNumber();
  book.addAll({{.guid = "ada"}, {.guid = "grace"}});
  book.remove("ada");
  EXPECT_EQ(book.sequenceNumber(), before + 2) << "many at once are one change";
  EXPECT_THAT(announced, IsEmpty());
  scheduler->runUntilQuiet();
  EXPECT_EQ(announced[&process], 2);
  EXPECT_EQ(announced[&second], 2);
}

TEST_F(InMemoryAddressBookTest, WhatIsSetOnAHandleStaysThere) {
  book.add({.guid = "ada", .first = "Ada"});
  const auto handle = process.platform.addressBook->openPrivateAddressBook();
  const std::int32_t sequenceNumber = handle->sequenceNumber();
  MultiValue phones;
  process.platform.addressBook->addMultiValueEntry(phones, "030 1234567", "home");
  handle->copyPersonMatchingGUID("ada")->setRecordValue(RecordProperty::phone, phones);
  handle->copyPersonMatchingGUID("ada")->setRecordValue(RecordProperty::firstName, phones);
  EXPECT_EQ(handle->copyPersonMatchingGUID("ada")->copyMultiValue(RecordProperty::phone), phones);
  EXPECT_EQ(handle->copyPersonMatchingGUID("ada")->compositeName(), "Ada") << "the wrong kind of value is ignored";
  EXPECT_EQ(record("ada")->phoneValues(), std::nullopt);
  EXPECT_EQ(handle->sequenceNumber(), sequenceNumber);

  book.setOpenFails(true);
  EXPECT_EQ(process.platform.addressBook->openPrivateAddressBook(), nullptr);
}

using InMemoryAddressBookDeathTest = InMemoryAddressBookTest;

TEST_F(InMemoryAddressBookDeathTest, ARecordEndsWithItsHandle) {
  book.add({.guid = "ada"});
  auto handle = process.platform.addressBook->openPrivateAddressBook();
  const RecordRef ada = handle->copyPersonMatchingGUID("ada");
  handle.reset();
  EXPECT_DEATH(ada->compositeName(), "address book handle is still open");
}

}  // namespace
}  // namespace pellor
