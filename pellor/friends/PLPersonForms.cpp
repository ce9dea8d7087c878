// The persisted forms of a person: the dictionary of the friend list and the keyed archive.
#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/runtime/Process.h"

namespace pellor {
namespace {

void put(Dictionary& dictionary, std::string_view key, Value value) {
  dictionary.insert_or_assign(std::string(key), std::move(value));
}

void putIfSet(Dictionary& dictionary, std::string_view key, const PLPersonRecord& record, PLPersonRecord::Text which) {
  if (const auto text = record.text(which)) put(dictionary, key, *text);
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
  const PLPersonRecord record = _published.load();
  PersonDictionary dictionary = _cardOf(record);
  putIfSet(dictionary, PLPersonReplyAsKey, record, PLPersonRecord::_preferredReplyAs);
  putIfSet(dictionary, PLPersonPreferredDestinationKey, record, PLPersonRecord::_preferredDestination);
  if (Dictionary entries = metadata(); !entries.empty()) put(dictionary, PLPersonMetadataKey, std::move(entries));
  if (const auto unknown = record.unknownEntries()) dictionary.insert(unknown->begin(), unknown->end());
  return dictionary;
}

PersonDictionary PLPerson::_cardOf(const PLPersonRecord& record) {
  PersonDictionary card;
  put(card, PLPersonRecordIDKey, record.recordID());
  putIfSet(card, PLPersonRecordGUIDKey, record, PLPersonRecord::_abRecordGUID);
  putIfSet(card, PLPersonDatabaseUIDKey, record, PLPersonRecord::_abDatabaseUID);
  putIfSet(card, PLPersonNameKey, record, PLPersonRecord::_name);
  if (record.hasDestinations()) {
    Array values;
    for (std::size_t index = 0; index < record.destinationCount(); ++index) {
      values.emplace_back(record.destination(index));
    }
    put(card, PLPersonAllValuesKey, std::move(values));
  }
  put(card, PLPersonMonogramKey, record.text(PLPersonRecord::_initials).value_or(""));
  return card;
}

std::shared_ptr<PLPerson> PLPerson::initWithForm(PLPersonForm& form) {
  auto person = _make();
  PLPersonRecord::Content content = form.content();
  auto& initials = content.texts[PLPersonRecord::_initials];
  if (initials && initials->empty()) initials.reset();
  person->_record = PLPersonRecord(content);
  person->_createMetadata(form.metadata());
  person->_publish();
  if (form.isCorrected()) person->setNeedsSave(true);
  return person;
}

bool PLPerson::updateFromDictionaryRepresentation(const PersonDictionary& dictionary) {
  PLPersonForm form(dictionary);
  return updateFromForm(form);
}

bool PLPerson::updateFromForm(PLPersonForm& form) {
  return _updateFromDictionaryRepresentationShouldLogUpdates(form, true);
}

bool PLPerson::_updateFromDictionaryRepresentationShouldLogUpdates(PLPersonForm& form, bool shouldLogUpdates) {
  const Process::Scope scope(_process());
  const ChangeReport report{*this, ChangeReport::Subject::description, shouldLogUpdates};
  const PLPersonRecord::Content& content = form.contentFor(_record);
  const auto stored = [&](PLPersonRecord::Text which) { return content.texts[which]; };
  bool changed = content._abRecordID != _record.recordID();
  if (changed) _record = _record.withRecordID(content._abRecordID);
  changed |= _adopt(PLPersonRecord::_abRecordGUID, stored(PLPersonRecord::_abRecordGUID), report,
                    "%@ is being marked as updated due to abRecordGUID: %@ -> %@");
  changed |= _adopt(PLPersonRecord::_abDatabaseUID, stored(PLPersonRecord::_abDatabaseUID), report,
                    "%@ is being marked as updated due to abDatabaseUID: %@ -> %@");
  changed |= _adopt(PLPersonRecord::_name, stored(PLPersonRecord::_name), report,
                    "%@ is being marked as updated due to name: '%@' -> '%@'");
  // The primary destination is kept, whatever the destinations are now: the user has seen the friend under it.
  const bool isOtherSet = !_record.hasDestinations(*content.destinations) &&
                          _adoptAllValues({content.destinations->begin(), content.destinations->end()}, report,
                                          "%@ is being marked as updated due to allValues: %@ -> %@");
  changed |= isOtherSet;
  changed |= _adopt(PLPersonRecord::_preferredReplyAs, stored(PLPersonRecord::_preferredReplyAs), report,
                    "%@ is being marked as updated due to _preferredReplyAs: '%@' -> '%@'");
  changed |= _adopt(PLPersonRecord::_preferredDestination, stored(PLPersonRecord::_preferredDestination), report,
                    "%@ is being marked as updated due to _preferredDestination: '%@' -> '%@'");
  changed |= _adoptUnknownEntries(content.unknownEntries);
  changed |= _adoptInitials(stored(PLPersonRecord::_initials), report,
                            "%@ is being marked as updated due to initials: [%@] -> [%@]");
  changed |= _adoptMetadata(form.metadata(), report, "%@ is being marked as updated due to metadata: %@ -> %@");
  _publish();
  if (isOtherSet && form.isCorrected()) setNeedsSave(true);
  return changed;
}

namespace {

// What makes `entries` of `known`: absent values are of keys to be removed.
std::map<std::string, std::optional<Value>> differingEntries(const Dictionary& known, const Dictionary& entries) {
  std::map<std::string, std::optional<Value>> differing;
  for (const auto& [key, value] : entries) {
    const Value* present = valueForKey(known, key);
    if (!present || *present != value) differing.emplace(key, value);
  }
  for (const auto& [key, value] : known) {
    if (!valueForKey(entries, key)) differing.emplace(key, std::nullopt);
  }
  return differing;
}

// Null: there is none.
bool areSameEntry(const Value* one, const Value* other) { return one && other ? *one == *other : one == other; }

}  // namespace

// On behalf of a stored state, not of a caller's edit: so it neither marks nor announces the person. Entries that were
// edited since the snapshot, or after this look at them, stay: what was made of the person counts them as a change.
bool PLPerson::_adoptMetadata(const Dictionary& metadata, const ChangeReport& report, const LogFormat& format) {
  std::optional<Dictionary> known;
  _metadataQueue.sync([&] {
    _metadataQueue.requireReader();
    if (const Dictionary* inSnapshot = _metadataInSnapshot()) {
      known = *inSnapshot;
    } else if (_metadataDictionary() != metadata) {
      known = _metadataDictionary();
    }
  });
  if (!known) return false;
  auto differing = differingEntries(*known, metadata);
  const bool isChanged = !differing.empty();
  if (isChanged) report(format, redactable(Value(*known)), redactable(Value(metadata)));
  _changes.touches.noteElsewhere();
  _lastChange.begin(_changes);
  _metadataQueue.asyncBarrier([weak = weak_from_this(), known = *std::move(known), differing = std::move(differing)] {
    const auto self = weak.lock();
    if (!self) return;
    self->_metadataQueue.requireCurrent();
    Dictionary entries = self->_metadataDictionary();
    for (const auto& [key, value] : differing) {
      if (!areSameEntry(valueForKey(entries, key), valueForKey(known, key))) continue;
      entries.erase(key);
      if (value) entries.emplace(key, *value);
    }
    self->_setMetadataDictionary(std::move(entries));
  });
  return isChanged;
}

void PLPerson::adoptPreferencesFromForm(PLPersonForm& form) {
  const Process::Scope scope(_process());
  const ChangeReport report{*this, ChangeReport::Subject::description, false};
  const PLPersonRecord::Content& content = form.contentFor(_record);
  for (const auto which : {PLPersonRecord::_preferredReplyAs, PLPersonRecord::_preferredDestination}) {
    if (const auto& text = content.texts[which]) _record = _record.with(which, text);
  }
  if (content.unknownEntries) _adoptUnknownEntries(content.unknownEntries);
  Dictionary entries = metadata();
  entries.insert(form.metadata().begin(), form.metadata().end());
  _adoptMetadata(entries, report, "%@ is being marked as updated due to metadata: %@ -> %@");
  _publish();
}

void PLPerson::encodeWithCoder(KeyedEncoder& encoder) const {
  const auto encodeText = [&](std::string_view key, const std::optional<std::string>& text) {
    if (text) encoder.encodeObject(key, *text);
  };
  if (_kept) encodeText("pd", _kept->_primaryDestination);
  encodeText("i", initials());
  if (_kept && _kept->_phoneNumberCount) encoder.encodeObject("pnc", *_kept->_phoneNumberCount);
  if (_kept && _kept->_emailAddressCount) encoder.encodeObject("eac", *_kept->_emailAddressCount);
  encoder.encodeInteger("abid", _record.recordID());
  encodeText("abguid", abRecordGUID());
  encodeText("abdbuid", abDatabaseUID());
  encodeText("n", _text(PLPersonRecord::_name));
  if (const auto values = allValues()) encoder.encodeSet("av", *values);
  encoder.encodeObject("m", metadata());
}

std::shared_ptr<PLPerson> PLPerson::initWithCoder(const KeyedDecoder& decoder) {
  auto person = _make();
  person->_keep() = {decodedText(decoder, "pd"), decoder.decodeObject("pnc", {CodedClass::number}),
                     decoder.decodeObject("eac", {CodedClass::number})};
  person->_record = PLPersonRecord()
                        .withRecordID(static_cast<std::int32_t>(decoder.decodeInteger("abid")))
                        .with(PLPersonRecord::_initials, decodedText(decoder, "i"))
                        .with(PLPersonRecord::_abRecordGUID, decodedText(decoder, "abguid"))
                        .with(PLPersonRecord::_abDatabaseUID, decodedText(decoder, "abdbuid"))
                        .with(PLPersonRecord::_name, decodedText(decoder, "n"));
  if (const auto values = decoder.decodeSet("av")) person->_record = person->_record.withDestinations(*values);
  person->_createMetadata(decodedMetadata(decoder));
  person->_publish();
  return person;
}

}  // namespace pellor
