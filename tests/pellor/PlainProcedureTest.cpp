// The manager against the written procedures done plainly, over generated lives of a list: the same objects in the same
// slots, the same lines, notifications, answers and stored lists, while other processes store lists and the contacts
// change.
//
// PELLOR_SEEDS=<count> sets how many lives are compared; each loads some six lists.
#include <algorithm>

#include "pellor/friends/PLChangeLog.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLSkipChecks.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/SimulatedScheduler.h"
#include "pellor/testing/SimulatedWorld.h"
#include "tests/pellor/GeneratedData.h"
#include "tests/pellor/ManagerWorld.h"
#include "tests/pellor/OneProcess.h"
#include "tests/pellor/PlainProcedure.h"
#include "tests/pellor/SeededTest.h"

namespace pellor {
namespace {

/// A process with its log.
struct Side {
  explicit Side(SimulatedWorld& world, const std::shared_ptr<Scheduler>& scheduler) : process(scheduler, log) {
    installPlatform(process, world.makePlatform(process));
    process.local<PLSkipChecks>().switchOn();
  }
  /// The lines since the last time, without addresses.
  std::vector<std::string> takeLines() {
    auto lines = log->takeMessages();
    for (std::string& line : lines) {
      if (line.starts_with("<PLPerson: ")) line.erase(11, line.find(' ', 11) - 10);
    }
    return lines;
  }

  std::shared_ptr<LogCollector> log = std::make_shared<LogCollector>();
  Process process;
};

/// A manager and the plain procedure in processes of their own, that live through the same.
class Life : private GeneratedData {
 public:
  explicit Life(std::uint64_t seed) : GeneratedData(seed) {
    put(PLRefreshAgainstContactsOnInitEnabledKey, _settings.refreshes);
    put(PLGroupSizeKey, _settings.groupSize);
    put(PLMaxGroupCountKey, _settings.maxGroupCount);
    put(PLEmptyTrailingGroupEnabledKey, _settings.addsTrailingGroup);
    put(PLDeduplicateFriendListEnabledKey, _settings.removesDuplicates);
    put(PLRemoveDestinationlessFriendsEnabledKey, _settings.removesUnreachable);
    _world.pairedDevice().setCompletedInitialSync(true);
    for (const char* number : {"0", "1", "2"}) addContact(_world.addressBook(), number);
    _scheduler->runUntilQuiet();
    store(anyList());
    both([&] { _manager = PLFriendsManager::initWithDomain(std::nullopt); }, [&] { _plain.load(); });
    _contactChanges = _slow.process.notificationCenter().addObserver(
        platformOf(_slow.process).addressBook->addressBookChangedNotification(),
        [this](const Notification& notification) { _plain.addressBookChanged(notification.name); });
  }

  void run() {
    check();
    for (auto steps = 4 + below(12); steps > 0 && !::testing::Test::HasFailure(); --steps) {
      if (chance(3)) {
        _story.emplace_back(changeContacts(_world.addressBook()));
      } else {
        chance(2) ? reload() : edit();
      }
      if (chance(3)) runUntilQuiet();
      check();
      if (chance(2)) rest();
    }
    rest();
    for (const Value& step : _story) {
      if (::testing::Test::HasFailure()) std::cerr << step.description() << '\n';
    }
  }

 private:
  /// A person of the manager and the one in its place. Nobody: empty slots.
  using Twins = std::pair<Slot, Slot>;

  /// The same in both processes.
  void both(const auto& inManager, const auto& inPlain) {
    {
      const Process::Scope scope(_fast.process);
      inManager();
    }
    const Process::Scope scope(_slow.process);
    inPlain();
  }
  void put(std::string_view key, Value value) { _world.preferences().setValue(key, std::move(value), TapnoteDomain); }

  // --- Stored lists ---

  /// A new one, one that is there already, or a person that is known here as a process that knows the same writes it.
  Value anyElementLike(const Array& list) {
    if (chance(2)) return anyElement();
    return list.empty() || chance(2) ? anyTwins().second->dictionaryRepresentation() : anyOf(list);
  }

