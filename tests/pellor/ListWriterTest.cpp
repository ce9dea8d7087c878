// What a list writer writes and what it leaves alone, on stores that are slow and do not tell.
#include "pellor/friends/internal/PLListWriter.h"

#include <atomic>
#include <functional>
#include <latch>

#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLThreeWayMerge.h"
#include "tests/pellor/OneProcess.h"
#include "tests/pellor/SlowStore.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string Domain = "org.tapnote.Writer";
const std::string ListKey(PLFriendListKey), TitlesKey(PLGroupTitlesKey);

class Teller : public PLListWriterClient {
 public:
  void listWasWritten(const PLAcceptedWrite& write) override {
    told.push_back(std::string("written") + (write.hasList ? " list" : "") + (write.hasTitles ? " titles" : ""));
  }
  void listWasOvertaken() override { ADD_FAILURE(); }
  void loadIsDue() override { told.push_back("load"); }
  std::vector<std::string> take() { return std::exchange(told, {}); }

  std::vector<std::string> told;
};

/// A list of four slots with a writer that has taken over an empty store.
class ListWriterTest : public OneProcess {
 protected:
  ListWriterTest()
      : OneProcess([this](Platform& own) {
          own.preferences = std::make_shared<SlowStore>(
              own.preferences, [this](std::string_view) { callOnce(duringWrite); },
              [this](std::string_view) { callOnce(afterWrite); });
        }) {
    writer = PLListWriter::make(process, Domain);
    writer->setClient(teller);
    for (int slot = 0; slot < 4; ++slot) list.append(EmptySlot);
    takeOverWhatIsStored();
  }

  static void callOnce(std::function<void()>& function) {
    if (const auto now = std::exchange(function, nullptr)) now();
  }
  PLStoredList read() {
    const auto answer = platform.preferences->read(std::vector{ListKey, TitlesKey}, Domain);
    PLStoredList stored;
    const auto& [value, version] = answer.value()->at(ListKey);
    if (value) stored.list = value->longArray() ? *value->longArray() : LongArray(*value->array());
    stored.listVersion = version;
    stored.titlesVersion = answer.value()->at(TitlesKey).version;
    return stored;
  }
  /// As a load does that lets the own list stand.
  void takeOverWhatIsStored() {
    const PLStoredList stored = read();
    writer->acceptIfWritten(stored);
    auto base = std::make_shared<PLBaseline>();
    base->listVersion = stored.listVersion;
    base->titlesVersion = stored.titlesVersion;
    writer->takeOver(std::move(base), list, pages);
  }
  void put(std::uint64_t slot, const std::string& name) {
    auto person = PLPerson::initWithDictionaryRepresentationAddressBook({{"Name", name}}, nullptr);
    list.set(slot, std::move(person));
    writer->publish(list, pages);
    writer->markLayout();
  }
  void save() {
    writer->publish(list, pages);
    writer->save();
  }
  std::string storedNames() {
    std::string names;
    for (const Value& element : read().list.elements()) {
      const Value* name = valueForKey(*element.dictionary(), "Name");
      names += name ? *name->string() + " " : "- ";
    }
    return names;
  }

  std::function<void()> duringWrite, afterWrite;
  PLSlotList list;
  PLPageNumbers pages = std::make_shared<const std::vector<std::uint64_t>>(std::vector<std::uint64_t>{1, 2});
  std::shared_ptr<Teller> teller = std::make_shared<Teller>();
  std::shared_ptr<PLListWriter> writer;
};

TEST_F(ListWriterTest, WhatChangesDuringAWriteGoesOutWithTheNextOne) {
  put(0, "Ann");
  duringWrite = [&] { put(1, "Bob"); };
  afterWrite = [&] {
    list.at(0)->setPreferredReplyAs("home");
    save();
  };
  save();
  settle();
  EXPECT_EQ(storedNames(), "Ann Bob - - ");
  EXPECT_EQ(read().list.at(0).dictionary()->at("ReplyAs"), Value("home"));
  EXPECT_THAT(teller->take(), ElementsAre("written list", "written list"));
  EXPECT_FALSE(writer->isMarked());
  EXPECT_EQ(writer->base()->listVersion, read().listVersion);
  save();
  settle();
  EXPECT_THAT(teller->take(), IsEmpty()) << "nothing was marked";
}

