// add, remove, move

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/ContactSearch.h"
#include "cli/FriendSearch.h"
#include "cli/JsonForms.h"
#include "cli/NameMatch.h"
#include "cli/Output.h"
#include "cli/StandardInput.h"

namespace pellor::cli {
namespace {

using Persons = std::vector<std::shared_ptr<PLPerson>>;

CommandError isFriendAlready(const FriendAt& known) {
  return CommandError(nameOf(*known.person) + " is a friend already (" + textOf(known.place) + ")");
}

/// Makes persons of the texts by which the user names them.
class PersonMaker {
 public:
  explicit PersonMaker(Session& session) : _session(session), _contacts(session), _friends(session) {}

  std::shared_ptr<PLPerson> make(const std::string& who) {
    const bool isDestination = isPlainDestination(who) && !_contacts.isGuid(who);
    // Another contact may have it too, which has to be named to be added.
    if (isDestination) requireNobodys(who);
    if (const auto contact = _contacts.namedToAdd(who)) return personOf(*contact);
    if (isDestination) return personWith(who);
    _session.requireContacts();
    throw CommandError(nobodyCalled(_contacts, who));
  }

 private:
  void requireNobodys(const std::string& destination) {
    const auto known = _friends.withDestination(destination);
    if (!known.empty()) throw isFriendAlready(known.front());
  }

  std::shared_ptr<PLPerson> personWith(const std::string& destination) {
    if (!_typed.insert(destinationKey(destination).value_or(destination)).second)
      throw UsageError(inQuotes(destination) + " is named twice");
    return _session.manager().personWithDestinations({destination});
  }

  std::shared_ptr<PLPerson> personOf(const ContactEntry& contact) {
    if (const auto known = friendThatIs(_friends, contact)) throw isFriendAlready(*known);
    if (!isReachable(_session, contact)) throw CommandError(nameOf(contact) + " has neither a number nor an address");
    return _session.manager().personWithABRecordGUID(contact.guid);
  }