  /// What another process could have made of a stored list.
  void change(Array& list) {
    const auto from = static_cast<std::ptrdiff_t>(below(list.size() + 1));
    const auto to = static_cast<std::ptrdiff_t>(below(list.size() + 1));
    const auto first = list.begin() + std::min(from, to);
    const auto last = list.begin() + std::max(from, to);
    switch (below(6)) {
      case 0:
        return std::reverse(first, last);
      case 1:
        return std::shuffle(first, last, random);
      case 2:
        return std::generate(first, last, [this] { return anyElement(); });
      case 3:
        list.erase(first, last);
        return;
      case 4:
        for (auto left = 1 + below(8); left > 0; --left) list.insert(list.begin() + from, anyElementLike(list));
        return;
      default:
        for (Value& element : list) {
          if (!element.dictionary() || element.dictionary()->empty() || chance(3)) continue;
          Dictionary form = *element.dictionary();
          for (const auto& [key, value] : anyForm()) {
            if (chance(3)) form.insert_or_assign(key, value);
          }
          element = form;
        }
    }
  }

  void store(const Array& list) {
    _story.emplace_back(list);
    put(PLFriendListKey, storedAfter(_world.preferences().value(PLFriendListKey, TapnoteDomain), list));
    _plain.stored = list;
  }

  /// Another process writes when nothing is to be written here: else it would be merged with.
  void reload() {
    both([&] { _manager->save(); }, [&] { _plain.save(); });
    runUntilQuiet();
    Array list = chance(8) ? anyList() : _plain.stored;
    for (auto changes = below(4); changes > 0; --changes) change(list);
    list.resize(std::min<std::size_t>(list.size(), LongestList), Dictionary());
    // Processes write whole pages: friends behind the end of a shorter list would stay, known to this process alone.
    while (list.size() % _settings.groupSize != 0) list.emplace_back(Dictionary());
    store(list);
    both([&] { _manager->reloadFriendList(); }, [&] { _plain.reload(); });
  }

  // --- Edits ---

  Twins lookUp() {
    const std::string guid = anyGUID();
    const std::vector<std::string> destinations{anyDestination(), anyDestination()};
    const bool byGUID = chance(2);
    const auto find = [&](auto& list) {
      return byGUID ? list.personWithABRecordGUID(guid) : list.personWithDestinations(destinations);
    };
    Twins found;
    both([&] { found.first = find(*_manager); }, [&] { found.second = find(_plain); });
    EXPECT_TRUE(areTwins(found.first, found.second));
    return found;
  }
  /// A person who was made of destinations as somebody typed them, and whom nobody looked up.
  Twins makeTwins() {
    const std::vector<std::string> destinations{anyDestination(), anyDestination()};
    const auto make = [&] { return PLPerson::initWithDestinationsAddressBook(destinations, nullptr); };
    Twins made;
    both([&] { made.first = make(); }, [&] { made.second = make(); });
    EXPECT_TRUE(areTwins(made.first, made.second));
    return made;
  }
  Twins anyTwins() {
    if (chance(12)) return makeTwins();
    return _twins.empty() || chance(3) ? lookUp() : anyOf(_twins);
  }

  void edit() {
    const auto operation = below(12);
    _story.emplace_back(operation);
    const Twins twins = anyTwins();
    const auto& groups = _manager->friendGroups();
    const std::uint64_t group = groups.empty() ? 0 : below(groups.size());
    const std::uint64_t position = below(_settings.groupSize);
    if (operation == 0) {
      both([&] { _manager->addFriend(twins.first); }, [&] { _plain.addFriend(twins.second); });
    } else if (operation == 1) {
      const std::string reply = anyOf<std::string>({"me", "you"});
      both([&] { twins.first->setPreferredReplyAs(reply); }, [&] { twins.second->setPreferredReplyAs(reply); });
    } else if (operation == 2) {
      both([&] { _manager->purgeEmptyFriendGroups(); }, [&] { _plain.purge(); });
    } else if (operation == 3) {
      both([&] { _manager->save(); }, [&] { _plain.save(); });
    } else if (operation == 8) {
      both([&] { _manager->refreshAgainstAddressBook(); }, [&] { _plain.refresh(); });
    } else if (operation == 9) {
      const bool refreshes = !chance(4);
      both([&] { _manager->setRefreshAgainstContactsEnabled(refreshes); }, [&] { _plain.setRefreshes(refreshes); });
    } else if (groups.empty()) {
      return;
    } else if (operation >= 10) {
      takeOutOrPutBack(group, position);
    } else if (operation == 4) {
      setFriend(chance(4) ? Twins() : twins, group, position);
    } else if (operation == 5) {
      both([&] { groups[group]->removeFriendAtPosition(position); }, [&] { _plain.removeFriend(group, position); });
    } else {
      rearrange(group, position, twins);
    }
  }

