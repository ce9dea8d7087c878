// Whole worlds under many seeds: processes that share a list come to rest with the same list, whatever runs first.
//
// A failure names its seed: PELLOR_SEED=<seed> runs that world alone, in the test that is asked for.
// PELLOR_SEEDS=<count> sets how many worlds each test runs.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Pellor/PLFriendsManager.h"
#include "testing/SimulatedScheduler.h"
#include "testing/SimulatedWorld.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define PELLOR_IS_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define PELLOR_IS_SANITIZED 1
#endif
#endif

namespace pellor {
namespace {

constexpr std::uint64_t testCount = 10;
#ifdef PELLOR_IS_SANITIZED
constexpr std::uint64_t defaultSeedCount = 50;
#else
constexpr std::uint64_t defaultSeedCount = 1000;
#endif

std::optional<std::uint64_t> numberInEnvironment(const char* name) {
  const char* text = std::getenv(name);
  if (!text) return std::nullopt;
  return std::strtoull(text, nullptr, 10);
}

volatile std::sig_atomic_t runningSeed = 0;

/// A world that ends the program, by a broken contract or invariant, names its seed as well.
void nameSeedOfAbort(int) { std::fprintf(stderr, "PELLOR_SEED=%ld\n", static_cast<long>(runningSeed)); }

/// What is known of a friend, by its one address.
struct Known {
  std::string name;
  std::optional<std::string> guid;
  std::string replyAs;
  Dictionary metadata;
  std::string title;  // of its page
  friend bool operator==(const Known&, const Known&) = default;
  friend void PrintTo(const Known& known, std::ostream* stream) {
    *stream << known.name << " [" << known.guid.value_or("-") << "] " << known.replyAs << " "
            << Value(known.metadata).description() << " on page \"" << known.title << "\"";
  }
};
using Friends = std::map<std::string, Known>;

/// A process of the world with its manager.
class Member {
 public:
  Member(SimulatedWorld& world, const std::shared_ptr<Scheduler>& scheduler) : _process(scheduler, nullptr) {
    installPlatform(_process, world.makePlatform(_process));
    const Process::Scope scope(_process);
    manager = PLFriendsManager::managerForDomain(std::string(TapnoteDomain));
  }
  ~Member() { manager.reset(); }

  Process& process() { return _process; }
  const std::vector<std::shared_ptr<PLFriendGroup>>& groups() const { return manager->friendGroups(); }

  std::shared_ptr<PLFriendsManager> manager;

 private:
  Process _process;
};

std::string addressOf(const PLPerson& person) { return *person.allValues()->begin(); }

class Simulation {
 public:
  explicit Simulation(std::uint64_t seed) : _random(seed), _scheduler(std::make_shared<SimulatedScheduler>(seed)) {
    auto& preferences = _world.preferences();
    preferences.setValue(PLGroupSizeKey, 1 + below(3), std::string(TapnoteDomain));
    preferences.setValue(PLMaxGroupCountKey, 2 + below(4), std::string(TapnoteDomain));
    _world.pairedDevice().setCompletedInitialSync(true);
    _world.bus().setCoalescesPostsOfOthers(chance(2));
    for (int number = 0; number < 8; ++number) addContact("p" + std::to_string(number) + "@example.org");
    if (chance(2)) addFavorites();
    for (auto left = 2 + below(2); left > 0; --left) _members.push_back(newMember());
  }

  /// One process edits, then all come to rest.
  void runWithOneEditorAtATime() {
    rest();
    adoptFriends();
    for (auto rounds = 2 + below(4); rounds > 0 && !::testing::Test::HasFailure(); --rounds) {
      if (chance(4)) {
        changeContacts();
      } else {
        editWithOne();
      }
      rest();
      // Who names pages tells the others.
      _world.bus().post(PLFriendGroupTitleChangedExternallyNotification);
      rest();
      checkAgreement();
      checkFriends();
      if (chance(3)) checkReloadsAreQuiet();
      if (chance(4)) restartOne();
    }
  }

