// What an address-book record has to offer to a friend.
#include <algorithm>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/PLUtility.h"
#include "pellor/platform/Platform.h"

namespace pellor {
namespace {

AddressBookStore& store() { return *platformOf(Process::current()).addressBook; }

std::vector<std::string> sanitized(const std::optional<std::vector<std::string>>& values) {
  if (!values) return {};
  const DestinationSet destinations = plSanitizedDestinationSet(std::span(*values));
  return {destinations.begin(), destinations.end()};
}

std::optional<std::vector<std::string>> valuesOfType(const DestinationSet* destinations,
                                                     PLMessageDestinationType type) {
  if (!destinations) return std::nullopt;
  std::vector<std::string> values;
  std::ranges::copy_if(*destinations, std::back_inserter(values),
                       [&](const std::string& value) { return plMessageDestinationType(value) == type; });
  return values;
}

}  // namespace

std::optional<std::string> PLPerson::preferredNameForPerson(const RecordRef& record) {
  if (!record) return std::nullopt;
  const RecordRef preferred = record->preferredLinkedPersonForName();
  const ContactRecord& source = preferred ? *preferred : *record;
  auto shortName = store().shortNameFormatEnabled() ? source.shortName() : std::nullopt;
  auto nickname = store().shortNamePreferNicknames() ? source.nickname() : std::nullopt;
  if (nickname) return nickname;
  return shortName ? shortName : source.compositeName();
}

std::optional<DestinationSet> PLPerson::allValuesForPerson(const RecordRef& record) {
  if (!record) return std::nullopt;
  DestinationSet values;
  const auto addValues = [&values](const RecordRef& source) {
    for (const auto& valuesForRecord : {_allEmailValuesForRecord, _allPhoneValuesForRecord}) {
      const auto found = *valuesForRecord(source);
      values.insert(found.begin(), found.end());
    }
  };
  addValues(record);
  if (!PLUtility::personHasLinkages(record)) return values;
  for (const RecordRef& linked : record->allLinkedPeople()) {
    if (linked != record) addValues(linked);
  }
  return values;
}

std::optional<std::vector<std::string>> PLPerson::_allPhoneValuesForRecord(const RecordRef& record) {
  if (!record) return std::nullopt;
  return sanitized(record->phoneValues());
}

std::optional<std::vector<std::string>> PLPerson::_allEmailValuesForRecord(const RecordRef& record) {
  if (!record) return std::nullopt;
  return sanitized(record->emailValues());
}

std::optional<std::vector<std::string>> PLPerson::_allPhoneValuesInSet(const DestinationSet* destinations) {
  return valuesOfType(destinations, PLMessageDestinationTypePhoneNumber);
}

std::optional<std::vector<std::string>> PLPerson::_allEmailValuesInSet(const DestinationSet* destinations) {
  return valuesOfType(destinations, PLMessageDestinationTypeEmail);
}

std::int32_t PLPerson::addValueWithLabelToPersonProperty(const std::string& value, const std::string& label,
                                                         const RecordRef& record, RecordProperty property) {
  const std::uint32_t type = store().propertyType(property);
  if ((type & RecordPropertyTypeMultiValue) == 0) {
    record->setRecordValue(property, value);
    return -1;
  }
  auto multiValue = record->copyMultiValue(property).value_or(MultiValue{.type = type, .entries = {}});
  const std::int32_t identifier = store().addMultiValueEntry(multiValue, value, label);
  record->setRecordValue(property, std::move(multiValue));
  return identifier;
}

}  // namespace pellor
