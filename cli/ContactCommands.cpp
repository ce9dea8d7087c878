// contacts, allow, refresh

#include <algorithm>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/CommandSyntax.h"
#include "cli/ContactImport.h"
#include "cli/ContactSearch.h"
#include "cli/JsonForms.h"
#include "cli/Output.h"
#include "cli/RefreshReport.h"
#include "cli/Suggestion.h"
#include "pellor/linux/contacts/UserContacts.h"
#include "pellor/linux/text/IcuText.h"
#include "pellor/platform/Platform.h"

namespace pellor::cli {
namespace {

constexpr std::size_t WidestColumn = 28;
constexpr std::size_t MarkWidth = 2;
constexpr std::size_t Gap = 2;

/// A contact and whether it is a friend.
struct ListEntry {
  ContactEntry contact;
  bool isFriend = false;
};

std::vector<ListEntry> listedContacts(Session& session, const std::optional<std::string>& pattern) {
  FriendFinder friends(session);
  std::map<const std::vector<std::string>*, bool> known;  // by the records of a person
  std::vector<ListEntry> listed;
  for (ContactEntry& contact : contactsMatching(session, pattern)) {
    const auto [person, isNew] = known.try_emplace(contact.personGuids.get());
    if (isNew) person->second = friendThatIs(friends, contact).has_value();
    listed.push_back({std::move(contact), person->second});
  }
  return listed;
}

std::string firstDestination(const ContactEntry& contact) {
  return contact.destinations.empty() ? "(unreachable)" : printable(contact.destinations.front());
}

/// How the contacts are set, in columns.
struct ContactLayout {
  std::size_t name = 0;
  std::size_t destination = 0;
  bool isGuidBelow = false;
};

// What is as wide as it may be leaves the other one what it needs.
void share(std::size_t room, ContactLayout& layout) {
  const std::size_t half = room / 2;
  if (layout.name + layout.destination <= room) return;
  const std::size_t name = std::min(layout.name, std::max(half, room - std::min(room, layout.destination)));
  layout.destination = std::min(layout.destination, room - name);
  layout.name = name;
}

// A GUID is there to be copied: it stays whole, below the rest where a line has no room for all.
ContactLayout layoutFor(const std::vector<ListEntry>& contacts, std::optional<std::size_t> width) {
  ContactLayout layout;
  std::size_t guid = 0;
  for (const auto& [contact, isFriend] : contacts) {
    layout.name = std::max(layout.name, displayWidth(nameOf(contact)));
    layout.destination = std::max(layout.destination, displayWidth(firstDestination(contact)));
    guid = std::max(guid, displayWidth(printable(contact.guid)));
  }
  const ContactLayout ample = {std::min(layout.name, WidestColumn), std::min(layout.destination, WidestColumn)};
  if (!width) return ample;
  const std::size_t before = MarkWidth + Gap;
  const std::size_t beside = before + Gap + guid;
  layout.isGuidBelow = ample.name + ample.destination + beside > *width;
  share(*width - std::min(*width, layout.isGuidBelow ? before : beside), layout);
  return layout;
}

std::string lineText(const ListEntry& listed, const ContactLayout& layout) {
  const std::string start = (listed.isFriend ? "* " : "  ") + fitted(nameOf(listed.contact), layout.name) +
                            std::string(Gap, ' ') + fitted(firstDestination(listed.contact), layout.destination);
  const std::string guid = std::string(Gap, ' ') + printable(listed.contact.guid) + "\n";
  return layout.isGuidBelow ? start.substr(0, start.find_last_not_of(' ') + 1) + "\n" + guid : start + guid;
}

std::string unusableText(std::size_t cards) {
  if (cards == 0) return "";
  return std::to_string(cards) + (cards == 1 ? " card gives" : " cards give") +
         " no contact: pellor doctor lists what is wrong\n";
}

std::string contactsText(Session& session, const std::vector<ListEntry>& contacts, bool isAll) {
  const ContactLayout layout = layoutFor(contacts, terminalWidth());
  std::string text;
  for (const ListEntry& listed : contacts) text += lineText(listed, layout);
  const std::size_t unusable = session.platform().contacts().unusableCards();
  if (contacts.empty() && isAll && unusable == 0 && session.platform().contactsFolder())
    text = "there are no contacts: \"pellor contacts import FILE\" takes those that a phone or a web page exports\n";
  return text + unusableText(unusable);
}

Json contactsJson(Session& session, const std::vector<ListEntry>& contacts, bool hasPhotos) {
  Json list = Json::array();
  for (const auto& [contact, isFriend] : contacts) list.push_back(jsonOf(contact, isFriend));
  const auto& folder = session.platform().contactsFolder();
  return withPhotos(session,
                    {{"folder", folder ? Json(folder->string()) : Json(nullptr)},
                     {"contacts", list},
                     {"unusableCards", session.platform().contacts().unusableCards()}},
                    hasPhotos);
}

void contacts(Session& session, const std::optional<std::string>& pattern, bool hasPhotos) {
  session.requireContacts();
  const std::vector<ListEntry> listed = listedContacts(session, pattern);
  session.answer([&] { return contactsText(session, listed, !pattern); },
                 [&] { return contactsJson(session, listed, hasPhotos); });
  if (pattern && listed.empty()) {
    throw CommandError("no contact fits " + inQuotes(*pattern) +
                       didYouMean(ContactFinder(session).nearestName(*pattern)));
  }
}

// Words are looked for whether or not quotes make one argument of them.
std::optional<std::string> patternOf(const std::vector<std::string>& words) {
  if (words.empty()) return std::nullopt;
  std::string pattern = words.front();
  for (std::size_t index = 1; index < words.size(); ++index) pattern += " " + words[index];
  return pattern;
}

// A list that is full is no reason: it may have room tomorrow.
bool isReachable(Session& session, const ContactEntry& contact) {
  const std::vector<Edit> addition = {AddFriend{.contactGUID = contact.guid}};
  const auto refusal = session.list().plan(addition).refusal;
  return !refusal || refusal->reason == RefusalReason::noRoom;
}

void answerRefusal(Session& session, const ContactEntry& contact, const char* reason, bool isFriend) {
  session.answer([] { return std::string(); },
                 [&] {
                   return Json{{"allowed", false}, {"reason", reason}, {"contact", jsonOf(contact, isFriend)}};
                 });
}

void allow(Session& session, const std::string& who) {
  session.requireContacts();
  ContactFinder contacts(session);
  const auto contact = contacts.named(who);
  if (!contact) throw CommandError("no contact is called " + inQuotes(who) + didYouMean(contacts.nearestName(who)));
  FriendFinder friends(session);
  const auto known = friendThatIs(friends, *contact);
  if (known) {
    answerRefusal(session, *contact, "isFriend", true);
    throw CommandError(nameOf(*contact) + " is a friend already (" + textOf(known->place) + ")");
  }
  if (!isReachable(session, *contact)) {
    answerRefusal(session, *contact, "noDestination", false);
    throw CommandError(nameOf(*contact) + " has neither a number nor an address");
  }
  session.answer([&] { return nameOf(*contact) + " may be added\n"; },
                 [&] {
                   return Json{{"allowed", true}, {"reason", nullptr}, {"contact", jsonOf(*contact, false)}};
                 });
}

std::string refreshText(const Session& session, const std::vector<Change>& changes) {
  if (changes.empty()) return "the friends are in step with the contacts\n";
  std::string text;
  for (const Change& change : changes) text += session.would() + textOf(change) + "\n";
  return text;
}

Json refreshJson(const std::vector<Change>& changes, const std::optional<ContactsFall>& fall) {
  Json list = Json::array();
  for (const Change& change : changes) list.push_back(jsonOf(change));
  Json object;
  object["changes"] = std::move(list);
  object["heldBack"] = fall ? Json{{"before", fall->before}, {"now", fall->now}} : Json(nullptr);
  return object;
}

// What was known of a source that gives no cards at present is no news of the contacts.
void requireContactsAtHand(Session& session) {
  session.requireContacts();
  if (const auto error = session.platform().contacts().sourceError())
    throw CommandError("nothing was refreshed: " + printable(*error));
}

std::string heldBackText(const ContactsFall& fall) {
  return "nothing was refreshed: only " + std::to_string(fall.now) + " of " + std::to_string(fall.before) +
         " contacts are there; bring the others back, or accept that they are gone: pellor refresh --accept";
}

// In a dry run it is done to this program's own view of the store.
void refresh(Session& session, bool accepts) {
  requireContactsAtHand(session);
  session.requireWritableStore();
  UserContacts& addressBook = session.platform().contacts();
  if (accepts && session.isDry() && addressBook.contactsFall())
    throw CommandError("a dry run cannot tell what is left when most of the contacts are accepted to be gone");
  if (accepts && !session.isDry()) addressBook.acceptContacts();
  const std::vector<Change> changes = refreshedFriends(session);
  requireContactsAtHand(session);  // the refresh may have met the first failure
  const auto fall = addressBook.contactsFall();
  session.answer([&] { return fall ? "" : refreshText(session, changes); }, [&] { return refreshJson(changes, fall); });
  if (fall) throw CommandError(heldBackText(*fall));
}

}  // namespace

void addContactCommands(CommandSyntax program, Command& chosen) {
  const auto list = program.command("contacts", "List the contacts with their GUIDs; friends are marked with *");
  const auto words = std::make_shared<std::vector<std::string>>();
  list.option(
      "PATTERN", *words,
      "Beginnings of words, or a part of a name, number or address, or from 4 characters on of a GUID; the best fit "
      "comes first");
  const auto hasPhotos = std::make_shared<bool>(false);
  list.flag("--photos", *hasPhotos, PhotosMeaning);
  list.mayHaveCommand();
  addContactImport(list, chosen);
  // Runs after the callback of the command below it.
  list.whenGiven([&chosen, words, hasPhotos] {
    const std::optional<std::string> pattern = patternOf(*words);
    if (chosen && pattern) throw UsageError("contacts import has no use for " + inQuotes(*pattern));
    if (chosen) return;
    chosen = [pattern, hasPhotos](Session& session) { contacts(session, pattern, *hasPhotos); };
  });

  const auto check = program.command("allow", "Tell whether a contact may be added, and why not");
  const auto who = std::make_shared<std::string>();
  check.option("WHO", *who, "The contact").required();
  check.whenGiven([&chosen, who] { chosen = [who](Session& session) { allow(session, *who); }; });

  const auto follow = program.command("refresh", "Bring the friends in step with the contacts and show what changed");
  follow.offersDryRun();
  const auto accepts = std::make_shared<bool>(false);
  follow.flag("--accept", *accepts, "Also when most of the contacts are gone: they are to stay so");
  follow.whenGiven([&chosen, accepts] { chosen = [accepts](Session& session) { refresh(session, *accepts); }; });
}

}  // namespace pellor::cli
