// What the manager decides by itself: a step of the history, told with what it rests on, and taken back for good.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "pellor/list/Edit.h"
#include "tests/list/ListProcess.h"

namespace pellor {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

using Contacts = std::function<void(InMemoryAddressBook&)>;

TestContact card(const std::string& guid, const std::string& first, const std::string& mail) {
  return {.guid = guid, .first = first, .emails = {{"home", mail}}};
}

class AutomaticStepsTest : public ListTest {
 protected:
  AutomaticStepsTest() {
    setGroups(3, 3);
    setSetting(PLEmptyTrailingGroupEnabledKey, false);
    setSetting(PLRemoveDestinationlessFriendsEnabledKey, true);
  }

  void refreshThrice() {
    for (int refresh = 0; refresh < 3; ++refresh) {
      world.addressBook().add({.first = "Stranger"});
      rest();
    }
  }
  std::size_t exceptionCount() {
    const auto stored = storedValue(PLFriendListExceptionsKey);
    return stored && stored->array() ? stored->array()->size() : 0;
  }
  void forgetAll(const std::vector<std::string>& guids) {
    for (const std::string_view key : {PLFriendListKey, PLGroupTitlesKey, PLFriendListExceptionsKey})
      setSetting(key, Array());
    setSetting(HistoryKey, Array());
    for (const std::string& guid : guids)
      if (world.addressBook().contact(guid)) world.addressBook().remove(guid);
  }
};

struct Case {
  std::string what;
  std::vector<TestContact> contacts;
  std::string list;  ///< as stored, at rest with these contacts
  Contacts change;   ///< upon which the manager decides
  std::string step;
  std::string decided;  ///< the list
  std::string takenBack;
  Contacts otherEvidence;
  std::string decidedAgain;  ///< the step
  std::string listThen;
};

const std::string AnnsMail = mailOf("Ann");

TEST_F(AutomaticStepsTest, EachDecisionIsOneStepOfTwoProcessesAndTakenBackItStaysSoUntilItsEvidenceChanges) {
  const Contacts annGoes = [](auto& book) { book.remove("guid-Ann"); };
  const Contacts annIsAnne = [](auto& book) { book.change("guid-Ann", [](auto& ann) { ann.first = "Anne"; }); };
  const Contacts annHasNothing = [](auto& book) { book.change("guid-Ann", [](auto& ann) { ann.emails.clear(); }); };
  const Contacts annaComes = [](auto& book) { book.add(card("anna", "Anna", AnnsMail)); };
  const Contacts annaIsAnne = [](auto& book) { book.change("anna", [](auto& anna) { anna.first = "Anne"; }); };
  const Contacts annaReplacesAnn = [&](auto& book) {
    annGoes(book);
    annaComes(book);
  };
  const std::vector<TestContact> ann = {contactNamed("Ann")};
  const std::vector<Case> cases = {
      {"linked with another contact", ann, "Ann#,Bob,-", annaReplacesAnn, "relinked Anna ~1", "Anna,Bob,-", "Ann,Bob,-",
       annaIsAnne, "relinked Anne ~1", "Anne,Bob,-"},
      {"linked for the first time",
       {},
       "Ann,Bob,-",
       annaComes,
       "relinked Anna ~1",
       "Anna,Bob,-",
       "Ann,Bob,-",
       annaIsAnne,
       "relinked Anne ~1",
       "Anne,Bob,-"},
      {"no longer linked", ann, "Ann#,Bob,-", annGoes, "unlinked Ann ~1", "Ann,Bob,-", "Ann,Bob,-", annaComes,
       "relinked Anna ~1", "Anna,Bob,-"},
      {"without numbers", ann, "Bob,Ann#,-", annHasNothing, "cleaned up Ann -1", "Bob,-,-", "Bob,Ann,-", annIsAnne, "",
       "Bob,Anne,-"},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.what);
    forgetAll({"guid-Ann", "anna"});
    world.addressBook().addAll(each.contacts);
    store(each.list);
    auto a = open(), b = open();
    setSetting(HistoryKey, Array());
    postListChanged();
    rest();
    each.change(world.addressBook());
    rest();
    EXPECT_EQ(a->process().list(), each.decided);
    EXPECT_EQ(b->process().list(), each.decided);
    EXPECT_THAT(a->told(), ElementsAre(each.step)) << "two that decide the same make one step";
    EXPECT_THAT(b->told(), ElementsAre(each.step));
    ASSERT_FALSE(b->undo().step) << "unnamed it passes over it";
    const std::string id = b->history().at(0).id;
    ASSERT_TRUE(b->undo(id).step);
    EXPECT_EQ(b->process().list(), each.takenBack);
    rest();
    EXPECT_EQ(exceptionCount(), 1U);
    EXPECT_EQ(a->process().list(), each.takenBack);
    for (int restart = 0; restart < 2; ++restart) {
      refreshThrice();
      EXPECT_EQ(a->process().list(), each.takenBack);
      EXPECT_EQ(b->process().list(), each.takenBack);
      EXPECT_THAT(a->told(), ElementsAre(each.step + " (back)"));
      a = open();
    }
    ASSERT_TRUE(b->redo().step);
    rest();
    EXPECT_EQ(a->process().list(), each.decided) << "done again";
    EXPECT_EQ(exceptionCount(), 0U);
    refreshThrice();
    ASSERT_TRUE(a->undo(id).step);
    rest();
    EXPECT_EQ(b->process().list(), each.takenBack);
    each.otherEvidence(world.addressBook());
    rest();
    EXPECT_EQ(a->process().list(), each.listThen) << "decided again";
    EXPECT_EQ(b->process().list(), each.listThen);
    std::vector<std::string> steps = {each.step + " (back)"};
    if (!each.decidedAgain.empty()) steps.push_back(each.decidedAgain);
    EXPECT_EQ(a->told(), steps);
  }
}

