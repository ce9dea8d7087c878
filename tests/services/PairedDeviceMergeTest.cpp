// Both of two paired devices edit their list.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <iterator>
#include <random>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "pellor/linux/mosquitto/GenerationMerge.h"
#include "pellor/linux/mosquitto/MessageStore.h"
#include "tests/services/PairedDevices.h"

namespace pellor {
namespace {

class PairedDeviceMergeTest : public PairedDeviceTest {
 protected:
  using Names = std::set<std::string>;

  // Lists of friends with a name each
  static Names namesOn(const Device& device) {
    Names names;
    const auto list = device.stored("list");
    for (const Value& element : list && list->array() ? *list->array() : Array()) {
      if (const auto name = stringForKey(*element.dictionary(), "ABPersonGUID")) names.insert(*name);
    }
    return names;
  }
  /// As a program does: over what it has read.
  static void edit(const Device& device, const std::function<void(Array&)>& change) {
    const std::string key = "list";
    Process process;
    const auto store = device.preferences->storeFor(process);
    PreferenceWriteOutcome outcome{};
    do {
      const auto read = store->read(std::span(&key, 1), SyncDomain);
      const VersionedPreference& stored = read.value()->at(key);
      Array list = stored.value ? *stored.value->array() : Array();
      change(list);
      const PreferenceChange made{PreferenceChange::Kind::set, std::move(list), stored.version};
      outcome = store->write({{key, made}}, {}, SyncDomain).outcome;
    } while (outcome == PreferenceWriteOutcome::overtaken);
    EXPECT_EQ(outcome, PreferenceWriteOutcome::written);
  }
  static void add(const Device& device, const std::string& name) {
    edit(device, [&](Array& list) { list.emplace_back(Dictionary{{"ABPersonGUID", name}}); });
  }
  static void remove(const Device& device, const std::string& name) {
    edit(device, [&](Array& list) { std::erase(list, Value(Dictionary{{"ABPersonGUID", name}})); });
  }
  void push() { _devices.sender->synchronizeDomainKeys(SyncDomain, {"list", "titles"}); }
  void pushBack() { _devices.backSender->synchronizeDomainKeys(SyncDomain, {"list", "titles"}); }
  /// After the initial sync: the other direction as well.
  void startBoth() {
    _devices.receiver.reset();
    _devices.startSendingBack();
    _devices.startReceiving();
    _devices.startReceivingBack();
  }
  void expectOnBoth(const Names& expected) {
    EXPECT_EQ(namesOn(_devices.laptop), expected);
    EXPECT_EQ(namesOn(_devices.phone), expected);
  }
};

TEST_F(PairedDeviceMergeTest, AnEditOfTheReceivingDeviceSurvivesWhatArrives) {
  completeInitialSync();
  add(_devices.phone, "phone");
  _devices.phone.store("titles", Array{"Phone"});
  add(_devices.laptop, "laptop");
  push();
  ASSERT_TRUE(_devices.runUntilInStep());
  EXPECT_EQ(namesOn(_devices.phone), Names({"0", "1", "2", "3", "laptop", "phone"}));
  EXPECT_EQ(_devices.phone.stored("titles"), Value(Array{"Phone"}));
  EXPECT_TRUE(_devices.hasTold("stored generation 2, merged with what was edited here"));

  // What the laptop knows is what it sent, not what came of it.
  remove(_devices.laptop, "0");
  remove(_devices.phone, "1");
  push();
  ASSERT_TRUE(_devices.runUntilInStep());
  EXPECT_EQ(namesOn(_devices.phone), Names({"2", "3", "laptop", "phone"}));
  EXPECT_EQ(namesOn(_devices.laptop), Names({"1", "2", "3", "laptop"})) << "the phone sends nothing";
}

TEST_F(PairedDeviceMergeTest, EditsOfBothAtOnceAreOnBothAfterwards) {
  completeInitialSync();
  startBoth();
  ASSERT_TRUE(_devices.runUntilAtRest());

  // They cross on the way.
  _devices.broker.kill();
  add(_devices.laptop, "laptop");
  _devices.laptop.store("titles", Array{"Laptop"});
  _devices.phone.store("titles", Array{"Phone"});
  push();
  pushBack();
  _devices.broker.start();
  ASSERT_TRUE(_devices.runUntilAtRest());
  expectOnBoth({"0", "1", "2", "3", "laptop"});
  EXPECT_EQ(_devices.laptop.stored("titles"), _devices.phone.stored("titles")) << "one of two that conflict";

  // To and fro: each knows what the other one has by now.
  const Value former = *_devices.laptop.stored("list");
  add(_devices.phone, "undone");
  pushBack();
  ASSERT_TRUE(_devices.runUntilAtRest());
  _devices.laptop.store("list", former);
  push();
  ASSERT_TRUE(_devices.runUntilAtRest());
  expectOnBoth({"0", "1", "2", "3", "laptop"});

  // Titles that are sent alone do not take back what the list has got from there.
  add(_devices.phone, "new");
  pushBack();
  ASSERT_TRUE(_devices.runUntilAtRest());
  _devices.laptop.store("titles", Array{"New"});
  _devices.sender->synchronizeDomainKeys(SyncDomain, {"titles"});
  ASSERT_TRUE(_devices.runUntilAtRest());
  expectOnBoth({"0", "1", "2", "3", "laptop", "new"});
  EXPECT_EQ(_devices.phone.stored("titles"), Value(Array{"New"}));

  // What came from there is not sent back.
  const std::uint64_t sent = _devices.sender->status().generation, sentBack = _devices.backSender->status().generation;
  push();
  pushBack();
  ASSERT_TRUE(_devices.runUntilAtRest());
  EXPECT_EQ(_devices.sender->status().generation, sent);
  EXPECT_EQ(_devices.backSender->status().generation, sentBack);
}

TEST_F(PairedDeviceMergeTest, WhoeverIsAddedAndNotRemovedIsOnBothHoweverTheGenerationsCross) {
  completeInitialSync();
  startBoth();
  std::mt19937 random(7);
  Names expected = Names({"0", "1", "2", "3"});
  for (int edit = 0; edit < 40; ++edit) {
    const bool isBack = random() % 2;
    const Device& device = isBack ? _devices.phone : _devices.laptop;
    const Names present = namesOn(device);
    if (random() % 3 == 0 && !present.empty()) {
      const std::string name = *std::next(present.begin(), static_cast<std::ptrdiff_t>(random() % present.size()));
      remove(device, name);
      expected.erase(name);
    } else {
      const std::string name = "friend " + std::to_string(edit);
      add(device, name);
      expected.insert(name);
    }
    isBack ? pushBack() : push();
    if (edit == 20) _devices.broker.kill();
    if (edit == 30) _devices.broker.start();
    const bool isBrokerThere = edit < 20 || edit >= 30;
    const auto& sender = isBack ? _devices.backSender : _devices.sender;
    // Sometimes the other device has heard of it before the next edit, sometimes the broker has, sometimes nobody.
    const auto wait = random() % 4;
    const auto isAsWaitedFor = [&] {
      return wait == 0 ? _devices.isAtRest() : wait > 1 || sender->status().due.empty();
    };
    ASSERT_TRUE(!isBrokerThere || _devices.runUntil(isAsWaitedFor)) << edit;
  }
  ASSERT_TRUE(_devices.runUntilAtRest());
  expectOnBoth(expected);
}

TEST_F(PairedDeviceMergeTest, AListThatIsWrittenMeanwhileIsMergedAgain) {
  std::vector<std::string> written;
  _devices.beforeWrite = [&] {
    if (written.size() >= 4) return;
    written.push_back("meanwhile " + std::to_string(written.size()));
    add(_devices.phone, written.back());
  };
  _devices.phone.store("titles", Array{"Phone"});
  completeInitialSync();
  ASSERT_EQ(written.size(), 4u);
  // The first list takes the place also of what is written meanwhile.
  written.clear();
  add(_devices.laptop, "laptop");
  push();
  ASSERT_TRUE(_devices.runUntilInStep());
  Names expected = Names({"0", "1", "2", "3", "laptop"});
  expected.insert(written.begin(), written.end());
  EXPECT_EQ(namesOn(_devices.phone), expected);
  EXPECT_GE(_devices.phone.preferences->overtakenWriteCount(), 4u);
}

TEST_F(PairedDeviceMergeTest, AWriteOfUnknownOutcomeIsMadeOnce) {
  completeInitialSync();
  using Untold = InMemoryPreferences::Untold;
  Names expected = Names({"0", "1", "2", "3"});
  for (const auto& [fate, name] : {std::pair(Untold::stored, "stored"), std::pair(Untold::lost, "lost")}) {
    add(_devices.laptop, name);
    add(_devices.phone, name + std::string(" here"));
    expected.insert({name, name + std::string(" here")});
    _devices.phone.preferences->leaveUntold(fate, 1);
    _devices.phone.preferences->clearRecords();
    push();
    ASSERT_TRUE(_devices.runUntilInStep()) << name;
    EXPECT_EQ(_devices.phone.preferences->writeCount(), 1u) << name;
    EXPECT_EQ(namesOn(_devices.phone), expected);
  }
  EXPECT_TRUE(_devices.runUntil([&] { return _devices.posts == 2; })) << "the programs are told of both";
  _devices.phone.preferences->failWrites(1);
  add(_devices.laptop, "failed");
  push();
  ASSERT_TRUE(_devices.runUntilInStep());
  expected.insert("failed");
  EXPECT_EQ(namesOn(_devices.phone), expected);
  EXPECT_EQ(_devices.log->count("cannot be stored"), 1u);
}

TEST_F(PairedDeviceMergeTest, AProcessThatEndsBeforeItRemembersLosesNobody) {
  completeInitialSync();
  const std::filesystem::path state = _devices.phone.pairing.folder() / "incoming";
  for (const std::string later : {"", "later"}) {
    const std::string before = contentOf(state);
    add(_devices.phone, "phone" + later);
    add(_devices.laptop, "laptop" + later);
    push();
    ASSERT_TRUE(_devices.runUntilInStep());
    // As if it had been killed after the write.
    _devices.receiver.reset();
    writeFile(state, before);
    if (!later.empty()) add(_devices.phone, later);
    const auto expected = namesOn(_devices.phone);
    _devices.phone.preferences->clearRecords();
    _devices.told.clear();
    _devices.startReceiving();
    ASSERT_TRUE(_devices.runUntilTold("stored generation"));
    EXPECT_EQ(namesOn(_devices.phone), expected);
    EXPECT_EQ(_devices.phone.preferences->writeCount(), 0u);
    // What both have had is known again.
    remove(_devices.laptop, "laptop" + later);
    push();
    ASSERT_TRUE(_devices.runUntilInStep());
    EXPECT_FALSE(namesOn(_devices.phone).contains("laptop" + later));
    EXPECT_TRUE(namesOn(_devices.phone).contains("phone" + later));
  }
}

TEST_F(PairedDeviceMergeTest, AStateThatCannotBeReadLosesNobody) {
  completeInitialSync();
  add(_devices.phone, "phone");
  _devices.receiver.reset();
  writeFile(_devices.phone.pairing.folder() / "incoming", "damaged");
  remove(_devices.laptop, "0");
  add(_devices.laptop, "laptop");
  push();
  _devices.startReceiving();
  ASSERT_TRUE(_devices.runUntil([&] { return namesOn(_devices.phone).contains("laptop"); }));
  EXPECT_TRUE(namesOn(_devices.phone).contains("phone"));
}

// Without a broker

class GenerationMergeTest : public testing::Test {
 protected:
  using Names = std::set<std::string>;

