// list, find

#include <cstddef>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/CommandSyntax.h"
#include "cli/ContactSearch.h"
#include "cli/FriendSearch.h"
#include "cli/JsonForms.h"
#include "cli/Output.h"
#include "cli/PageGrid.h"
#include "cli/StatusText.h"
#include "pellor/list/Destination.h"
#include "pellor/runtime/WallClock.h"

namespace pellor::cli {
namespace {

// In seconds: a list is looked at, not waited for.
constexpr double LongestRequery = 2;

struct ListArguments {
  bool asLines = false;
  bool hasPhotos = false;
  bool requery = false;
};

Json slotJson(FriendList& list, const std::shared_ptr<const Friend>& person) {
  if (!person) return nullptr;
  Json json = jsonOf(*person);
  addStatus(json, list.reachability(person->id));
  return json;
}

Json pageJson(FriendList& list, const Page& page) {
  Json content = Json::array();
  for (const auto& person : page.friends) content.push_back(slotJson(list, person));
  return {{"title", textOrNull(page.title)}, {"slots", std::move(content)}};
}

Json listJson(Session& session, const Snapshot& shown) {
  Json pages = Json::array();
  for (std::size_t index = 0; index < shown.pageCount(); ++index)
    pages.push_back(pageJson(session.list(), shown.page(index)));
  const std::size_t pageSize = shown.pageCount() == 0 ? 0 : shown.page(0).friends.size();
  return {{"domain", session.options().domain()}, {"pageSize", pageSize}, {"pages", pages}};
}

// For programs that take lines apart: place, mark, name and number, with a tab between them.
std::string linesText(const Snapshot& shown, const FriendMark& mark) {
  std::string text;
  for (const FriendAt& each : allFriends(shown)) {
    text += textOf(each.place) + "\t" + mark(*each.person) + "\t" + nameOf(*each.person) + "\t" +
            shownDestination(*each.person) + "\n";
  }
  return text;
}

void list(Session& session, const ListArguments& arguments) {
  FriendList& list = session.list();
  // What the contacts changed since the last time belongs to the answer.
  session.settle();
  // What did not come in time is shown as it was known before.
  const double start = wallClockNow();
  const bool isAnswered = arguments.requery && list.checksReachability() && queryAll(session, LongestRequery);
  const Snapshot shown = list.snapshot();
  const auto mark = [&list](const Friend& person) { return statusMark(list.reachability(person.id).status); };
  const auto age = [&list](const Friend& person) { return ageText(list.reachability(person.id)); };
  session.answer(
      [&] { return arguments.asLines ? linesText(shown, mark) : pagesText(shown, mark, outputWidth(), age); },
      [&] { return withPhotos(session, listJson(session, shown), arguments.hasPhotos); });
  if (isAnswered) requireAnswersSince(start, session, allFriends(shown));
}

struct Owners {
  std::vector<FriendAt> friends;
  std::vector<ContactEntry> contacts;  // that are no friends
};

Owners ownersOf(Session& session, const std::string& destination) {
  FriendFinder friends(session);
  Owners owners{friends.withDestination(destination), contactsWithDestination(session, destination)};
  std::erase_if(owners.contacts, [&](const auto& contact) { return friendThatIs(friends, contact).has_value(); });
  return owners;
}

std::string ownersText(const Owners& owners) {
  std::string text;
  for (const FriendAt& found : owners.friends) {
    text += nameOf(*found.person) + " (friend, " + textOf(found.place) + ")\n";
  }
  for (const ContactEntry& contact : owners.contacts) {
    text += nameOf(contact) + " (contact, " + printable(contact.guid) + ")\n";
  }
  return text;
}

Json ownersJson(const Owners& owners) {
  Json friends = Json::array();
  for (const FriendAt& found : owners.friends) friends.push_back(jsonOf(found));
  Json contacts = Json::array();
  for (const ContactEntry& contact : owners.contacts) contacts.push_back(jsonOf(contact, false));
  return {{"friends", friends}, {"contacts", contacts}};
}

void find(Session& session, const std::string& destination) {
  if (!comparableDestination(destination)) {
    throw UsageError(inQuotes(destination) +
                     " is neither a number nor an address: pellor contacts finds people by their names");
  }
  const Owners owners = ownersOf(session, destination);
  if (owners.friends.empty() && owners.contacts.empty()) throw CommandError("nobody has " + printable(destination));
  session.answer([&] { return ownersText(owners); }, [&] { return ownersJson(owners); });
}

void chooseList(Command& chosen, CommonOptions& options, const ListArguments& arguments) {
  chosen = [arguments](Session& session) { list(session, arguments); };
  options.noticesChanges = false;
}

}  // namespace

void chooseList(Command& chosen, CommonOptions& options) { chooseList(chosen, options, ListArguments()); }

void addListCommands(CommandSyntax program, Command& chosen, CommonOptions& options) {
  const auto shown =
      program.command("list", "Show the pages; + before a friend who is reachable, - who is not, ? not known");
  const auto arguments = std::make_shared<ListArguments>();
  shown.flag("--lines", arguments->asLines, "A friend a line: place, mark, name and number, with tabs between them");
  shown.flag("--photos", arguments->hasPhotos, PhotosMeaning);
  shown.flag("--requery", arguments->requery, "Ask the messaging service first, and wait 2 seconds at most");
  shown.whenGiven([&chosen, &options, arguments] { chooseList(chosen, options, *arguments); });
  const auto command = program.command("find", "Tell which friends and contacts have a number or an address");
  const auto destination = std::make_shared<std::string>();
  command.option("DESTINATION", *destination, "A number or an address, in any spelling").required();
  command.whenGiven(
      [&chosen, destination] { chosen = [destination](Session& session) { find(session, *destination); }; });
}

}  // namespace pellor::cli
