#include "Pellor/PLPerson.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "Pellor/PLBundle.h"
#include "Pellor/PLPersonIdentityChanges.h"
#include "Pellor/PLPosting.h"
#include "Pellor/PLUtility.h"
#include "runtime/Fatal.h"

namespace pellor {
namespace {

bool isBlank(const std::optional<std::string>& text) { return !text || text->empty(); }

bool isSameSet(const std::shared_ptr<const DestinationSet>& left, const std::shared_ptr<const DestinationSet>& right) {
  if (left == right) return true;
  return left && right && *left == *right;
}

bool sharesMember(const DestinationSet& left, const DestinationSet& right) {
  const DestinationSet& smaller = left.size() < right.size() ? left : right;
  const DestinationSet& larger = left.size() < right.size() ? right : left;
  return std::ranges::any_of(smaller, [&](const std::string& value) { return larger.contains(value); });
}

LogArgument destinationsArgument(const std::shared_ptr<const DestinationSet>& destinations) {
  return destinations ? LogArgument(*destinations) : LogArgument(std::optional<std::string>());
}

}  // namespace

// --- Creation ---

PLPerson::PLPerson(Passkey)
    : _metadataQueue(sharedMetadataQueue()),
      _unsavedPersons(_metadataQueue.process().local<PLUnsavedPersons>()),
      _record(std::make_shared<Record>()) {}

PLPerson::~PLPerson() = default;

// The person is published by whoever asked for it, once it is what was asked for.
std::shared_ptr<PLPerson> PLPerson::_make() { return std::make_shared<PLPerson>(Passkey{}); }

std::shared_ptr<PLPerson> PLPerson::init() {
  auto person = _make();
  person->_publish();
  return person;
}

std::shared_ptr<PLPerson> PLPerson::initWithDictionaryRepresentationAddressBook(const PersonDictionary& dictionary,
                                                                                AddressBook*) {
  auto person = _make();
  person->_updateFromDictionaryRepresentationShouldLogUpdates(dictionary, false);
  return person;
}

std::shared_ptr<PLPerson> PLPerson::initWithDestinationsAddressBook(const std::vector<std::string>& destinations,
                                                                    AddressBook* addressBook) {
  auto person = _make();
  person->_draft()._allValues = std::make_shared<DestinationSet>(destinations.begin(), destinations.end());
  person->_reconcileCanPostChangeNotificationShouldLogUpdates(addressBook, false, false);
  person->_publish();
  return person;
}

std::shared_ptr<PLPerson> PLPerson::initWithABRecordGUIDAddressBook(const std::string& guid, AddressBook* addressBook) {
  auto person = _make();
  person->_draft()._abRecordGUID = guid;
  person->_reconcileCanPostChangeNotificationShouldLogUpdates(addressBook, false, false);
  person->_publish();
  return person;
}

std::shared_ptr<PLPerson> PLPerson::initWithFavoriteAddressBook(const FavoriteEntry& favorite,
                                                                AddressBook* addressBook) {
  auto person = _make();
  Record& draft = person->_draft();
  const RecordRef record = addressBook ? addressBook->personForRecordID(favorite.abRecordID) : nullptr;
  if (record) {
    draft._abRecordID = favorite.abRecordID;
    draft._abRecordGUID = record->recordGUID();
    draft._abDatabaseUID = addressBook->databaseUID();
    person->_reconcileCanPostChangeNotificationShouldLogUpdates(addressBook, false, false);
  } else {
    auto destination = plMessageCanonicalRawAddress(favorite.value);
    require(destination.has_value(), "an identity service that has an identifier for every phone number");
    draft._name = favorite.displayName;
    draft._allValues = std::make_shared<DestinationSet>(DestinationSet{std::move(*destination)});
  }
  person->_publish();
  return person;
}

// --- What a person is ---

std::optional<std::string> PLPerson::displayName() const {
  if (hasName()) return _record->_name;
  auto destination = primaryDestination();
  const Process::Scope scope(_process());
  if (!destination || plMessageDestinationType(*destination) != PLMessageDestinationTypePhoneNumber) return destination;
  return PLUtility::compressPhoneNumberString(*destination);
}

bool PLPerson::hasName() const { return !isBlank(_record->_name); }

std::optional<std::string> PLPerson::primaryDestination() const {
  if (_primaryDestination) return _primaryDestination;
  const Process::Scope scope(_process());
  for (const auto& valuesInSet : {_allPhoneValuesInSet, _allEmailValuesInSet}) {
    const auto values = valuesInSet(_record->_allValues.get());
    if (!values || values->empty()) continue;
    _primaryDestination = values->front();
    break;
  }
  return _primaryDestination;
}

std::shared_ptr<const DestinationSet> PLPerson::allValues() const { return _record->_allValues; }

std::uint64_t PLPerson::allValuesCount() const { return _record->_allValues ? _record->_allValues->size() : 0; }

std::optional<std::string> PLPerson::initials() const { return _record->_initials; }

std::optional<std::string> PLPerson::abRecordGUID() const { return _record->_abRecordGUID; }

std::optional<std::string> PLPerson::abDatabaseUID() const { return _record->_abDatabaseUID; }

std::optional<std::string> PLPerson::preferredReplyAs() const { return _record->_preferredReplyAs; }

void PLPerson::setPreferredReplyAs(std::optional<std::string> preferredReplyAs) {
  if (_record->_preferredReplyAs == preferredReplyAs) return;
  const Process::Scope scope(_process());
  _PLGetLogSystem().log("updating preferredReplyAs for [%@] (GUID %@): %@ -> %@", redactable(_record->_name),
                        _record->_abRecordGUID, redactable(_record->_preferredReplyAs), redactable(preferredReplyAs));
  _draft()._preferredReplyAs = std::move(preferredReplyAs);
  _publish();
  setNeedsSave(true);
  _postChangeNotification();
}

bool PLPerson::isLike(const PLPerson& other) const {
  const Record& mine = *_record;
  const Record& theirs = *other._record;
  if (!isBlank(mine._abRecordGUID) && mine._abRecordGUID == theirs._abRecordGUID) return true;
  return mine._allValues && theirs._allValues && sharesMember(*mine._allValues, *theirs._allValues);
}

bool PLPerson::isEqualToDictionaryRepresentation(const PersonDictionary& dictionary) const {
  const auto storedGUID = stringForKey(dictionary, "ABRecordGUID");
  if (isBlank(storedGUID) != isBlank(_record->_abRecordGUID)) return false;
  if (!isBlank(storedGUID)) return storedGUID == _record->_abRecordGUID;
  const Value* stored = valueForKey(dictionary, "AllValues");
  if (!stored || !stored->array() || !_record->_allValues) return false;
  return std::ranges::any_of(*stored->array(), [&](const Value& value) {
    return value.string() && _record->_allValues->contains(*value.string());
  });
}

std::string PLPerson::description() const {
  std::ostringstream text;
  text << "<PLPerson: " << static_cast<const void*>(this) << " [" << displayName().value_or("(null)")
       << "]:" << primaryDestination().value_or("(null)") << ">";
  return text.str();
}

// --- Edits ---
//
// An operation changes a draft, which the other operations of the main queue see at once, and publishes it at its end,
// so that the save queue sees all of the operation or nothing.

PLPerson::Record& PLPerson::_draft() {
  if (!_isDraft) _record = std::make_shared<Record>(*_record);
  _isDraft = true;
  return *_record;
}

void PLPerson::_publish() {
  if (!_isDraft) return;
  _isDraft = false;
  const auto previous = _published.load();
  _published.store(_record);
  if (!previous) return;
  if (previous->_abRecordGUID == _record->_abRecordGUID && isSameSet(previous->_allValues, _record->_allValues)) return;
  _process().local<PLPersonIdentityChanges>().announce(*this);
}

void PLPerson::setNeedsSave(bool needsSave) {
  _needsSave.store(needsSave, std::memory_order_release);
  // Counted after it can be seen: a save that reads the new count finds the flag.
  if (needsSave) _unsavedPersons.changes.fetch_add(1, std::memory_order_release);
}

void PLPerson::ChangeReport::operator()(const LogFormat& format, const LogArgument& oldValue,
                                        const LogArgument& newValue) const {
  if (!isWanted) return;
  const auto name = subject == Subject::guid ? LogArgument(person._record->_abRecordGUID)
                                             : redactable(LogArgument(person.description()));
  _PLGetLogSystem().log(format, name, oldValue, newValue);
}

bool PLPerson::_adopt(TextField field, const std::optional<std::string>& value, const ChangeReport& report,
                      const LogFormat& format) {
  const auto& current = (*_record).*field;
  if (current == value) return false;
  const bool isIdentifier = field == &Record::_abRecordGUID || field == &Record::_abDatabaseUID;
  if (isIdentifier) {
    report(format, current, value);
  } else {
    report(format, redactable(current), redactable(value));
  }
  if (field == &Record::_abRecordGUID) {
    _setABRecordGUID(value);
  } else {
    _draft().*field = value;
  }
  return true;
}

bool PLPerson::_adoptInitials(const std::optional<std::string>& initials, const ChangeReport& report,
                              const LogFormat& format) {
  // A stored form writes no initials as empty ones: that is no difference.
  if (isBlank(initials) && isBlank(_record->_initials)) return false;
  return _adopt(&Record::_initials, initials, report, format);
}

bool PLPerson::_adoptAllValues(DestinationSet values, const ChangeReport& report, const LogFormat& format) {
  if (_record->_allValues && *_record->_allValues == values) return false;
  report(format, redactable(destinationsArgument(_record->_allValues)), redactable(values));
  _draft()._allValues = std::make_shared<DestinationSet>(std::move(values));
  return true;
}

void PLPerson::_setABRecordGUID(std::optional<std::string> guid) {
  const auto& current = _record->_abRecordGUID;
  if (current && *current != guid.value_or("")) {
    Dictionary userInfo{{std::string(PLPersonUnlinkedABGUIDKey), *current}};
    postOnMainQueue(_process(), PLPersonUnlinkedFromAddressBookNotification, weak_from_this(), std::move(userInfo));
  }
  _draft()._abRecordGUID = std::move(guid);
}

void PLPerson::_clearDerivedValues() {
  _primaryDestination.reset();
  _phoneNumberCount.reset();
  _emailAddressCount.reset();
}

void PLPerson::_postChangeNotification() {
  postOnMainQueue(_process(), PLPersonValuesChangedNotification, weak_from_this());
}

}  // namespace pellor
