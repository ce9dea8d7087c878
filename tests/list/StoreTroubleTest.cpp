// What an app hears of a store that fails, and what becomes of its edits then.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "pellor/list/FriendList.h"
#include "pellor/runtime/NotificationCenter.h"
#include "tests/list/ListProcess.h"
#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string textOf(const std::optional<StoreTrouble>& trouble) {
  if (!trouble) return "works";
  return (trouble->kind == StoreTrouble::Kind::reading ? "reading: " : "writing: ") + trouble->text;
}

class StoreTroubleTest : public ListTest {
 protected:
  StoreTroubleTest() { setGroups(20, 2); }

  /// What an observer hears of trouble, of loads and of changes, in its order.
  std::shared_ptr<Observation> observe(FriendList& list) {
    return list.observe({[this](const Snapshot&) { _heard.emplace_back("loaded"); },
                         [this](const ListChange& change) {
                           _heard.push_back("changed to " + std::to_string(change.after.friendCount()));
                         },
                         [this](const std::optional<StoreTrouble>& trouble) { _heard.push_back(textOf(trouble)); }});
  }
  StoredHandler tellStored() {
    return [this](const std::optional<Refusal>& refusal) {
      _heard.push_back(refusal ? std::string(pellor::textOf(refusal->reason)) : "stored");
    };
  }
  std::vector<std::string> takeHeard() { return std::exchange(_heard, {}); }

 private:
  std::vector<std::string> _heard;
};

TEST_F(StoreTroubleTest, AWriteThatFailsCompletesNothingAndIsToldOnceUntilItWorks) {
  ListProcess a(launchWith("Ann,-"));
  a.run([&] {
    const auto observation = observe(a.list());
    advance(0);
    EXPECT_THAT(takeHeard(), ElementsAre("loaded"));
    world.preferences().failWrites();
    EXPECT_TRUE(a.list().apply(AddFriend{.destination = "bob@example.org"}, tellStored()));
    advance(600);
    EXPECT_THAT(takeHeard(), ElementsAre("changed to 2", "writing: the list cannot be stored"));
    EXPECT_EQ(textOf(a.list().trouble()), "writing: the list cannot be stored");
    EXPECT_TRUE(a.list().apply(AddFriend{.destination = "cy@example.org"}, tellStored())) << "kept until it works";
    const auto late = observe(a.list());
    advance(0);
    EXPECT_THAT(takeHeard(), ElementsAre("writing: the list cannot be stored", "changed to 3", "loaded"))
        << "also an observer that comes in the midst of it";
    world.preferences().allowWrites();
    advance(120);
    EXPECT_THAT(takeHeard(), testing::UnorderedElementsAre("works", "works", "stored", "stored"));
    EXPECT_EQ(a.list().trouble(), std::nullopt);
  });
  EXPECT_EQ(stored(2), "Ann,?|?,-|-,-");
}

TEST_F(StoreTroubleTest, AWriteOfWhichNobodyCanTellIsTroubleUntilItIsKnown) {
  ListProcess a(launchWith("Ann,-"));
  a.run([&] {
    const auto observation = observe(a.list());
    advance(0);
    takeHeard();
    world.preferences().leaveUntold(InMemoryPreferences::Untold::stored, 1);
    a.list().apply(AddFriend{.destination = "bob@example.org"}, tellStored());
    rest();
    EXPECT_THAT(takeHeard(), ElementsAre("changed to 2", "writing: the list cannot be stored", "stored", "works"));
  });
}

TEST_F(StoreTroubleTest, AStoreThatCannotBeReadIsTroubleAndNoEmptyList) {
  store("Ann,Bob");
  world.preferences().makeUnreadable();
  const auto process = makeProcess();
  process->start();
  process->run([&] {
    const auto list = FriendList::open(process->sharedManager());
    const auto observation = observe(*list);
    advance(60);
    EXPECT_THAT(takeHeard(), ElementsAre("reading: the list cannot be read"));
    EXPECT_EQ(list->apply(AddFriend{.destination = "cy@example.org"}).refusal->reason, RefusalReason::storeNotReadable);
    world.preferences().makeReadable();
    rest();
    EXPECT_THAT(takeHeard(), ElementsAre("works", "loaded"));

    world.preferences().makeUnreadable();
    postListChanged();
    advance(1);
    EXPECT_THAT(takeHeard(), ElementsAre("reading: the list cannot be read"));
    EXPECT_TRUE(list->apply(AddFriend{.destination = "cy@example.org"}, tellStored())) << "there is a list";
    advance(60);
    EXPECT_THAT(takeHeard(), ElementsAre("changed to 3")) << "of the writes that wait nobody is told";
    world.preferences().makeReadable();
    rest();
    EXPECT_THAT(takeHeard(), ElementsAre("works", "stored"));
  });
}

TEST_F(StoreTroubleTest, AStoreThatMayOnlyBeReadTakesNoStepAndChangesNothing) {
  ListProcess a(launchWith("Ann,-"));
  a.takeHeard();
  a.run([&] {
    FriendList& list = a.list();
    list.apply(AddFriend{.destination = "bob@example.org"});
    rest();
    a.takeHeard();
    const ExportedList exported = list.exported();
    const FriendId ann = list.snapshot().friendAt({0, 0})->id;
    world.preferences().setReadOnly(true);
    const Edit removal = RemoveFriend{ann};
    const std::vector<std::pair<const char*, std::optional<Refusal>>> refusals = {
        {"apply", list.apply(removal, tellStored()).refusal},
        {"plan", list.plan(std::span(&removal, 1)).refusal},
        {"import", list.import(exported, ImportMode::replace, tellStored()).refusal},
        {"undo", list.undo({}, tellStored()).refusal},
        {"forget", list.forget(ann).refusal},
        {"clearHistory", list.clearHistory(tellStored()).refusal},
    };
    for (const auto& [what, refusal] : refusals)
      EXPECT_EQ(refusal ? refusal->reason : RefusalReason::overtaken, RefusalReason::storeNotWritable) << what;
    rest();
    EXPECT_THAT(a.takeHeard(), IsEmpty());
    EXPECT_THAT(takeHeard(), IsEmpty());
    world.preferences().setReadOnly(false);
    EXPECT_TRUE(list.apply(removal));
  });
}

}  // namespace
}  // namespace pellor