TEST_F(AutomaticStepsTest, TwoWhoGotOneContactStayTwo) {
  contacts({"Ann", "Bob"});
  store("Ann#,Cy,-|Bob#,-,-");
  auto a = open(), b = open();
  world.addressBook().remove("guid-Bob");
  world.addressBook().change("guid-Ann", [](auto& ann) { ann.emails.push_back({"work", mailOf("Bob")}); });
  rest();
  EXPECT_EQ(a->process().list(), "Ann,Cy,-");
  const auto steps = b->history();
  EXPECT_THAT(b->told(), ElementsAre("relinked Ann ~1", "deduplicated Ann -1 pages 1"));
  EXPECT_EQ(steps.at(0).evidence,
            (StepEvidence{"guid-Bob", "guid-Ann", StepEvidence::FoundBy::destinations, 2, 1, ""}));
  EXPECT_EQ(steps.at(1).evidence.contactAfter, "guid-Ann");
  EXPECT_EQ(steps.at(1).evidence.stays, "Ann");
  ASSERT_TRUE(b->undo(steps.at(1).id).step);
  rest();
  refreshThrice();
  a = open();
  EXPECT_EQ(a->process().list(), "Ann,Cy,-|Ann,-,-");
  ASSERT_TRUE(a->undo(steps.at(0).id).step);
  rest();
  refreshThrice();
  b = open();
  EXPECT_EQ(b->process().list(), "Ann,Cy,-|Bob,-,-") << "he is himself again";
  EXPECT_EQ(exceptionCount(), 1U) << "two of one contact there are no more";
}

TEST_F(AutomaticStepsTest, AStepGoesOutWithTheListThatItTellsOf) {
  contacts({"Ann"});
  store("Ann#,Bob,-");
  auto a = open();
  world.preferences().clearRecords();
  world.addressBook().remove("guid-Ann");
  rest();
  const auto writes = world.preferences().writes();
  ASSERT_FALSE(writes.empty());
  EXPECT_THAT(writes.front().keys, Contains(std::string("FriendList")));
  EXPECT_THAT(writes.front().keys, Contains(std::string(HistoryKey)));
  EXPECT_THAT(a->told(), ElementsAre("unlinked Ann ~1"));
  EXPECT_TRUE(a->run([&] { return a->process().process().settle(60); }));
}

