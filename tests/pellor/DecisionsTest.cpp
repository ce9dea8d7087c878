// What a manager decides about friends by itself: who is told on which evidence, and what it does not decide again.
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "pellor/friends/PLListEditor.h"
#include "pellor/friends/PLStepClient.h"
#include "pellor/friends/internal/PLException.h"
#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DecisionClient : public PLStepClient {
 public:
  void stepsWereStored(std::uint64_t last) override { stored = last; }
  void judgeSteps(const PLStoredPages&) override {}
  void listChangedBy(PLChangeOrigin) override {}
  void decisionWasMade(const PLAutomaticDecision& decision) override {
    decisions.push_back(decision);
    step = decision.step;
    said.push_back(textOf(decision));
  }

  std::vector<std::string> take() { return std::exchange(said, {}); }

  std::vector<PLAutomaticDecision> decisions;
  std::uint64_t step = 0;
  std::uint64_t stored = 0;

 private:
  // "Ann from guid-Ann, after guid-Ann2, ...": the name before it, what it rests on.
  static std::string textOf(const PLAutomaticDecision& decision) {
    static const std::vector<std::string> kinds = {"relinked", "unlinked", "deduplicated", "cleaned up"};
    const auto before = stringForKey(decision.cardBefore, PLPersonNameKey);
    std::string text = kinds.at(static_cast<std::size_t>(decision.kind)) + " " +
                       before.value_or(decision.person->displayName().value_or("?")) + ":";
    for (const auto& [key, value] : decision.evidence)
      text += " " + key + "=" + (value.string() ? *value.string() : value.description());
    return text;
  }

  std::vector<std::string> said;
};

class DecisionsTest : public ManagerTest {
 protected:
  DecisionsTest() {
    setGroups(3, 3);
    setSetting(PLEmptyTrailingGroupEnabledKey, false);
  }

  std::unique_ptr<ManagerProcess> open(const std::string& list) {
    auto process = launchWith(list);
    process->run([&] { process->manager().editor().setStepClient(client); });
    return process;
  }
  /// Changes the contacts, and what follows.
  std::vector<std::string> after(const std::function<void(InMemoryAddressBook&)>& change) {
    change(world.addressBook());
    rest();
    return client->take();
  }
  void except(const PLException& exception) {
    setSetting(PLFriendListExceptionsKey, Array{Value(dictionaryOf(exception))});
  }
  std::size_t exceptionCount() {
    const auto stored = storedValue(PLFriendListExceptionsKey);
    return stored && stored->array() ? stored->array()->size() : 0;
  }
  /// A change of the contacts that concerns no friend.
  void touchContacts() {
    world.addressBook().add({.first = "Stranger"});
    rest();
  }
  static std::string linkOf(ManagerProcess& process, std::uint64_t position = 0) {
    return process.run([&] { return process.friendAt(0, position)->abRecordGUID().value_or("-"); });
  }

  std::shared_ptr<DecisionClient> client = std::make_shared<DecisionClient>();
};

TestContact contact(const std::string& guid, const std::string& first, const std::string& mail) {
  return {.guid = guid, .first = first, .emails = {{"home", mail}}};
}

TEST_F(DecisionsTest, EachIsToldOfWithItsEvidence) {
  contacts({"Ann", "Bob"});
  auto a = open("Ann#,Cy,Bob#|Eve,-,-");
  EXPECT_THAT(client->take(), IsEmpty());
  EXPECT_THAT(after([](auto& book) {
                book.remove("guid-Ann");
                book.addAll({contact("ann2", "Ann", mailOf("Ann")), contact("ann3", "Ann", "ann3@example.org")});
              }),
              ElementsAre("relinked Ann: after=ann2 before=guid-Ann candidates=2 foundBy=name score=1"));
  EXPECT_THAT(after([](auto& book) { book.add(contact("cy1", "Silas", mailOf("Cy"))); }),
              ElementsAre("relinked Cy: after=cy1 candidates=1 foundBy=destinations score=1"))
      << "a first link by which the friend is shown otherwise";
  EXPECT_THAT(after([](auto& book) { book.add(contactNamed("Eve")); }), IsEmpty()) << "nothing is shown otherwise";
  EXPECT_THAT(after([](auto& book) { book.change("cy1", [](auto& card) { card.first = "Sila"; }); }), IsEmpty())
      << "a name follows the card";
  EXPECT_THAT(after([](auto& book) { book.remove("guid-Bob"); }), ElementsAre("unlinked Bob: before=guid-Bob"));
  a->run([&] { a->manager().personWithDestinations({mailOf("Fay")}); });
  EXPECT_THAT(after([](auto& book) { book.add(contact("fay", "Faye", mailOf("Fay"))); }), IsEmpty()) << "no friend";
  EXPECT_LE(client->step, client->stored);
}

