// A copy of a list that does what each batch says looks like the list, whoever edits it.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/list/SeededWorld.h"

namespace pellor {
namespace {

/// Three processes edit one list of small pages, as programs do that know nothing of steps. Each keeps a copy.
class Replay : public SeededWorld {
 public:
  explicit Replay(std::uint64_t seed) : SeededWorld(seed) {
    setGroups(6, 1 + below(3));
    for (int index = 0; index < 3; ++index) {
      all.push_back(open());
      all.back()->onChange = [this](const ListChange&) { ++_batches; };
    }
  }

  void run(int edits) {
    while (edits-- > 0 && !HasFailure()) {
      edit(someone().process());
      if (below(3) == 0) rest();
    }
    rest();
    for (const auto& process : all) {
      process->expectLikeCopy();
      expectLikeManager(*process);
    }
  }
  std::size_t batches() const { return _batches; }

 private:
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
        process.setTitle(page, title());
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

  static void expectLikeManager(ListProcess& process) {
    const Snapshot list = process.snapshot();
    std::string shown;
    for (std::size_t page = 0; page < list.pageCount(); ++page) {
      if (page > 0) shown += "|";
      for (std::size_t slot = 0; slot < list.page(page).friends.size(); ++slot) {
        const auto person = list.friendAt({page, slot});
        shown += (slot > 0 ? "," : "") + (person ? shownName(*person) : "-");
        const Place here{page, slot};
        EXPECT_EQ(person ? list.placeOf(person->id) : here, here);
      }
    }
    EXPECT_EQ(shown, process.process().list());
  }

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