// Whatever became of it, the list is written once, and its client is told once.
TEST_F(ListWriterTest, AWriteWhoseOutcomeIsUnknownIsRecognisedOrMadeAgain) {
  using Untold = InMemoryPreferences::Untold;
  int number = 0;
  for (const Untold fate : {Untold::stored, Untold::delayed, Untold::lost}) {
    const std::string name = "Friend" + std::to_string(++number);
    world.preferences().leaveUntold(fate, 1);
    put(0, name);
    save();
    settle();
    EXPECT_THAT(teller->take(), IsEmpty()) << name;
    EXPECT_TRUE(writer->hasFailed()) << name;
    save();
    settle();
    EXPECT_EQ(storedNames() == name + " - - - ", fate == Untold::stored) << "not made again before a look";
    scheduler->advance(10);
    EXPECT_THAT(teller->take(), ElementsAre("load")) << name;
    EXPECT_EQ(world.preferences().storeDelayedWrites(), fate == Untold::delayed ? 1U : 0U);
    takeOverWhatIsStored();
    settle();
    const bool isWritten = fate != Untold::lost;
    EXPECT_EQ(teller->take().size(), isWritten ? 1U : 0U) << name;
    // A load that finds the own edits stored.
    if (isWritten) writer->clearMarks();
    save();
    settle();
    EXPECT_EQ(teller->take().size(), isWritten ? 0U : 1U) << name;
    EXPECT_EQ(storedNames(), name + " - - - ");
    EXPECT_FALSE(writer->hasFailed()) << name;
  }
}

TEST_F(ListWriterTest, ALoadWaitsForAWriteThatMayBeWhatWasRead) {
  using Turn = PLListWriter::Turn;
  put(0, "Ann");
  const PLStoredList before = read();
  duringWrite = [&] { EXPECT_EQ(writer->beginLoad(before.listVersion, before.titlesVersion), Turn::nothingNew); };
  afterWrite = [&] {
    const PLStoredList after = read();
    EXPECT_EQ(writer->beginLoad(after.listVersion, after.titlesVersion), Turn::later);
  };
  save();
  settle();
  EXPECT_THAT(teller->take(), ElementsAre("written list", "load"));
  const PLStoredList stored = read();
  EXPECT_EQ(writer->beginLoad(stored.listVersion, stored.titlesVersion), Turn::now);
  put(1, "Bob");
  save();
  settle();
  EXPECT_EQ(storedNames(), "Ann - - - ") << "nothing is written during a load";
  writer->takeOver(writer->base(), list, pages);
  save();
  settle();
  EXPECT_EQ(storedNames(), "Ann Bob - - ");
}

// A step that changes two friends begins when a save has taken their flags, and the save ends before the step does.
TEST(ListWriterThreadsTest, ASaveThatRunsWhenAStepBeginsTakesNoPartOfItAlong) {
  SimulatedWorld world;
  Process process(std::make_shared<LogCollector>());
  Platform platform = world.makePlatform(process);
  std::function<void()> look;
  platform.preferences = std::make_shared<SlowStore>(
      platform.preferences, [](std::string_view) {}, [&](std::string_view) { look(); });
  installPlatform(process, platform);
  PLSlotList list;
  for (int slot = 0; slot < 2; ++slot) {
    list.append(PLPerson::initWithDictionaryRepresentationAddressBook({{"Name", std::to_string(slot)}}, nullptr));
  }
  const PLPageNumbers pages = std::make_shared<const std::vector<std::uint64_t>>();
  const auto writer = PLListWriter::make(process, Domain);
  auto base = std::make_shared<PLBaseline>();
  base->listVersion = platform.preferences->read(std::vector{ListKey}, Domain).value()->at(ListKey).version;
  base->pages = pages;
  writer->takeOver(base, list, pages);
  const auto first = list.at(0), last = list.at(1);
  int writeCount = 0;
  look = [&] {
    ++writeCount;
    const auto stored = *world.preferences().value(PLFriendListKey, Domain)->array();
    EXPECT_EQ(stored.front().dictionary()->contains("ReplyAs"), stored.back().dictionary()->contains("ReplyAs"));
  };
  // A save asks for the metadata of each friend when it has the rest of its form.
  std::latch theFirstFormMayEnd(1);
  PLPerson::sharedMetadataQueue().asyncBarrier([&] { theFirstFormMayEnd.wait(); });
  first->setNeedsSave(true);
  last->setNeedsSave(true);
  writer->save();
  while (first->needsSave() || last->needsSave()) process.mainQueue().drain();
  writer->beginStep();
  last->setPreferredReplyAs("home");
  theFirstFormMayEnd.count_down();
  std::atomic<bool> hasEnded = false;
  writer->saveQueue()->async([&] { hasEnded = true; });
  while (!hasEnded) process.mainQueue().drain();
  first->setPreferredReplyAs("home");
  writer->publish(list, pages);
  writer->endStep();
  writer->saveSteps();
  while (writer->isMarked() || writer->isSaving()) process.mainQueue().drain();
  EXPECT_GE(writeCount, 1);
  EXPECT_EQ(world.preferences().value(PLFriendListKey, Domain)->array()->back(), last->dictionaryRepresentation());
}

}  // namespace
}  // namespace pellor