// Another program wrote first, and what was decided here does not hold there.
TEST_F(AutomaticStepsTest, AStepOfWhichAMergeLeavesNothingLeavesTheHistory) {
  contacts({"Ann", "Bob"});
  store("Ann#,Bob#,-");
  auto a = open();
  world.preferences().failWrites();
  world.addressBook().remove("guid-Ann");
  world.addressBook().remove("guid-Bob");
  advance(1);
  EXPECT_THAT(a->told(), ElementsAre("unlinked Ann ~1", "unlinked Bob ~1"));
  world.preferences().failWrites(0);
  Array theirs = *storedValue(PLFriendListKey)->array();
  theirs[0] = Dictionary{};
  setSetting(PLFriendListKey, theirs);
  postListChanged();
  rest();
  EXPECT_EQ(a->process().list(), "-,Bob,-");
  EXPECT_THAT(a->told(), Contains("unlinked Bob ~1"));
  EXPECT_THAT(a->told(), Not(Contains(HasSubstr("unlinked Ann"))));
}

TEST_F(AutomaticStepsTest, AFriendIsExplainedByHisLinkHisStepsAndWhatWasTakenBack) {
  contacts({"Ann", "Bob"});
  store("Ann#,Bob#,-");
  auto a = open();
  const FriendId ann = a->idAt(0, 0);
  const auto why = [&] { return *a->run([&] { return a->list().why(ann); }); };
  EXPECT_EQ(why().contactGUID, "guid-Ann");
  EXPECT_TRUE(why().isContactThere);
  EXPECT_EQ(why().linkedSince, "") << "no step tells of that";
  EXPECT_EQ(why().numberReason, NumberReason::card);
  a->apply("move Ann 1:3; choose Ann " + AnnsMail);
  rest();
  world.addressBook().remove("guid-Ann");
  world.addressBook().remove("guid-Bob");
  world.addressBook().add(card("anna", "Anna", AnnsMail));
  rest();
  const Explanation relinked = why();
  ASSERT_EQ(relinked.steps.size(), 2U) << "Bob's step is not hers";
  EXPECT_EQ(relinked.steps[0].kind, StepKind::relinked);
  EXPECT_EQ(relinked.linkedSince, relinked.steps[0].id);
  EXPECT_EQ(relinked.contactGUID, "anna");
  EXPECT_EQ(relinked.numberReason, NumberReason::chosen);
  EXPECT_EQ(relinked.number, AnnsMail);
  EXPECT_FALSE(relinked.isReachabilityChecked);
  ASSERT_TRUE(a->undo(relinked.linkedSince).step);
  rest();
  const Explanation back = why();
  EXPECT_THAT(back.exceptions, ElementsAre(FriendException{StepKind::relinked, relinked.linkedSince, "anna"}));
  EXPECT_EQ(back.contactGUID, "guid-Ann");
  EXPECT_FALSE(back.isContactThere);
  // Another process knows the friend by what the steps say alone.
  auto b = open();
  const FriendId here = b->idAt(0, 2);
  EXPECT_EQ(b->run([&] { return b->list().why(here); })->steps.size(), 2U);
  EXPECT_FALSE(b->run([&] { return b->list().why({999}); }));
}

