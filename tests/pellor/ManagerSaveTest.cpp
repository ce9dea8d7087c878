// What is written, when, and who is told; stores that fail; the end of a manager.
#include <barrier>
#include <thread>

#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/LogCollector.h"
#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string Posted = std::string(PLFriendsChangedExternallyNotification);

class ManagerSaveTest : public ManagerTest {
 protected:
  ManagerSaveTest() {
    setGroups(3, 2);
    contacts({"Ann", "Bob", "Cy", "Dan"});
  }

  std::unique_ptr<ManagerProcess> launchWith(const std::string& list) {
    auto process = ManagerTest::launchWith(list);
    world.pairedDevice().clearPushes();
    postsBefore = world.bus().postCount(Posted);
    return process;
  }
  std::uint64_t posts() { return world.bus().postCount(Posted) - postsBefore; }
  std::vector<std::set<std::string>> pushes() {
    std::vector<std::set<std::string>> keys;
    for (const auto& push : world.pairedDevice().pushes()) keys.push_back(push.keys);
    return keys;
  }

  std::uint64_t postsBefore = 0;
  const std::set<std::string> listKey{"FriendList"};
};

TEST_F(ManagerSaveTest, OnlyChangesOfSlotsArePushedAndOnlyAfterTheInitialSync) {
  auto a = launchWith("Ann,-");
  a->add("Bob");
  rest();
  EXPECT_THAT(pushes(), IsEmpty());

  world.pairedDevice().setCompletedInitialSync(true);
  a->run([&] { a->friendAt(0, 0)->setPreferredReplyAs("home"); });
  rest();
  a->run([&] { a->friendAt(0, 0)->setMetadataValueForKey(Value(1), "rank"); });
  rest();
  EXPECT_EQ(a->logged("friend list saved"), 3U);
  EXPECT_EQ(posts(), 3U);
  EXPECT_THAT(pushes(), IsEmpty());

  a->remove(0, 1);
  rest();
  EXPECT_THAT(pushes(), ElementsAre(listKey));
  a->run([&] {
    a->manager().save();
    a->manager().saveFriendGroupTitles();
    a->manager().markFriendListAsNormalized();
  });
  rest();
  EXPECT_THAT(pushes(),
              ElementsAre(listKey, std::set<std::string>{"TNFriendGroupTitles", "DidNormalizeFriendListDestinations"}));
  EXPECT_EQ(posts(), 4U) << "neither titles nor the mark are posted, nor a save that had nothing to write";
  EXPECT_EQ(a->logged("friend list saved"), 4U);
}

TEST_F(ManagerSaveTest, NamesOfTheDomainMayBeTheSameButNotEmpty) {
  const std::pair<Value, std::string> rows[] = {{"", Posted}, {7, Posted}, {"changed", "changed"}};
  for (const auto& [setting, name] : rows) {
    setSetting(PLFriendsChangedExternallyNotificationKey, setting);
    setSetting(PLFriendGroupTitleChangedExternallyNotificationKey, setting);
    auto a = launchWith("Ann,-");
    a->add("Bob");
    EXPECT_TRUE(a->settle(10)) << name;
    EXPECT_EQ(a->logged("Handling external friends-changed event."), 0U) << name;
    store("Cy,-");
    world.bus().post(name);
    rest();
    EXPECT_EQ(a->list(), "Cy,-|-,-") << name;
    a->kill();
  }
}

// --- With real threads ---

// A save takes the flags one after the other, the first friend's before the last one's.
TEST(ManagerThreadsTest, AnEditWhileASaveTakesTheFlagsIsNotLost) {
  constexpr std::size_t groupCount = 200, groupSize = 50;
  SimulatedWorld world;
  Process process(std::make_shared<LogCollector>());
  installPlatform(process, world.makePlatform(process));
  PLFriendsManager::setMaxGroupCountDomain(groupCount, OtherDomain);
  PLFriendsManager::setGroupSizeDomain(groupSize, OtherDomain);
  PLFriendsManager::setRefreshAgainstContactsOnInitEnabledDomain(false, OtherDomain);
  Array list;
  while (list.size() < groupCount * groupSize) list.emplace_back(storedForm("Friend" + std::to_string(list.size())));
  world.preferences().setValue(PLFriendListKey, LongArray(list), OtherDomain);
  const auto manager = PLFriendsManager::managerForDomain(OtherDomain);
  ASSERT_TRUE(process.settle(60));
  const auto first = manager->friendGroups().front()->friendAtPosition(0);
  const auto last = manager->friendGroups().back()->friendAtPosition(groupSize - 1);
  first->setNeedsSave(true);
  manager->save();
  while (first->needsSave()) process.mainQueue().drain();
  last->setPreferredReplyAs("home");
  ASSERT_TRUE(process.settle(60));
  EXPECT_EQ(world.preferences().value(PLFriendListKey, OtherDomain)->array()->back(), last->dictionaryRepresentation());
}

