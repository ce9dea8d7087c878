#include "pellor/linux/eds/EDSContacts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pellor/testing/contract/AddressBookStoreContract.h"
#include "pellor/testing/contract/FavoritesSourceContract.h"
#include "tests/linux/CardContacts.h"
#include "tests/linux/RefusedThreads.h"
#include "tests/services/servers/EDSService.h"

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

using testing::HasSubstr;

struct EDSContactsTest : testing::Test, ContactsFixture {
  EDSContactsTest() { service.removeAll(); }

  static std::shared_ptr<EDSContacts> contactsOf(EDSContactsOptions options = {}) {
    return std::make_shared<EDSContacts>(std::move(options));
  }
  std::string addPerson(const std::string& name) { return service.add({card("", name)}).front(); }
  std::size_t saidAway() const { return log->count("of Evolution Data Server does not answer"); }
  std::size_t saidBack() const { return log->count("of Evolution Data Server can be read again"); }

  EDSService& service = EDSService::shared();
};

TEST_F(EDSContactsTest, AServiceThatIsKilledIsConnectedToAgainAndNothingIsMissed) {
  const std::string anna = addPerson("Anna"), boris = addPerson("Boris");
  AddressBookProgram program(log, contactsOf(), options());
  EXPECT_TRUE(program.waitUntil([&] { return program.nameOf(boris) == "Boris"; }));
  for (std::size_t round = 1; round <= 2; ++round) {
    const std::string name = "Anne " + std::to_string(round);
    service.kill();
    EXPECT_TRUE(program.waitUntil([&] { return saidAway() == round; }));
    EXPECT_EQ(program.nameOf(boris), "Boris");
    service.change(card(anna, name));
    const std::string added = addPerson("Clara");
    EXPECT_TRUE(program.waitUntil([&] { return program.nameOf(added) == "Clara"; }));
    service.remove(added);
    EXPECT_TRUE(program.waitUntil([&] { return program.nameOf(added) == "(none)"; }));
    EXPECT_EQ(program.nameOf(anna), name);
    EXPECT_EQ(saidAway(), round);
    EXPECT_EQ(saidBack(), round);
  }
}

TEST_F(EDSContactsTest, ABusThatEndsIsConnectedToAgain) {
  const std::string anna = addPerson("Anna");
  AddressBookProgram program(log, contactsOf({{}, 60}), options());
  EXPECT_EQ(program.nameOf(anna), "Anna");
  service.stopBus();
  EXPECT_TRUE(program.waitUntil([&] { return saidAway() == 1; }));
  EXPECT_EQ(program.nameOf(anna), "Anna");
  service.startBus();
  service.change(card(anna, "Anne"));
  EXPECT_TRUE(program.waitUntil([&] { return program.nameOf(anna) == "Anne"; }));
  EXPECT_EQ(saidAway(), 1U);
  EXPECT_EQ(saidBack(), 1U);
}

TEST_F(EDSContactsTest, WithoutTheServiceTheContactsAreWhatTheyWere) {
  const std::string anna = addPerson("Anna");
  AddressBookProgram(log, contactsOf({{}, 60}), options()).nameOf(anna);
  service.setInstalled(false);
  const auto source = contactsOf();
  AddressBookProgram later(log, source, options());
  EXPECT_EQ(later.nameOf(anna), "Anna") << "at once";
  EXPECT_TRUE(later.isReadable());
  ContactIndexOptions another = options();
  another.dataFolder = folder / "another";
  AddressBookProgram first(log, contactsOf(), another);
  EXPECT_FALSE(first.isReadable()) << "nobody has ever seen these contacts";
  EXPECT_TRUE(
      later.waitUntil([&] { return later.store->sourceError().value_or("").find("does not") != std::string::npos; }));
  EXPECT_THAT(first.store->readError().value_or(""), HasSubstr("of Evolution Data Server"));
  EXPECT_TRUE(first.waitUntil([&] { return saidAway() == 2; })) << "once by each";
  EXPECT_EQ(source->report(0).state, ServiceReport::State::fails);
  EXPECT_THAT(contactsOf({"no-such-source", 0})->report(60).detail, HasSubstr("no such source"));

  service.setInstalled(true);
  EXPECT_TRUE(first.waitUntil([&] { return first.posts[AddressBookChangedNotification] > 0; }));
  EXPECT_EQ(first.nameOf(anna), "Anna");
  EXPECT_TRUE(later.waitUntil([&] { return saidBack() == 2; }));
  EXPECT_EQ(later.posts[AddressBookChangedNotification], 0) << "they are the same";
  EXPECT_EQ(saidAway(), 2U);
  EXPECT_THAT(source->report(60).detail, HasSubstr("source system-address-book: 1 contact"));
  later.with([](AddressBook& book) { EXPECT_EQ(book.databaseUID(), "system-address-book"); });
}

TEST_F(EDSContactsTest, LookingManyPeopleUpAsksTheServiceNothing) {
  constexpr std::size_t people = 1000;
  std::vector<std::string> cards;
  for (std::size_t number = 0; number < people; ++number)
    cards.push_back(card("", "Name " + std::to_string(number), "EMAIL:p" + std::to_string(number) + "@example.org\n"));
  const std::vector<std::string> guids = service.add(cards);
  const auto source = contactsOf({{}, 60});
  AddressBookProgram program(log, source, options());
  ASSERT_EQ(program.nameOf(guids.back()), "Name 999");
  const std::size_t before = source->calls();
  program.with([&](AddressBook& book) {
    for (std::size_t number = 0; number < people; ++number) {
      const RecordRef person = book.copyPersonMatchingGUID(guids[number]);
      const auto found = book.orderedPeopleForDestination("p" + std::to_string(number) + "@example.org");
      ASSERT_EQ(found, std::optional(std::vector{person}));
      ASSERT_EQ(person->compositeName(), "Name " + std::to_string(number));
    }
  });
  EXPECT_EQ(source->calls(), before);
  service.change(card(guids.front(), "Anna"));
  EXPECT_TRUE(program.waitUntil([&] { return program.nameOf(guids.front()) == "Anna"; }));
  EXPECT_LE(source->calls() - before, 3U);
}

TEST(EDSRefusedThreadsTest, WithoutItsThreadTheContactsCannotBeToldUntilItCanBeStarted) {
  runWithRefusedThreads([](const RefusedThreads& refused) {
    ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    EDSContacts source;
    const auto watch = source.watch([](const CardNews&) {});
    try {
      source.list();
      ADD_FAILURE() << "nobody has asked the service";
    } catch (const CardSourceError& error) {
      EXPECT_THAT(error.what(), testing::AllOf(HasSubstr(RefusedThreads::Refusal), HasSubstr("ulimit -u")));
      EXPECT_EQ(error.remedy(), CardSourceError::Remedy::tryAgain) << "nobody can tell";
    }
    EXPECT_THAT(source.report(60).detail, HasSubstr(RefusedThreads::Refusal));
    EXPECT_THAT(source.report(60).advice, HasSubstr("ulimit -u"));
    refused.lift();
    const ServiceReport report = source.report(60);
    EXPECT_EQ(report.state, ServiceReport::State::fails);
    EXPECT_THAT(report.detail, testing::Not(HasSubstr(RefusedThreads::Refusal))) << "the service itself is asked";
  });
}

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(EDS, AddressBookStoreContract, ContactsInEDS);
INSTANTIATE_TYPED_TEST_SUITE_P(EDS, FavoritesSourceContract, ContactsInEDS);

}  // namespace pellor
