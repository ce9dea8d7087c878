// list, find

#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/ContactSearch.h"
#include "cli/FriendSearch.h"
#include "cli/JsonForms.h"
#include "cli/NameMatch.h"
#include "cli/Output.h"
#include "cli/PageGrid.h"
#include "cli/ShownDestination.h"
#include "cli/StatusText.h"
#include "pellor/friends/PLDestinationStatus.h"

namespace pellor::cli {
namespace {

Json slotJson(PLFriendsManager& manager, const std::shared_ptr<PLPerson>& person) {
  if (!person) return nullptr;
  Json json = jsonOf(*person);
  json["status"] = destinationStatusName(manager.statusForPersonRequery(person, false));
  return json;
}

Json slotsJson(PLFriendsManager& manager, const PLFriendGroup& page) {
  Json content = Json::array();
  withCardsOf(page.friends(), [&] {
    for (std::uint64_t slot = 0; slot < page.groupSize(); ++slot) {
      content.push_back(slotJson(manager, page.friendAtPosition(slot)));
    }
  });
  return content;
}

Json listJson(PLFriendsManager& manager) {
  Json pages = Json::array();
  for (const auto& page : manager.friendGroups()) {
    const std::string title = page->title().value_or("");
    pages.push_back({{"title", title.empty() ? Json(nullptr) : Json(title)}, {"slots", slotsJson(manager, *page)}});
  }
  return {{"domain", manager.domain()}, {"pageSize", manager.groupSize()}, {"pages", pages}};
}

// For programs that take lines apart: place, mark, name and number, with a tab between them.
std::string linesText(PLFriendsManager& manager, const FriendMark& mark) {
  std::string text;
  for (const FriendAt& each : allFriends(manager)) {
    const std::string number = shownDestination(*each.person);
    text +=
        textOf(each.place) + "\t" + mark(each.person) + "\t" + nameOf(*each.person) + "\t" + printable(number) + "\n";
  }
  return text;
}

void list(Session& session, bool asLines) {
  PLFriendsManager& manager = session.manager();
  // What the contacts changed since the last time belongs to the answer.
  session.settle();
  const auto mark = [&manager](const std::shared_ptr<PLPerson>& person) {
    return statusMark(manager.statusForPersonRequery(person, false));
  };
  session.answer(
      [&] { return asLines ? linesText(manager, mark) : pagesText(manager.friendGroups(), mark, outputWidth()); },
      [&] { return listJson(manager); });
}

struct Owners {
  std::vector<FriendAt> friends;
  std::vector<ContactEntry> contacts;  // that are no friends
};

Owners ownersOf(Session& session, const std::string& destination) {
  FriendFinder friends(session.manager());
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
  if (!destinationKey(destination)) throw UsageError(inQuotes(destination) + " is neither a number nor an address");
  const Owners owners = ownersOf(session, destination);
  if (owners.friends.empty() && owners.contacts.empty()) throw CommandError("nobody has " + printable(destination));
  session.answer([&] { return ownersText(owners); }, [&] { return ownersJson(owners); });
}

}  // namespace

void chooseList(Command& chosen, CommonOptions& options, bool asLines) {
  chosen = [asLines](Session& session) { list(session, asLines); };
  options.noticesChanges = false;
}

void addListCommands(CLI::App& program, Command& chosen, CommonOptions& options) {
  auto* shown =
      program.add_subcommand("list", "Show the pages; + before a friend who is reachable, - who is not, ? not known");
  const auto asLines = std::make_shared<bool>(false);
  shown->add_flag("--lines", *asLines, "A friend a line: place, mark, name and number, with tabs between them");
  shown->callback([&chosen, &options, asLines] { chooseList(chosen, options, *asLines); });
  auto* command = program.add_subcommand("find", "Tell which friends and contacts have a number or an address");
  const auto destination = std::make_shared<std::string>();
  command->add_option("DESTINATION", *destination, "A number or an address, in any spelling")->required();
  command->callback(
      [&chosen, destination] { chosen = [destination](Session& session) { find(session, *destination); }; });
}

}  // namespace pellor::cli
