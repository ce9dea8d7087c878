// add, remove, move

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/CommandSyntax.h"
#include "cli/ContactSearch.h"
#include "cli/FriendSearch.h"
#include "cli/JsonForms.h"
#include "cli/NameMatch.h"
#include "cli/Output.h"
#include "cli/StandardInput.h"
#include "cli/Steps.h"
#include "pellor/list/Destination.h"

namespace pellor::cli {
namespace {

CommandError isFriendAlready(const FriendAt& known) {
  return CommandError(nameOf(*known.person) + " is a friend already (" + textOf(known.place) + ")");
}

/// Somebody who is to be added.
struct Newcomer {
  AddFriend edit;
  std::string name;
};

/// Finds out whom the user wants to add.
class NewcomerFinder {
 public:
  explicit NewcomerFinder(Session& session) : _session(session), _contacts(session), _friends(session) {}

  Newcomer named(const std::string& who) {
    const bool isDestination = isPlainDestination(who) && !_contacts.isGuid(who);
    // Another contact may have it too, which has to be named to be added.
    if (isDestination) requireNobodys(who);
    if (const auto contact = _contacts.namedToAdd(who)) return ofContact(*contact);
    if (isDestination) return ofDestination(who);
    _session.requireContacts();
    throw CommandError(nobodyCalled(_contacts, who));
  }

 private:
  void requireNobodys(const std::string& destination) {
    const auto known = _friends.withDestination(destination);
    if (!known.empty()) throw isFriendAlready(known.front());
  }

  Newcomer ofDestination(const std::string& destination) {
    if (!_destinations.insert(comparableDestination(destination).value_or(destination)).second)
      throw UsageError(inQuotes(destination) + " is named twice");
    return {{.destination = destination}, shownDestination(canonicalDestination(destination).value_or(destination))};
  }

  Newcomer ofContact(const ContactEntry& contact) {
    if (const auto known = friendThatIs(_friends, contact)) throw isFriendAlready(*known);
    for (const std::string& guid : *contact.personGuids) {
      if (!_guids.insert(guid).second) throw UsageError(nameOf(contact) + " is named twice");
    }
    return {{.contactGUID = contact.guid}, nameOf(contact)};
  }

