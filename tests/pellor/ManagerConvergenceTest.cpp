// Several processes edit at the same moment. Whose edit wins is open; that all of them show what is stored is not.
#include <random>

#include "tests/pellor/ManagerWorld.h"
#include "tests/pellor/SlowStore.h"

namespace pellor {
namespace {

struct Editor {
  Editor(SimulatedWorld& world, const std::shared_ptr<SimulatedScheduler>& scheduler) : process(scheduler, nullptr) {
    const Process::Scope scope(process);
    Platform platform = world.makePlatform(process);
    // Its writes take time: meanwhile the rest of the world goes on.
    platform.preferences = std::make_shared<SlowStore>(platform.preferences, [this, scheduler](std::string_view) {
      if (process.mainQueue().isCurrent()) return;
      for (int step = 0; step < 4; ++step) scheduler->step();
    });
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