  /// A friend leaves its slot and comes back to it some time later.
  void takeOutOrPutBack(std::uint64_t group, std::uint64_t position) {
    if (!_takenOut) {
      const Twins twins{_manager->friendGroups()[group]->friendAtPosition(position),
                        _plain.groups[group]->friends[position]};
      if (twins.first) _takenOut = {twins, group, position};
      if (twins.first) setFriend({}, group, position);
    } else if (_takenOut->group < _manager->friendGroups().size()) {
      setFriend(_takenOut->twins, _takenOut->group, _takenOut->position);
      _takenOut.reset();
    }
  }
  void setFriend(const Twins& twins, std::uint64_t group, std::uint64_t position) {
    std::uint32_t error = PLFriendGroupErrorNone;
    both([&] { _manager->friendGroups()[group]->setFriendAtPosition(twins.first, position, error); },
         [&] { _plain.setFriend(twins.second, group, position); });
  }

  /// A group is given friends, and reports them in one of two ways, or not at all before the list is read again.
  void rearrange(std::uint64_t index, std::uint64_t position, const Twins& twins) {
    const auto group = _manager->friendGroups()[index];
    auto friends = group->friends();
    auto& plainFriends = _plain.groups[index]->friends;
    const std::uint64_t other = below(friends.size());
    std::swap(friends[position], friends[other]);
    std::swap(plainFriends[position], plainFriends[other]);
    if (chance(2)) std::tie(friends[other], plainFriends[other]) = chance(2) ? Twins() : twins;
    group->setFriends(friends);
    const auto way = below(3);
    if (way == 0) both([&] { _manager->syncFriendGroup(group); }, [&] { _plain.syncGroup(index); });
    if (way == 1) {
      both([&] { _manager->friendGroupDidMoveFriends(group, {twins.first}); },
           [&] { _plain.moveFriends(index, {twins.second}); });
    }
    if (way == 2) reload();
  }

  // --- What must be the same ---

  /// A new person of the one is the new person of the other.
  bool areTwins(const Slot& person, const Slot& plain) {
    if (!person || !plain) return !person && !plain;
    const auto [twin, isNew] = _plainOf.try_emplace(person.get(), plain.get());
    if (isNew) _twins.emplace_back(person, plain);
    return twin->second == plain.get() && _ofPlain.try_emplace(plain.get(), person.get()).first->second == person.get();
  }
  void expectTwins(const std::vector<Slot>& persons, const std::vector<Slot>& plain) {
    EXPECT_TRUE(
        std::ranges::equal(persons, plain, [this](const auto& one, const auto& two) { return areTwins(one, two); }));
  }

  void check() {
    const Process::Scope scope(_fast.process);
    const auto& groups = _manager->friendGroups();
    ASSERT_EQ(groups.size(), _plain.groups.size());
    for (std::size_t index = 0; index < groups.size(); ++index) {
      expectTwins(groups[index]->friends(), _plain.groups[index]->friends);
      const auto* plain = _plain.groups[index].get();
      EXPECT_EQ(_groups.try_emplace(groups[index], _plain.groups[index]).first->second.get(), plain);
    }
    expectTwins(_manager->allPeople(), _plain.allPeople());
    expectSameLines();
    EXPECT_EQ(_manager->invariantViolation(), std::nullopt);
    if (!_twins.empty()) checkAnswers(anyOf(_twins));
  }

