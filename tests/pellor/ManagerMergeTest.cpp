// A stored list of another process is merged into the list at hand: persons stay who they are.
#include <algorithm>

#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

class ManagerMergeTest : public ManagerTest {
 protected:
  ManagerMergeTest() { setGroups(4, 3); }

  /// Another process has written.
  void receive(const std::string& list) {
    store(list);
    postListChanged();
    rest();
  }
};

TEST_F(ManagerMergeTest, KeepsThePersonsAndTellsWhatHappened) {
  const struct {
    const char *before, *after, *list, *changes;
  } rows[] = {
      {"Ann,-,-", "Ann,-,Bob", "Ann,-,Bob|-,-,-", "Bob+"},
      {"Ann,Bob,-", "Bob,-,Ann", "Bob,-,Ann|-,-,-", "Bob> Ann>"},
      {"Ann#,Bob#,Cy#|Dan#,-,-", "Dan#,Eve#,Ann#|-,-,-", "Dan,Eve,Ann|-,-,-", "Dan> Eve+ Ann> Bob- Cy-"},
      {"Ann,-,-|Bob,-,Cy", "Ann,-,-|Bob", "Ann,-,-|Bob,-,Cy|-,-,-", nullptr},
      {"Ann,-,-", "Ann,-,-|-,-,-|-,-,-|-,-,-|Bob,-,-", "Ann,-,-|-,-,-|-,-,-|-,-,-", "Bob+"},
      // What stands behind the end is new there, even if it stands before the end as well.
      {"Ann#,-,-|Bob#,-,-|Cy#,Dan#,-", "Ann#,-,-|Cy#,Dan#,-", "Ann,-,-|Cy,Dan,-|-,-,-", "Cy> Dan> Bob-"},
  };
  for (const auto& [before, after, list, changes] : rows) {
    auto a = launchWith(before);
    std::map<std::string, std::shared_ptr<PLPerson>> persons;
    for (const auto& person : a->manager().allPeople()) persons.emplace(*person->displayName(), person);
    receive(after);
    EXPECT_EQ(a->list(), list);
    auto notifications = a->takeNotifications();
    std::erase(notifications, "groups changed");
    EXPECT_EQ(notifications, changes ? std::vector{std::string("changed ") + changes} : std::vector<std::string>());
    EXPECT_EQ(world.preferences().writeCount(), 0U) << "who only reloads writes nothing";
    for (const auto& person : a->manager().allPeople()) {
      EXPECT_EQ(person, persons.try_emplace(*person->displayName(), person).first->second) << "the same object";
    }
    a->kill();
  }
}

TEST_F(ManagerMergeTest, WithoutADatabaseBehindTheSharedHandleAMergeOpensItsOwn) {
  auto a = launch();
  receive("Ann,-,-");
  EXPECT_EQ(world.addressBook().privateHandleCount(), 0U);
  world.addressBook().setDatabaseUID(std::nullopt);
  receive("Ann,Bob,-");
  EXPECT_EQ(world.addressBook().privateHandleCount(), 1U);
  world.addressBook().setOpenFails(true);
  receive("Ann,Bob,Cy");
  EXPECT_EQ(a->list(), "Ann,Bob,Cy|-,-,-");
}

// Else its write could overwrite what the other process does next.
TEST_F(ManagerMergeTest, WhoPutsALookedUpPersonInWritesNothing) {
  contacts({"Bob"});
  store("Ann,-,-");
  auto a = launch();
  auto b = launch();
  rest();
  const auto bob = b->person("Bob");
  const std::uint64_t posts = world.bus().postCount(PLFriendsChangedExternallyNotification);
  a->add("Bob");
  rest();
  EXPECT_EQ(b->friendAt(0, 1), bob);
  EXPECT_EQ(world.bus().postCount(PLFriendsChangedExternallyNotification), posts + 1);
}

TEST_F(ManagerMergeTest, StoredDestinationsThatAreNotCanonicalAreCorrectedOnce) {
  auto form = storedForm("Ann");
  form.insert_or_assign("AllValues", Array{"mailto:ann@example.org"});
  world.preferences().setValue(PLFriendListKey, Array{form}, std::string(TapnoteDomain));
  auto a = launch();
  auto b = launch();
  rest();
  EXPECT_EQ(*a->friendAt(0, 0)->allValues(), DestinationSet{"ann@example.org"});
  const auto stored = *storedValue(PLFriendListKey)->array();
  EXPECT_EQ((*stored[0].dictionary()).at("AllValues"), Value(Array{"ann@example.org"}));
  EXPECT_EQ(world.bus().postCount(PLFriendsChangedExternallyNotification), 1U) << "one corrects it for all";
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

TEST(ManagerLoadOnThreads, MetadataThatIsSetWhileAFriendIsTakenOverStays) {
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

}  // namespace
}  // namespace pellor
