// Several processes edit at the same moment. Whose edit wins is open; that all of them show what is stored is not.
#include <random>

#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

/// A store whose writes take time: meanwhile the rest of the world goes on.
class SlowStore final : public PreferencesStore {
 public:
  SlowStore(std::shared_ptr<PreferencesStore> store, Process& process, SimulatedScheduler& scheduler)
      : _store(std::move(store)), _process(process), _scheduler(scheduler) {}

  PreferenceAnswer<Value> copyValue(std::string_view key, std::string_view domain) override {
    return _store->copyValue(key, domain);
  }
  PreferenceAnswer<std::int64_t> integerValue(std::string_view key, std::string_view domain) override {
    return _store->integerValue(key, domain);
  }
  PreferenceAnswer<bool> booleanValue(std::string_view key, std::string_view domain) override {
    return _store->booleanValue(key, domain);
  }
  void setValue(std::string_view key, std::optional<Value> value, std::string_view domain) override {
    if (!_process.mainQueue().isCurrent()) {
      for (int step = 0; step < 4; ++step) _scheduler.step();
    }
    _store->setValue(key, std::move(value), domain);
  }
  bool synchronize(std::string_view domain) override { return _store->synchronize(domain); }
  PutAside putAside(std::string_view key, std::string_view domain) override { return _store->putAside(key, domain); }
  std::optional<Value> persistentValueForKey(std::string_view key, std::string_view domain) override {
    return _store->persistentValueForKey(key, domain);
  }

 private:
  const std::shared_ptr<PreferencesStore> _store;
  Process& _process;
  SimulatedScheduler& _scheduler;
};

struct Editor {
  Editor(SimulatedWorld& world, const std::shared_ptr<SimulatedScheduler>& scheduler) : process(scheduler, nullptr) {
    const Process::Scope scope(process);
    Platform platform = world.makePlatform(process);
    platform.preferences = std::make_shared<SlowStore>(platform.preferences, process, *scheduler);
    installPlatform(process, platform);
    manager = PLFriendsManager::managerForDomain(OtherDomain);
  }
  ~Editor() {
    manager.reset();
    process.abandon();
  }

  /// One edit at random, of a list with groups of three.
  void edit(std::mt19937& random) {
    const Process::Scope scope(process);
    const auto group = manager->friendGroups().at(random() % manager->friendGroups().size());
    if (random() % 3 == 0) return group->removeFriendAtPosition(random() % 3);
    const auto person = manager->personWithABRecordGUID(guidOf(std::string(1, static_cast<char>('A' + random() % 8))));
    std::uint32_t error = 0;
    if (!manager->isPersonFriend(person)) group->setFriendAtPosition(person, random() % 3, error);
  }

  std::string list() const {
    std::string text;
    for (const auto& group : manager->friendGroups()) {
      for (const auto& person : group->friends()) text += person ? *person->displayName() : "-";
    }
    text.erase(text.find_last_not_of('-') + 1);
    return text;
  }

  Process process;
  std::shared_ptr<PLFriendsManager> manager;
};

// A write that was under way while another process's list was merged goes over that list, so that its writer has to
// read again, though the echo of its own post is no news to it.
TEST(ManagerConvergenceTest, SimultaneousEditsEndInOneList) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    SimulatedWorld world;
    const auto scheduler = std::make_shared<SimulatedScheduler>(seed);
    world.preferences().setValue(PLGroupSizeKey, 3, OtherDomain);
    for (char name = 'A'; name <= 'H'; ++name) world.addressBook().add(contactNamed(std::string(1, name)));
    Editor first(world, scheduler);
    Editor second(world, scheduler);
    std::mt19937 random(seed);
    for (int round = 0; round < 6; ++round) {
      for (Editor* editor : {&first, &second}) {
        editor->edit(random);
        for (auto steps = random() % 6; steps > 0; --steps) scheduler->step();
      }
    }
    scheduler->advance(10);
    Editor reader(world, scheduler);
    ASSERT_EQ(first.list(), reader.list());
    ASSERT_EQ(second.list(), reader.list());
  }
}

}  // namespace
}  // namespace pellor
