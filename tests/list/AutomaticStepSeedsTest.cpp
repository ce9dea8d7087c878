// Contacts that chance changes under two programs, which decide the same and take back what was decided.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "pellor/friends/internal/PLException.h"
#include "tests/list/SeededWorld.h"

namespace pellor {
namespace {

class DecidingWorld : public SeededWorld {
 public:
  explicit DecidingWorld(std::uint64_t seed) : SeededWorld(seed, {"Ann", "Bob", "Cy", "Dan", "Zoe"}) {
    setGroups(3, 2);
    setSetting(PLRemoveDestinationlessFriendsEnabledKey, below(2) == 0);
    contacts({"Ann", "Bob", "Cy", "Dan"});
    store("Ann#,Bob#|Cy#,Dan#|-,-");
    for (int index = 0; index < 2; ++index) all.push_back(open());
  }

  std::vector<PLException> exceptions() {
    std::vector<PLException> held;
    const auto stored = storedValue(PLFriendListExceptionsKey);
    if (!stored || !stored->array()) return held;
    for (const Value& element : *stored->array()) held.push_back(*exceptionOf(element));
    return held;
  }
};

// Without the address that is shown: a process keeps the one that the user has seen.
std::string contentOf(const Snapshot& list) {
  std::string text;
  for (const auto& person : list.friends()) {
    text += person->name + "/" + person->contactGUID.value_or("-");
    for (const std::string& destination : person->destinations) text += "/" + destination;
    text += " ";
  }
  return text;
}

class AutomaticStepSeedsTest : public SeededTest {};

// All come to rest with one list and one history; nobody is linked with a record that was refused for him.
TEST_P(AutomaticStepSeedsTest, TwoProgramsAgreeAndWhatWasTakenBackHolds) {
  forEachSeed(countOf("PELLOR_DECISIONS", 200, 40), [](std::uint64_t seed) {
    DecidingWorld world(seed);
    for (int round = 0; round < 40; ++round) {
      ListProcess& process = world.someone();
      const std::size_t chosen = world.below(5);
      if (chosen == 0) world.takeBackSomething(process);
      if (chosen == 1) process.redo();
      if (chosen > 1) world.changeContacts();
      if (world.below(2) == 0) world.rest();
      if (world.below(10) == 0) process.reload();
    }
    world.rest();
    const Snapshot list = world.all[0]->snapshot();
    ASSERT_EQ(contentOf(list), contentOf(world.all[1]->snapshot()));
    const auto steps = world.all[0]->history(), others = world.all[1]->history();
    ASSERT_EQ(steps.size(), others.size());
    std::set<std::string> ids;
    for (std::size_t index = 0; index < steps.size(); ++index) {
      ASSERT_TRUE(ids.insert(steps[index].id).second) << "two steps of one id";
      ASSERT_EQ(steps[index].id, others[index].id);
      ASSERT_EQ(steps[index].isTakenBack, others[index].isTakenBack);
    }
    for (const PLException& exception : world.exceptions()) {
      if (exception.kind != PLDecisionKind::relinked) continue;
      for (const auto& person : list.friends())
        ASSERT_FALSE(person->name == exception.person.name && person->destinations == exception.person.destinations &&
                     person->contactGUID == exception.record.guid);
    }
    world.expectSound();
  });
}

INSTANTIATE_TEST_SUITE_P(Seeds, AutomaticStepSeedsTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

}  // namespace
}  // namespace pellor