  Session& _session;
  ContactFinder _contacts;
  FriendFinder _friends;
  std::unordered_set<std::string> _typed;  // destinations of nobody's, in the form in which spellings are equal
};

Persons personsToAdd(Session& session, const std::vector<std::string>& who) {
  PersonMaker maker(session);
  Persons persons;
  std::unordered_set<std::shared_ptr<PLPerson>> known;
  for (const std::string& name : who) {
    auto person = maker.make(name);
    if (!known.insert(person).second) throw UsageError(nameOf(*person) + " is named twice");
    persons.push_back(std::move(person));
  }
  return persons;
}

// Pages that would still be made are counted only where empty pages are made by themselves.
std::uint64_t freeSlots(Session& session) {
  const PLFriendsManager& manager = session.manager();
  std::uint64_t count = 0;
  for (const auto& page : manager.friendGroups()) count += page->groupSize() - page->count();
  const auto makesPages = session.store().booleanValue(PLEmptyTrailingGroupEnabledKey, manager.domain());
  const std::uint64_t pages = manager.friendGroups().size();
  if (!makesPages.value().value_or(true) || pages >= manager.maxGroupCount()) return count;
  // Enough for any number of arguments, whatever the limit is.
  return count + std::min<std::uint64_t>(manager.maxGroupCount() - pages, 1U << 20) * manager.groupSize();
}

void requireRoom(Session& session, std::size_t wanted) {
  if (freeSlots(session) < wanted) throw CommandError("there is no room: every slot of every page is taken");
}

std::vector<FriendAt> placesOf(const PLFriendsManager& manager, const Persons& persons) {
  const std::unordered_set<std::shared_ptr<PLPerson>> wanted(persons.begin(), persons.end());
  std::vector<FriendAt> found = allFriends(manager);
  std::erase_if(found, [&](const FriendAt& candidate) { return !wanted.contains(candidate.person); });
  return found;
}

std::string eachText(const std::vector<FriendAt>& friends, const std::string& what) {
  std::string text;
  for (const FriendAt& each : friends) text += what + " " + nameOf(*each.person) + " (" + textOf(each.place) + ")\n";
  return text;
}

Json eachJson(const std::vector<FriendAt>& friends, const std::string& what) {
  Json result = Json::array();
  for (const FriendAt& each : friends) result.push_back(jsonOf(each));
  Json object;
  object[what] = std::move(result);
  return object;
}

void answerEach(Session& session, const std::vector<FriendAt>& friends, const std::string& what) {
  session.answer([&] { return eachText(friends, what); }, [&] { return eachJson(friends, what); });
}

/// A number or address that several friends have, as families do.
struct SharedDestination {
  std::string destination;
  std::vector<FriendAt> friends;  // in slot order
};

// Each once, of those that the friends who were added have.
std::vector<SharedDestination> sharedWithOthers(Session& session, const std::vector<FriendAt>& added) {
  FriendFinder finder(session);
  std::vector<SharedDestination> shared;
  std::unordered_set<std::string> seen;
  for (const FriendAt& each : added) {
    const auto values = each.person->allValues();
    for (const std::string& destination : values ? *values : DestinationSet()) {
      if (!seen.insert(destinationKey(destination).value_or(destination)).second) continue;
      auto friends = finder.withDestination(destination);
      if (friends.size() > 1) shared.push_back({destination, std::move(friends)});
    }
  }
  return shared;
}

std::string textOf(const SharedDestination& shared) {
  std::string text;
  for (std::size_t index = 0; index < shared.friends.size(); ++index) {
    const bool isLast = index + 1 == shared.friends.size();
    if (index > 0) text += isLast ? " and " : ", ";
    text += nameOf(*shared.friends[index].person) + " (" + textOf(shared.friends[index].place) + ")";
  }
  return text + " share " + shownDestination(shared.destination) + "\n";
}

Json jsonOf(const SharedDestination& shared) {
  Json friends = Json::array();
  for (const FriendAt& each : shared.friends) friends.push_back(jsonOf(each));
  return {{"destination", shared.destination}, {"friends", std::move(friends)}};
}

void answerAdded(Session& session, const std::vector<FriendAt>& added) {
  const auto shared = sharedWithOthers(session, added);
  const auto text = [&] {
    std::string all = eachText(added, "added");
    for (const SharedDestination& each : shared) all += textOf(each);
    return all;
  };
  const auto json = [&] {
    Json object = eachJson(added, "added");
    object["shared"] = Json::array();
    for (const SharedDestination& each : shared) object["shared"].push_back(jsonOf(each));
    return object;
  };
  session.answer(text, json);
}

CommandError hasNoRoom(const PLPerson& person) { return CommandError("there is no room for " + nameOf(person)); }

// All or none: the others have to leave again.
void withdraw(Session& session, const Persons& persons) {
  for (const FriendAt& each : placesOf(session.manager(), persons)) {
    each.page->removeFriendAtPosition(each.page->positionOfFriend(each.person));
  }
  session.commit();
}

// Other programs may have taken the room before the friends were stored. A friend that is missing while there is room
// was stored, and then removed by another program.
void requireAdded(Session& session, const Persons& persons) {
  const PLFriendsManager& manager = session.manager();
  const auto left = std::ranges::find_if_not(persons, [&](const auto& each) { return manager.isPersonFriend(each); });
  if (left == persons.end() || freeSlots(session) > 0) return;
  withdraw(session, persons);
  throw hasNoRoom(**left);
}

void add(Session& session, const std::vector<std::string>& who) {
  session.requireWritableStore();
  PLFriendsManager& manager = session.manager();
  const Persons persons = personsToAdd(session, who);
  requireRoom(session, persons.size());
  for (const auto& person : persons) {
    if (!manager.addFriend(person)) throw hasNoRoom(*person);
  }
  session.commit();
  requireAdded(session, persons);
  answerAdded(session, placesOf(manager, persons));
}

void remove(Session& session, const std::vector<std::string>& who) {
  session.requireWritableStore();
  const std::vector<FriendAt> friends = friendsNamed(session, who);
  // Pages that become empty vanish on the way; the friends hold theirs.
  for (const FriendAt& each : friends) each.page->removeFriendAtPosition(each.place.slot);
  session.commit();
  answerEach(session, friends, "removed");
}

struct Move {
  FriendAt from;
  std::shared_ptr<PLFriendGroup> page;
  Place to;

