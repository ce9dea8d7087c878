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
#include "cli/StatusText.h"
#include "pellor/list/ShownDestination.h"

namespace pellor::cli {
namespace {

// In seconds: a list is looked at, not waited for.
constexpr double LongestRequery = 2;

struct ListArguments {
  bool asLines = false;
  bool hasPhotos = false;
  bool requery = false;
};

Json slotJson(PLFriendsManager& manager, const std::shared_ptr<PLPerson>& person) {
  if (!person) return nullptr;
  Json json = jsonOf(*person);
  addStatus(json, reachabilityOf(manager, person));
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
std::string lineText(const Place& place, const PLPerson& person, const std::string& mark) {
  return textOf(place) + "\t" + mark + "\t" + nameOf(person) + "\t" + shownDestination(person) + "\n";
}

std::string linesText(PLFriendsManager& manager, const FriendMark& mark) {
  std::string text;
  const auto& pages = manager.friendGroups();
  for (std::uint64_t page = 0; page < pages.size(); ++page) {
    const auto& friends = pages[page]->friends();
    withCardsOf(friends, [&] {
      for (std::uint64_t slot = 0; slot < friends.size(); ++slot) {
        if (const auto& person = friends[slot]) text += lineText({page, slot}, *person, mark(person));
      }
    });
  }
  return text;
}

void list(Session& session, const ListArguments& arguments) {
  PLFriendsManager& manager = session.manager();
  // What the contacts changed since the last time belongs to the answer.
  session.settle();
  // What did not come in time is shown as it was known before.
  if (arguments.requery && areStatusesChecked(manager)) {
    requeryStatuses(session, allFriends(manager), true, LongestRequery);
  }
  const auto mark = [&manager](const std::shared_ptr<PLPerson>& person) {
    return statusMark(reachabilityOf(manager, person).status);
  };
  const auto age = [&manager](const std::shared_ptr<PLPerson>& person) {
    return ageText(reachabilityOf(manager, person));
  };
  session.answer(
      [&] {
        return arguments.asLines ? linesText(manager, mark)
                                 : pagesText(manager.friendGroups(), mark, outputWidth(), age);
      },
      [&] { return withPhotos(session, listJson(manager), arguments.hasPhotos); });
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
  if (!destinationKey(destination)) throw UsageError(inQuotes(destination) + " is neither a number nor an address");
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

void addListCommands(CLI::App& program, Command& chosen, CommonOptions& options) {
  auto* shown =
      program.add_subcommand("list", "Show the pages; + before a friend who is reachable, - who is not, ? not known");
  const auto arguments = std::make_shared<ListArguments>();
  shown->add_flag("--lines", arguments->asLines,
                  "A friend a line: place, mark, name and number, with tabs between them");
  shown->add_flag("--photos", arguments->hasPhotos, PhotosMeaning);
  shown->add_flag("--requery", arguments->requery, "Ask the messaging service first, and wait 2 seconds at most");
  shown->callback([&chosen, &options, arguments] { chooseList(chosen, options, *arguments); });
  auto* command = program.add_subcommand("find", "Tell which friends and contacts have a number or an address");
  const auto destination = std::make_shared<std::string>();
  command->add_option("DESTINATION", *destination, "A number or an address, in any spelling")->required();
  command->callback(
      [&chosen, destination] { chosen = [destination](Session& session) { find(session, *destination); }; });
}

}  // namespace pellor::cli