TEST_F(AutomaticStepsTest, AFriendWhomAMergePutsElsewhereThanTheUserDidIsToldOf) {
  setGroups(3, 2);
  store("Ann,Bob|Cy,-");
  auto a = open();
  a->apply("move Ann 2:2");
  store("Ann,Bob|Cy,Dan");
  rest();
  EXPECT_EQ(a->process().list(), "Ann,Bob|Cy,Dan") << "the page is full";
  EXPECT_THAT(a->told(), ElementsAre("own Ann >1", "foreign Dan +1", "placed Ann >1"));
  const HistoryStep step = a->history().at(2);
  EXPECT_FALSE(step.isUndoable);
  EXPECT_EQ(a->undo(step.id).refusal, (Refusal{RefusalReason::notUndoable}));
  auto b = open();
  EXPECT_EQ(b->told(), a->told()) << "it is stored with the step";
}

TEST_F(AutomaticStepsTest, FavoritesForWhichThereIsNoRoomAreToldOf) {
  setGroups(1, 2);
  store("Ann,-");
  contacts({"Bob", "Cy"});
  auto a = open();
  world.setFavorites({"guid-Bob", "guid-Cy"});
  a->run([&] { a->list().importFavorites(); });
  rest();
  EXPECT_EQ(a->process().list(), "Ann,Bob");
  EXPECT_THAT(a->told(), ElementsAre("not imported Cy"));
  EXPECT_FALSE(a->history().at(0).isUndoable);
  EXPECT_FALSE(a->undo().step) << "unnamed it is passed over";
  auto b = open();
  EXPECT_THAT(b->told(), ElementsAre("not imported Cy"));
}

TEST_F(AutomaticStepsTest, ALinkIsTakenBackThoughTheCardHasChangedSince) {
  auto a = open("Ann,Bob,-");
  world.addressBook().add(card("anna", "Anna", AnnsMail));
  rest();
  ASSERT_THAT(a->told(), ElementsAre("relinked Anna ~1"));
  world.addressBook().change("anna", [](TestContact& anna) { anna.first = "Anja"; });
  rest();
  const UndoAnswer answer = a->undo(a->history().at(0).id);
  ASSERT_TRUE(answer.step);
  EXPECT_TRUE(answer.kept.empty());
  rest();
  EXPECT_EQ(a->process().list(), "Ann,Bob,-");
}

TEST_F(AutomaticStepsTest, FavoritesThatAFirstListHasNoRoomForAreToldOfOnce) {
  setGroups(1, 2);
  contacts({"Ann", "Bob", "Cy", "Dan"});
  world.setFavorites({"guid-Ann", "guid-Bob", "guid-Cy", "guid-Dan"});
  auto a = std::make_unique<ListProcess>(launch());
  auto b = open();
  EXPECT_EQ(a->process().list(), "Ann,Bob");
  EXPECT_THAT(a->told(), ElementsAre("not imported Cy Dan")) << "both made the list at once";
  EXPECT_EQ(b->told(), a->told());
  EXPECT_EQ(a->history().at(0).program, "test");
  EXPECT_TRUE(a->forget(mailOf("Dan"))) << "though he is no friend";
  rest();
  EXPECT_THAT(b->told(), ElementsAre("not imported Cy"));

  a.reset();
  b.reset();
  forgetList();
  world.favorites().setReadable(false);
  ListProcess waiting(launch());
  advance(1);
  EXPECT_THAT(waiting.told(), ElementsAre());
  world.favorites().setReadable(true);
  rest();
  EXPECT_THAT(waiting.told(), ElementsAre("not imported Cy Dan"));
}

TEST_F(AutomaticStepsTest, WhoIsForgottenIsInNoException) {
  contacts({"Ann"});
  store("Ann#,Bob,-");
  auto a = open();
  world.addressBook().remove("guid-Ann");
  world.addressBook().add(card("anna", "Anna", AnnsMail));
  rest();
  ASSERT_TRUE(a->undo(a->history().at(0).id).step);
  rest();
  ASSERT_EQ(exceptionCount(), 1U);
  EXPECT_TRUE(a->forget(AnnsMail));
  rest();
  EXPECT_EQ(exceptionCount(), 0U);
  EXPECT_THAT(storedValue(HistoryKey)->description(), Not(HasSubstr("anna")));
}

}  // namespace
}  // namespace pellor
