// Contacts that chance changes under two programs, which decide the same and take back what was decided.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "pellor/friends/internal/PLException.h"
#include "pellor/list/Edit.h"
#include "tests/list/ListProcess.h"
#include "tests/pellor/SeededTest.h"

namespace pellor {
namespace {

class DecidingWorld : public ManagerTest {
 public:
  explicit DecidingWorld(std::uint64_t seed) : _random(seed) {
    scheduler = std::make_shared<SimulatedScheduler>(seed);
    setGroups(3, 2);
    setSetting(PLRemoveDestinationlessFriendsEnabledKey, below(2) == 0);
    for (const char* name : {"Ann", "Bob", "Cy", "Dan"}) world.addressBook().add(contactNamed(name));
    store("Ann#,Bob#|Cy#,Dan#|-,-");
    for (int index = 0; index < 2; ++index) all.push_back(std::make_unique<ListProcess>(launch()));
    rest();
  }
  void TestBody() override {}
  using ManagerTest::rest;

  std::size_t below(std::size_t count) { return std::uniform_int_distribution<std::size_t>(0, count - 1)(_random); }

  // GUIDs and addresses are few, so that cards meet.
  void changeContacts() {
    const std::string guid = "g" + std::to_string(below(4));
    InMemoryAddressBook& book = world.addressBook();
    const std::vector<std::string> names = {"Ann", "Bob", "Cy", "Dan", "Zoe"};
    const std::string name = names[below(names.size())];
    switch (below(4)) {
      case 0:
        if (book.contact(guidOf(name))) book.remove(guidOf(name));
        break;
      case 1:
        if (book.contact(guid)) book.remove(guid);
        break;
      case 2:
        book.put(contactNamed(name));
        break;
      default:
        TestContact card{.guid = guid, .first = names[below(names.size())]};
        if (below(4) > 0) card.emails.push_back({"home", mailOf(name)});
        if (below(3) == 0) card.emails.push_back({"work", mailOf(names[below(names.size())])});
        book.put(card);
    }
  }

  void takeBackSomething(ListProcess& process) {
    process.process().run([&] {
      const auto history = process.list().history();
      if (history.empty()) return;
      const HistoryStep& step = history[below(history.size())];
      if (!step.isTakenBack) process.list().undo(step.id);
    });
  }

  std::vector<PLException> exceptions() {
    std::vector<PLException> held;
    const auto stored = storedValue(PLFriendListExceptionsKey);
    if (!stored || !stored->array()) return held;
    for (const Value& element : *stored->array()) held.push_back(*exceptionOf(element));
    return held;
  }

  std::vector<std::unique_ptr<ListProcess>> all;

 private:
  std::mt19937_64 _random;
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
      ListProcess& process = *world.all[world.below(2)];
      switch (world.below(5)) {
        case 0:
          world.takeBackSomething(process);
          break;
        case 1:
          process.process().run([&] { process.list().redo(); });
          break;
        default:
          world.changeContacts();
      }
      if (world.below(2) == 0) world.rest();
      if (world.below(10) == 0) process.process().run([&] { process.process().manager().reloadFriendList(); });
    }
    world.rest();
    const auto history = [](ListProcess& process) {
      return process.process().run([&] { return process.list().history(); });
    };
    const Snapshot list = world.all[0]->snapshot();
    ASSERT_EQ(contentOf(list), contentOf(world.all[1]->snapshot()));
    const auto steps = history(*world.all[0]), others = history(*world.all[1]);
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
    for (const auto& process : world.all) ASSERT_EQ(process->process().manager().invariantViolation(), std::nullopt);
  });
}

INSTANTIATE_TEST_SUITE_P(Seeds, AutomaticStepSeedsTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

}  // namespace
}  // namespace pellor
