#include "cli/ContactSearch.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <unordered_map>
#include <utility>

#include "cli/CommandError.h"
#include "cli/NameMatch.h"
#include "cli/Output.h"
#include "cli/Suggestion.h"
#include "pellor/linux/contacts/AlphabeticalOrder.h"
#include "pellor/list/ContactFinding.h"
#include "pellor/list/Destination.h"

namespace pellor::cli {
namespace {

void append(std::vector<std::string>& all, const std::optional<std::vector<std::string>>& some) {
  if (some) all.insert(all.end(), some->begin(), some->end());
}

using PersonGuids = std::shared_ptr<const std::vector<std::string>>;

PersonGuids personGuidsOf(ContactRecord& record) {
  std::vector<std::string> guids;
  for (const RecordRef& linked : record.allLinkedPeople()) guids.push_back(linked->recordGUID());
  return std::make_shared<const std::vector<std::string>>(std::move(guids));
}

ContactEntry entryOf(const ContactRecord& record, PersonGuids personGuids) {
  ContactEntry entry;
  entry.guid = record.recordGUID();
  entry.name = record.compositeName();
  if (!entry.name) entry.name = record.nickname();
  append(entry.destinations, record.phoneValues());
  append(entry.destinations, record.emailValues());
  entry.personGuids = std::move(personGuids);
  return entry;
}

// Each person's records are looked for once.
std::vector<ContactEntry> entriesOf(const std::vector<RecordRef>& records) {
  std::map<std::int32_t, PersonGuids> sets;
  std::vector<ContactEntry> entries;
  entries.reserve(records.size());
  for (const RecordRef& record : records) {
    const bool isLinked = record->linkID() != InvalidRecordID;
    PersonGuids& guids = sets[isLinked ? record->linkID() : record->recordID()];
    if (!guids) guids = personGuidsOf(*record);
    entries.push_back(entryOf(*record, guids));
  }
  return entries;
}

// One record for each person: of linked records the first that fits.
std::vector<RecordRef> persons(const std::vector<RecordRef>& records) {
  std::vector<RecordRef> found;
  std::set<std::int32_t> seen;
  for (const RecordRef& record : records) {
    const bool isLinked = record->linkID() != InvalidRecordID;
    if (seen.insert(isLinked ? record->linkID() : record->recordID()).second) found.push_back(record);
  }
  return found;
}

// A random GUID holds many a short name: "ed", "bea".
constexpr std::size_t FewestCharactersOfGuid = 4;

bool containsPattern(const ContactEntry& contact, const std::string& text, const NameMatch& pattern) {
  const auto contains = [&](const std::string& address) { return pattern.isPartOfAddress(address); };
  return pattern.isPart(contact.name) || (text.size() >= FewestCharactersOfGuid && contains(contact.guid)) ||
         std::ranges::any_of(contact.destinations, contains);
}

void sortByName(std::vector<ContactEntry>& contacts, const AlphabeticalOrder& order) {
  std::vector<std::pair<std::string, ContactEntry>> keyed;
  keyed.reserve(contacts.size());
  for (ContactEntry& contact : contacts) {
    keyed.emplace_back(order.key(contact.name.value_or("")), std::move(contact));
  }
  std::ranges::stable_sort(keyed, {}, &std::pair<std::string, ContactEntry>::first);
  std::ranges::transform(keyed, contacts.begin(), [](auto& pair) { return std::move(pair.second); });
}

std::vector<ContactEntry> matching(std::vector<ContactEntry> contacts, const std::string& pattern) {
  std::unordered_map<std::string, std::size_t> ranks;
  for (const FoundContact& each : contactSearch().find(pattern, contacts.size()))
    ranks.emplace(each.guid, ranks.size());
  const auto rankOf = [&](const ContactEntry& contact) {
    const auto rank = ranks.find(contact.guid);
    return rank == ranks.end() ? ranks.size() : rank->second;
  };
  const NameMatch match(pattern);
  std::erase_if(contacts, [&](const ContactEntry& contact) {
    return rankOf(contact) == ranks.size() && !containsPattern(contact, pattern, match);
  });
  std::ranges::stable_sort(contacts, {}, rankOf);
  return contacts;
}

}  // namespace

std::string nameOf(const ContactEntry& contact) {
  if (contact.name) return printable(*contact.name);
  return printable(contact.destinations.empty() ? contact.guid : contact.destinations.front());
}

std::vector<ContactEntry> contactsMatching(Session& session, const std::optional<std::string>& pattern) {
  std::vector<ContactEntry> found;
  session.withAddressBook([&](AddressBook& addressBook) { found = entriesOf(addressBook.allPeople()); });
  sortByName(found, AlphabeticalOrder(session.platform().locale()));
  return pattern ? matching(std::move(found), *pattern) : found;
}

std::vector<ContactEntry> contactsWithDestination(Session& session, const std::string& destination) {
  std::vector<ContactEntry> found;
  session.withAddressBook([&](AddressBook& addressBook) {
    const auto people = addressBook.orderedPeopleForDestination(destination);
    if (people) found = entriesOf(persons(*people));
  });
  return found;
}

ContactFinder::ContactFinder(Session& session) : _session(session) {}

// Of Anna Gross and Anna Groß a whole name is the one that is written so.
std::vector<FoundContact> ContactFinder::fitting(const std::string& who, ContactFit worst) {
  // What is new of the contacts is read first, with its progress shown until then.
  _session.withAddressBook([](AddressBook&) {});
  std::vector<FoundContact> found = contactsNamed(who, worst);
  if (found.size() < 2) return found;
  const WrittenName written(who, _session.platform().locale());
  keepThoseWho(found, [&](const FoundContact& each) { return written.is(each.name); });
  return found;
}

// Of numbers and names the sign and what follows may mean nothing.
bool ContactFinder::isCalled(const std::string& who, const NumberedWho& numbered) {
  bool isCalled = false;
  _session.withAddressBook([&](AddressBook& addressBook) {
    const auto key = comparableDestination(who);
    isCalled = addressBook.copyPersonMatchingGUID(who) != nullptr ||
               (key && key != comparableDestination(numbered.who) && addressBook.orderedPeopleForDestination(who));
    const auto people = isCalled ? std::nullopt : addressBook.copyPeopleMatchingName(who);
    const std::string_view ending = std::string_view(who).substr(numbered.who.size());
    for (const RecordRef& record : people.value_or(std::vector<RecordRef>())) {
      isCalled = isCalled || record->compositeName().value_or("").ends_with(ending) ||
                 record->nickname().value_or("").ends_with(ending);
    }
  });
  return isCalled;
}

Choice ContactFinder::choiceAmong(const std::string& who, const std::vector<FoundContact>& found) {
  Choice choice{who, found.size(), {}};
  for (const FoundContact& each : std::span(found).first(std::min(found.size(), Choice::MostCandidates))) {
    const std::string destination = each.destinations.empty() ? "" : each.destinations.front();
    choice.candidates.push_back({each.name, destination, each.organization, each.guid, std::nullopt});
  }
  return choice;
}

std::optional<ContactEntry> ContactFinder::entryFor(const std::string& guid) {
  std::optional<ContactEntry> entry;
  _session.withAddressBook([&](AddressBook& addressBook) {
    const RecordRef record = addressBook.copyPersonMatchingGUID(guid);
    if (record) entry = entryOf(*record, personGuidsOf(*record));
  });
  return entry;
}

std::optional<ContactEntry> ContactFinder::named(const std::string& who, ContactFit worst) {
  if (who.empty()) throw UsageError("WHO is empty");
  if (const auto numbered = numberedWho(who); numbered && !isCalled(who, *numbered)) {
    const std::vector<FoundContact> found = fitting(numbered->who, worst);
    if (const auto index = indexOf(*numbered, found.size())) return entryFor(found[*index].guid);
  }
  const std::vector<FoundContact> found = fitting(who, worst);
  if (found.empty()) return std::nullopt;
  if (found.size() == 1) return entryFor(found.front().guid);
  return entryFor(found[chosenOf(choiceAmong(who, found), !_session.options().json)].guid);
}

std::optional<ContactEntry> ContactFinder::named(const std::string& who) {
  return named(who, ContactFit::numberEnding);
}

std::optional<ContactEntry> ContactFinder::namedToAdd(const std::string& who) {
  return named(who, isPlainDestination(who) ? ContactFit::nameWords : ContactFit::numberEnding);
}

std::string ContactFinder::nearestName(const std::string& who) {
  const std::vector<FoundContact> found = contactSearch().findSimilar(who, 1);
  return found.empty() ? "" : printable(found.front().name);
}

bool ContactFinder::isGuid(const std::string& who) {
  bool isGuid = false;
  _session.withAddressBook([&](AddressBook& book) { isGuid = book.copyPersonMatchingGUID(who) != nullptr; });
  return isGuid;
}

std::string nobodyCalled(ContactFinder& contacts, const std::string& who) {
  const std::string nearest = contacts.nearestName(who);
  return "no contact is called " + inQuotes(who) +
         (nearest.empty() ? ", and it is neither a number nor an address" : didYouMean(nearest));
}

// The first in slot order of those that any of the GUIDs leads to.
std::optional<FriendAt> friendThatIs(FriendFinder& friends, const ContactEntry& contact) {
  std::optional<FriendAt> first;
  for (const std::string& guid : *contact.personGuids) {
    if (guid.empty()) continue;
    const auto found = friends.withGuid(guid);
    if (!found.empty() && (!first || found.front().place < first->place)) first = found.front();
  }
  return first;
}

}  // namespace pellor::cli
