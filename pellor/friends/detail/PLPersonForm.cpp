#include "pellor/friends/detail/PLPersonForm.h"

#include <algorithm>
#include <array>
#include <functional>
#include <utility>

#include "pellor/friends/PLUtility.h"
#include "pellor/friends/internal/PLSkipChecks.h"
#include "pellor/runtime/Fatal.h"

namespace pellor {
namespace {

constexpr std::array<std::pair<std::string_view, PLPersonRecord::Text>, PLPersonRecord::TextCount> Texts{
    {{PLPersonRecordGUIDKey, PLPersonRecord::_abRecordGUID},
     {PLPersonDatabaseUIDKey, PLPersonRecord::_abDatabaseUID},
     {PLPersonNameKey, PLPersonRecord::_name},
     {PLPersonReplyAsKey, PLPersonRecord::_preferredReplyAs},
     {PLPersonPreferredDestinationKey, PLPersonRecord::_preferredDestination},
     {PLPersonMonogramKey, PLPersonRecord::_initials}}};

const Dictionary NoMetadata;

bool isKnownKey(std::string_view key) {
  return key == PLPersonRecordIDKey || key == PLPersonAllValuesKey || key == PLPersonMetadataKey ||
         std::ranges::find(Texts, key, [](const auto& known) { return known.first; }) != Texts.end();
}

bool isRecordID(std::int64_t integer) { return integer == static_cast<std::int32_t>(integer); }

}  // namespace

PLPersonForm::PLPersonForm(const PersonDictionary& dictionary) {
  _entries.assign(dictionary);
  read();
}

void PLPersonForm::read() {
  _content = {};
  _content._abRecordID = 0;
  _hasContent = _hasMonogram = _hasRecordID = false;
  _hasRightTypes = true;
  _allValues = nullptr;
  _metadata = nullptr;
  Dictionary unknown;
  for (const EntryView& entry : _entries) readEntry(entry, unknown);
  _hasMonogram = _content.texts[PLPersonRecord::_initials].has_value();
  if (!unknown.empty()) _content.unknownEntries = std::make_shared<const Dictionary>(std::move(unknown));
}

void PLPersonForm::readEntry(const EntryView& entry, Dictionary& unknown) {
  const auto text = std::ranges::find(Texts, entry.key, [](const auto& known) { return known.first; });
  if (text != Texts.end() && entry.kind == Value::Kind::string) {
    _content.texts[text->second] = entry.text;
  } else if (entry.key == PLPersonRecordIDKey && entry.kind == Value::Kind::integer) {
    _content._abRecordID = static_cast<std::int32_t>(entry.integer);
    _hasRecordID = isRecordID(entry.integer);
  } else if (entry.key == PLPersonAllValuesKey && entry.kind == Value::Kind::array) {
    _allValues = &entry;
  } else if (entry.key == PLPersonMetadataKey && entry.kind == Value::Kind::dictionary) {
    _metadata = entry.value->dictionary();
  } else if (isKnownKey(entry.key)) {
    _hasRightTypes = false;
  } else {
    unknown.emplace(entry.key, entry.copy());
  }
}

std::string_view PLPersonForm::identifyingGUID() const {
  return _content.texts[PLPersonRecord::_abRecordGUID].value_or(std::string_view());
}

std::span<const std::string_view> PLPersonForm::storedDestinations() const {
  return _allValues ? std::span<const std::string_view>(_allValues->texts) : std::span<const std::string_view>();
}

bool PLPersonForm::hasStoredDestinations() const {
  return _allValues && !(_allValues->texts.empty() && _allValues->hasOnlyTexts);
}

const Dictionary& PLPersonForm::metadata() const { return _metadata ? *_metadata : NoMetadata; }

const PLPersonRecord::Content& PLPersonForm::content() {
  if (!_hasContent) makeContent(false);
  return _content;
}

const PLPersonRecord::Content& PLPersonForm::contentFor(const PLPersonRecord& record) {
  if (!_hasContent) makeContent(record.areCanonical() && record.hasDestinations(storedDestinations()));
  return _content;
}

void PLPersonForm::makeContent(bool areCanonical) {
  _hasContent = true;
  _made.clear();
  if (!_hasMonogram) {
    const auto name = _content.texts[PLPersonRecord::_name];
    const auto made = PLUtility::initialForString(name ? std::optional<std::string>(*name) : std::nullopt);
    if (made) _content.texts[PLPersonRecord::_initials] = _made.emplace_back(*made);
  }
  const auto stored = storedDestinations();
  _destinations.assign(stored.begin(), stored.end());
  if (!areCanonical) {
    canonicalizeDestinations();
  } else {
    checkSkip("destinations that a person has to be in canonical form", [&] {
      canonicalizeDestinations();
      return std::ranges::equal(_destinations, stored);
    });
  }
  _content.destinations = _destinations;
  _content.areCanonical = true;
}

void PLPersonForm::canonicalizeDestinations() {
  _destinations.clear();
  for (const std::string_view stored : storedDestinations()) {
    if (plMessageDestinationType(stored) == PLMessageDestinationTypeUnknown) continue;
    auto canonical = plMessageCanonicalRawAddress(stored);
    require(canonical.has_value(), "an identity service that has an identifier for every phone number");
    _destinations.push_back(*canonical == stored ? stored : _made.emplace_back(*std::move(canonical)));
  }
  if (std::ranges::adjacent_find(_destinations, std::greater_equal<>()) != _destinations.end()) {
    std::ranges::sort(_destinations);
    const auto repeated = std::ranges::unique(_destinations);
    _destinations.erase(repeated.begin(), repeated.end());
  }
}

bool PLPersonForm::isCorrected() {
  content();
  if (_allValues && !_allValues->hasOnlyTexts) return true;
  const auto stored = storedDestinations();
  // Every destination comes from a stored one; so the sets are equal unless a stored text is none of them.
  return std::ranges::any_of(stored,
                             [&](std::string_view text) { return !std::ranges::binary_search(_destinations, text); });
}

bool PLPersonForm::isAsWritten() {
  content();
  return _hasRightTypes && _hasRecordID && _hasMonogram && _allValues && _allValues->hasOnlyTexts &&
         std::ranges::equal(storedDestinations(), _destinations) && !(_metadata && _metadata->empty());
}

PersonDictionary PLPersonForm::written() {
  const PLPersonRecord::Content& form = content();
  PersonDictionary dictionary{{std::string(PLPersonRecordIDKey), form._abRecordID},
                              {std::string(PLPersonAllValuesKey), Array(_destinations.begin(), _destinations.end())}};
  for (const auto& [key, text] : Texts) {
    if (form.texts[text]) dictionary.emplace(key, *form.texts[text]);
  }
  dictionary.emplace(PLPersonMonogramKey, "");
  if (!metadata().empty()) dictionary.emplace(PLPersonMetadataKey, metadata());
  if (form.unknownEntries) dictionary.insert(form.unknownEntries->begin(), form.unknownEntries->end());
  return dictionary;
}

}  // namespace pellor