TEST_F(DecisionsTest, FriendsWhomACleanUpTakesOutAreToldOfBeforeTheyLeave) {
  setSetting(PLRemoveDestinationlessFriendsEnabledKey, true);
  contacts({"Ann", "Bob", "Cy"});
  auto a = open("Ann#,Bob#,Cy#");
  EXPECT_THAT(after([](auto& book) {
                book.remove("guid-Bob");
                book.change("guid-Ann", [](auto& card) { card.emails.push_back({"work", mailOf("Bob")}); });
                book.change("guid-Cy", [](auto& card) { card.emails.clear(); });
              }),
              ElementsAre("relinked Bob: after=guid-Ann before=guid-Bob candidates=1 foundBy=destinations score=2",
                          "deduplicated Ann: guid=guid-Ann stays=Ann", "cleaned up Cy: guid=guid-Cy"));
  EXPECT_EQ(a->list(), "Ann,-,-");
  EXPECT_EQ(client->decisions[1].person->displayName(), "Ann");
}

// A list is opened by its manager, which loads and decides before anybody can ask to be told.
TEST_F(DecisionsTest, AClientIsToldOfWhatWasDecidedBeforeItCameAndIsNotWritten) {
  for (const bool isWritten : {false, true}) {
    store("Ann#,Ann#,-");
    contacts({isWritten ? "Bob" : "Ann"});
    auto a = launch();
    if (isWritten) rest();
    a->run([&] { a->manager().editor().setStepClient(client); });
    EXPECT_EQ(client->take().size(), isWritten ? 0U : 1U);
    EXPECT_EQ(client->step > client->stored, !isWritten);
    rest();
    EXPECT_EQ(client->step, client->stored);
    EXPECT_EQ(a->list(), "Ann,-,-");
  }
}

TEST_F(DecisionsTest, AVersionOfTheListHasOneNameInAllProcesses) {
  world.preferences().makeUnreadable();
  auto a = launch();
  EXPECT_EQ(a->manager().listVersion(), "") << "there is no list";
  world.preferences().makeReadable();
  rest();
  auto b = launch();
  rest();
  const std::string before = a->manager().listVersion();
  EXPECT_EQ(b->manager().listVersion(), before);
  a->add("Ann");
  rest();
  EXPECT_NE(a->manager().listVersion(), before);
  EXPECT_EQ(b->manager().listVersion(), a->manager().listVersion());
}

// --- What was taken back -------------------------------------------------------------------------------------------

using Change = std::function<void(InMemoryAddressBook&)>;

/// A user took back what the manager had decided, and this is what the store has since then. A result is the list, and
/// the link of the first friend.
struct Case {
  std::string what;
  PLException exception;
  Change contacts;
  Array friends;
  std::string kept;      ///< as long as the exception holds
  Change otherEvidence;  ///< absent: none is tried
  std::string then;
};

Dictionary formOf(const std::string& name, const std::optional<std::string>& guid, std::int32_t recordID,
                  const Array& values) {
  Dictionary form{{"ABRecordID", recordID}, {"ABDatabaseUID", "TestDatabase"}, {"Name", name}, {"Monogram", ""}};
  if (!values.empty()) form.emplace("AllValues", values);
  if (guid) form.emplace("ABRecordGUID", *guid);
  return form;
}