  Session& _session;
  ContactFinder _contacts;
  FriendFinder _friends;
  std::unordered_set<std::string> _destinations;  // of nobody's, in the form in which spellings are equal
  std::unordered_set<std::string> _guids;         // of all records of those who were named
};

std::string eachText(const Session& session, const std::vector<FriendAt>& friends, const std::string& what) {
  std::string text;
  for (const FriendAt& each : friends)
    text += session.would() + what + " " + nameOf(*each.person) + " (" + textOf(each.place) + ")\n";
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
  session.answer([&] { return eachText(session, friends, what); }, [&] { return eachJson(friends, what); });
}

/// A number or address that several friends have, as families do.
struct SharedDestination {
  std::string destination;
  std::vector<FriendAt> friends;  // in slot order
};

// Each once, of those that the friends who were added have.
std::vector<SharedDestination> sharedWithOthers(Session& session, const std::vector<FriendAt>& added,
                                                const Snapshot& list) {
  FriendFinder finder(session, list);
  std::vector<SharedDestination> shared;
  std::unordered_set<std::string> seen;
  for (const FriendAt& each : added) {
    for (const std::string& destination : each.person->destinations) {
      if (!seen.insert(comparableDestination(destination).value_or(destination)).second) continue;
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
    text += nameOf(*shared.friends[index].person) + " (" + cli::textOf(shared.friends[index].place) + ")";
  }
  return text + " share " + shownDestination(shared.destination) + "\n";
}

Json jsonOf(const SharedDestination& shared) {
  Json friends = Json::array();
  for (const FriendAt& each : shared.friends) friends.push_back(cli::jsonOf(each));
  return {{"destination", shared.destination}, {"friends", std::move(friends)}};
}

void answerAdded(Session& session, const std::vector<FriendAt>& added, const Snapshot& list) {
  const auto shared = sharedWithOthers(session, added, list);
  const auto text = [&] {
    std::string all = eachText(session, added, "added");
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

// Whom another program added may have another id by now.
std::vector<FriendAt> inTheWay(Session& session, const Newcomer& newcomer, const Refusal& refusal) {
  if (refusal.inTheWay) {
    auto known = placesOf(session.list().snapshot(), {*refusal.inTheWay});
    if (!known.empty()) return known;
  }
  FriendFinder finder(session);
  const std::string& guid = newcomer.edit.contactGUID;
  return guid.empty() ? finder.withDestination(newcomer.edit.destination) : finder.withGuid(guid);
}

std::string additionRefusal(Session& session, const Newcomer& newcomer, const Refusal& refusal, RefusedAt at) {
  if (refusal.reason == RefusalReason::noRoom) {
    return at == RefusedAt::call ? "there is no room: every slot of every page is taken"
                                 : "there is no room for " + newcomer.name;
  }
  if (refusal.reason == RefusalReason::noDestination) return newcomer.name + " has neither a number nor an address";
  if (refusal.reason != RefusalReason::isFriend) return refusalText(refusal, newcomer.name);
  const auto known = inTheWay(session, newcomer, refusal);
  return known.empty() ? newcomer.name + " is a friend already" : isFriendAlready(known.front()).what();
}

void add(Session& session, const std::vector<std::string>& who) {
  session.requireWritableStore();
  NewcomerFinder finder(session);
  std::vector<Newcomer> newcomers;
  std::vector<Edit> edits;
  for (const std::string& each : who) {
    newcomers.push_back(finder.named(each));
    edits.emplace_back(newcomers.back().edit);
  }
  const auto text = [&](const Refusal& refusal, RefusedAt at) {
    return additionRefusal(session, newcomers[refusal.edit], refusal, at);
  };
  std::vector<FriendId> added;
  const DoneStep done = applyAndStore(session, edits, text);
  for (const EditResult& each : done.results) added.push_back(each.id);
  answerAdded(session, placesOf(done.list, added), done.list);
}

/// Of edits of friends: each is about the friend with its index.
RefusalText textAbout(const std::vector<FriendAt>& friends) {
  return [&friends](const Refusal& refusal, RefusedAt) {
    return refusalText(refusal, nameOf(*friends[refusal.edit].person));
  };
}

void remove(Session& session, const std::vector<std::string>& who) {
  session.requireWritableStore();
  const std::vector<FriendAt> friends = friendsNamed(session, who);
  std::vector<Edit> edits;
  for (const FriendAt& each : friends) edits.emplace_back(RemoveFriend{each.person->id});
  applyAndStore(session, edits, textAbout(friends));
  answerEach(session, friends, "removed");
}

Place targetIn(const Snapshot& list, const std::string& text) {
  const auto place = placeIn(text);
  if (!place) throw UsageError(inQuotes(text) + " is no place such as 2:5");
  const std::size_t size = pageAt(list, place->page).friends.size();
  if (place->slot < size) return *place;
  throw CommandError("there is no slot " + text + ": a page has " + std::to_string(size));
}

// Where they are when other programs have edited the list at the same time.
std::vector<FriendAt> movedFriends(const Snapshot& list, const FriendAt& from,
                                   const std::shared_ptr<const Friend>& other) {
  std::vector<FriendAt> moved = placesOf(list, {from.person->id});
  if (!other) return moved;
  for (FriendAt& each : placesOf(list, {other->id})) moved.push_back(std::move(each));
  return moved;
}

void move(Session& session, const std::string& who, const std::string& target) {
  session.requireWritableStore();
  const Snapshot list = session.list().snapshot();
  const Place to = targetIn(list, target);
  const std::vector<FriendAt> from = {friendNamed(session, who)};
  if (from.front().place == to) return answerEach(session, {}, "moved");
  const DoneStep done = applyAndStore(session, {MoveFriend{from.front().person->id, to}}, textAbout(from));
  answerEach(session, movedFriends(done.list, from.front(), list.friendAt(to)), "moved");
}

void addManyCommand(CommandSyntax program, Command& chosen, const char* name, const char* text, const char* whoText,
                    void (*run)(Session&, const std::vector<std::string>&)) {
  const auto command = program.command(name, text);
  command.offersDryRun();
  const auto who = std::make_shared<std::vector<std::string>>();
  command.option("WHO", *who, whoText).required().atLeast(1);
  command.whenGiven(
      [&chosen, who, run] { chosen = [who, run](Session& session) { run(session, withLinesOfInput(*who)); }; });
}

}  // namespace

void addEditCommands(CommandSyntax program, Command& chosen) {
  addManyCommand(program, chosen, "add", "Add friends, each into the first free slot; all or none",
                 "Contacts by GUID, name, number or address, or a number or an address of nobody's; - for the lines of "
                 "standard input",
                 add);
  addManyCommand(program, chosen, "remove", "Remove friends; all or none", "Friends; - for the lines of standard input",
                 remove);
  const auto command = program.command("move", "Move a friend to another slot; a taken slot swaps");
  command.offersDryRun();
  const auto who = std::make_shared<std::string>();
  const auto target = std::make_shared<std::string>();
  command.option("WHO", *who, "The friend").required();
  command.option("PAGE:SLOT", *target, "The slot").required();
  command.whenGiven(
      [&chosen, who, target] { chosen = [who, target](Session& session) { move(session, *who, *target); }; });
}

}  // namespace pellor::cli
