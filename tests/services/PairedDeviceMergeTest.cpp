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

#include "linux/SQLitePreferences.h"
#include "linux/mosquitto/GenerationMerge.h"
#include "linux/mosquitto/KeptMessages.h"
#include "linux/mosquitto/SealingKeys.h"
#include "tests/services/PairedDeviceFixture.h"

namespace pellor {
namespace {

// The keys of a friend list, as version 0.1 stored it.
const std::string ListKey = "FriendList", TitlesKey = "TNFriendGroupTitles";

class PairedDeviceMergeTest : public PairedDeviceTest {
 protected:
  using Names = std::set<std::string>;

  // Lists of friends with a name each
  static Names namesOn(const Device& device, const std::string& key = "list",
                       std::string_view nameKey = "ABPersonGUID") {
    Names names;
    const auto list = device.stored(key);
    for (const Value& element : list && list->array() ? *list->array() : Array()) {
      if (const auto name = stringForKey(*element.dictionary(), nameKey)) names.insert(*name);
    }
    return names;
  }
  /// As a program does: over what it has read.
  static void edit(const Device& device, const std::string& key, const std::function<void(Array&)>& change) {
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
    edit(device, "list", [&](Array& list) { list.emplace_back(Dictionary{{"ABPersonGUID", name}}); });
  }
  static void remove(const Device& device, const std::string& name) {
    edit(device, "list", [&](Array& list) { std::erase(list, Value(Dictionary{{"ABPersonGUID", name}})); });
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
  EXPECT_EQ(namesOn(_devices.laptop), Names({"0", "1", "2", "3"}));

  // They cross on the way.
  _devices.broker.kill();
  add(_devices.laptop, "laptop");
  remove(_devices.laptop, "0");
  add(_devices.phone, "phone");
  remove(_devices.phone, "1");
  _devices.laptop.store("titles", Array{"Laptop"});
  _devices.phone.store("titles", Array{"Phone"});
  push();
  pushBack();
  _devices.broker.start();
  ASSERT_TRUE(_devices.runUntilAtRest());
  expectOnBoth({"2", "3", "laptop", "phone"});
  EXPECT_EQ(_devices.laptop.stored("titles"), _devices.phone.stored("titles")) << "one of two that conflict";

  // To and fro: each knows what the other one has by now.
  remove(_devices.phone, "phone");
  pushBack();
  ASSERT_TRUE(_devices.runUntilAtRest());
  expectOnBoth({"2", "3", "laptop"});
  add(_devices.laptop, "phone");
  push();
  ASSERT_TRUE(_devices.runUntilAtRest());
  expectOnBoth({"2", "3", "laptop", "phone"});
  const Value former = *_devices.laptop.stored("list");
  add(_devices.phone, "undone");
  pushBack();
  ASSERT_TRUE(_devices.runUntilAtRest());
  _devices.laptop.store("list", former);
  push();
  ASSERT_TRUE(_devices.runUntilAtRest());
  expectOnBoth({"2", "3", "laptop", "phone"});

  // Titles that are sent alone do not take back what the list has got from there.
  add(_devices.phone, "new");
  pushBack();
  ASSERT_TRUE(_devices.runUntilAtRest());
  _devices.laptop.store("titles", Array{"New"});
  _devices.sender->synchronizeDomainKeys(SyncDomain, {"titles"});
  ASSERT_TRUE(_devices.runUntilAtRest());
  expectOnBoth({"2", "3", "laptop", "phone", "new"});
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

// A device folder of version 0.1 has digests of what was exchanged, and not the values.
TEST_F(PairedDeviceMergeTest, ADeviceOfVersion01GoesOnWithWhatItKnows) {
  const std::filesystem::path data = std::filesystem::path(PELLOR_TEST_DATA) / "0.1/device";
  const auto takeOver = [&](const Device& device, const std::string& name, const std::string& state) {
    for (const std::string& file : {std::string("peer"), std::string("sealing"), state}) {
      std::filesystem::copy(data / name / "data/device" / file, device.pairing.folder() / file);
    }
    // The phone's contacts have not touched its list since.
    std::filesystem::copy(data / "laptop/data/preferences.sqlite", device.folder / "preferences.sqlite");
    SQLitePreferences store(device.folder.path(), device.folder / "defaults.json", LogHandle("", "", nullptr));
    for (const auto& key : {ListKey, TitlesKey}) device.store(key, store.copyValue(key, SyncDomain).value());
  };
  takeOver(_devices.laptop, "laptop", "outgoing");
  takeOver(_devices.phone, "phone", "incoming");
  _devices.keys = {{SyncDomain, {ListKey, TitlesKey, "DidNormalizeFriendListDestinations"}}};
  const auto namesOnPhone = [&] { return namesOn(_devices.phone, ListKey, "Name"); };
  const auto before = namesOnPhone();
  ASSERT_TRUE(before.contains("Anna Kellerwald"));
  const auto removeOnLaptop = [&](const std::string& name) {
    edit(_devices.laptop, ListKey, [&](Array& list) {
      std::erase_if(list, [&](const Value& value) { return stringForKey(*value.dictionary(), "Name") == name; });
    });
  };

  // The list here is the one that was exchanged: that can be seen, and the removal holds.
  removeOnLaptop("Anna Kellerwald");
  _devices.startSending();
  _devices.sender->synchronizeDomainKeys(SyncDomain, {ListKey});
  _devices.startReceiving();
  ASSERT_TRUE(_devices.runUntilInStep());
  auto expected = before;
  expected.erase("Anna Kellerwald");
  EXPECT_EQ(namesOnPhone(), expected);

  // Another device of that version has an edit that was never sent: nobody counts as removed.
  _devices.receiver.reset();
  std::filesystem::copy(data / "phone/data/device/incoming", _devices.phone.pairing.folder() / "incoming",
                        std::filesystem::copy_options::overwrite_existing);
  KeptMessages(_devices.phone.pairing.folder()).retain({});
  edit(_devices.phone, ListKey, [&](Array& list) { list.emplace_back(Dictionary{{"Name", "unsent"}}); });
  expected = namesOnPhone();
  removeOnLaptop("Jörg Mühlgrab");
  _devices.sender->synchronizeDomainKeys(SyncDomain, {ListKey});
  _devices.startReceiving();
  ASSERT_TRUE(_devices.runUntilInStep());
  EXPECT_EQ(namesOnPhone(), expected);
}

// Without a broker

TEST(GenerationMergeTest, WhatCrossedIsKnownToBothOnceItWasAnswered) {
  const TemporaryFolder folder;
  const KeptMessages kept(folder.path());
  const DomainKey key(SyncDomain, "list");
  const auto list = [](const std::set<std::string>& names) {
    Array elements;
    for (const std::string& name : names) elements.emplace_back(Dictionary{{"ABPersonGUID", name}});
    return Value(elements);
  };
  const auto message = [&](const std::set<std::string>& names) { return *encode(KeyMessage{key, list(names)}); };
  const auto keep = [&](const std::set<std::string>& names) {
    EXPECT_TRUE(kept.keep(message(names)));
    return Manifest{{key, digestOf(message(names))}};
  };
  const auto arrived = [&](std::uint64_t generation, std::uint64_t included, const std::set<std::string>& names) {
    return ArrivedGeneration{generation, {{{key, digestOf(message(names))}}, included}, {{key, message(names)}}};
  };
  const ValuesMerge merge = mergeSets;
  IncomingState state;
  state.generation = 5;
  state.stored = keep({"both"});
  state.addSent(1, keep({"both", "own"}), 0);
  const GenerationMerge crossed({state, {}, kept, merge, false}, arrived(6, 0, {"both", "other"}));
  EXPECT_EQ(crossed.merged(SyncDomain, {{"list", list({"both", "own"})}}).values.at("list"),
            Value(Array{Dictionary{{"ABPersonGUID", "both"}}, Dictionary{{"ABPersonGUID", "other"}},
                        Dictionary{{"ABPersonGUID", "own"}}}));
  const auto next = crossed.next();
  ASSERT_TRUE(next);

  // Removed here since; the answer, which has the one that was sent, does not know of that.
  const GenerationMerge answer({*next, {}, kept, merge, false}, arrived(7, 1, {"both", "other", "own"}));
  EXPECT_EQ(answer.merged(SyncDomain, {{"list", list({"both", "own"})}}).values.at("list"), list({"both", "own"}));
  EXPECT_TRUE(answer.next()->sent.empty());
}

}  // namespace
}  // namespace pellor
