// What a manager with a history tells its client of edits by managers that keep none.
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "pellor/friends/PLListEditor.h"
#include "pellor/friends/PLStepClient.h"
#include "pellor/testing/LogCollector.h"
#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string History = "History";
const std::string OrderKey = "number";

/// A history whose only element has that number.
LongArray historyOf(std::int64_t number) {
  return LongArray(Array{Value(Dictionary{{"id", std::to_string(number)}, {OrderKey, number}})});
}

class FindingClient : public PLStepClient {
 public:
  explicit FindingClient(ManagerProcess& process) : _process(process) {}
  void stepsWereStored(std::uint64_t) override {}
  void judgeSteps(const PLStoredPages& theirs) override {
    judged.emplace_back(theirs.hasNewHistory ? "new history" : "known history");
  }
  void listChangedBy(PLChangeOrigin) override {}
  void foreignEditWasFound(const PLForeignEdit& edit) override {
    found.push_back(textOf(edit));
    if (setsHistory) _process.manager().editor().setAttached(History, historyOf(++_lastNumber));
  }
  std::vector<std::string> takeFound() { return std::exchange(found, {}); }

  bool setsHistory = false;
  std::vector<std::string> found, judged;

 private:
  static std::string nameIn(const Dictionary& form) {
    return form.empty() ? "-" : stringForKey(form, "Name").value_or("?");
  }
  // "Ann,- Home > Ann0,Bob Club": behind a friend the slot in which he was.
  static std::string textOf(const PLForeignEdit& edit) {
    std::string text;
    for (const Dictionary& form : edit.before.forms) text += nameIn(form) + ",";
    for (const std::string& title : edit.before.titles) text += " " + title;
    text += " > ";
    for (std::size_t slot = 0; slot < edit.after.forms.size(); ++slot) {
      const auto origin = edit.origins.at(slot);
      text += nameIn(edit.after.forms[slot]) + (origin ? std::to_string(*origin) : "") + ",";
    }
    for (const std::string& title : edit.after.titles) text += " " + title;
    return text;
  }

  ManagerProcess& _process;
  std::int64_t _lastNumber = 0;
};

class ForeignEditTest : public ManagerTest {
 protected:
  ForeignEditTest() {
    setGroups(3, 3);
    setSetting(PLEmptyTrailingGroupEnabledKey, false);
    storeTitles({"Home"});
    contacts({"Bob", "Cy"});
    bare = launchWith("Ann,-,-");
    a = launch();
    keepHistory(*a);
    client = std::make_shared<FindingClient>(*a);
    a->run([&] { a->manager().editor().setStepClient(client); });
    rest();
    world.preferences().clearRecords();
  }
  static void keepHistory(ManagerProcess& process) {
    process.run([&] { process.manager().editor().attach(History, 5, OrderKey); });
  }
  void rename(ManagerProcess& process, const std::string& title) {
    process.setTitle(0, title);
    process.run([&] { process.manager().saveFriendGroupTitles(); });
    rest();
  }

  std::unique_ptr<ManagerProcess> bare, a;
  std::shared_ptr<FindingClient> client;
};

TEST_F(ForeignEditTest, EditsOfPlacesFieldsAndTitlesAreToldOnceEach) {
  bare->add("Bob");
  rest();
  EXPECT_THAT(client->takeFound(), ElementsAre("Ann,-,-, Home > Ann0,Bob,-, Home"));
  rename(*bare, "Club");
  EXPECT_THAT(client->takeFound(), ElementsAre("Ann,Bob,-, Home > Ann0,Bob1,-, Club"));
  const auto ann = bare->friendAt(0, 0);
  bare->run([&] {
    bare->manager().editor().performStep([&] {
      bare->remove(0, 0);
      bare->set(ann, 0, 2);
    });
  });
  rest();
  EXPECT_THAT(client->takeFound(), ElementsAre("Ann,Bob,-, Club > -,Bob1,Ann0, Club"));
  a->run([&] { a->manager().reloadFriendList(); });
  EXPECT_THAT(client->takeFound(), IsEmpty());
  a->run([&] { a->manager().editor().setStepClient({}); });
  bare->remove(0, 1);
  rest();
  EXPECT_THAT(client->takeFound(), IsEmpty());
}

// Each of their writes of list or titles has the history, also where nothing is new in it.
TEST_F(ForeignEditTest, WhatAManagerWithAHistoryWroteIsNotForeign) {
  auto other = launch();
  keepHistory(*other);
  rest();
  other->add("Bob");
  rest();
  EXPECT_THAT(takeWrites(), ElementsAre(ElementsAre(std::string(PLFriendListKey), History)));
  rename(*other, "Club");
  EXPECT_THAT(takeWrites(), ElementsAre(ElementsAre(History, std::string(PLGroupTitlesKey))));
  EXPECT_THAT(client->takeFound(), IsEmpty());
  bare->add("Cy");
  bare->settle();
  other->settle();
  other->remove(0, 1);
  other->settle();
  rest();
  EXPECT_EQ(a->list(), "Ann,-,Cy");
  bare->remove(0, 2);
  rest();
  EXPECT_THAT(client->found.back(), ::testing::EndsWith(" > Ann0,-,-, Club"));
}

TEST_F(ForeignEditTest, NobodyEditedAListOfAnotherStoreOrOneThatIsStoredForTheFirstTime) {
  bare->kill();
  world.preferences().setStoreNumber(world.preferences().storeNumber() + 1);
  store("Bob,-,-");
  postListChanged();
  rest();
  EXPECT_THAT(client->takeFound(), IsEmpty());
  const auto empty = makeProcess(OtherDomain);
  world.preferences().failWrites();
  empty->start();
  keepHistory(*empty);
  const auto finding = std::make_shared<FindingClient>(*empty);
  empty->run([&] { empty->manager().editor().setStepClient(finding); });
  store("Ann,-,-", OtherDomain);
  world.preferences().allowWrites();
  rest();
  EXPECT_THAT(finding->takeFound(), IsEmpty());
}

TEST_F(ForeignEditTest, WhatTheClientSetsThenGoesOutWithTheNextWriteThatHasSomethingElse) {
  client->setsHistory = true;
  bare->add("Bob");
  rest();
  takeWrites();
  EXPECT_EQ(a->manager().editor().attached(History).size(), 1U);
  a->run([&] { a->manager().save(); });
  rest();
  EXPECT_TRUE(a->settle());
  EXPECT_THAT(takeWrites(), IsEmpty()) << "nothing else is to be written";
  bare->add("Cy");
  rest();
  takeWrites();
  EXPECT_THAT(client->judged, ElementsAre("known history")) << "it waits while others write";
  world.preferences().failWrites(2);
  a->remove(0, 1);
  rest();
  EXPECT_EQ(storedValue(History)->longArray()->at(0), historyOf(2).at(0));
  auto other = launch();
  keepHistory(*other);
  EXPECT_EQ(other->manager().editor().attached(History).size(), 1U);
  client->judged.clear();
  other->remove(0, 2);
  rest();
  EXPECT_THAT(client->judged, IsEmpty()) << "nothing waits any more";
}

}  // namespace
}  // namespace pellor
