// Under many seeds: two processes that make steps of two edits on one list, with stores that fail and do not tell, and
// processes that are killed. What is stored never has one half of a step.
#include <array>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <utility>

#include "pellor/friends/PLListEditor.h"
#include "tests/pellor/ManagerWorld.h"
#include "tests/pellor/SeededTest.h"
#include "tests/pellor/SlowStore.h"

namespace pellor {
namespace {

constexpr std::uint64_t PairCount = 3, GroupSize = 6;

std::string left(const std::string& pair) { return "l" + pair; }
std::string right(const std::string& pair) { return "r" + pair; }

// A pair of friends on two pages for each number, and pairs that are added and removed. A step gives both friends one
// text, or one friend and its page; or it adds or removes both.
class World {
 public:
  explicit World(std::uint64_t seed)
      : _random(seed), _scheduler(std::make_shared<SimulatedScheduler>(seed, 2'000'000)) {
    _world.preferences().setValue(PLMaxGroupCountKey, 2 * PairCount + 20, Domain);
    _world.preferences().setValue(PLGroupSizeKey, GroupSize, Domain);
    Array list;
    for (std::uint64_t pair = 0; pair < PairCount; ++pair) {
      for (const std::string& name : {left(std::to_string(pair)), right(std::to_string(pair))}) {
        list.emplace_back(storedForm(name));
        while (list.size() % GroupSize != 0) list.emplace_back(Dictionary());
      }
    }
    _world.preferences().setValue(PLFriendListKey, list, Domain);
    for (auto& member : _members) member = launch();
  }

  void run() {
    for (int edit = 0; edit < 25 && !::testing::Test::HasFailure(); ++edit) {
      makeStep(below(_members.size()));
      if (chance(3)) disturb();
      for (std::uint64_t steps = below(60); steps > 0; --steps) turn();
      if (chance(8)) restart(below(_members.size()));
    }
    calm();
    for (auto& member : _members) {
      // A process that was killed may have written without telling the others.
      member->run([&] { member->manager().reloadFriendList(); });
      EXPECT_TRUE(member->settle());
    }
    while (_scheduler->step()) check();
    for (auto& member : _members) {
      EXPECT_EQ(member->list(), _members[0]->list());
      EXPECT_EQ(_toldOf[member.get()]->last, _madeBy[member.get()]) << "every step is told in the end";
    }
  }

 private:
  static inline const std::string Domain{TapnoteDomain};

  struct Client : PLStepClient {
    void stepsWereStored(std::uint64_t stored) override { last = stored; }
    void judgeSteps(const PLStoredPages&) override {}
    void listChangedBy(PLChangeOrigin) override {}
    std::uint64_t last = 0;
  };

  std::uint64_t below(std::uint64_t limit) { return _random() % limit; }
  bool chance(std::uint64_t oneIn) { return below(oneIn) == 0; }

  std::unique_ptr<ManagerProcess> launch() {
    const auto interrupt = [this](std::string_view) {
      for (std::uint64_t steps = below(4); steps > 0; --steps) turn();
    };
    auto member = std::make_unique<ManagerProcess>(_world, _scheduler, Domain, [&](Platform& platform) {
      platform.preferences = std::make_shared<SlowStore>(platform.preferences, interrupt, interrupt);
    });
    member->start();
    const auto client = _toldOf[member.get()] = std::make_shared<Client>();
    member->run([&] { member->manager().editor().setStepClient(client); });
    _madeBy[member.get()] = 0;
    return member;
  }

  // The process that a write belongs to is killed between its tasks, like any other.
  void restart(std::size_t index) {
    _members[index]->kill();
    _killed.push_back(std::move(_members[index]));
    _members[index] = launch();
  }

  void turn() {
    _scheduler->step();
    check();
  }

  void makeStep(std::size_t index) {
    ManagerProcess& member = *_members[index];
    if (!member.manager().isLoaded()) return;
    const std::string token = std::to_string(++_lastToken);
    const std::uint64_t kind = below(5);
    const std::string pair = std::to_string(below(PairCount));
    const auto friends = std::pair(friendNamed(member, left(pair)), friendNamed(member, right(pair)));
    if (!friends.first || !friends.second) return;
    member.run([&] {
      _madeBy[&member] = member.manager().editor().performStep([&] {
        if (kind < 2) {
          friends.first->setPreferredReplyAs(token);
          friends.second->setPreferredReplyAs(token);
        } else if (kind == 2) {
          friends.first->setMetadataValueForKey(token, "title");
          groupOf(member, friends.first)->setTitle(token);
        } else if (kind == 3) {
          member.add(left("new" + token));
          member.add(right("new" + token));
          _added.push_back("new" + token);
        } else {
          removeOnePair(member);
        }
      });
    });
  }