  static Value list(const Names& names) {
    Array elements;
    for (const std::string& name : names) elements.emplace_back(Dictionary{{"ABPersonGUID", name}});
    return elements;
  }
  Data message(const Names& names) const { return *encode(KeyMessage{key, list(names)}); }
  Manifest manifestOf(const Names& names) const { return {{key, digestOf(message(names))}}; }
  Manifest keep(const Names& names) const {
    EXPECT_TRUE(kept.keep(message(names)));
    return manifestOf(names);
  }
  GenerationMerge mergeOf(const IncomingState& state, const OutgoingState& outgoing, const Names& arrived,
                          std::uint64_t generation, std::uint64_t included) const {
    return {{state, outgoing, kept, merge, false},
            ArrivedGeneration{generation, {manifestOf(arrived), included}, {{key, message(arrived)}}}};
  }
  static Value merged(const GenerationMerge& merge, const Names& stored) {
    return merge.merged(SyncDomain, {{"list", list(stored)}}).values.at("list");
  }

  const TemporaryFolder folder;
  const MessageStore kept{folder.path()};
  const DomainKey key{SyncDomain, "list"};
  const ValuesMerge merge = mergeSets;
};

TEST_F(GenerationMergeTest, WhatCrossedIsKnownToBothOnceItWasAnswered) {
  IncomingState state;
  state.generation = 5;
  state.stored = keep({"both"});
  state.addSent(1, keep({"both", "own"}), 0);
  const GenerationMerge crossed = mergeOf(state, {}, {"both", "other"}, 6, 0);
  EXPECT_EQ(merged(crossed, {"both", "own"}), list({"both", "other", "own"}));
  const auto next = crossed.next();
  ASSERT_TRUE(next);

  // Removed here since; the answer, which has the one that was sent, does not know of that.
  const GenerationMerge answer = mergeOf(*next, {}, {"both", "other", "own"}, 7, 1);
  EXPECT_EQ(merged(answer, {"both", "own"}), list({"both", "own"}));
  EXPECT_TRUE(answer.next()->sent.empty());
}

// A device of version 0.1 has digests of what was exchanged, and not the values.
TEST_F(GenerationMergeTest, WhereOnlyTheDigestIsKnownARemovalHoldsAsLongAsNothingWasEditedHere) {
  const Names exchanged = {"both", "removed"};
  IncomingState received;
  received.generation = 5;
  received.stored = manifestOf(exchanged);
  IncomingState nothing;
  nothing.wasDamaged = true;
  OutgoingState sent;
  sent.sent[key] = {digestOf(message(exchanged)), 3};
  for (const GenerationMerge& each : {mergeOf(received, {}, {"both"}, 6, 0), mergeOf(nothing, sent, {"both"}, 6, 3)}) {
    EXPECT_EQ(merged(each, exchanged), list({"both"}));
    EXPECT_EQ(merged(each, {"both", "own", "removed"}), list({"both", "own", "removed"}));
  }
}

}  // namespace
}  // namespace pellor
