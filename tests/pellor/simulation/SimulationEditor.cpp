#include "tests/pellor/simulation/SimulationEditor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/runtime/Process.h"

namespace pellor {
namespace {

const std::string OtherDomain = "org.tapnote.Other";

bool isEmpty(const std::vector<Slot>& slots) {
  return std::ranges::all_of(slots, [](const Slot& slot) { return slot == EmptySlot; });
}

bool isFull(const PLFriendGroup& group) {
  return std::ranges::find(group.friends(), EmptySlot) == group.friends().end();
}

// The page at that index with all who stand there but `without`.
SeenPage seenPage(const PlainList& list, std::size_t index, const std::set<FriendName>& without) {
  SeenPage page{index, {}};
  if (index >= list.pages.size()) return page;
  for (const FriendName& name : list.pages[index].slots) {
    if (!name.empty() && !without.contains(name)) page.residents.insert(name);
  }
  return page;
}

std::set<FriendName> doubledAt(Member& member) {
  const Process::Scope scope(member.process());
  return plainListOf(member.manager()).doubled;
}

}  // namespace

template <std::size_t Count>
void SimulationEditor::doOneOf(const Weighted (&operations)[Count], Member& member) {
  const Process::Scope scope(member.process());
  std::uint64_t place = 0;
  for (const Weighted& operation : operations) place += operation.weight;
  place = below(place);
  for (const auto& [weight, operation] : operations) {
    if (place < weight) return (this->*operation)(member);
    place -= weight;
  }
}

void SimulationEditor::edit(Member& author) {
  static constexpr Weighted operations[] = {
      {4, &SimulationEditor::add},     {2, &SimulationEditor::addToGroup},     {2, &SimulationEditor::setAtPosition},
      {4, &SimulationEditor::remove},  {2, &SimulationEditor::moveWithinPage}, {2, &SimulationEditor::moveBetweenPages},
      {2, &SimulationEditor::purge},   {2, &SimulationEditor::title},          {4, &SimulationEditor::changePerson},
      {1, &SimulationEditor::refresh},
  };
  const std::set<FriendName> doubled = doubledAt(author);
  doOneOf(operations, author);
  const Process::Scope scope(author.process());
  if (!std::ranges::includes(doubledAt(author), doubled)) _world.noteOneOfTwoTaken();
  if (const auto violation = author.manager().invariantViolation()) ADD_FAILURE() << *violation;
}

void SimulationEditor::doOther(Member& member) {
  static constexpr Weighted operations[] = {
      {1, &SimulationEditor::reload},         {1, &SimulationEditor::save},
      {2, &SimulationEditor::settle},         {1, &SimulationEditor::postFromOutside},
      {1, &SimulationEditor::disableRefresh}, {1, &SimulationEditor::changeSettingsOfOtherDomain},
      {1, &SimulationEditor::setServiceName}, {2, &SimulationEditor::askForStatus},
      {1, &SimulationEditor::askForStatuses}, {2, &SimulationEditor::lookUp},
  };
  doOneOf(operations, member);
}

void SimulationEditor::removeDoubles(Member& member) {
  const Process::Scope scope(member.process());
  for (auto list = plainListOf(member.manager()); !list.doubled.empty(); list = plainListOf(member.manager())) {
    const PlainPlace place = *list.placeOf(*list.doubled.begin());
    member.groups()[place.page]->removeFriendAtPosition(place.position);
    _world.rest();
  }
}

// --- Edits ---------------------------------------------------------------------------------------------------------

// Somebody who is no friend yet, by an address or a record; null for a friend.
std::shared_ptr<PLPerson> SimulationEditor::anyStranger(Member& author) {
  const FriendName address = _world.anyAddress();
  const auto contact = _world.contacts().find(address);
  const bool isRecordThere = contact != _world.contacts().end() && _world.areContactsReadable();
  const auto person = isRecordThere && chance(2) ? author.manager().personWithABRecordGUID(contact->second)
                                                 : author.manager().personWithDestinations({address});
  const bool isFriend = author.manager().personLikePerson(person) || plainListOf(author.manager()).contains(address);
  return isFriend ? nullptr : person;
}

std::shared_ptr<PLFriendGroup> SimulationEditor::anyGroup(Member& author) {
  return author.groups().empty() ? nullptr : author.groups()[below(author.groups().size())];
}

// Mostly one that was never there before, so that what is stored names its edit.
std::string SimulationEditor::anyText(const std::string& kind) {
  return chance(6) ? kind : kind + std::to_string(++_lastText);
}

void SimulationEditor::recordAdded(Member& author, const PlainList& before, const PLPerson& person) {
  const PlainList after = plainListOf(author.manager());
  Edit edit{.kind = Edit::Kind::add, .told = plainFriendOf(person)};
  const FriendName name = nameOf(person);
  const PlainPlace place = *after.placeOf(name);
  for (const auto& [known, fields] : before.friends) {
    if (!after.contains(known)) edit.removed.insert(known);
  }
  edit.placed[name] = {seenPage(after, place.page, {name}), place.position};
  _world.noteAdded(name, person.record().text(PLPersonRecord::_name).has_value());
  _world.record(author, std::move(edit));
}

void SimulationEditor::recordMoved(Member& author, const PlainList& before) {
  const PlainList after = plainListOf(author.manager());
  std::map<FriendName, PlainPlace> moved;
  std::set<FriendName> names;
  for (const auto& [name, known] : after.friends) {
    const PlainPlace place = *after.placeOf(name);
    if (before.placeOf(name) == place) continue;
    moved.emplace(name, place);
    names.insert(name);
  }
  if (moved.empty()) return;
  Edit edit{.kind = Edit::Kind::move};
  for (const auto& [name, place] : moved) {
    edit.placed[name] = {seenPage(after, place.page, names), place.position};
  }
  _world.record(author, std::move(edit));
}

void SimulationEditor::add(Member& author) {
  const bool hasRoom = std::ranges::any_of(author.groups(), [](const auto& group) { return !isFull(*group); });
  const PlainList before = plainListOf(author.manager());
  const auto person = anyStranger(author);
  if (!person) return;
  EXPECT_EQ(author.manager().addFriend(person), hasRoom);
  if (hasRoom) recordAdded(author, before, *person);
}

void SimulationEditor::addToGroup(Member& author) {
  const auto group = anyGroup(author);
  const auto person = group ? anyStranger(author) : nullptr;
  if (!person) return;
  const PlainList before = plainListOf(author.manager());
  const bool hasRoom = !isFull(*group);
  std::uint32_t error = PLFriendGroupErrorOutOfRange;
  group->addFriend(person, error);
  EXPECT_EQ(error, hasRoom ? PLFriendGroupErrorNone : PLFriendGroupErrorCapacityReached);
  if (hasRoom) recordAdded(author, before, *person);
}

void SimulationEditor::setAtPosition(Member& author) {
  const auto group = anyGroup(author);
  const auto person = group ? anyStranger(author) : nullptr;
  if (!person) return;
  const PlainList before = plainListOf(author.manager());
  const std::uint64_t position = below(group->groupSize() + 1);
  std::uint32_t error = PLFriendGroupErrorCapacityReached;
  group->setFriendAtPosition(person, position, error);
  const bool isInside = position < group->groupSize();
  EXPECT_EQ(error, isInside ? PLFriendGroupErrorNone : PLFriendGroupErrorOutOfRange);
  if (isInside) recordAdded(author, before, *person);
}

void SimulationEditor::remove(Member& author) {
  const auto group = anyGroup(author);
  if (!group) return;
  const std::uint64_t position = below(group->groupSize());
  const auto person = group->friendAtPosition(position);
  const bool clearsSlot = person && group->count() > 1 && chance(3);
  const FriendName name = person ? nameOf(*person) : FriendName();
  if (clearsSlot) {
    std::uint32_t error = PLFriendGroupErrorNone;
    group->setFriendAtPosition(nullptr, position, error);
  } else {
    group->removeFriendAtPosition(position);
  }
  const bool isGone = person && !plainListOf(author.manager()).contains(name);
  if (isGone)
    _world.record(author, {.kind = clearsSlot ? Edit::Kind::clearSlot : Edit::Kind::remove, .removed = {name}});
}

void SimulationEditor::moveWithinPage(Member& author) {
  const auto group = anyGroup(author);
  if (!group) return;
  const PlainList before = plainListOf(author.manager());
  auto slots = group->friends();
  std::ranges::shuffle(slots, _world.random());
  group->setFriends(slots);
  std::erase(slots, EmptySlot);
  author.manager().friendGroupDidMoveFriends(group, slots);
  if (chance(2)) author.manager().save();
  recordMoved(author, before);
}

void SimulationEditor::moveBetweenPages(Member& author) {
  const auto first = anyGroup(author);
  const auto second = anyGroup(author);
  if (first == second) return;
  const PlainList before = plainListOf(author.manager());
  auto firstSlots = first->friends();
  auto secondSlots = second->friends();
  std::swap(firstSlots[below(firstSlots.size())], secondSlots[below(secondSlots.size())]);
  if (isEmpty(firstSlots) || isEmpty(secondSlots)) return;
  first->setFriends(firstSlots);
  second->setFriends(secondSlots);
  author.manager().syncFriendGroup(first);
  author.manager().syncFriendGroup(second);
  recordMoved(author, before);
}

void SimulationEditor::purge(Member& author) {
  author.manager().purgeEmptyFriendGroups();
  for (std::size_t index = 0; index + 1 < author.groups().size(); ++index) {
    EXPECT_FALSE(isEmpty(author.groups()[index]->friends()));
  }
  _world.record(author, {.kind = Edit::Kind::purge});
}

// Not of a page that nobody stands on: at the end it is not there for a process that starts later.
void SimulationEditor::title(Member& author) {
  const std::uint64_t index = author.groups().empty() ? 0 : below(author.groups().size());
  if (index >= author.groups().size() || author.groups()[index]->count() == 0) return;
  Edit edit{.kind = Edit::Kind::title, .text = anyText("Title")};
  edit.page = seenPage(plainListOf(author.manager()), index, {});
  author.groups()[index]->setTitle(edit.text);
  if (chance(2)) author.manager().saveFriendGroupTitles();
  _world.record(author, std::move(edit));
}

void SimulationEditor::changePerson(Member& author) {
  const auto group = anyGroup(author);
  const auto person = group ? group->friendAtPosition(below(group->groupSize())) : nullptr;
  if (!person) return;
  Edit edit{.who = nameOf(*person)};
  const PlainFriend before = plainFriendOf(*person);
  const std::string key = std::to_string(below(3));
  switch (below(4)) {
    case 0:
      edit.kind = Edit::Kind::replyAs;
      edit.text = anyText("Reply");
      person->setPreferredReplyAs(edit.text);
      break;
    case 1:
      edit.kind = Edit::Kind::metadata;
      edit.told.metadata = {{key, anyText("value")}};
      person->setMetadataValueForKey(Value(edit.told.metadata.at(key)), key);
      break;
    case 2:
      edit.kind = Edit::Kind::metadata;
      edit.told.metadata = {{"all", anyText("value")}, {key, anyText("value")}};
      person->addMetadataEntriesFromDictionary(
          {{"all", edit.told.metadata.at("all")}, {key, edit.told.metadata.at(key)}});
      break;
    default:
      edit.kind = Edit::Kind::clearMetadata;
      edit.told.metadata = before.metadata;
      person->removeAllMetadataValues();
  }
  // To say what is so already is no edit: what others say goes.
  if (edit.kind == Edit::Kind::replyAs && edit.text == before.replyAs) return;
  if (edit.kind == Edit::Kind::metadata) {
    std::erase_if(edit.told.metadata, [&](const auto& told) {
      const auto known = before.metadata.find(told.first);
      return known != before.metadata.end() && known->second == told.second;
    });
  }
  _world.record(author, std::move(edit));
}

void SimulationEditor::refresh(Member& author) {
  const bool isEnabled = author.manager().isRefreshAgainstContactsEnabled();
  EXPECT_LE(author.manager().refreshAgainstAddressBook(), isEnabled);
  _world.record(author, {.kind = Edit::Kind::refresh});
}

// --- Loads, saves and settings -------------------------------------------------------------------------------------

void SimulationEditor::reload(Member& member) { member.manager().reloadFriendList(); }

void SimulationEditor::save(Member& member) {
  member.manager().save();
  member.manager().markFriendListAsNormalized();
}

void SimulationEditor::settle(Member& member) { _world.settle(member); }

void SimulationEditor::postFromOutside(Member&) {
  _world.services().bus().post(chance(2) ? PLFriendsChangedExternallyNotification
                                         : PLFriendGroupTitleChangedExternallyNotification);
}

// Until the next rest.
void SimulationEditor::disableRefresh(Member& member) { member.manager().setRefreshAgainstContactsEnabled(false); }

void SimulationEditor::changeSettingsOfOtherDomain(Member&) {
  const std::uint64_t size = below(9);
  const bool isWritten = PLFriendsManager::setGroupSizeDomain(size, OtherDomain);
  EXPECT_TRUE(!isWritten || _world.services().preferences().value(PLGroupSizeKey, OtherDomain) == Value(size));
  PLFriendsManager::setFriendsChangedExternallyNotificationNameDomain("Name", OtherDomain);
}

// --- Reachability --------------------------------------------------------------------------------------------------

void SimulationEditor::setServiceName(Member& member) {
  member.manager().setServiceName(chance(2) ? std::nullopt : std::optional<std::string>("Service"));
}

void SimulationEditor::askForStatus(Member& member) {
  const auto person = member.manager().personWithDestinations({_world.anyAddress()});
  const auto known = member.manager().statusForPersonRequery(person, false);
  const auto status = member.manager().statusForPersonRequery(person, true);
  EXPECT_EQ(status, known == DestinationStatus::unspecified ? DestinationStatus::unknown : known);
  if (!member.manager().serviceName()) return;
  const auto destinations = person->allValues();
  member.dueDestinations.insert(destinations->begin(), destinations->end());
}

// A service that answers in parts may have this wait for one.
void SimulationEditor::askForStatuses(Member& member) {
  if (_world.isDisturbed() || _world.hasScript()) return member.manager().refreshDestinationStatuses();
  _world.rest();
  member.manager().refreshDestinationStatuses();
  for (const auto& [name, known] : plainListOf(member.manager()).friends) member.dueDestinations.insert(name);
  _world.rest();
}

// --- Questions, which one may ask at any time ----------------------------------------------------------------------

void SimulationEditor::lookUp(Member& member) {
  const FriendName address = _world.anyAddress();
  const auto person = member.manager().personWithDestinations({chance(2) ? address : "mailto:" + address});
  EXPECT_TRUE(person->allValues()->contains(address));
  EXPECT_EQ(member.manager().personWithDestinations({address}), person);
  EXPECT_THAT(member.manager().allPeople(), ::testing::Contains(person));
  const auto contact = _world.contacts().find(address);
  if (contact == _world.contacts().end() || !_world.areContactsReadable()) return;
  const auto linked = member.manager().personWithABRecordGUID(contact->second);
  // Until the next load one is still found under the record that was gone for a while.
  EXPECT_EQ(linked->abRecordGUID().value_or(contact->second), contact->second);
  EXPECT_THAT(member.manager().allPeople(), ::testing::Contains(linked));
}

}  // namespace pellor
