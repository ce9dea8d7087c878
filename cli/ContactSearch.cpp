#include "cli/ContactSearch.h"

#include <algorithm>
#include <set>

#include "cli/CommandError.h"
#include "cli/NameMatch.h"
#include "cli/Output.h"
#include "linux/NameSearchKey.h"

namespace pellor::cli {
namespace {

void append(std::vector<std::string>& all, const std::optional<std::vector<std::string>>& some) {
  if (some) all.insert(all.end(), some->begin(), some->end());
}

ContactEntry entryOf(const RecordRef& record) {
  ContactEntry entry;
  entry.guid = record->recordGUID();
  entry.name = record->compositeName();
  if (!entry.name) entry.name = record->nickname();
  append(entry.destinations, record->phoneValues());
  append(entry.destinations, record->emailValues());
  for (const RecordRef& linked : record->allLinkedPeople()) {
    if (linked != record) entry.linkedGuids.push_back(linked->recordGUID());
  }
  const auto values = PLPerson::allValuesForPerson(record);
  entry.reachableBy = values ? values->size() : 0;
  return entry;
}

// One record for each person: of linked records the first that fits.
std::vector<RecordRef> persons(const std::vector<RecordRef>& records) {
  std::vector<RecordRef> found;
  std::set<std::int32_t> seen;
  for (const RecordRef& record : records) {
    if (seen.insert(record->allLinkedPeople().front()->recordID()).second) found.push_back(record);
  }
  return found;
}

std::vector<RecordRef> peopleThat(AddressBook& addressBook, const auto& fits) {
  std::vector<RecordRef> people = addressBook.allPeople();
  std::erase_if(people, [&](const RecordRef& record) { return !fits(*record); });
  return people;
}

std::vector<RecordRef> search(AddressBook& addressBook, const std::string& who) {
  if (const RecordRef record = addressBook.copyPersonMatchingGUID(who)) return {record};
  if (destinationKey(who)) {
    if (const auto people = addressBook.orderedPeopleForDestination(who)) return persons(*people);
  }
  const NameMatch name(who);
  if (const auto people = addressBook.copyPeopleMatchingName(who)) return persons(*people);
  return persons(peopleThat(addressBook, [&](const ContactRecord& record) {
    return name.isBeginning(record.compositeName()) || name.isBeginning(record.nickname());
  }));
}

bool containsPattern(const ContactEntry& contact, const NameMatch& pattern) {
  const auto contains = [&](const std::string& text) { return pattern.isPart(text); };
  return pattern.isPart(contact.name) || pattern.isPart(contact.guid) ||
         std::ranges::any_of(contact.destinations, contains);
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
  session.withAddressBook([&](AddressBook& addressBook) {
    for (const RecordRef& record : addressBook.allPeople()) found.push_back(entryOf(record));
  });
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
    if (!people) return;
    for (const RecordRef& person : persons(*people)) found.push_back(entryOf(person));
  });
  return found;
}

std::optional<ContactEntry> contactNamed(Session& session, const std::string& who) {
  if (who.empty()) throw UsageError("WHO is empty");
  std::vector<ContactEntry> found;
  session.withAddressBook([&](AddressBook& addressBook) {
    for (const RecordRef& record : search(addressBook, who)) found.push_back(entryOf(record));
  });
  if (found.empty()) return std::nullopt;
  if (found.size() == 1) return found.front();
  std::vector<std::string> candidates;
  candidates.reserve(found.size());
  for (const ContactEntry& contact : found)
    candidates.push_back(nameOf(contact) + " (" + printable(contact.guid) + ")");
  throw AmbiguousError(who, candidates);
}

std::optional<FriendAt> friendThatIs(const PLFriendsManager& manager, const ContactEntry& contact) {
  const auto isContact = [&](const PLPerson& person) {
    const auto guid = person.abRecordGUID();
    if (!guid || guid->empty()) return false;
    return *guid == contact.guid || std::ranges::find(contact.linkedGuids, *guid) != contact.linkedGuids.end();
  };
  const auto found = friendsThat(manager, isContact);
  if (found.empty()) return std::nullopt;
  return found.front();
}

}  // namespace pellor::cli
