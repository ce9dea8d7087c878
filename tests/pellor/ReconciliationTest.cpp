// How a friend follows its contact, and finds another one.
#include <cmath>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLRecordMatch.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Reconciliation : public OneProcess {
 protected:
  InMemoryAddressBook& contacts() { return world.addressBook(); }
  std::int32_t recordID(const std::string& guid) { return record(guid)->recordID(); }
  std::shared_ptr<PLPerson> personOf(const std::string& guid) {
    return PLPerson::initWithABRecordGUIDAddressBook(guid, book());
  }
  /// What the stored form of a person in line with its contact is.
  PersonDictionary formOf(const std::string& guid, const std::string& name, Array values, const std::string& monogram) {
    return {{"ABRecordID", recordID(guid)}, {"ABRecordGUID", guid}, {"ABDatabaseUID", "TestDatabase"}, {"Name", name},
            {"AllValues", values},          {"Monogram", monogram}};
  }
  /// Refreshes, and tells whether the person was marked and announced as changed, which go together.
  bool refreshChanges(const std::shared_ptr<PLPerson>& person) {
    const auto posted = changes.count();
    person->takeNeedsSave();
    person->refreshWithAddressBook(book());
    settle();
    EXPECT_EQ(person->needsSave(), changes.count() == posted + 1);
    for (const LogEntry& line : log->entries()) {
      const std::string shared = line.text(LogEntry::Private::hidden);
      for (const char* secret : {"Ann", "@", "+49", "[A"}) EXPECT_THAT(shared, Not(HasSubstr(secret)));
    }
    return person->needsSave();
  }

  Posts changes{process, PLPersonValuesChangedNotification};
  Posts unlinks{process, PLPersonUnlinkedFromAddressBookNotification};
};

TEST_F(Reconciliation, ALinkedFriendFollowsItsRecord) {
  const std::string ann = contacts().add({.guid = "ann", .first = "Ann", .emails = {{"home", "ann@example.org"}}});
  const auto person = personOf(ann);
  EXPECT_EQ(person->dictionaryRepresentation(), formOf(ann, "Ann", {"ann@example.org"}, "A"));
  EXPECT_TRUE(person->needsSave());
  EXPECT_THAT(takeLog(), IsEmpty()) << "made silently";
  EXPECT_EQ(person->primaryDestination(), "ann@example.org");
  EXPECT_FALSE(refreshChanges(person)) << "nothing is new";
  EXPECT_THAT(takeLog(), IsEmpty());
  contacts().change(ann, [](TestContact& contact) {
    contact.last = "Bee";
    contact.recordID = 99;
    contact.phones = {{"home", "030 1234567"}};
  });
  EXPECT_TRUE(refreshChanges(person));
  EXPECT_THAT(takeLog(), ElementsAre("updating AB record ID for friend with GUID ann: 1 -> 99",
                                     "updating name for friend with GUID ann: [Ann] -> [Ann Bee]",
                                     "updated destinations for friend with GUID ann: {ann@example.org} -> "
                                     "{+49301234567, ann@example.org}",
                                     "updating monogram for friend with GUID ann: [A] -> [AB]"));
  EXPECT_EQ(person->primaryDestination(), "+49301234567") << "chosen again";
  EXPECT_EQ(unlinks.count(), 0U);
}

TEST_F(Reconciliation, OtherDestinationsDropWhatWasMadeOfTheFormer) {
  const std::string ann = contacts().add({.guid = "ann", .first = "Ann", .emails = {{"home", "a@x.org"}}});
  const auto isKept = [&](const DestinationSet& destinations) {
    KeyedArchive archive({{"pd", "a@x.org"}, {"pnc", 1}, {"eac", 2}, {"abguid", "ann"}});
    archive.encodeSet("av", destinations);
    const auto person = PLPerson::initWithCoder(archive);
    person->refreshWithAddressBook(book());
    KeyedArchive after;
    person->encodeWithCoder(after);
    std::vector<bool> kept;
    for (const char* key : {"pd", "pnc", "eac"}) kept.push_back(after.content().contains(key));
    return kept;
  };
  EXPECT_THAT(isKept({"a@x.org"}), Each(true));
  EXPECT_THAT(isKept({"b@x.org"}), Each(false));
  contacts().change(ann, [](TestContact& contact) { contact.guid = "anna"; });
  EXPECT_THAT(isKept({"a@x.org"}), Each(false)) << "another record, even with the same ones";
}

TEST_F(Reconciliation, ALostRecordIsFoundAgainByName) {
  const std::string old = contacts().add({.guid = "old", .first = "Ann", .last = "Bee", .emails = {{"", "a@x.org"}}});
  const auto person = personOf(old);
  person->setPreferredReplyAs("me@x.org");
  settle();
  contacts().remove(old);
  const std::string namesake = contacts().add({.guid = "namesake", .first = "Ann", .last = "Bee"});
  const std::string again =
      contacts().add({.guid = "again", .first = "Ann", .last = "Bee", .emails = {{"", "a@x.org"}, {"", "b@x.org"}}});
  EXPECT_TRUE(refreshChanges(person));
  PersonDictionary form = formOf(again, "Ann Bee", {"a@x.org", "b@x.org"}, "AB");
  form.emplace("ReplyAs", "me@x.org");
  EXPECT_EQ(person->dictionaryRepresentation(), form);
  ASSERT_EQ(unlinks.count(), 1U);
  EXPECT_EQ(*unlinks.all()[0].userInfoAs<Dictionary>(), (Dictionary{{"UnlinkedABGUID", "old"}}));
}

