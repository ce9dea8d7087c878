#include "pellor/list/ContactFinding.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "pellor/list/Destination.h"
#include "pellor/list/internal/TypedNames.h"
#include "pellor/platform/Platform.h"
#include "pellor/platform/WalkingContactSearch.h"
#include "pellor/runtime/Process.h"

namespace pellor {
namespace {

/// Of a platform that has no search of its own.
struct OwnSearch {
  std::unique_ptr<WalkingContactSearch> search;
};

/// What a text names in whole, with the records that it names.
struct WholeFind {
  std::vector<RecordRef> records;
  ContactFit fit = ContactFit::name;
};

// "Béla Kovács" is he who has no more to his name, not his father "id. Béla Kovács".
void keepWholeNames(std::vector<RecordRef>& records, std::string_view typed) {
  const std::string key = wholeNameKey(typed);
  const auto isWhole = [&](const RecordRef& record) {
    const auto isTyped = [&](const std::optional<std::string>& name) { return name && wholeNameKey(*name) == key; };
    return isTyped(record->compositeName()) || isTyped(record->nickname());
  };
  if (std::ranges::any_of(records, isWhole)) std::erase_if(records, std::not_fn(isWhole));
}

WholeFind foundInWhole(AddressBook& contacts, std::string_view text) {
  if (RecordRef record = contacts.copyPersonMatchingGUID(text)) return {{std::move(record)}, ContactFit::destination};
  if (comparableDestination(text)) {
    if (auto owners = contacts.orderedPeopleForDestination(text)) return {*std::move(owners), ContactFit::destination};
  }
  auto called = contacts.copyPeopleMatchingName(text).value_or(std::vector<RecordRef>());
  keepWholeNames(called, text);
  return {std::move(called), ContactFit::name};
}

FoundContact foundContact(const ContactRecord& record, ContactFit fit) {
  FoundContact contact;
  contact.guid = record.recordGUID();
  contact.name = record.compositeName().value_or(record.nickname().value_or(std::string()));
  contact.organization = record.recordValue(RecordProperty::organization).value_or(std::string());
  for (const auto& values : {record.phoneValues(), record.emailValues()})
    if (values) contact.destinations.insert(contact.destinations.end(), values->begin(), values->end());
  contact.fit = fit;
  return contact;
}

// Of linked records the first that fits.
std::vector<FoundContact> oneOfEachPerson(const WholeFind& found) {
  std::vector<FoundContact> contacts;
  std::set<std::int32_t> persons;
  for (const RecordRef& record : found.records) {
    const bool isLinked = record->linkID() != InvalidRecordID;
    if (persons.insert(isLinked ? record->linkID() : record->recordID()).second)
      contacts.push_back(foundContact(*record, found.fit));
  }
  return contacts;
}

}  // namespace

ContactSearch& contactSearch() {
  Process& process = Process::current();
  const Platform& platform = platformOf(process);
  if (platform.contactSearch) return *platform.contactSearch;
  auto& own = process.local<OwnSearch>().search;
  if (!own) own = std::make_unique<WalkingContactSearch>(platform);
  return *own;
}

std::vector<FoundContact> contactsNamed(std::string_view text, ContactFit worst) {
  if (text.empty()) return {};
  std::vector<FoundContact> named;
  platformOf(Process::current()).addressBook->performWithAddressBook([&](AddressBook& contacts) {
    named = oneOfEachPerson(foundInWhole(contacts, text));
  });
  if (!named.empty()) return named;
  if (!mayBePartOfNumber(text)) worst = std::min(worst, ContactFit::addressWords);
  for (FoundContact& each : contactSearch().find(text, std::numeric_limits<std::size_t>::max())) {
    const bool isBest = each.fit <= worst && (named.empty() || each.fit == named.front().fit);
    if (isBest) named.push_back(std::move(each));
  }
  return named;
}

}  // namespace pellor
