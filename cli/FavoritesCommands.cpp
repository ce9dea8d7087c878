// favorites

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/CommandSyntax.h"
#include "cli/ContactSearch.h"
#include "cli/JsonForms.h"
#include "cli/NameMatch.h"
#include "cli/Output.h"
#include "pellor/linux/contacts/EditableFavorites.h"
#include "pellor/list/Destination.h"
#include "pellor/list/Settings.h"
#include "pellor/platform/Platform.h"

namespace pellor::cli {
namespace {

using Lines = std::vector<FavoriteLine>;

std::string fileName(Session& session) {
  return "the favorites file in " + printable(session.platform().contactsFolder()->string());
}

EditableFavorites& fileOf(Session& session) {
  session.requireContacts();
  if (EditableFavorites* file = session.platform().favorites()) return *file;
  throw CommandError("the favorites are those that are marked in the address book: mark them there");
}

// Marks are shown as the lines that a file would have.
Lines markedLines(Session& session) {
  Lines lines;
  session.withAddressBook([&](AddressBook& addressBook) {
    const auto entries = platformOf(session.process()).favorites->favoriteEntries();
    if (!entries.isReadable()) throw CommandError("the favorites cannot be read");
    for (const FavoriteEntry& entry : entries.value().value_or(std::vector<FavoriteEntry>())) {
      const RecordRef person = addressBook.personForRecordID(entry.abRecordID);
      lines.push_back({person ? person->recordGUID() : "", entry.value, entry.displayName});
    }
  });
  return lines;
}

Lines linesOf(Session& session) {
  session.requireContacts();
  EditableFavorites* file = session.platform().favorites();
  if (!file) return markedLines(session);
  const auto lines = file->lines();
  if (!lines) throw CommandError(fileName(session) + " cannot be read");
  return *lines;
}

std::string nameOf(const FavoriteLine& line) {
  return printable(!line.name.empty() ? line.name : !line.value.empty() ? line.value : line.guid);
}

std::string favoritesText(const Lines& lines) {
  std::string text;
  std::size_t number = 0;
  for (const auto& line : lines) {
    text += std::to_string(++number) + " " + nameOf(line);
    text += (line.value.empty() || line.name.empty() ? "" : " " + printable(line.value)) + "\n";
  }
  return text;
}

Json favoritesJson(const Lines& lines) {
  Json list = Json::array();
  for (const auto& line : lines) {
    list.push_back(
        {{"guid", textOrNull(line.guid)}, {"name", textOrNull(line.name)}, {"value", textOrNull(line.value)}});
  }
  Json object;
  object["favorites"] = std::move(list);
  return object;
}

const char* noneText(Session& session) {
  return session.platform().favorites() ? "there are no favorites yet: \"pellor favorites add WHO\" makes one\n"
                                        : "there are no favorites yet: mark them in the address book\n";
}

std::string textOf(Session& session, const Lines& lines) {
  return lines.empty() ? noneText(session) : favoritesText(lines);
}

void list(Session& session) {
  const Lines lines = linesOf(session);
  session.answer([&] { return textOf(session, lines); }, [&] { return favoritesJson(lines); });
}

// A dry run begins a line of its own: the favorites are a list.
void answerEdited(Session& session, const Lines& lines, const std::string& remark) {
  session.answer([&] { return (session.isDry() ? "would be:\n" : "") + textOf(session, lines) + remark; },
                 [&] { return favoritesJson(lines); });
}

// The favorites as they are then, or in a dry run would be.
Lines edited(Session& session, const EditableFavorites::Edit& change, const std::string& refusal) {
  if (session.isDry()) {
    fileOf(session);
    Lines lines = linesOf(session);
    if (!change(lines)) throw CommandError(refusal);
    return lines;
  }
  switch (fileOf(session).edit(change)) {
    case EditableFavorites::Outcome::done:
      return linesOf(session);
    case EditableFavorites::Outcome::refused:
      throw CommandError(refusal);
    case EditableFavorites::Outcome::failed:
      break;
  }
  const std::string& problem = fileOf(session).problem();
  throw CommandError("nothing was saved: " + (problem.empty() ? fileName(session) + " cannot be written" : problem));
}

void edit(Session& session, const EditableFavorites::Edit& change, const std::string& refusal) {
  answerEdited(session, edited(session, change, refusal), "");
}

FavoriteLine lineFor(Session& session, const std::string& who) {
  ContactFinder contacts(session);
  if (const auto contact = contacts.namedToAdd(who)) {
    return {contact->guid, contact->destinations.empty() ? "" : contact->destinations.front(),
            contact->name.value_or("")};
  }
  if (isPlainDestination(who)) return {"", who, ""};
  throw CommandError(nobodyCalled(contacts, who));
}

bool areSame(const FavoriteLine& left, const FavoriteLine& right) {
  if (!left.guid.empty() || !right.guid.empty()) return left.guid == right.guid;
  return comparableDestination(left.value) == comparableDestination(right.value);
}

constexpr const char* ListExists =
    "the friend list exists already: \"pellor favorites import\" adds the favorites that are no friends yet\n";

void add(Session& session, const std::string& who) {
  fileOf(session);
  const FavoriteLine added = lineFor(session, who);
  const auto change = [&](Lines& lines) {
    if (std::ranges::any_of(lines, [&](const auto& line) { return areSame(line, added); })) return false;
    lines.push_back(added);
    return true;
  };
  const Lines lines = edited(session, change, nameOf(added) + " is a favorite already");
  // A list that waits for its favorites takes them by itself.
  const bool isTooLate = hasStoredList(session.options().domain());
  answerEdited(session, lines, isTooLate ? ListExists : "");
}

std::size_t indexIn(const std::string& number, std::size_t count) {
  const std::uint64_t index = pageIn(number);
  if (index < count) return index;
  throw CommandError("there is no favorite " + number + ": there are " + std::to_string(count));
}

// The lines with that name, number or address.
std::vector<std::size_t> indexesOf(const Lines& lines, const std::string& who) {
  const auto key = comparableDestination(who);
  const NameMatch name(who);
  std::vector<std::size_t> found;
  for (std::size_t index = 0; index < lines.size(); ++index) {
    const FavoriteLine& line = lines[index];
    if ((key && comparableDestination(line.value) == key) || name.isWhole(line.name)) found.push_back(index);
  }
  return found;
}

// By number, else by what the file says when that is one alone, else as a contact.
std::size_t indexOf(Session& session, const Lines& lines, const std::string& who) {
  if (who.empty()) throw UsageError("WHO is empty");
  const bool isNumber = std::ranges::all_of(who, [](char c) { return c >= '0' && c <= '9'; });
  if (isNumber && who.size() < 4) return indexIn(who, lines.size());
  const std::vector<std::size_t> named = indexesOf(lines, who);
  if (named.size() == 1) return named.front();
  const auto contact = ContactFinder(session).named(who);
  const auto found =
      std::ranges::find_if(lines, [&](const auto& line) { return contact && line.guid == contact->guid; });
  if (found != lines.end()) return static_cast<std::size_t>(found - lines.begin());
  if (contact || named.empty()) throw CommandError("no favorite is called " + inQuotes(who));
  throw CommandError(inQuotes(who) + " fits several favorites: give the number of one");
}

void remove(Session& session, const std::string& who) {
  const FavoriteLine removed = [&] {
    const Lines lines = linesOf(session);
    return lines[indexOf(session, lines, who)];
  }();
  const auto change = [&](Lines& lines) { return std::erase(lines, removed) > 0; };
  edit(session, change, "no favorite is called " + inQuotes(who) + " any more");
}

void move(Session& session, const std::string& from, const std::string& to) {
  const std::size_t count = linesOf(session).size();
  const std::size_t source = indexIn(from, count);
  const std::size_t target = indexIn(to, count);
  const auto change = [&](Lines& lines) {
    if (std::max(source, target) >= lines.size()) return false;
    FavoriteLine moved = std::move(lines[source]);
    lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(source));
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(target), std::move(moved));
    return true;
  };
  edit(session, change, "the favorites have changed meanwhile");
}