TEST_F(Reconciliation, AFriendWithoutANameIsSearchedByDestination) {
  contacts().add({.guid = "small", .first = "S", .emails = {{"", "a@x.org"}}});
  const std::string large =
      contacts().add({.guid = "large", .first = "L", .phones = {{"", "030 1234567"}}, .emails = {{"", "A@x.org"}}});
  const auto person = PLPerson::initWithDestinationsAddressBook({"a@x.org", "+49301234567"}, book());
  EXPECT_EQ(person->abRecordGUID(), large) << "of equal scores the one that was found first: by the number";
  settle();
  EXPECT_EQ(changes.count() + unlinks.count(), 0U);
}

TEST_F(Reconciliation, ANameLeadsToWhoStandsForTheSetADestinationToItsHolder) {
  contacts().link({contacts().add({.guid = "head", .first = "Ann", .emails = {{"", "ann@x.org"}}}),
                   contacts().add({.guid = "member", .first = "Zoe", .emails = {{"", "zoe@x.org"}}})});
  const auto found = [&](const PersonDictionary& form) {
    const auto person = PLPerson::initWithDictionaryRepresentationAddressBook(form, nullptr);
    person->refreshWithAddressBook(book());
    return person->abRecordGUID();
  };
  EXPECT_EQ(found({{"Name", "Zoe"}, {"AllValues", Array{"zoe@x.org"}}}), "head");
  EXPECT_EQ(found({{"AllValues", Array{"zoe@x.org"}}}), "member");
}

TEST_F(Reconciliation, WithoutAMatchTheLinkGoesAndTheRestStays) {
  const std::string ann = contacts().add({.guid = "ann", .first = "Ann", .last = "Bee", .emails = {{"", "a@x.org"}}});
  const auto person = personOf(ann);
  contacts().remove(ann);
  takeLog();
  const auto observation = process.notificationCenter().addObserver(
      std::string(PLPersonUnlinkedFromAddressBookNotification), [&](const Notification&) {
        EXPECT_EQ(changes.count(), 0U) << "told before the change that it is part of";
        EXPECT_EQ(person->abRecordGUID(), std::nullopt) << "and when that is complete";
      });
  EXPECT_TRUE(refreshChanges(person));
  EXPECT_THAT(takeLog(),
              ElementsAre("friend needs a full AB lookup, searching with name: Ann Bee",
                          "unable to find matching record using name, searching with destinations: {a@x.org}",
                          "unable to find matching record using name or destinations",
                          "updating monogram for friend with GUID (null): [AB] -> [A]"));
  EXPECT_EQ(person->dictionaryRepresentation(), (Dictionary{{"ABRecordID", -1},
                                                            {"ABDatabaseUID", "TestDatabase"},
                                                            {"Name", "Ann Bee"},
                                                            {"AllValues", Array{"a@x.org"}},
                                                            {"Monogram", "A"}}));
  EXPECT_EQ(unlinks.count(), 1U);
  EXPECT_FALSE(refreshChanges(person)) << "it comes to rest";
  EXPECT_EQ(log->count("unable to find matching record using name or destinations"), 1U) << "and says so each time";
}

TEST_F(Reconciliation, AnUnknownGUIDIsKept) {
  const auto person = personOf("nobody");
  EXPECT_EQ(person->abRecordGUID(), "nobody");
  EXPECT_EQ(person->dictionaryRepresentation().at("ABRecordID"), Value(-1));
  EXPECT_EQ(person->copyABPersonWithAddressBook(book()), nullptr);
  const std::string guid = contacts().add({.guid = "nobody", .first = "Ann"});
  EXPECT_TRUE(refreshChanges(person)) << "it may turn up";
  EXPECT_EQ(person->displayName(), "Ann");
  EXPECT_NE(person->copyABPersonWithAddressBook(book()), nullptr);
}

TEST(RecordMatchScore, PrefersWhoHoldsAllAndThenWhoHoldsMore) {
  const DestinationSet own{"a", "b"};
  const struct {
    DestinationSet candidate;
    float score;
  } cases[] = {{{"c"}, 0.0F}, {{"a", "c", "d"}, 0.5F}, {{"a", "b"}, 1.0F}, {{"a", "b", "c", "d"}, 2.0F}};
  for (const auto& one : cases) EXPECT_EQ(matchScore(one.candidate, own), one.score);
  EXPECT_TRUE(std::isnan(matchScore({"a"}, {})));
}

TEST(RecordMatchScore, TheBestIsTheFirstOfTheHighest) {
  const auto best = [](std::vector<RecordMatchDictionary::Entry> entries, const DestinationSet& own) {
    RecordMatchDictionary candidates;
    for (auto& [recordID, destinations] : entries) candidates.set(recordID, std::move(destinations));
    return bestRecordMatch(candidates, [&](const DestinationSet& candidate) { return matchScore(candidate, own); });
  };
  EXPECT_EQ(best({{9, {"a", "b"}}, {1, {"a", "b", "c"}}}, {"a", "b"}), 1);
  EXPECT_EQ(best({{9, {"a"}}, {1, {"b"}}}, {"a", "b"}), 9);
  EXPECT_EQ(best({{9, {"x"}}}, {"a"}), InvalidRecordID);
  EXPECT_EQ(best({{9, {"x"}}}, {}), InvalidRecordID) << "no number never wins";
}

}  // namespace
}  // namespace pellor