TEST_F(DecisionsTest, WhatAUserTookBackStaysSoUntilItsEvidenceChanges) {
  setSetting(PLRemoveDestinationlessFriendsEnabledKey, true);
  using Kind = PLDecisionKind;
  const std::string mail = mailOf("Ann");
  const auto put = [mail](const std::string& guid, const std::string& name) {
    return [=](InMemoryAddressBook& book) { book.put(contact(guid, name, mail)); };
  };
  const auto rename = [](auto& book) { book.change("g2", [](auto& card) { card.first = "Anne"; }); };
  const auto addMail = [](auto& book) {
    book.change("g2", [](auto& card) { card.emails.push_back({"work", "w@example.org"}); });
  };
  const auto putLinked = [&](auto& book) {
    for (const auto& change : {put("g2", "Anna"), put("g4", "Ann")}) change(book);
    book.link({"g2", "g4"});
  };
  const auto replace = [](auto& book) {
    book.remove("g2");
    book.put(contact("g5", "Anna", "other@example.org"));
  };
  const auto unlink = [](auto& book) { book.unlink("g4"); };
  const auto bare = [](auto& book) { book.put({.guid = "g1", .first = "Ann"}); };
  const auto nothing = [](auto&) {};
  const PLException notAnna{"1", Kind::relinked, {"g1", "Ann", {mail}}, {"g2", "Anna", {mail}}};
  const PLException firstLink{"1", Kind::relinked, {"", "Ann", {mail}}, {"g2", "Anna", {mail}}};
  const PLException unlinked{"1", Kind::unlinked, {.guid = "g1"}, {}};
  const PLException twice{"1", Kind::deduplicated, {.guid = "g2"}, {}};
  const PLException cleanedUp{"1", Kind::cleanedUp, {.guid = "g1", .name = "Ann"}, {}};
  const PLException nameless{"1", Kind::cleanedUp, {.name = "Ann"}, {}};
  const Array ann{formOf("Ann", "g1", 77, {mail})}, twoAnnas(2, formOf("Anna", "g2", 1, {mail}));
  const Array unlinkedAnn{formOf("Ann", std::nullopt, InvalidRecordID, {mail})};
  const Array unreachable{formOf("Ann", "g1", 1, {})};
  const Array two{formOf("Ann", std::nullopt, InvalidRecordID, {}), formOf("Bob", std::nullopt, InvalidRecordID, {})};
  const Change anna = put("g2", "Anna"), reach = put("g1", "Ann");
  const Case cases[] = {
      {"a link, until its card changes", notAnna, anna, ann, "Ann,-,- g1", rename, "Anne,-,- g2"},
      {"until another record fits", notAnna, anna, ann, "Ann,-,- g1", put("g3", "Andy"), "Andy,-,- g3"},
      {"until the friend's own card is back", notAnna, anna, ann, "Ann,-,- g1", put("g1", "Bea"), "Bea,-,- g1"},
      {"a first link", firstLink, anna, unlinkedAnn, "Ann,-,- -", addMail, "Anna,-,- g2"},
      {"a link with a record that is linked with others", notAnna, putLinked, ann, "Ann,-,- g1", unlink, "Ann,-,- g4"},
      {"no link, until a record has the GUID", unlinked, nothing, ann, "Ann,-,- g1", put("g1", "Bea"), "Bea,-,- g1"},
      {"no link, until a record fits", unlinked, nothing, ann, "Ann,-,- g1", anna, "Anna,-,- g2"},
      {"two of one record, until one is gone", twice, anna, twoAnnas, "Anna,Anna,- g2", replace, "Anna,Anna,- -"},
      {"nobody reached, until there is a number", cleanedUp, bare, unreachable, "Ann,-,- g1", reach, "Ann,-,- g1"},
      {"nobody reached, without a contact, by name", nameless, nothing, two, "Ann,-,- -", {}, ""},
  };
  const auto result = [](ManagerProcess& process) { return process.list() + " " + linkOf(process); };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.what);
    for (const char* guid : {"g1", "g2", "g3", "g4", "g5"})
      if (world.addressBook().contact(guid)) world.addressBook().remove(guid);
    each.contacts(world.addressBook());
    setSetting(PLFriendListKey, each.friends);
    except(each.exception);
    for (int restart = 0; restart < 2; ++restart) {
      auto a = launch();
      for (int refresh = 0; refresh < 3; ++refresh) touchContacts();
      EXPECT_EQ(result(*a), each.kept);
      EXPECT_EQ(exceptionCount(), 1U);
    }
    if (!each.otherEvidence) continue;
    auto a = launch();
    rest();
    each.otherEvidence(world.addressBook());
    rest();
    EXPECT_EQ(result(*a), each.then);
    EXPECT_EQ(exceptionCount(), 0U);
  }
}