  void checkAnswers(const Twins& twins) {
    const auto& [person, plain] = twins;
    const auto place = static_cast<std::uint64_t>(std::ranges::find(_plain.list, plain) - _plain.list.begin());
    const bool isFriend = place < _plain.list.size();
    EXPECT_EQ(_manager->isPersonFriend(person), isFriend);
    EXPECT_EQ(_manager->positionOfFriendInGroup(person), isFriend ? place % _settings.groupSize : NotFound);
    EXPECT_EQ(_manager->groupIndexContainingFriend(person), isFriend ? place / _settings.groupSize : 1);
    const auto guid = plain->abRecordGUID();
    Slot like;
    bool isTaken = false;
    for (const Slot& other : _plain.list) {
      if (!like && other && other->isLike(*plain)) like = other;
      isTaken = isTaken || (other && !guid.value_or("").empty() && other->abRecordGUID() == guid);
    }
    EXPECT_TRUE(areTwins(_manager->personLikePerson(person), like));
    EXPECT_EQ(_manager->containsFriendWithABRecordGUID(guid), isTaken);
  }

  void expectSameLines() {
    auto lines = _fast.takeLines();
    auto plainLines = _slow.takeLines();
    // The save queue runs beside the main queue.
    const std::string saved = "friend list saved";
    EXPECT_EQ(std::erase(lines, saved), std::erase(plainLines, saved));
    EXPECT_EQ(lines, plainLines);
  }

  /// Without moving time.
  void runUntilQuiet() {
    _scheduler->runUntilQuiet();
    both([] {}, [&] { _plain.rest(); });
  }

  void rest() {
    do {
      runUntilQuiet();
    } while (_scheduler->step());
    expectSameLines();
    EXPECT_EQ(_world.preferences().value(PLFriendListKey, TapnoteDomain), Value(_plain.stored));
    EXPECT_EQ(_world.preferences().value("ABSequenceNumber", TapnoteDomain).value_or(0), Value(_plain.sequenceNumber));
    EXPECT_EQ(_world.preferences().writeCount(), _plain.writes);
    EXPECT_EQ(_world.pairedDevice().pushes().size(), _plain.pushes);
    EXPECT_EQ(_groupListChanges.count(), _plain.groupListChanges);
    ASSERT_EQ(_changes.count(), _plain.notifications.size());
    for (std::size_t index = 0; index < _changes.count(); ++index) {
      EXPECT_TRUE(std::ranges::equal(_changes.all()[index].userInfoAs<PLChangeLog>()->entries(),
                                     _plain.notifications[index].entries(), [this](const auto& one, const auto& two) {
                                       return areTwins(one.first, two.first) && one.second == two.second;
                                     }));
    }
  }

  const PlainProcedure::Settings _settings{
      1 + below(12), 1 + below(chance(2) ? 4 : 20), !chance(4), !chance(4), chance(3), !chance(4)};
  Array _story;  // the lists that were stored and the numbers of the edits
  SimulatedWorld _world;
  std::shared_ptr<SimulatedScheduler> _scheduler = std::make_shared<SimulatedScheduler>(1);
  Side _fast{_world, _scheduler}, _slow{_world, _scheduler};
  const Posts _changes{_fast.process, PLFriendsManagerChangedNotification};
  const Posts _groupListChanges{_fast.process, PLFriendsManagerGroupListChanged};
  std::shared_ptr<PLFriendsManager> _manager;
  PlainProcedure _plain{_slow.process, _settings};
  const std::shared_ptr<Observation> _valueChanges = _slow.process.notificationCenter().addObserver(
      std::string(PLPersonValuesChangedNotification),
      [this](const Notification& notification) { _plain.personValuesChanged(notification.objectAs<PLPerson>()); });
  std::shared_ptr<Observation> _contactChanges;
  struct TakenOut {
    Twins twins;
    std::uint64_t group, position;
  };
  std::optional<TakenOut> _takenOut;
  std::vector<Twins> _twins;  // in the order in which they came up
  std::map<const PLPerson*, const PLPerson*> _plainOf, _ofPlain;
  std::map<std::shared_ptr<PLFriendGroup>, std::shared_ptr<PlainProcedure::Group>> _groups;
};

class PlainProcedureTest : public SeededTest {};

TEST_P(PlainProcedureTest, TheManagerComesToTheSame) {
  forEachSeed(seedCount(3'300, 330), [](std::uint64_t seed) { Life(seed).run(); });
}

INSTANTIATE_TEST_SUITE_P(Seeds, PlainProcedureTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

}  // namespace
}  // namespace pellor
