// Whole worlds under many seeds: three processes that share a list come to rest with the same list, whatever runs
// first.
//
// PELLOR_SEEDS=<count> sets how many worlds all tests run in all.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Pellor/PLDestinationStatus.h"
#include "Pellor/PLFriendsManager.h"
#include "Pellor/PLSkipChecks.h"
#include "testing/SimulatedScheduler.h"
#include "testing/SimulatedWorld.h"
#include "tests/pellor/SeededTest.h"
#include "tests/pellor/SlowStore.h"

namespace pellor {
namespace {

constexpr std::size_t processCount = 3;
constexpr std::uint64_t addressCount = 8;
const std::string OtherDomain = "org.tapnote.Other";

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
  /// `duringWrites` is called in the middle of each write.
  Member(SimulatedWorld& world, const std::shared_ptr<Scheduler>& scheduler, const std::function<void()>& duringWrites)
      : _process(scheduler, nullptr) {
    const Process::Scope scope(_process);
    _process.local<PLSkipChecks>().switchOn();
    Platform platform = world.makePlatform(_process);
    platform.preferences = std::make_shared<SlowStore>(platform.preferences, [this, duringWrites](std::string_view) {
      if (!_process.mainQueue().isCurrent()) duringWrites();
    });
    installPlatform(_process, platform);
    manager = PLFriendsManager::managerForDomain(std::string(TapnoteDomain));
    manager->setServiceName("Service");
    _observation = _process.notificationCenter().addObserver(
        std::string(PLFriendsManagerDestinationStatusUpdatedNotification), [this](const Notification& notification) {
          const auto& info = *notification.userInfoAs<Dictionary>();
          const Value* told = valueForKey(info, PLFriendsManagerDestinationStatusUpdatedDestinationsKey);
          for (const auto& [destination, status] : *told->dictionary()) {
            statuses[destination] = static_cast<DestinationStatus>(*status.integer());
          }
        });
  }
  ~Member() { manager.reset(); }

  Process& process() { return _process; }
  const std::vector<std::shared_ptr<PLFriendGroup>>& groups() const { return manager->friendGroups(); }

  std::shared_ptr<PLFriendsManager> manager;
  DestinationStatuses statuses;           // that were announced
  std::set<std::string> dueDestinations;  // that will have been announced at rest

 private:
  Process _process;
  std::shared_ptr<Observation> _observation;
};

std::string address(std::uint64_t number) { return "p" + std::to_string(number) + "@example.org"; }
/// Numbers come before addresses.
std::string addressOf(const PLPerson& person) {
  const PLPersonRecord& record = person.record();
  return std::string(record.destination(record.destinationCount() - 1));
}

class Simulation {
 public:
  explicit Simulation(std::uint64_t seed) : _random(seed), _scheduler(std::make_shared<SimulatedScheduler>(seed)) {
    auto& preferences = _world.preferences();
    preferences.setValue(PLGroupSizeKey, 1 + below(3), std::string(TapnoteDomain));
    preferences.setValue(PLMaxGroupCountKey, 2 + below(4), std::string(TapnoteDomain));
    _world.pairedDevice().setCompletedInitialSync(true);
    _world.bus().setCoalescesPostsOfOthers(chance(2));
    for (std::uint64_t number = 0; number < addressCount; ++number) addContact(address(number));
    if (chance(2)) addFavorites();
    if (_hasScript) _world.identityService().setScript([this](const auto& query) { return answer(query); });
    while (_members.size() < processCount) _members.push_back(newMember());
  }