  bool staysOnPage() const { return page == from.page; }
  std::shared_ptr<PLPerson> displaced() const { return page->friendAtPosition(to.slot); }
};

void putIntoSlot(PLFriendGroup& page, std::uint64_t slot, const std::shared_ptr<PLPerson>& person) {
  Persons content = page.friends();
  content[slot] = person;
  page.setFriends(std::move(content));
}

// A taken slot swaps. Each person is reported once, whatever the number of pages.
void perform(PLFriendsManager& manager, const Move& move) {
  const auto displaced = move.displaced();
  Persons moved = {move.from.person};
  if (displaced) moved.push_back(displaced);
  putIntoSlot(*move.from.page, move.from.place.slot, displaced);
  putIntoSlot(*move.page, move.to.slot, move.from.person);
  if (!move.staysOnPage()) manager.friendGroupDidMoveFriends(move.from.page, {});
  manager.friendGroupDidMoveFriends(move.page, moved);
  // The last page may have got its first friend: this adds the empty page behind it.
  manager.syncFriendGroup(move.page);
  manager.save();
}

Place targetIn(const PLFriendsManager& manager, const std::string& text) {
  const auto place = placeIn(text);
  if (!place) throw UsageError(inQuotes(text) + " is no place such as 2:5");
  if (place->slot < pageAt(manager, place->page)->groupSize()) return *place;
  throw CommandError("there is no slot " + text + ": a page has " + std::to_string(manager.groupSize()));
}

std::vector<FriendAt> movedFriends(const Move& move, const std::shared_ptr<PLPerson>& displaced) {
  std::vector<FriendAt> result = {{move.to, move.page, move.from.person}};
  if (displaced) result.push_back({move.from.place, move.from.page, displaced});
  return result;
}

void move(Session& session, const std::string& who, const std::string& target) {
  session.requireWritableStore();
  PLFriendsManager& manager = session.manager();
  const Place to = targetIn(manager, target);
  const FriendAt from = friendNamed(session, who);
  if (from.place == to) return answerEach(session, {}, "moved");
  const Move wanted{from, pageAt(manager, to.page), to};
  const auto displaced = wanted.displaced();
  perform(manager, wanted);
  session.commit();
  answerEach(session, movedFriends(wanted, displaced), "moved");
}

void addManyCommand(CLI::App& program, Command& chosen, const char* name, const char* text, const char* whoText,
                    void (*run)(Session&, const std::vector<std::string>&)) {
  auto* command = program.add_subcommand(name, text);
  const auto who = std::make_shared<std::vector<std::string>>();
  command->add_option("WHO", *who, whoText)->required()->expected(1, -1);
  command->callback(
      [&chosen, who, run] { chosen = [who, run](Session& session) { run(session, withLinesOfInput(*who)); }; });
}

}  // namespace

void addEditCommands(CLI::App& program, Command& chosen) {
  addManyCommand(program, chosen, "add", "Add friends, each into the first free slot; all or none",
                 "Contacts by GUID, name, number or address, or a number or an address of nobody's; - for the lines of "
                 "standard input",
                 add);
  addManyCommand(program, chosen, "remove", "Remove friends; all or none", "Friends; - for the lines of standard input",
                 remove);
  auto* command = program.add_subcommand("move", "Move a friend to another slot; a taken slot swaps");
  const auto who = std::make_shared<std::string>();
  const auto target = std::make_shared<std::string>();
  command->add_option("WHO", *who, "The friend")->required();
  command->add_option("PAGE:SLOT", *target, "The slot")->required();
  command->callback(
      [&chosen, who, target] { chosen = [who, target](Session& session) { move(session, *who, *target); }; });
}

}  // namespace pellor::cli
