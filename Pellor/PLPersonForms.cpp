// The persisted forms of a person: the dictionary of the friend list and the keyed archive.
#include <algorithm>
#include <utility>

#include "Pellor/PLBundle.h"
#include "Pellor/PLPerson.h"
#include "Pellor/PLUtility.h"
#include "runtime/Process.h"

namespace pellor {
namespace {

// The keys of the dictionary. Those of the archive are shorter, and read once each way below.
constexpr std::string_view RecordIDKey = "ABRecordID";
constexpr std::string_view RecordGUIDKey = "ABRecordGUID";
constexpr std::string_view DatabaseUIDKey = "ABDatabaseUID";
constexpr std::string_view NameKey = "Name";
constexpr std::string_view AllValuesKey = "AllValues";
constexpr std::string_view ReplyAsKey = "ReplyAs";
constexpr std::string_view MonogramKey = "Monogram";
constexpr std::string_view MetadataKey = "Metadata";

void put(Dictionary& dictionary, std::string_view key, Value value) {
  dictionary.insert_or_assign(std::string(key), std::move(value));
}

void putIfSet(Dictionary& dictionary, std::string_view key, const std::optional<std::string>& text) {
  if (text) put(dictionary, key, *text);
}

std::int32_t storedRecordID(const Dictionary& dictionary) {
  const Value* value = valueForKey(dictionary, RecordIDKey);
  return static_cast<std::int32_t>(value ? value->integer().value_or(0) : 0);
}

Array storedDestinations(const Dictionary& dictionary) {
  const Value* value = valueForKey(dictionary, AllValuesKey);
  return value && value->array() ? *value->array() : Array();
}

std::optional<std::string> storedInitials(const Dictionary& dictionary, const std::optional<std::string>& name) {
  const Value* monogram = valueForKey(dictionary, MonogramKey);
  if (monogram && monogram->string()) return *monogram->string();
  return PLUtility::initialForString(name);
}

Dictionary storedMetadata(const Dictionary& dictionary) {
  const Value* value = valueForKey(dictionary, MetadataKey);
  return value && value->dictionary() ? *value->dictionary() : Dictionary();
}

// Whether the stored destinations, as a set, are something else than what was made of them.
bool isCorrected(const Array& stored, const DestinationSet& sanitized) {
  DestinationSet strings;
  for (const Value& value : stored) {
    if (!value.string()) return true;
    strings.insert(*value.string());
  }
  return strings != sanitized;
}

std::optional<std::string> decodedText(const KeyedDecoder& decoder, std::string_view key) {
  const auto value = decoder.decodeObject(key, {CodedClass::string});
  return value && value->string() ? std::optional(*value->string()) : std::nullopt;
}

Dictionary decodedMetadata(const KeyedDecoder& decoder) {
  const auto value = decoder.decodeObject("m", {CodedClass::dictionary, CodedClass::string, CodedClass::data,
                                                CodedClass::date, CodedClass::number, CodedClass::array});
  return value && value->dictionary() ? *value->dictionary() : Dictionary();
}

}  // namespace

PersonDictionary PLPerson::dictionaryRepresentation() const {
  const auto record = _published.load();
  PersonDictionary dictionary;
  put(dictionary, RecordIDKey, record->_abRecordID);
  putIfSet(dictionary, RecordGUIDKey, record->_abRecordGUID);
  putIfSet(dictionary, DatabaseUIDKey, record->_abDatabaseUID);
  putIfSet(dictionary, NameKey, record->_name);
  if (record->_allValues) put(dictionary, AllValuesKey, Array(record->_allValues->begin(), record->_allValues->end()));
  putIfSet(dictionary, ReplyAsKey, record->_preferredReplyAs);
  put(dictionary, MonogramKey, record->_initials.value_or(""));
  if (Dictionary entries = metadata(); !entries.empty()) put(dictionary, MetadataKey, std::move(entries));
  return dictionary;
}

bool PLPerson::updateFromDictionaryRepresentation(const PersonDictionary& dictionary) {
  return _updateFromDictionaryRepresentationShouldLogUpdates(dictionary, true);
}

bool PLPerson::_updateFromDictionaryRepresentationShouldLogUpdates(const PersonDictionary& dictionary,
                                                                   bool shouldLogUpdates) {
  const Process::Scope scope(_process());
  const ChangeReport report{*this, ChangeReport::Subject::description, shouldLogUpdates};
  const std::int32_t recordID = storedRecordID(dictionary);
  bool changed = recordID != _record->_abRecordID;
  if (changed) _draft()._abRecordID = recordID;
  changed |= _adopt(&Record::_abRecordGUID, stringForKey(dictionary, RecordGUIDKey), report,
                    "%@ is being marked as updated due to abRecordGUID: %@ -> %@");
  changed |= _adopt(&Record::_abDatabaseUID, stringForKey(dictionary, DatabaseUIDKey), report,
                    "%@ is being marked as updated due to abDatabaseUID: %@ -> %@");
  changed |= _adopt(&Record::_name, stringForKey(dictionary, NameKey), report,
                    "%@ is being marked as updated due to name: '%@' -> '%@'");
  // The primary destination is kept, whatever the destinations are now: the user has seen the friend under it.
  const Array destinations = storedDestinations(dictionary);
  const DestinationSet sanitized = plSanitizedDestinationSet(destinations);
  const bool isOtherSet =
      _adoptAllValues(sanitized, report, "%@ is being marked as updated due to allValues: %@ -> %@");
  changed |= isOtherSet;
  changed |= _adopt(&Record::_preferredReplyAs, stringForKey(dictionary, ReplyAsKey), report,
                    "%@ is being marked as updated due to _preferredReplyAs: '%@' -> '%@'");
  changed |= _adoptInitials(storedInitials(dictionary, _record->_name), report,
                            "%@ is being marked as updated due to initials: [%@] -> [%@]");
  changed |=
      _adoptMetadata(storedMetadata(dictionary), report, "%@ is being marked as updated due to metadata: %@ -> %@");
  _publish();
  if (isOtherSet && isCorrected(destinations, sanitized)) setNeedsSave(true);
  return changed;
}

// On behalf of a stored state, not of a caller's edit: so it neither marks nor announces the person.
bool PLPerson::_adoptMetadata(Dictionary metadata, const ChangeReport& report, const LogFormat& format) {
  std::optional<Dictionary> replaced;
  _metadataQueue.sync([&] {
    _metadataQueue.requireReader();
    if (_metadata != metadata) replaced = _metadata;
  });
  if (!replaced) return false;
  report(format, redactable(Value(std::move(*replaced))), redactable(Value(metadata)));
  _metadataQueue.asyncBarrier([weak = weak_from_this(), metadata = std::move(metadata)] {
    const auto self = weak.lock();
    if (!self) return;
    self->_metadataQueue.requireCurrent();
    self->_metadataDictionary() = metadata;
  });
  return true;
}

void PLPerson::encodeWithCoder(KeyedEncoder& encoder) const {
  const auto encodeText = [&](std::string_view key, const std::optional<std::string>& text) {
    if (text) encoder.encodeObject(key, *text);
  };
  encodeText("pd", _primaryDestination);
  encodeText("i", _record->_initials);
  if (_phoneNumberCount) encoder.encodeObject("pnc", *_phoneNumberCount);
  if (_emailAddressCount) encoder.encodeObject("eac", *_emailAddressCount);
  encoder.encodeInteger("abid", _record->_abRecordID);
  encodeText("abguid", _record->_abRecordGUID);
  encodeText("abdbuid", _record->_abDatabaseUID);
  encodeText("n", _record->_name);
  if (_record->_allValues) encoder.encodeSet("av", *_record->_allValues);
  encoder.encodeObject("m", metadata());
}

std::shared_ptr<PLPerson> PLPerson::initWithCoder(const KeyedDecoder& decoder) {
  auto person = _make();
  person->_primaryDestination = decodedText(decoder, "pd");
  person->_phoneNumberCount = decoder.decodeObject("pnc", {CodedClass::number});
  person->_emailAddressCount = decoder.decodeObject("eac", {CodedClass::number});
  Record& draft = person->_draft();
  draft._initials = decodedText(decoder, "i");
  draft._abRecordID = static_cast<std::int32_t>(decoder.decodeInteger("abid"));
  draft._abRecordGUID = decodedText(decoder, "abguid");
  draft._abDatabaseUID = decodedText(decoder, "abdbuid");
  draft._name = decodedText(decoder, "n");
  if (auto values = decoder.decodeSet("av")) draft._allValues = std::make_shared<DestinationSet>(std::move(*values));
  person->_createMetadata(decodedMetadata(decoder));
  person->_publish();
  return person;
}

}  // namespace pellor
