#include "tests/pellor/simulation/SimulationChecks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include "pellor/friends/PLDestination.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/PLUtility.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Process.h"

namespace pellor {
namespace {

void dropEmptyEnd(Array& slots) {
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

// Of pages on which somebody stands: one at the end that nobody stands on is not there for a process that starts later.
std::vector<std::string> titlesOf(Member& member) {
  std::vector<std::string> titles;
  for (const auto& group : member.groups()) titles.push_back(group->count() == 0 ? "" : group->title().value_or(""));
  while (!titles.empty() && titles.back().empty()) titles.pop_back();
  return titles;
}

std::vector<std::string> storedTitles(SimulationWorld& world, Member& member) {
  const auto titles = world.services().preferences().value(PLGroupTitlesKey, TapnoteDomain);
  std::vector<std::string> texts;
  for (std::size_t page = 0; titles && page < std::min(titles->array()->size(), member.groups().size()); ++page) {
    const std::string* title = (*titles->array())[page].string();
    texts.push_back(title && member.groups()[page]->count() != 0 ? *title : "");
  }
  while (!texts.empty() && texts.back().empty()) texts.pop_back();
  return texts;
}

void checkContacts(SimulationWorld& world, Member& member) {
  for (const auto& group : member.groups()) {
    for (const auto& person : group->friends()) {
      if (!person) continue;
      const auto contact = world.contacts().find(nameOf(*person));
      const bool isKnown = contact != world.contacts().end();
      EXPECT_EQ(person->abRecordGUID(), isKnown ? std::optional(contact->second) : std::nullopt) << nameOf(*person);
      if (!isKnown) continue;
      EXPECT_EQ(person->displayName(), world.services().addressBook().contact(contact->second)->first);
    }
  }
}

// What the service says of a destination, in a world where one without answers of its own is stood in for.
DestinationStatus statusIn(const SimulationWorld& world, const std::string& destination) {
  return world.hasScript() ? SimulationWorld::statusOf(destination) : DestinationStatus::valid;
}

// What was announced is what the service says, and what the manager says of everybody.
void checkStatuses(SimulationWorld& world, Member& member) {
  for (const auto& [destination, status] : member.statuses) {
    EXPECT_EQ(status, statusIn(world, destination)) << destination;
  }
  for (const auto& destination : member.dueDestinations) {
    const bool isAnswered = statusIn(world, destination) != DestinationStatus::unspecified;
    EXPECT_EQ(member.statuses.contains(destination), isAnswered) << destination;
  }
  for (const auto& person : member.manager().allPeople()) {
    auto best = DestinationStatus::unspecified;
    DestinationSet reachable;
    const auto destinations = person->allValues();
    for (const auto& destination : *destinations) {
      const auto known = member.statuses.find(destination);
      if (known == member.statuses.end()) continue;
      best = betterDestinationStatus(best, known->second);
      if (known->second == DestinationStatus::valid) reachable.insert(destination);
    }
    if (!member.manager().serviceName()) best = DestinationStatus::valid;
    EXPECT_EQ(member.manager().statusForPersonRequery(person, false), best);
    EXPECT_EQ(member.manager().reachableDestinationsForPerson(person), reachable);
  }
}

// Gives the friends in the order of their slots.
std::vector<std::shared_ptr<PLPerson>> checkPlaces(Member& member) {
  const PLFriendsManager& manager = member.manager();
  std::vector<std::shared_ptr<PLPerson>> friends;
  bool hasRoom = member.groups().size() < manager.maxGroupCount();
  for (std::uint64_t index = 0; index < member.groups().size(); ++index) {
    const PLFriendGroup& group = *member.groups()[index];
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
    EXPECT_EQ(group.isFull(), count == group.groupSize());
    hasRoom = hasRoom || count < group.groupSize();
  }
  EXPECT_EQ(manager.canAddFriend(), hasRoom);
  return friends;
}

void checkAnswers(SimulationWorld& world, Member& member) {
  const PLFriendsManager& manager = member.manager();
  const auto friends = checkPlaces(member);
  for (const auto& person : friends) {
    const auto like = std::ranges::find_if(friends, [&](const auto& other) { return other->isLikePerson(person); });
    EXPECT_EQ(manager.personLikePerson(person), *like);
  }
  PersonValueCache cache;
  ContactStore& contacts = *platformOf(member.process()).contacts;
  for (const auto& [address, guid] : world.contacts()) {
    const bool isFriend = std::ranges::count(friends, guid, &PLPerson::abRecordGUID) > 0;
    EXPECT_EQ(manager.containsFriendWithABRecordGUID(guid), isFriend) << address;
    EXPECT_NE(manager.shouldAllowAddingContactWithContactStorePersonValueCache({guid}, contacts, cache), isFriend);
  }
  EXPECT_FALSE(manager.shouldAllowAddingContactWithContactStorePersonValueCache({"gone"}, contacts, cache));
  for (const auto& stranger : {PLPerson::init(), std::shared_ptr<PLPerson>()}) {
    EXPECT_FALSE(manager.isPersonFriend(stranger));
    EXPECT_EQ(manager.positionOfFriendInGroup(stranger), static_cast<std::uint64_t>(NotFound));
    EXPECT_EQ(manager.groupIndexContainingFriend(stranger), 1U) << "not NotFound";
    EXPECT_EQ(manager.personLikePerson(stranger), nullptr);
  }
  EXPECT_FALSE(manager.containsFriendWithABRecordGUID(std::nullopt) || manager.containsFriendWithABRecordGUID(""));
}

}  // namespace

void checkAgreement(SimulationWorld& world) {
  const auto list = world.services().preferences().value(PLFriendListKey, TapnoteDomain);
  ASSERT_TRUE(list && list->array());
  Array stored = *list->array();
  dropEmptyEnd(stored);
  for (const auto& member : world.members()) {
    const Process::Scope scope(member->process());
    EXPECT_EQ(Value(slotsOf(*member)).description(), Value(stored).description());
    EXPECT_EQ(titlesOf(*member), storedTitles(world, *member));
    EXPECT_LE(member->groups().size(), member->manager().maxGroupCount());
    checkContacts(world, *member);
    checkAnswers(world, *member);
    checkStatuses(world, *member);
  }
}

void checkReloadsAreQuiet(SimulationWorld& world) {
  auto& preferences = world.services().preferences();
  preferences.clearRecords();
  for (const auto& member : world.members()) {
    const Process::Scope scope(member->process());
    member->manager().reloadFriendList();
  }
  world.rest();
  for (const auto& write : preferences.writes()) {
    // The number of a refresh whose writing failed is written by the next.
    EXPECT_EQ(write.keys, std::vector<std::string>{"ABSequenceNumber"}) << "a process that only reloads writes nothing";
  }
  checkAgreement(world);
}

}  // namespace pellor
