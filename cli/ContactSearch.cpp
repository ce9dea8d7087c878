#include "cli/ContactSearch.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <utility>

#include "cli/CommandError.h"
#include "cli/NameMatch.h"
#include "cli/Output.h"
#include "pellor/linux/contacts/internal/NameSearchKey.h"

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

bool containsPattern(const ContactEntry& contact, const NameMatch& pattern) {
  const auto contains = [&](const std::string& text) { return pattern.isPartOfAddress(text); };
  return pattern.isPart(contact.name) || contains(contact.guid) || std::ranges::any_of(contact.destinations, contains);
}

std::string organizationOf(AddressBook& addressBook, const std::string& guid) {
  const RecordRef record = addressBook.copyPersonMatchingGUID(guid);
  return record ? record->recordValue(RecordProperty::organization).value_or("") : "";
}

void sortByName(std::vector<ContactEntry>& contacts) {
  std::vector<std::pair<std::string, ContactEntry>> keyed;
  keyed.reserve(contacts.size());
  for (ContactEntry& contact : contacts) {
    keyed.emplace_back(nameSortKey(contact.name.value_or("")), std::move(contact));
  }
  std::ranges::stable_sort(keyed, {}, &std::pair<std::string, ContactEntry>::first);
  std::ranges::transform(keyed, contacts.begin(), [](auto& pair) { return std::move(pair.second); });
}

}  // namespace

std::string nameOf(const ContactEntry& contact) {
  if (contact.name) return printable(*contact.name);
  return printable(contact.destinations.empty() ? contact.guid : contact.destinations.front());
}

std::vector<ContactEntry> contactsMatching(Session& session, const std::optional<std::string>& pattern) {
  std::vector<ContactEntry> found;
  session.withAddressBook([&](AddressBook& addressBook) { found = entriesOf(addressBook.allPeople()); });
  if (pattern) {
    const NameMatch match(*pattern);
    std::erase_if(found, [&](const ContactEntry& contact) { return !containsPattern(contact, match); });
  }
  sortByName(found);
  return found;
}

std::vector<ContactEntry> contactsWithDestination(Session& session, const std::string& destination) {
  std::vector<ContactEntry> found;
  session.withAddressBook([&](AddressBook& addressBook) {
    const auto people = addressBook.orderedPeopleForDestination(destination);
    if (people) found = entriesOf(persons(*people));
  });
  return found;
}

bool isReachable(Session& session, const ContactEntry& contact) {
  bool isReachable = false;
  session.withAddressBook([&](AddressBook& addressBook) {
    const RecordRef record = addressBook.copyPersonMatchingGUID(contact.guid);
    if (!record) return;
    const auto values = PLPerson::allValuesForPerson(record);
    isReachable = values && !values->empty();
  });
  return isReachable;
}

ContactFinder::ContactFinder(Session& session) : _session(session) {}

ContactFinder::~ContactFinder() = default;

std::vector<RecordRef> ContactFinder::search(AddressBook& addressBook, const std::string& who) {
  if (const RecordRef record = addressBook.copyPersonMatchingGUID(who)) return {record};
  if (destinationKey(who)) {
    if (const auto people = addressBook.orderedPeopleForDestination(who)) return persons(*people);
  }
  if (const auto people = addressBook.copyPeopleMatchingName(who)) return persons(*people);
  return persons(withBeginning(addressBook, who));
}

std::vector<RecordRef> ContactFinder::withBeginning(AddressBook& addressBook, const std::string& who) {
  if (!_beginnings) {
    _beginnings = std::make_unique<WordBeginnings>();
    for (const RecordRef& record : addressBook.allPeople()) {
      const auto number = static_cast<std::size_t>(record->recordID());
      for (const auto& name : {record->compositeName(), record->nickname()}) {
        if (name) _beginnings->add(number, upperCaseName(*name));
      }
    }
  }
  std::vector<RecordRef> people;
  for (const std::size_t number : _beginnings->find(upperCaseName(who))) {
    RecordRef record = addressBook.personForRecordID(static_cast<std::int32_t>(number));
    if (record) people.push_back(std::move(record));
  }
  return people;
}

std::vector<ContactEntry> ContactFinder::fitting(const std::string& who) {
  std::vector<ContactEntry> found;
  _session.withAddressBook([&](AddressBook& addressBook) { found = entriesOf(search(addressBook, who)); });
  return found;
}

// Of numbers and names the sign and what follows may mean nothing.
bool ContactFinder::isCalled(const std::string& who, const NumberedWho& numbered) {
  bool isCalled = false;
  _session.withAddressBook([&](AddressBook& addressBook) {
    const auto key = destinationKey(who);
    isCalled = addressBook.copyPersonMatchingGUID(who) != nullptr ||
               (key && key != destinationKey(numbered.who) && addressBook.orderedPeopleForDestination(who));
    const auto people = isCalled ? std::nullopt : addressBook.copyPeopleMatchingName(who);
    const std::string_view ending = std::string_view(who).substr(numbered.who.size());
    for (const RecordRef& record : people.value_or(std::vector<RecordRef>())) {
      isCalled = isCalled || record->compositeName().value_or("").ends_with(ending) ||
                 record->nickname().value_or("").ends_with(ending);
    }
  });
  return isCalled;
}

Choice ContactFinder::choiceAmong(const std::string& who, std::vector<ContactEntry> found) {
  Choice choice{who, found.size(), {}};
  found.resize(std::min(found.size(), Choice::MostCandidates));
  _session.withAddressBook([&](AddressBook& addressBook) {
    for (const ContactEntry& each : found) {
      const std::string destination = each.destinations.empty() ? "" : each.destinations.front();
      choice.candidates.push_back(
          {each.name.value_or(""), destination, organizationOf(addressBook, each.guid), each.guid, std::nullopt});
    }
  });
  return choice;
}

std::optional<ContactEntry> ContactFinder::named(const std::string& who) {
  if (who.empty()) throw UsageError("WHO is empty");
  if (const auto numbered = numberedWho(who); numbered && !isCalled(who, *numbered)) {
    const auto found = fitting(numbered->who);
    if (const auto index = indexOf(*numbered, found.size())) return found[*index];
  }
  const auto found = fitting(who);
  if (found.empty()) return std::nullopt;
  if (found.size() == 1) return found.front();
  return found[chosenOf(choiceAmong(who, found), !_session.options().json)];
}

bool ContactFinder::isGuid(const std::string& who) {
  bool isGuid = false;
  _session.withAddressBook([&](AddressBook& book) { isGuid = book.copyPersonMatchingGUID(who) != nullptr; });
  return isGuid;
}

std::optional<ContactEntry> contactNamed(Session& session, const std::string& who) {
  return ContactFinder(session).named(who);
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