  /// One process edits, then all come to rest.
  void runWithOneEditorAtATime() {
    _isOneEditing = true;
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
  std::string anyAddress() { return address(below(addressCount)); }
  bool step() {
    const bool hasRun = _scheduler->step();
    checkInvariants();
    return hasRun;
  }
  void run(std::uint64_t steps) {
    while (steps-- > 0) step();
  }
  void rest() {
    for (const auto& member : _members) {
      const Process::Scope scope(member->process());
      member->manager->setRefreshAgainstContactsEnabled(true);
    }
    while (step()) {
    }
  }
  /// A list that is read again is the stored one: what the one who edits did has to be stored before.
  void restIfOneEdits() {
    if (_isOneEditing) rest();
  }
  std::unique_ptr<Member> newMember() {
    return std::make_unique<Member>(_world, _scheduler, [this] {
      for (auto left = below(4); left > 0; --left) _scheduler->step();
    });
  }

  // --- Contacts ---

  void addContact(const std::string& address) {
    TestContact contact;
    contact.guid = "guid-" + std::to_string(++_lastGUID);
    contact.first = "Name" + std::to_string(_lastGUID);
    contact.emails = {{"home", address}};
    if (chance(2)) contact.phones = {{"mobile", "0151 234567" + address.substr(1, 1)}};
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
      const std::string address = anyAddress();
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
    using Operation = void (Simulation::*)(Member&);
    static constexpr std::pair<std::uint64_t, Operation> operations[] = {
        // Edits of the list
        {4, &Simulation::add},
        {2, &Simulation::addToGroup},
        {2, &Simulation::setAtPosition},
        {4, &Simulation::remove},
        {2, &Simulation::moveWithinPage},
        {2, &Simulation::moveBetweenPages},
        {2, &Simulation::purge},
        {2, &Simulation::title},
        {4, &Simulation::changePerson},
        // Loads, saves and settings
        {1, &Simulation::reload},
        {1, &Simulation::save},
        {1, &Simulation::postFromOutside},
        {1, &Simulation::refresh},
        {1, &Simulation::disableRefresh},
        {1, &Simulation::changeSettingsOfOtherDomain},
        // Reachability
        {1, &Simulation::setServiceName},
        {2, &Simulation::askForStatus},
        {1, &Simulation::askForStatuses},
        // Questions
        {2, &Simulation::lookUp},
        {1, &Simulation::checkAnswers},
        {1, &Simulation::checkWhoMayBeAdded},
    };
    const Process::Scope scope(editor.process());
    std::uint64_t place = 0;
    for (const auto& operation : operations) place += operation.first;
    place = below(place);
    for (const auto& [weight, operation] : operations) {
      if (place < weight) {
        (this->*operation)(editor);
        return checkInvariants();
      }
      place -= weight;
    }
  }

  /// Somebody who is no friend yet, by an address or a record; null for a friend.
  std::shared_ptr<PLPerson> anyStranger(Member& editor) {
    _added = anyAddress();
    const auto contact = _guids.find(_added);
    _wasLookedUp = !_lookedUp.insert(_added).second;
    const auto person = contact != _guids.end() && chance(2) ? editor.manager->personWithABRecordGUID(contact->second)
                                                             : editor.manager->personWithDestinations({_added});
    return editor.manager->personLikePerson(person) ? nullptr : person;
  }
  void rememberAdded(const PLPerson& person) {
    _friends[_added] = knownOf(person);
    adoptContact(_friends[_added], _added);
    // Who looked the person up before puts that person in, and writes what it learns of it: an edit beside the
    // editor's.
    if (_wasLookedUp) rest();
  }
  /// The page's friend is gone. Looked up again it is the same person, with what it was told, until the list is read.
  void forget(Member& editor, const PLPerson& person) {
    _friends.erase(addressOf(person));
    if (_isOneEditing) reload(editor);
  }
  std::shared_ptr<PLFriendGroup> anyGroup(Member& editor) {
    return editor.groups().empty() ? nullptr : editor.groups()[below(editor.groups().size())];
  }

  void add(Member& editor) {
    const bool hasRoom = std::ranges::any_of(editor.groups(), [](const auto& group) { return !isFull(*group); });
    const auto person = anyStranger(editor);
    if (!person) return;
    EXPECT_EQ(editor.manager->addFriend(person), hasRoom);
    if (hasRoom) rememberAdded(*person);
  }

  void addToGroup(Member& editor) {
    const auto group = anyGroup(editor);
    const auto person = group ? anyStranger(editor) : nullptr;
    if (!person) return;
    const bool hasRoom = !isFull(*group);
    std::uint32_t error = PLFriendGroupErrorOutOfRange;
    group->addFriend(person, error);
    EXPECT_EQ(error, hasRoom ? PLFriendGroupErrorNone : PLFriendGroupErrorCapacityReached);
    if (hasRoom) rememberAdded(*person);
  }

  void setAtPosition(Member& editor) {
    const auto group = anyGroup(editor);
    const auto person = group ? anyStranger(editor) : nullptr;
    if (!person) return;
    const std::uint64_t position = below(group->groupSize() + 1);
    const auto replaced = group->friendAtPosition(position);
    std::uint32_t error = PLFriendGroupErrorCapacityReached;
    group->setFriendAtPosition(person, position, error);
    const bool isInside = position < group->groupSize();
    EXPECT_EQ(error, isInside ? PLFriendGroupErrorNone : PLFriendGroupErrorOutOfRange);
    if (isInside) rememberAdded(*person);
    if (replaced) forget(editor, *replaced);
  }

  void remove(Member& editor) {
    const auto group = anyGroup(editor);
    if (!group) return;
    const std::uint64_t position = below(group->groupSize());
    const auto person = group->friendAtPosition(position);
    if (person && group->count() > 1 && chance(3)) {
      std::uint32_t error = PLFriendGroupErrorNone;
      group->setFriendAtPosition(nullptr, position, error);
      return forget(editor, *person);
    }
    group->removeFriendAtPosition(position);
    if (person) _friends.erase(addressOf(*person));
  }

  void moveWithinPage(Member& editor) {
    const auto group = anyGroup(editor);
    if (!group) return;
    auto slots = group->friends();
    std::ranges::shuffle(slots, _random);
    group->setFriends(slots);
    std::erase(slots, EmptySlot);
    editor.manager->friendGroupDidMoveFriends(group, slots);
    editor.manager->save();
  }

  void moveBetweenPages(Member& editor) {
    const auto first = anyGroup(editor);
    const auto second = anyGroup(editor);
    if (first == second) return;
    auto firstSlots = first->friends();
    auto secondSlots = second->friends();
    std::swap(firstSlots[below(firstSlots.size())], secondSlots[below(secondSlots.size())]);
    if (isEmpty(firstSlots) || isEmpty(secondSlots)) return;
    first->setFriends(firstSlots);
    second->setFriends(secondSlots);
    editor.manager->syncFriendGroup(first);
    editor.manager->syncFriendGroup(second);
  }

  static bool isEmpty(const std::vector<Slot>& slots) {
    return std::ranges::all_of(slots, [](const Slot& slot) { return slot == EmptySlot; });
  }

  static bool isFull(const PLFriendGroup& group) {
    return std::ranges::find(group.friends(), EmptySlot) == group.friends().end();
  }

  void purge(Member& editor) {
    editor.manager->purgeEmptyFriendGroups();
    for (std::size_t index = 0; index + 1 < editor.groups().size(); ++index) {
      EXPECT_FALSE(isEmpty(editor.groups()[index]->friends()));
    }
  }

  void title(Member& editor) {
    const auto group = anyGroup(editor);
    // A page at the end that nobody stands on is not there for a process that starts later.
    if (!group || group->count() == 0) return;
    group->setTitle("Title" + std::to_string(below(5)));
    editor.manager->saveFriendGroupTitles();
  }

  void changePerson(Member& editor) {
    for (const auto& group : editor.groups()) {
      for (const auto& person : group->friends()) {
        if (!person || !chance(3)) continue;
        const std::string text = std::to_string(below(5));
        auto& known = _friends[addressOf(*person)];
        switch (below(4)) {
          case 0:
            known.replyAs = text;
            return person->setPreferredReplyAs(text);
          case 1:
            known.metadata.insert_or_assign(text, text);
            return person->setMetadataValueForKey(Value(text), text);
          case 2:
            known.metadata.insert_or_assign("all", text);
            known.metadata.insert_or_assign(text, text);
            return person->addMetadataEntriesFromDictionary({{"all", text}, {text, text}});
          default:
            known.metadata.clear();
            return person->removeAllMetadataValues();
        }
      }
    }
  }

  // --- Loads, saves and settings ---

  void reload(Member& editor) {
    restIfOneEdits();
    editor.manager->reloadFriendList();
  }
  void save(Member& editor) {
    editor.manager->save();
    editor.manager->markFriendListAsNormalized();
  }
  void postFromOutside(Member&) {
    restIfOneEdits();
    _world.bus().post(chance(2) ? PLFriendsChangedExternallyNotification
                                : PLFriendGroupTitleChangedExternallyNotification);
    restIfOneEdits();
  }
  void refresh(Member& editor) {
    const bool isEnabled = editor.manager->isRefreshAgainstContactsEnabled();
    EXPECT_LE(editor.manager->refreshAgainstAddressBook(), isEnabled);
  }
  /// Until the next rest.
  void disableRefresh(Member& editor) { editor.manager->setRefreshAgainstContactsEnabled(false); }

  void changeSettingsOfOtherDomain(Member&) {
    const std::uint64_t size = below(9);
    const bool isWritten = PLFriendsManager::setGroupSizeDomain(size, OtherDomain);
    EXPECT_TRUE(!isWritten || _world.preferences().value(PLGroupSizeKey, OtherDomain) == Value(size));
    PLFriendsManager::setFriendsChangedExternallyNotificationNameDomain("Name", OtherDomain);
  }

  // --- Reachability ---

  /// What the service says of a destination, in all its answers; unspecified: nothing.
  static DestinationStatus statusOf(const std::string& destination) {
    return static_cast<DestinationStatus>(std::accumulate(destination.begin(), destination.end(), 0) % 4 - 1);
  }
  /// In up to two parts, of which the second may come after the asker gave up.
  std::vector<SimulatedIdentityService::AnswerPart> answer(const SimulatedIdentityService::Query& query) {
    std::vector<SimulatedIdentityService::AnswerPart> parts(2);
    for (auto& part : parts) part.delay = static_cast<double>(below(40));
    for (const std::string& destination : query.destinations) {
      const auto status = statusOf(*plMessageCanonicalRawAddress(destination));
      if (status != DestinationStatus::unspecified) parts[below(2)].statuses.emplace(destination, status);
    }
    return parts;
  }
  /// Without answers of its own a service is stood in for.
  bool isAnswering(const std::string& destination) {
    return !_hasScript || statusOf(destination) != DestinationStatus::unspecified;
  }

  void setServiceName(Member& editor) {
    editor.manager->setServiceName(chance(2) ? std::nullopt : std::optional<std::string>("Service"));
  }

  void askForStatus(Member& editor) {
    const auto person = editor.manager->personWithDestinations({anyAddress()});
    _lookedUp.insert(addressOf(*person));
    const auto known = editor.manager->statusForPersonRequery(person, false);
    const auto status = editor.manager->statusForPersonRequery(person, true);
    EXPECT_EQ(status, known == DestinationStatus::unspecified ? DestinationStatus::unknown : known);
    if (!editor.manager->serviceName()) return;
    const auto destinations = person->allValues();
    editor.dueDestinations.insert(destinations->begin(), destinations->end());
  }

  /// A service that answers in parts may have this wait for one.
  void askForStatuses(Member& editor) {
    restIfOneEdits();
    editor.manager->refreshDestinationStatuses();
    if (_hasScript || !_isOneEditing) return;
    for (const auto& [address, known] : _friends) editor.dueDestinations.insert(address);
    rest();
  }

  /// What was announced is what the service says, and what the manager says of everybody.
  void checkStatuses(Member& member) {
    for (const auto& [destination, status] : member.statuses) {
      EXPECT_EQ(status, _hasScript ? statusOf(destination) : DestinationStatus::valid) << destination;
    }
    for (const auto& destination : member.dueDestinations) {
      EXPECT_EQ(member.statuses.contains(destination), isAnswering(destination)) << destination;
    }
    for (const auto& person : member.manager->allPeople()) {
      auto best = DestinationStatus::unspecified;
      DestinationSet reachable;
      const auto destinations = person->allValues();
      for (const auto& destination : *destinations) {
        const auto known = member.statuses.find(destination);
        if (known == member.statuses.end()) continue;
        best = betterDestinationStatus(best, known->second);
        if (known->second == DestinationStatus::valid) reachable.insert(destination);
      }
      if (!member.manager->serviceName()) best = DestinationStatus::valid;
      EXPECT_EQ(member.manager->statusForPersonRequery(person, false), best);
      EXPECT_EQ(member.manager->reachableDestinationsForPerson(person), reachable);
    }
  }

  // --- Questions, which one may ask at any time ---

  void lookUp(Member& editor) {
    const std::string address = anyAddress();
    _lookedUp.insert(address);
    const auto person = editor.manager->personWithDestinations({chance(2) ? address : "mailto:" + address});
    EXPECT_TRUE(person->allValues()->contains(address));
    EXPECT_EQ(editor.manager->personWithDestinations({address}), person);
    EXPECT_THAT(editor.manager->allPeople(), ::testing::Contains(person));
    const auto contact = _guids.find(address);
    if (contact == _guids.end()) return;
    const auto linked = editor.manager->personWithABRecordGUID(contact->second);
    EXPECT_EQ(linked->abRecordGUID(), contact->second);
    EXPECT_THAT(editor.manager->allPeople(), ::testing::Contains(linked));
  }

  /// What the manager says of places and identities against a look at every slot.
  void checkAnswers(Member& member) {
    const PLFriendsManager& manager = *member.manager;
    std::vector<std::shared_ptr<PLPerson>> friends;
    bool hasRoom = member.groups().size() < manager.maxGroupCount();
    for (std::uint64_t index = 0; index < member.groups().size(); ++index) {
      const PLFriendGroup& group = *member.groups()[index];
      EXPECT_EQ(group.isFull(), isFull(group));
      hasRoom = hasRoom || !isFull(group);
      std::uint64_t count = 0;
      for (std::uint64_t position = 0; position < group.groupSize(); ++position) {
        const auto person = group.friendAtPosition(position);
        if (!person) continue;
        ++count;
        friends.push_back(person);
        EXPECT_EQ(group.positionOfFriend(person), position);
        EXPECT_TRUE(manager.isPersonFriend(person));
        EXPECT_EQ(manager.positionOfFriendInGroup(person), position);
        EXPECT_EQ(manager.groupIndexContainingFriend(person), index);
      }
      EXPECT_EQ(group.count(), count);
    }
    EXPECT_EQ(manager.canAddFriend(), hasRoom);
    for (const auto& person : friends) {
      const auto like = std::ranges::find_if(friends, [&](const auto& other) { return other->isLikePerson(person); });
      EXPECT_EQ(manager.personLikePerson(person), *like);
    }
    for (const auto& [address, guid] : _guids) {
      const bool isFriend = std::ranges::count(friends, guid, &PLPerson::abRecordGUID) > 0;
      EXPECT_EQ(manager.containsFriendWithABRecordGUID(guid), isFriend) << address;
    }
    for (const auto& stranger : {PLPerson::init(), std::shared_ptr<PLPerson>()}) {
      EXPECT_FALSE(manager.isPersonFriend(stranger));
      EXPECT_EQ(manager.positionOfFriendInGroup(stranger), static_cast<std::uint64_t>(NotFound));
      EXPECT_EQ(manager.groupIndexContainingFriend(stranger), 1U) << "not NotFound";
      EXPECT_EQ(manager.personLikePerson(stranger), nullptr);
    }
    EXPECT_FALSE(manager.containsFriendWithABRecordGUID(std::nullopt) || manager.containsFriendWithABRecordGUID(""));
  }

  void checkWhoMayBeAdded(Member& editor) {
    PersonValueCache cache;
    ContactStore& contacts = *platformOf(editor.process()).contacts;
    for (const auto& [address, guid] : _guids) {
      EXPECT_NE(editor.manager->shouldAllowAddingContactWithContactStorePersonValueCache({guid}, contacts, cache),
                editor.manager->containsFriendWithABRecordGUID(guid))
          << address;
    }
    EXPECT_FALSE(editor.manager->shouldAllowAddingContactWithContactStorePersonValueCache({"gone"}, contacts, cache));
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

  // --- What must hold at all times ---

  void checkInvariants() {
    for (const auto& member : _members) {
      const Process::Scope scope(member->process());
      if (const auto violation = member->manager->invariantViolation()) ADD_FAILURE() << *violation;
    }
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
      const Process::Scope scope(member->process());
      checkAnswers(*member);
      checkStatuses(*member);
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
  const bool _hasScript = chance(2);
  bool _isOneEditing = false;
  Friends _friends;  // as they should be
  std::set<std::string> _lookedUp;
  std::string _added;  // whom `anyStranger` gave last, by its address
  bool _wasLookedUp = false;
};

class ManagerSimulationTest : public SeededTest {
 protected:
  // There are two kinds of worlds.
  template <class Run>
  void forEachWorld(Run&& run) {
    forEachSeed((seedCount(6'000, 600) + 1) / 2, [&](std::uint64_t seed) { run(Simulation(seed)); });
  }
};

TEST_P(ManagerSimulationTest, NoEditOfTheOneWhoEditsIsLost) {
  forEachWorld([](Simulation&& simulation) { simulation.runWithOneEditorAtATime(); });
}

TEST_P(ManagerSimulationTest, AllWhoEditAtOnceComeToTheSame) {
  forEachWorld([](Simulation&& simulation) { simulation.runWithAllEditing(); });
}

INSTANTIATE_TEST_SUITE_P(Seeds, ManagerSimulationTest, ::testing::Range(std::uint64_t{0}, SeededTest::partCount));

}  // namespace
}  // namespace pellor