TEST_F(DecisionsTest, AsManyOfOneRecordStayAsWereTakenBack) {
  contacts({"Ann"});
  const auto stays = [](const std::string& id) {
    return Value(dictionaryOf({id, PLDecisionKind::deduplicated, {.guid = "guid-Ann"}, {}}));
  };
  setSetting(PLFriendListExceptionsKey,
             Array{stays("1"), stays("2"), "no exception", Dictionary{{"id", "3"}, {"kind", "later"}}});
  auto a = launchWith("Ann#,Ann#,Ann#|Ann#,Bob,-");
  EXPECT_EQ(a->list(), "Ann,Ann,Ann|-,Bob,-");
  a->remove(0, 1);
  touchContacts();
  EXPECT_EQ(a->list(), "Ann,-,Ann|-,Bob,-") << "one exception is left";
  EXPECT_EQ(exceptionCount(), 3U) << "and what cannot be read";
  a->remove(0, 0);
  touchContacts();
  EXPECT_EQ(exceptionCount(), 2U);
}

TEST_F(DecisionsTest, WhileContactsCannotBeReadNoEvidenceIsAnotherOne) {
  world.addressBook().add(contact("g2", "Anna", mailOf("Ann")));
  except({"1", PLDecisionKind::relinked, {"g1", "Ann", {mailOf("Ann")}}, {"g2", "Anna", {mailOf("Ann")}}});
  setSetting(PLFriendListKey, Array{formOf("Ann", "g1", 77, {mailOf("Ann")})});
  auto a = launch();
  rest();
  world.addressBook().setReadable(false);
  rest();
  EXPECT_EQ(exceptionCount(), 1U);
  world.addressBook().setReadable(true);
  world.addressBook().remove("g2");
  rest();
  EXPECT_EQ(exceptionCount(), 1U) << "a record that is gone may come back as it was";
  EXPECT_EQ(linkOf(*a), "g1");
}

TEST(PLExceptionTest, IsReadAsItWasWrittenAndCountsForNothingWhereItIsDamaged) {
  const Dictionary written = dictionaryOf({"7",
                                           PLDecisionKind::relinked,
                                           {"g1", "Ann", {"a@example.org", "b@example.org"}},
                                           {.guid = "g2", .name = {}, .destinations = {}}});
  const auto read = exceptionOf(written);
  ASSERT_TRUE(read);
  EXPECT_EQ(dictionaryOf(*read), written);

  const auto with = [&](const char* key, const Value& value) {
    Dictionary members = written;
    members.insert_or_assign(key, value);
    return Value(members);
  };
  for (const Value& none : {Value("no exception"), with("id", 1), with("kind", 1), with("kind", "of a later version")})
    EXPECT_FALSE(exceptionOf(none));
  EXPECT_EQ(exceptionOf(with("friend", "Ann"))->person, PLCardIdentity());
  const Dictionary noDestinations{{"ABRecordGUID", "g1"}, {"AllValues", "a@example.org"}};
  EXPECT_EQ(exceptionOf(with("friend", noDestinations))->person.destinations, std::vector<std::string>());
  const Dictionary someDestinations{{"AllValues", Array{"b@example.org", 1, "a@example.org"}}};
  EXPECT_EQ(exceptionOf(with("friend", someDestinations))->person.destinations,
            (std::vector<std::string>{"a@example.org", "b@example.org"}));
}

}  // namespace
}  // namespace pellor
