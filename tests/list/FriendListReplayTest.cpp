// A copy of a list that does what each batch says looks like the list, whoever edits it.
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "pellor/list/FriendList.h"
#include "tests/list/ListCopy.h"
#include "tests/pellor/ManagerWorld.h"
#include "tests/pellor/SeededTest.h"

namespace pellor {
namespace {

/// Three processes edit one list of small pages; one of them has a copy.
class Replay : public ManagerTest {
 public:
  explicit Replay(std::uint64_t seed) : _random(seed) {
    scheduler = std::make_shared<SimulatedScheduler>(seed);
    setGroups(6, 1 + below(3));
    for (int index = 0; index < 3; ++index) _processes.push_back(launch());
    rest();
    ManagerProcess& owner = *_processes.front();
    owner.run([&] {
      _list = FriendList::open(owner.sharedManager());
      _observation = _list->observe(
          {[this](const Snapshot& list) { _copy.emplace(list); }, [this](const ListChange& change) { take(change); }});
    });
    rest();
  }
  ~Replay() override {
    _processes.front()->run([&] {
      _observation.reset();
      _list.reset();
    });
  }
  Replay(const Replay&) = delete;
  Replay& operator=(const Replay&) = delete;

  void TestBody() override {}

  void run(int edits) {
    while (edits-- > 0 && !HasFailure()) {
      edit(*_processes[below(_processes.size())]);
      if (below(3) == 0) rest();
    }
    rest();
    const Snapshot now = _processes.front()->run([&] { return _list->snapshot(); });
    _copy->expectLike(now);
    expectLikeManager(now);
  }
  std::size_t batches() const { return _batches; }

 private:
  std::size_t below(std::size_t count) { return std::uniform_int_distribution<std::size_t>(0, count - 1)(_random); }

  void take(const ListChange& change) {
    ++_batches;
    _copy->take(change);
    _copy->expectLike(change.after);
  }

  void edit(ManagerProcess& process) {
    const auto pages = process.run([&] { return process.manager().friendGroups().size(); });
    if (pages == 0) return;
    const std::size_t page = below(pages), size = process.run([&] { return process.manager().groupSize(); });
    switch (below(6)) {
      case 0:
      case 1:
        process.add("P" + std::to_string(below(20)));
        break;
      case 2:
        process.remove(page, below(size));
        break;
      case 3:
        process.setTitle(page, below(3) == 0 ? "" : "T" + std::to_string(below(3)));
        break;
      case 4:
        swap(process, page, below(pages), below(size), below(size));
        break;
      default:
        process.run([&] { process.manager().purgeEmptyFriendGroups(); });
    }
  }

  // As programs move friends.
  static void swap(ManagerProcess& process, std::size_t page, std::size_t other, std::size_t slot,
                   std::size_t otherSlot) {
    process.run([&] {
      PLFriendsManager& manager = process.manager();
      const auto from = manager.friendGroups()[page], to = manager.friendGroups()[other];
      const auto person = from->friendAtPosition(slot), displaced = to->friendAtPosition(otherSlot);
      if (!person || person == displaced) return;
      const auto put = [](PLFriendGroup& group, std::size_t where, const std::shared_ptr<PLPerson>& who) {
        auto friends = group.friends();
        friends[where] = who;
        group.setFriends(std::move(friends));
      };
      put(*from, slot, displaced);
      put(*to, otherSlot, person);
      std::vector<std::shared_ptr<PLPerson>> moved = {person};
      if (displaced) moved.push_back(displaced);
      if (from != to) manager.friendGroupDidMoveFriends(from, {});
      manager.friendGroupDidMoveFriends(to, moved);
      manager.syncFriendGroup(to);
      manager.save();
    });
  }

  void expectLikeManager(const Snapshot& list) {
    ManagerProcess& owner = *_processes.front();
    std::string shown;
    for (std::size_t page = 0; page < list.pageCount(); ++page) {
      if (page > 0) shown += "|";
      for (std::size_t slot = 0; slot < list.page(page).friends.size(); ++slot) {
        const auto person = list.friendAt({page, slot});
        shown += (slot > 0 ? "," : "") + (!person ? "-" : person->name.empty() ? person->destination : person->name);
        if (!person) continue;
        EXPECT_EQ(list.placeOf(person->id), (Place{page, slot}));
      }
    }
    EXPECT_EQ(shown, owner.list());
  }

  std::mt19937_64 _random;
  std::vector<std::unique_ptr<ManagerProcess>> _processes;
  std::unique_ptr<FriendList> _list;
  std::shared_ptr<Observation> _observation;
  std::optional<ListCopy> _copy;
  std::size_t _batches = 0;
};

class FriendListReplayTest : public SeededTest {};

// PELLOR_LISTS=<count>: how many lists, of 100 edits each.
TEST_P(FriendListReplayTest, DoingWhatTheBatchesSayGivesTheList) {
  std::size_t batches = 0;
  forEachSeed(countOf("PELLOR_LISTS", 200, 40), [&](std::uint64_t seed) {
    Replay replay(seed);
    replay.run(100);
    batches += replay.batches();
  });
  EXPECT_TRUE(HasFailure() || batches > 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, FriendListReplayTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

}  // namespace
}  // namespace pellor