std::string importText(const Session& session, const std::vector<FriendAt>& added) {
  if (added.empty())
    return std::string(session.isDry() ? "nobody would be added" : "nobody was added") +
           ": no favorite is left who is no friend\n";
  std::string text;
  for (const FriendAt& each : added)
    text += session.would() + "added " + cli::nameOf(*each.person) + " (" + cli::textOf(each.place) + ")\n";
  return text;
}

Json importJson(const std::vector<FriendAt>& added, std::uint64_t withoutRoom) {
  Json list = Json::array();
  for (const FriendAt& each : added) list.push_back(jsonOf(each));
  Json object;
  object["added"] = std::move(list);
  object["withoutRoom"] = withoutRoom;
  return object;
}

// In a dry run it is done to this program's own view of the store. The load of a first list may bring the favorites
// already, as it does at any time.
void import(Session& session) {
  session.requireContacts();
  session.requireWritableStore();
  const FavoritesImport import = session.list().importFavorites();
  if (!import.couldRead) throw CommandError("nothing was added: the favorites cannot be read");
  session.commit();
  const auto added = placesOf(session.list().snapshot(), import.added);
  session.answer([&] { return importText(session, added); }, [&] { return importJson(added, import.withoutRoom); });
  if (import.withoutRoom > 0) {
    throw CommandError("there is no room for " + std::to_string(import.withoutRoom) +
                       (import.withoutRoom == 1 ? " favorite" : " favorites"));
  }
}

void addWhoCommand(CommandSyntax favorites, Command& chosen, const char* name, const char* text,
                   void (*run)(Session&, const std::string&)) {
  const auto command = favorites.command(name, text);
  command.offersDryRun();
  const auto who = std::make_shared<std::string>();
  command.option("WHO", *who, "A contact, a number or an address").required();
  command.whenGiven([&chosen, who, run] { chosen = [who, run](Session& session) { run(session, *who); }; });
}

}  // namespace

void addFavoritesCommands(CommandSyntax program, Command& chosen) {
  const auto favorites = program.command("favorites", "Show or edit the favorites, of which a first list is made");
  favorites.mayHaveCommand();
  favorites.command("list", "Show the favorites in their order");
  addWhoCommand(favorites, chosen, "add", "Add a favorite at the end", add);
  addWhoCommand(favorites, chosen, "remove", "Remove a favorite, by name or by number", remove);
  const auto importing = favorites.command("import", "Add the favorites that are no friends yet to the friend list");
  importing.offersDryRun();
  importing.whenGiven([&chosen] { chosen = import; });
  const auto command = favorites.command("move", "Move a favorite to another place");
  command.offersDryRun();
  const auto from = std::make_shared<std::string>();
  const auto to = std::make_shared<std::string>();
  command.option("N", *from, "The number of the favorite").required();
  command.option("M", *to, "The number that it gets").required();
  command.whenGiven([&chosen, from, to] { chosen = [from, to](Session& session) { move(session, *from, *to); }; });
  // Runs after the callbacks of the commands below it.
  favorites.whenGiven([&chosen] {
    if (!chosen) chosen = list;
  });
}

}  // namespace pellor::cli