  void removeOnePair(ManagerProcess& member) {
    if (_added.empty()) return;
    const std::string pair = _added[below(_added.size())];
    const auto one = friendNamed(member, left(pair)), other = friendNamed(member, right(pair));
    if (!one || !other) return;
    for (const auto& person : {one, other}) {
      const auto group = groupOf(member, person);
      group->removeFriendAtPosition(static_cast<std::uint64_t>(group->positionOfFriend(person)));
    }
  }

  static std::shared_ptr<PLPerson> friendNamed(ManagerProcess& member, const std::string& name) {
    const auto person = member.run([&] { return member.manager().personWithDestinations({mailOf(name)}); });
    return member.manager().isPersonFriend(person) ? person : nullptr;
  }
  static std::shared_ptr<PLFriendGroup> groupOf(ManagerProcess& member, const std::shared_ptr<PLPerson>& person) {
    return member.group(member.manager().groupIndexContainingFriend(person));
  }

  void disturb() {
    using Untold = InMemoryPreferences::Untold;
    switch (below(4)) {
      case 0:
        return _world.preferences().failWrites(1 + below(4));
      case 1:
        return _world.preferences().leaveUntold(chance(2) ? Untold::stored : Untold::delayed, 1);
      case 2:
        return _world.preferences().leaveUntold(Untold::lost, 1);
      default:
        _world.preferences().storeDelayedWrites();
    }
  }
  void calm() {
    _world.preferences().storeDelayedWrites();
    _world.preferences().allowWrites();
    _world.preferences().tellAgain();
  }

  // Of each pair what is stored of both friends.
  void check() {
    const auto list = _world.preferences().value(PLFriendListKey, Domain);
    if (!list || *list == _checked) return;
    _checked = *list;
    const Array elements = list->longArray() ? list->longArray()->elements() : *list->array();
    const auto titles = _world.preferences().value(PLGroupTitlesKey, Domain);
    std::map<std::string, std::string> replies;
    std::set<std::string> names;
    for (std::size_t slot = 0; slot < elements.size(); ++slot) {
      const Dictionary& form = *elements[slot].dictionary();
      const Value* destinations = valueForKey(form, "AllValues");
      if (!destinations) continue;
      const std::string name = *destinations->array()->front().string();
      names.insert(name);
      const Value* reply = valueForKey(form, "ReplyAs");
      replies[name] = reply ? *reply->string() : "";
      const Value* metadata = valueForKey(form, "Metadata");
      if (!metadata) continue;
      const std::size_t page = slot / GroupSize;
      ASSERT_TRUE(titles && titles->array() && page < titles->array()->size()) << name;
      EXPECT_EQ((*titles->array())[page], metadata->dictionary()->at("title")) << name;
    }
    for (std::uint64_t pair = 0; pair < PairCount; ++pair) {
      const std::string text = std::to_string(pair);
      EXPECT_EQ(replies[mailOf(left(text))], replies[mailOf(right(text))]) << text;
    }
    for (const std::string& pair : _added) {
      EXPECT_EQ(names.contains(mailOf(left(pair))), names.contains(mailOf(right(pair)))) << pair;
    }
  }

  std::mt19937_64 _random;
  SimulatedWorld _world;
  std::shared_ptr<SimulatedScheduler> _scheduler;
  std::map<ManagerProcess*, std::shared_ptr<Client>> _toldOf;
  std::map<ManagerProcess*, std::uint64_t> _madeBy;
  std::vector<std::unique_ptr<ManagerProcess>> _killed;
  std::array<std::unique_ptr<ManagerProcess>, 2> _members;
  std::vector<std::string> _added;
  std::uint64_t _lastToken = 0;
  std::optional<Value> _checked;
};

class StepSimulationTest : public SeededTest {};

TEST_P(StepSimulationTest, NoHalfOfAStepIsEverStored) {
  forEachSeed(countOf("PELLOR_STEPS", 500, 60), [](std::uint64_t seed) { World(seed).run(); });
}

INSTANTIATE_TEST_SUITE_P(Seeds, StepSimulationTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

}  // namespace
}  // namespace pellor