// All that may happen at once, above all for ThreadSanitizer. Of two managers one reloads its list all the time: what
// is stored takes the place of an edit that is not. The other one loses nothing.
TEST(ManagerThreadsTest, EditsMetadataSavesReloadsAndLookupsGoTogether) {
  constexpr int rounds = 100, writers = 8;
  const auto key = [](int writer, int round) { return std::to_string(writer) + "." + std::to_string(round); };
  SimulatedWorld world;
  Process process;
  installPlatform(process, world.makePlatform(process));
  PLFriendsManager::setFriendsChangedExternallyNotificationNameDomain("ReloadedChanged", OtherDomain);
  const auto kept = PLFriendsManager::managerForDomain("org.tapnote.Kept");
  const auto reloaded = PLFriendsManager::managerForDomain(OtherDomain);
  std::vector<std::shared_ptr<PLPerson>> friends;
  for (const auto& manager : {kept, kept, reloaded}) {
    friends.push_back(manager->personWithDestinations({mailOf("Friend" + std::to_string(friends.size()))}));
    ASSERT_TRUE(manager->addFriend(friends.back()));
  }
  std::barrier everybody(writers + 1);  // begins each round
  std::vector<std::thread> threads;
  for (int writer = 0; writer < writers; ++writer) {
    threads.emplace_back([&, writer] {
      for (int round = 0; round < rounds; ++round) {
        everybody.arrive_and_wait();
        for (const auto& person : friends) person->setMetadataValueForKey(round, key(writer, round));
        EXPECT_EQ(friends[0]->metadataValueForKey(key(writer, round)), Value(round));
      }
    });
  }
  for (int round = 0; round < rounds; ++round) {
    everybody.arrive_and_wait();
    for (const auto& manager : {kept, reloaded}) {
      const auto person = manager->personWithDestinations({mailOf("Guest" + std::to_string(round))});
      EXPECT_TRUE(manager->addFriend(person));
      person->setPreferredReplyAs(std::to_string(round));
      EXPECT_EQ(manager->personLikePerson(person), person);
      if (round % 3 == 0) manager->friendGroups().front()->removeFriendAtPosition(2);
      manager->friendGroups().back()->setTitle(std::to_string(round));
      if (round % 7 == 0) manager->saveFriendGroupTitles();
    }
    reloaded->reloadFriendList();
    process.mainQueue().drain();
  }
  for (std::thread& thread : threads) thread.join();
  ASSERT_TRUE(process.settle(60));
  for (const auto& manager : {kept, reloaded}) {
    EXPECT_EQ(manager->invariantViolation(), std::nullopt);
    Array list;
    for (const auto& group : manager->friendGroups()) {
      for (const auto& slot : group->friends())
        list.emplace_back(slot ? slot->dictionaryRepresentation() : Dictionary{});
    }
    EXPECT_EQ(world.preferences().value(PLFriendListKey, manager->domain()), Value(list)) << manager->domain();
  }
  Dictionary written;
  for (int entry = 0; entry < writers * rounds; ++entry) {
    written.emplace(key(entry / rounds, entry % rounds), entry % rounds);
  }
  for (const std::uint64_t position : {0U, 1U}) {
    EXPECT_EQ(kept->friendGroups().front()->friendAtPosition(position), friends[position]);
    EXPECT_EQ(friends[position]->metadata(), written);
  }
}

// In the middle of a load: other threads may set metadata at any time.
class LogThatActs : public LogSink {
 public:
  void write(const LogEntry& entry) override {
    const bool isAwaited =
        act && entry.messageText().find("is being marked as updated due to name") != std::string::npos;
    if (isAwaited) std::exchange(act, nullptr)();
  }
  std::function<void()> act;
};

TEST(ManagerThreadsTest, MetadataThatIsSetWhileAFriendIsTakenOverStays) {
  SimulatedWorld world;
  const auto log = std::make_shared<LogThatActs>();
  Process process(std::make_shared<SimulatedScheduler>(1), log);
  installPlatform(process, world.makePlatform(process));
  const auto storeFriend = [&](const std::string& name, const Dictionary& metadata) {
    const Dictionary form = {
        {"ABRecordGUID", "guid"}, {"AllValues", Array{"ann@example.org"}}, {"Metadata", metadata}, {"Name", name}};
    world.preferences().setValue(PLFriendListKey, Array{form}, OtherDomain);
  };
  PLFriendsManager::setRefreshAgainstContactsOnInitEnabledDomain(false, OtherDomain);
  storeFriend("Ann", {{"size", 1}});
  const auto manager = PLFriendsManager::managerForDomain(OtherDomain);
  ASSERT_TRUE(process.settle(60));
  const auto ann = manager->friendGroups().front()->friendAtPosition(0);
  log->act = [&] {
    ann->setMetadataValueForKey("home", "place");
    ann->setMetadataValueForKey("red", "colour");
  };
  storeFriend("Anna", {{"size", 2}, {"colour", "blue"}});
  manager->reloadFriendList();
  ASSERT_TRUE(process.settle(60));
  EXPECT_FALSE(log->act);
  EXPECT_EQ(ann->metadata(), (Dictionary{{"colour", "red"}, {"place", "home"}, {"size", 2}}));
  EXPECT_EQ(world.preferences().value(PLFriendListKey, OtherDomain)->array()->front(), ann->dictionaryRepresentation());
}

TEST(ManagerThreadsTest, TheLastReferenceMayDropOnAWorker) {
  SimulatedWorld world;
  auto log = std::make_shared<LogCollector>();
  Process process(log);
  installPlatform(process, world.makePlatform(process));
  auto manager = PLFriendsManager::initWithDomain(OtherDomain);
  const std::weak_ptr<PLFriendsManager> weak = manager;
  ASSERT_TRUE(process.settle(60));
  const auto group = manager->friendGroups().front();
  log->clear();
  auto worker = SerialQueue::make("worker");
  worker->async([held = std::move(manager)]() mutable { held.reset(); });
  // The world ends the program if the manager takes its observers back elsewhere than on the main queue.
  world.bus().post(PLFriendsChangedExternallyNotification);
  world.addressBook().add(contactNamed("Ann"));
  ASSERT_TRUE(process.settle(60));
  EXPECT_TRUE(weak.expired());
  EXPECT_EQ(group->delegate(), nullptr);
  log->clear();
  world.bus().post(PLFriendsChangedExternallyNotification);
  world.addressBook().add(contactNamed("Bob"));
  ASSERT_TRUE(process.settle(60));
  EXPECT_THAT(log->messages(), IsEmpty());
}

}  // namespace
}  // namespace pellor
