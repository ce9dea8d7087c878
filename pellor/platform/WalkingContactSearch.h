// The search of the contacts for a port that has no index of words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pellor/platform/ContactSearch.h"
#include "pellor/platform/Platform.h"
#include "pellor/platform/SearchTable.h"

namespace pellor {

/// Walks through all contacts at the first search and after each change of theirs, and keeps in memory what it needs
/// to find them until then. Main queue.
class WalkingContactSearch final : public ContactSearch {
 public:
  explicit WalkingContactSearch(const Platform& platform)
      : _addressBook(platform.addressBook),
        _text(platform.text),
        _reachability(platform.reachability),
        _phoneNumbers(platform.phoneNumbers) {}

  std::vector<FoundContact> find(std::string_view text, std::size_t limit) override {
    return found(text, limit, &SearchTable::find);
  }
  std::vector<FoundContact> findSimilar(std::string_view text, std::size_t limit) override {
    return found(text, limit, &SearchTable::findSimilar);
  }

 private:
  /// All contacts of one state of the database.
  struct Walk {
    std::optional<std::string> databaseUID;
    std::int32_t sequenceNumber = 0;
    SearchTable table;
    std::vector<FoundContact> records;
    std::vector<std::int32_t> persons;  ///< of the records: linked ones have one number
  };

  std::vector<FoundContact> found(std::string_view text, std::size_t limit,
                                  void (SearchTable::*search)(std::string_view, const SearchTable::Visitor&)) {
    std::vector<FoundContact> found;
    if (limit == 0) return found;
    Walk* walk = nullptr;
    _addressBook->performWithAddressBook([&](AddressBook& addressBook) { walk = current(addressBook); });
    if (!walk) return found;
    std::set<std::int32_t> persons;
    (walk->table.*search)(text, [&](std::size_t record, ContactFit fit) {
      if (!persons.insert(walk->persons[record]).second) return true;
      found.push_back(walk->records[record]);
      found.back().fit = fit;
      return found.size() < limit;
    });
    return found;
  }

  Walk* current(AddressBook& addressBook) {
    if (!addressBook.isReadable()) return nullptr;
    auto databaseUID = addressBook.databaseUID();
    const std::int32_t sequenceNumber = addressBook.sequenceNumber();
    if (_walk && _walk->databaseUID == databaseUID && _walk->sequenceNumber == sequenceNumber) return _walk.get();
    _walk = std::make_unique<Walk>(
        Walk{std::move(databaseUID), sequenceNumber, SearchTable(_text, _reachability, _phoneNumbers), {}, {}});
    for (const RecordRef& record : addressBook.allPeople()) add(*record);
    if (!addressBook.isReadable()) _walk.reset();
    return _walk.get();
  }

  void add(ContactRecord& record) {
    SearchedPerson known;
    FoundContact contact;
    contact.guid = record.recordGUID();
    const std::string nickname = record.nickname().value_or(std::string());
    contact.name = record.compositeName().value_or(nickname);
    contact.organization = textOf(record, RecordProperty::organization);
    for (const auto& values : {record.phoneValues(), record.emailValues()})
      if (values) contact.destinations.insert(contact.destinations.end(), values->begin(), values->end());
    const std::string parts =
        textOf(record, RecordProperty::firstName) + ' ' + textOf(record, RecordProperty::lastName);
    known = {{contact.name, parts, nickname}, contact.organization, contact.destinations};
    _walk->table.add(_walk->records.size(), known);
    _walk->records.push_back(std::move(contact));
    _walk->persons.push_back(record.linkID() == InvalidRecordID ? record.recordID() : record.linkID());
  }

  static std::string textOf(const ContactRecord& record, RecordProperty property) {
    return record.recordValue(property).value_or(std::string());
  }

  const std::shared_ptr<AddressBookStore> _addressBook;
  const std::shared_ptr<TextService> _text;
  const std::shared_ptr<ReachabilityService> _reachability;
  const std::shared_ptr<PhoneNumberFormatter> _phoneNumbers;
  std::unique_ptr<Walk> _walk;
};

}  // namespace pellor
