// Address books that vanish and come back: whoever is a friend stays one, and stays the same person.
#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLPerson.h"
#include "tests/pellor/ManagerWorld.h"
#include "tests/pellor/SeededTest.h"

namespace pellor {
namespace {

// A family has one name, one line at home, and members who may be namesakes. In a book that is to be recognised without
// identifiers everybody has a number of their own: two namesakes with the same numbers are one person to everybody.
class GeneratedBook {
 public:
  GeneratedBook(std::uint64_t seed, bool haveOwnNumbers) : _random(seed), _haveOwnNumbers(haveOwnNumbers) {
    const std::uint64_t families = 3 + below(12);
    for (std::uint64_t family = 0; family < families || _people.size() < RefreshHold::FewestCards; ++family)
      addFamily(family);
  }

  std::uint64_t below(std::uint64_t limit) { return _random() % limit; }
  bool chance(std::uint64_t oneIn) { return below(oneIn) == 0; }
  std::mt19937_64& random() { return _random; }

  /// The people, each at its own index for good.
  const std::vector<TestContact>& people() const { return _people; }
  /// Gives everybody another identifier.
  void renameAll() {
    ++_edition;
    for (std::size_t index = 0; index < _people.size(); ++index) _people[index].guid = guid(index);
  }

 private:
  std::string guid(std::size_t index) const { return "card-" + std::to_string(_edition) + "-" + std::to_string(index); }

  void addFamily(std::uint64_t family) {
    const std::string home = "0302000" + std::to_string(100 + family), last = "Family" + std::to_string(family % 5);
    const std::uint64_t members = 1 + below(5);
    for (std::uint64_t member = 0; member < members; ++member) {
      const std::size_t index = _people.size();
      TestContact person{.guid = guid(index), .first = firstNames[below(3)], .last = last};
      if (!chance(4)) person.phones.push_back({"home", home});
      const bool hasMobile = _haveOwnNumbers || chance(2);
      if (hasMobile) person.phones.push_back({"mobile", "01511000" + std::to_string(1000 + index)});
      if (chance(3)) person.emails.push_back({"", "family" + std::to_string(family) + "@example.org"});
      if (person.phones.empty() && person.emails.empty()) person.phones.push_back({"home", home});
      _people.push_back(std::move(person));
    }
  }

  inline static const std::vector<std::string> firstNames{"Kim", "Robin", "Alex"};
  std::mt19937_64 _random;
  const bool _haveOwnNumbers;
  std::vector<TestContact> _people;
  int _edition = 0;
};

class VanishingContactsTest : public SeededTest {
 protected:
  /// One user whose book vanishes and comes back several times.
  class Life : public ManagerTest {
   public:
    Life(std::uint64_t seed, bool isRenamed) : _book(seed, isRenamed), _isRenamed(isRenamed) {}
    void TestBody() override {}

    void live() {
      world.addressBook().addAll(_book.people());
      setGroups(40, 6);
      _process = launch();
      addFriends();
      advance(5);
      expectFriendsAsTheyWere();
      for (int round = 0; round < 4 && !HasFailure(); ++round) {
        vanish();
        passTime();
        comeBackUpToHalf();
        passTime();
        comeBackWhole();
        advance(5);
        expectFriendsAsTheyWere();
      }
    }

   private:
    void addFriends() {
      for (std::size_t index = 0; index < _book.people().size(); ++index) {
        if (_book.chance(3)) continue;
        const auto person =
            _process->run([&] { return _process->manager().personWithABRecordGUID(_book.people()[index].guid); });
        ASSERT_TRUE(_process->add(person));
        _friends.push_back(index);
      }
    }

    /// Fewer than half stay.
    void vanish() {
      std::vector<std::size_t> order(_book.people().size());
      for (std::size_t index = 0; index < order.size(); ++index) order[index] = index;
      std::ranges::shuffle(order, _book.random());
      const std::size_t staying = _book.chance(2) ? 0 : _book.below((order.size() + 1) / 2);
      _gone = {order.begin() + static_cast<std::ptrdiff_t>(staying), order.end()};
      for (const std::size_t index : _gone) world.addressBook().remove(_book.people()[index].guid);
    }

    void comeBackUpToHalf() {
      const std::size_t total = _book.people().size();
      while (_gone.size() > total / 2 + 1 && _book.chance(2)) {
        world.addressBook().add(_book.people()[_gone.back()]);
        _gone.pop_back();
        advance(1);
      }
    }

    /// As one change, with new numbers of records. A synchroniser that renames takes away those that had stayed, too.
    void comeBackWhole() {
      if (_isRenamed) {
        const std::set<std::size_t> gone(_gone.begin(), _gone.end());
        for (std::size_t index = 0; index < _book.people().size(); ++index) {
          if (!gone.contains(index)) world.addressBook().remove(_book.people()[index].guid);
        }
        _book.renameAll();
        world.addressBook().addAll(_book.people());
      } else {
        std::vector<TestContact> back;
        for (const std::size_t index : _gone) back.push_back(_book.people()[index]);
        world.addressBook().addAll(back);
      }
      _gone.clear();
    }

    void passTime() {
      switch (_book.below(4)) {
        case 0:
          advance(3 * 60 * 60);
          break;
        case 1:
          _process->kill();
          _process = launch();
          break;
        case 2:
          _process->run([&] { _process->manager().reloadFriendList(); });
          break;
        default:
          _process->run([&] { _process->friendAt(0, 0)->setPreferredReplyAs(std::to_string(_book.below(99))); });
      }
      advance(5);
    }

    void expectFriendsAsTheyWere() {
      std::vector<std::string> expected, found;
      for (const std::size_t index : _friends) expected.push_back(_book.people()[index].guid);
      for (const auto& group : _process->manager().friendGroups()) {
        for (const auto& person : group->friends()) {
          if (person) found.push_back(person->abRecordGUID().value_or("(unlinked)"));
        }
      }
      EXPECT_EQ(found, expected);
    }

    GeneratedBook _book;
    const bool _isRenamed;
    std::unique_ptr<ManagerProcess> _process;
    std::vector<std::size_t> _friends;  // in the order of their slots
    std::vector<std::size_t> _gone;
  };
};

TEST_P(VanishingContactsTest, EverybodyIsWhoTheyWereWhenAllAreBack) {
  forEachSeed(seedCount(200, 60), [](std::uint64_t seed) { Life(seed, seed % 3 == 0).live(); });
}

INSTANTIATE_TEST_SUITE_P(Seeds, VanishingContactsTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

}  // namespace
}  // namespace pellor
