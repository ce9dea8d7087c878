#include "pellor/linux/contacts/internal/IndexedAddressBookHandle.h"

#include <algorithm>
#include <set>
#include <tuple>

#include "pellor/linux/contacts/AlphabeticalOrder.h"
#include "pellor/linux/contacts/internal/IndexedContactRecord.h"

namespace pellor {

namespace {

constexpr std::size_t FewRecords = 64;

bool standsForItsSet(const ContactRecord& record) {
  return record.linkID() == InvalidRecordID || record.linkID() == record.recordID();
}

std::optional<std::vector<RecordRef>> unlessEmpty(std::vector<RecordRef> records) {
  if (records.empty()) return std::nullopt;
  return records;
}

}  // namespace

IndexedAddressBookHandle::IndexedAddressBookHandle(std::shared_ptr<ContactIndex> index, LocaleSource locale)
    : _index(std::move(index)), _locale(std::move(locale)) {}

bool IndexedAddressBookHandle::isReadable() { return _index->isReadable(); }

std::optional<std::string> IndexedAddressBookHandle::databaseUID() {
  std::string uid = _index->databaseUID();
  if (uid.empty()) return std::nullopt;
  return uid;
}

std::int32_t IndexedAddressBookHandle::sequenceNumber() { return _index->sequenceNumber(); }

RecordRef IndexedAddressBookHandle::record(std::optional<IndexedContact> contact) {
  if (!contact) return nullptr;
  std::weak_ptr<IndexedContactRecord>& held = _records[contact->recordID];
  if (const auto record = held.lock()) {
    record->refresh(std::move(*contact));
    return record;
  }
  const auto record = std::make_shared<IndexedContactRecord>(weak_from_this(), std::move(*contact));
  held = record;
  forgetUnusedRecords();
  return record;
}

void IndexedAddressBookHandle::forgetUnusedRecords() {
  if (_records.size() <= _recordsWorthForgetting) return;
  std::erase_if(_records, [](const auto& entry) { return entry.second.expired(); });
  _recordsWorthForgetting = 2 * _records.size() + FewRecords;
}

std::vector<RecordRef> IndexedAddressBookHandle::records(const std::vector<std::int32_t>& recordIDs) {
  std::vector<RecordRef> found;
  for (const std::int32_t recordID : recordIDs) {
    if (RecordRef person = personForRecordID(recordID)) found.push_back(std::move(person));
  }
  return found;
}

std::vector<RecordRef> IndexedAddressBookHandle::linkedSet(std::int32_t linkID) {
  if (const auto known = _bulk.linkedSets.find(linkID); known != _bulk.linkedSets.end()) return known->second;
  return records(_index->recordIDsOfLinkedSet(linkID));
}

RecordRef IndexedAddressBookHandle::copyPersonMatchingGUID(std::string_view guid) {
  if (!_bulk.byGUID.empty()) {
    if (const auto known = _bulk.byGUID.find(std::string(guid)); known != _bulk.byGUID.end()) return known->second;
  }
  return record(_index->contactWithGUID(guid));
}

RecordRef IndexedAddressBookHandle::personForRecordID(std::int32_t recordID) {
  return record(_index->contactWithID(recordID));
}

std::optional<std::vector<RecordRef>> IndexedAddressBookHandle::copyPeopleMatchingName(std::string_view name) {
  return unlessEmpty(records(_index->recordIDsMatchingName(name)));
}

std::optional<std::vector<RecordRef>> IndexedAddressBookHandle::orderedPeopleForDestination(
    std::string_view destination) {
  std::vector<RecordRef> people = records(_index->recordIDsForDestination(destination));
  std::stable_partition(people.begin(), people.end(), [](const RecordRef& person) { return standsForItsSet(*person); });
  return unlessEmpty(std::move(people));
}

std::vector<RecordRef> IndexedAddressBookHandle::allPeople() { return records(_index->allRecordIDs()); }

IndexedAddressBookHandle::Bulk IndexedAddressBookHandle::readInBulk(std::span<const std::string_view> guids) {
  Bulk bulk;
  std::vector<std::int32_t> sets;
  for (IndexedContact& contact : _index->contactsWithGUIDs(guids)) {
    const std::int32_t set = contact.linkID;
    if (set != InvalidRecordID && bulk.linkedSets.try_emplace(set).second) sets.push_back(set);
    std::string guid = contact.guid;
    bulk.byGUID.emplace(std::move(guid), record(std::move(contact)));
  }
  if (sets.empty()) return bulk;
  for (IndexedContact& contact : _index->contactsOfLinkedSets(sets)) {
    std::vector<RecordRef>& people = bulk.linkedSets[contact.linkID];
    people.push_back(record(std::move(contact)));
  }
  // A record without those that it is linked with would look like one that lost them.
  if (_index->hasFailedWhileReading()) return {};
  return bulk;
}

void IndexedAddressBookHandle::withPeopleMatchingGUIDs(std::span<const std::string_view> guids,
                                                       const std::function<void()>& work) {
  _bulk = readInBulk(guids);
  work();
  _bulk = {};
}

std::optional<std::vector<std::string>> IndexedAddressBookHandle::guidsOfPeopleChangedSince(std::int32_t sequenceNumber,
                                                                                            std::size_t limit) {
  if (_hasEditedRecords) return std::nullopt;
  return _index->guidsChangedSince(sequenceNumber, limit);
}

std::vector<RecordRef> IndexedAddressBookHandle::markedFavorites() {
  struct Favorite {
    bool hasNoPlace;
    int place;
    std::string name;
    RecordRef person;
  };
  const std::vector<RecordRef> marked = records(_index->favoriteRecordIDs());
  if (marked.empty()) return {};
  std::vector<Favorite> favorites;
  const AlphabeticalOrder order(_locale ? _locale() : std::string());
  for (const RecordRef& person : marked) {
    const int place = static_cast<const IndexedContactRecord&>(*person).card().favoriteOrder;
    favorites.push_back({place == 0, place, order.key(person->compositeName().value_or("")), person});
  }
  std::stable_sort(favorites.begin(), favorites.end(), [](const Favorite& one, const Favorite& other) {
    return std::tie(one.hasNoPlace, one.place, one.name) < std::tie(other.hasNoPlace, other.place, other.name);
  });
  std::vector<RecordRef> people;
  std::set<std::int32_t> linkedSets;
  for (const Favorite& favorite : favorites) {
    const std::int32_t set = favorite.person->linkID();
    if (set == InvalidRecordID || linkedSets.insert(set).second) people.push_back(favorite.person);
  }
  return people;
}

}  // namespace pellor