  /// All edit at once; which edit wins is left open, but not that all come to the same.
  void runWithAllEditing() {
    for (auto rounds = 2 + below(3); rounds > 0 && !::testing::Test::HasFailure(); --rounds) {
      maybeFailWrites();
      for (auto edits = 4 + below(20); edits > 0; --edits) {
        edit(*_members[below(_members.size())]);
        if (chance(8)) changeContacts();
        run(below(6));
      }
      rest();
      checkAgreement();
      checkReloadsAreQuiet();
      if (chance(3)) restartOne();
    }
  }

 private:
  std::uint64_t below(std::uint64_t limit) { return _random() % limit; }
  bool chance(std::uint64_t oneIn) { return below(oneIn) == 0; }
  void run(std::uint64_t steps) {
    while (steps-- > 0) _scheduler->step();
  }
  void rest() {
    while (_scheduler->step()) {
    }
  }
  std::unique_ptr<Member> newMember() { return std::make_unique<Member>(_world, _scheduler); }

  // --- Contacts ---

  void addContact(const std::string& address) {
    TestContact contact;
    contact.guid = "guid-" + std::to_string(++_lastGUID);
    contact.first = "Name" + std::to_string(_lastGUID);
    contact.emails = {{"home", address}};
    _guids[address] = _world.addressBook().add(contact);
  }
  void addFavorites() {
    std::vector<FavoriteEntry> entries;
    for (const auto& [address, guid] : _guids) {
      if (chance(2)) entries.push_back({"?", address, _world.addressBook().contact(guid)->recordID});
    }
    _world.favorites().setEntries(entries);
  }

  /// Friends follow the contacts: a new name, a new record, and no record, when a friend keeps what it was.
  void changeContacts() {
    for (auto left = 1 + below(3); left > 0; --left) {
      const std::string address = "p" + std::to_string(below(8)) + "@example.org";
      const auto contact = _guids.find(address);
      const auto known = _friends.find(address);
      if (contact == _guids.end()) {
        addContact(address);
      } else if (chance(3)) {
        _world.addressBook().remove(contact->second);
        _guids.erase(contact);
        if (chance(2)) addContact(address);
      } else if (chance(4)) {
        _world.addressBook().rebuild();
      } else {
        const std::string name = "Name" + std::to_string(++_lastGUID);
        _world.addressBook().change(contact->second, [&](TestContact& changed) { changed.first = name; });
      }
      if (known != _friends.end()) adoptContact(known->second, address);
      run(below(10));
    }
  }
  void adoptContact(Known& known, const std::string& address) {
    const auto contact = _guids.find(address);
    known.guid = contact == _guids.end() ? std::nullopt : std::optional(contact->second);
    if (contact != _guids.end()) known.name = *_world.addressBook().contact(contact->second)->first;
  }

  // --- Edits ---

  void editWithOne() {
    Member& editor = *_members[below(_members.size())];
    maybeFailWrites();
    for (auto edits = 1 + below(6); edits > 0; --edits) {
      edit(editor);
      run(below(8));
    }
    // What was named or rearranged is recorded as it stands now; nobody else has edited.
    rememberTitles(editor);
    if (!chance(6)) return;
    const Process::Scope scope(editor.process());
    EXPECT_TRUE(editor.process().settle(1000));
    kill(editor);
  }
  void maybeFailWrites() {
    if (chance(4)) _world.preferences().failWrites(1 + below(4));
  }

  void edit(Member& editor) {
    const Process::Scope scope(editor.process());
    switch (below(10)) {
      case 0:
      case 1:
      case 2:
        return add(editor);
      case 3:
      case 4:
        return remove(editor);
      case 5:
        return rearrange(editor);
      case 6:
        return title(editor);
      case 7:
      case 8:
        return changePerson(editor);
      default:
        return editor.manager->purgeEmptyFriendGroups();
    }
  }

  void add(Member& editor) {
    const std::string address = "p" + std::to_string(below(8)) + "@example.org";
    const auto contact = _guids.find(address);
    const bool isKnown = !_lookedUp.insert(address).second;
    const auto person = contact != _guids.end() && chance(2) ? editor.manager->personWithABRecordGUID(contact->second)
                                                             : editor.manager->personWithDestinations({address});
    if (editor.manager->personLikePerson(person) || !editor.manager->addFriend(person)) return;
    _friends[address] = knownOf(*person);
    adoptContact(_friends[address], address);
    // Who looked the person up before puts that person in, and writes what it learns of it: an edit beside the
    // editor's.
    if (isKnown) rest();
  }

  void remove(Member& editor) {
    const auto& groups = editor.groups();
    if (groups.empty()) return;
    const auto group = groups[below(groups.size())];
    const std::uint64_t position = below(group->groupSize());
    const auto person = group->friendAtPosition(position);
    if (person) _friends.erase(addressOf(*person));
    if (person && group->count() > 1 && chance(3)) {
      std::uint32_t error = PLFriendGroupErrorNone;
      group->setFriendAtPosition(nullptr, position, error);
    } else {
      group->removeFriendAtPosition(position);
    }
  }

  void rearrange(Member& editor) {
    const auto groups = editor.groups();
    if (groups.empty()) return;
    const auto first = groups[below(groups.size())];
    const auto second = groups[below(groups.size())];
    auto firstSlots = first->friends();
    auto secondSlots = second->friends();
    if (first == second) {
      std::ranges::shuffle(firstSlots, _random);
      first->setFriends(firstSlots);
      std::erase(firstSlots, EmptySlot);
      editor.manager->friendGroupDidMoveFriends(first, firstSlots);
      return editor.manager->save();
    }
    const std::uint64_t place = below(firstSlots.size());
    std::swap(firstSlots[place], secondSlots[below(secondSlots.size())]);
    if (isEmpty(firstSlots) || isEmpty(secondSlots)) return;
    first->setFriends(firstSlots);
    second->setFriends(secondSlots);
    editor.manager->syncFriendGroup(first);
    editor.manager->syncFriendGroup(second);
  }

  static bool isEmpty(const std::vector<Slot>& slots) {
    return std::ranges::all_of(slots, [](const Slot& slot) { return slot == EmptySlot; });
  }

  void title(Member& editor) {
    const auto& groups = editor.groups();
    if (groups.empty()) return;
    const auto group = groups[below(groups.size())];
    // A page at the end that nobody stands on is not there for a process that starts later.
    if (group->count() == 0) return;
    group->setTitle("Title" + std::to_string(below(5)));
    editor.manager->saveFriendGroupTitles();
  }

  void changePerson(Member& editor) {
    for (const auto& group : editor.groups()) {
      for (const auto& person : group->friends()) {
        if (!person || !chance(3)) continue;
        const std::string text = std::to_string(below(5));
        auto& known = _friends[addressOf(*person)];
        switch (below(3)) {
          case 0:
            known.replyAs = text;
            return person->setPreferredReplyAs(text);
          case 1:
            known.metadata.insert_or_assign(text, text);
            return person->setMetadataValueForKey(Value(text), text);
          default:
            known.metadata.clear();
            return person->removeAllMetadataValues();
        }
      }
    }
  }

  // --- Processes that end ---

  void restartOne() {
    _members.erase(_members.begin() + static_cast<std::ptrdiff_t>(below(_members.size())));
    _members.push_back(newMember());
    rest();
    checkAgreement();
  }
  void kill(Member& member) {
    const auto place = std::ranges::find(_members, &member, &std::unique_ptr<Member>::get);
    member.manager.reset();
    member.process().abandon();
    _members.erase(place);
    _members.push_back(newMember());
  }

  // --- What must hold at rest ---

  static Known knownOf(const PLPerson& person) {
    return {person.displayName().value_or("?"), person.abRecordGUID(), person.preferredReplyAs().value_or(""),
            person.metadata(), ""};
  }

  Friends friendsOf(Member& member) {
    Friends friends;
    for (const auto& group : member.groups()) {
      for (const auto& person : group->friends()) {
        if (!person) continue;
        Known known = knownOf(*person);
        known.title = group->title().value_or("");
        EXPECT_TRUE(friends.emplace(addressOf(*person), known).second) << "doubled: " << addressOf(*person);
      }
    }
    return friends;
  }

  void adoptFriends() {
    _friends = friendsOf(*_members.front());
    for (const auto& [address, known] : _friends) _lookedUp.insert(address);
  }

  void rememberTitles(Member& editor) {
    for (const auto& [address, known] : friendsOf(editor)) {
      if (_friends.contains(address)) _friends[address].title = known.title;
    }
  }

  static void dropEmptyEnd(Array& slots) {
    while (!slots.empty() && slots.back() == Value(Dictionary{})) slots.pop_back();
  }

  Array slotsOf(Member& member) {
    Array slots;
    for (const auto& group : member.groups()) {
      for (const auto& person : group->friends()) {
        slots.emplace_back(person ? person->dictionaryRepresentation() : Dictionary{});
      }
    }
    dropEmptyEnd(slots);
    return slots;
  }

  /// Every process has, slot by slot, what is stored.
  void checkAgreement() {
    const auto list = _world.preferences().value(PLFriendListKey, TapnoteDomain);
    ASSERT_TRUE(list && list->array());
    Array stored = *list->array();
    dropEmptyEnd(stored);
    for (const auto& member : _members) {
      EXPECT_EQ(member->manager->invariantViolation(), std::nullopt);
      EXPECT_EQ(Value(slotsOf(*member)).description(), Value(stored).description());
    }
  }

  /// Nobody was lost or doubled, and everybody is what the edits and the contacts made of them.
  void checkFriends() {
    for (const auto& member : _members) {
      Friends found = friendsOf(*member);
      for (auto& [address, known] : found) {
        // Of a record that is gone a friend keeps a name that it had, or none if nobody saw it with one.
        if (!_guids.contains(address) && _friends.contains(address)) known.name = _friends[address].name;
      }
      EXPECT_EQ(found, _friends);
    }
    adoptFriends();
  }

  void checkReloadsAreQuiet() {
    _world.preferences().clearRecords();
    for (const auto& member : _members) {
      const Process::Scope scope(member->process());
      member->manager->reloadFriendList();
    }
    rest();
    for (const auto& write : _world.preferences().writes()) {
      // The number of a refresh whose writing failed is written by the next.
      EXPECT_EQ(write.keys, std::vector<std::string>{"ABSequenceNumber"}) << "who only reloads writes nothing";
    }
    checkAgreement();
  }

  std::mt19937_64 _random;
  std::shared_ptr<SimulatedScheduler> _scheduler;
  SimulatedWorld _world;
  std::map<std::string, std::string> _guids;  // of contacts, by their address
  int _lastGUID = 0;
  std::vector<std::unique_ptr<Member>> _members;
  Friends _friends;  // as they should be
  std::set<std::string> _lookedUp;
};

class ManagerSimulationTest : public ::testing::TestWithParam<std::uint64_t> {
 protected:
  template <class Run>
  void forEachSeed(std::uint64_t defaultCount, Run&& run) {
    std::signal(SIGABRT, nameSeedOfAbort);
    const auto only = numberInEnvironment("PELLOR_SEED");
    const std::uint64_t count = numberInEnvironment("PELLOR_SEEDS").value_or(defaultCount);
    const std::uint64_t first = only.value_or(GetParam() * count);
    const std::uint64_t end = only ? first + 1 : first + count;
    for (std::uint64_t seed = first; seed < end && !HasFailure(); ++seed) {
      SCOPED_TRACE("PELLOR_SEED=" + std::to_string(seed));
      runningSeed = static_cast<std::sig_atomic_t>(seed);
      run(Simulation(seed));
    }
  }
};

TEST_P(ManagerSimulationTest, NoEditOfTheOneWhoEditsIsLost) {
  forEachSeed(defaultSeedCount, [](Simulation&& simulation) { simulation.runWithOneEditorAtATime(); });
}

TEST_P(ManagerSimulationTest, AllWhoEditAtOnceComeToTheSame) {
  forEachSeed(defaultSeedCount / 5, [](Simulation&& simulation) { simulation.runWithAllEditing(); });
}

INSTANTIATE_TEST_SUITE_P(Seeds, ManagerSimulationTest, ::testing::Range(std::uint64_t{0}, testCount));

}  // namespace
}  // namespace pellor
