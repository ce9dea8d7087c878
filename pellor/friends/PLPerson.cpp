#include "pellor/friends/PLPerson.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLStepClient.h"
#include "pellor/friends/PLUtility.h"
#include "pellor/friends/detail/PLLinkLimits.h"
#include "pellor/friends/internal/PLPersonIdentityChanges.h"
#include "pellor/friends/internal/PLPosting.h"
#include "pellor/friends/internal/PLPrefetch.h"
#include "pellor/runtime/Fatal.h"

namespace pellor {
namespace {

bool isBlank(const std::optional<std::string_view>& text) { return !text || text->empty(); }

std::optional<std::string> owned(std::optional<std::string_view> text) {
  return text ? std::optional<std::string>(*text) : std::nullopt;
}

LogArgument destinationsArgument(const PLPersonRecord& record) {
  const auto destinations = record.destinations();
  return destinations ? LogArgument(*destinations) : LogArgument(std::optional<std::string>());
}

}  // namespace

// --- Creation ---

PLPerson::PLPerson(Passkey)
    : _metadataQueue(sharedMetadataQueue()), _changes(_metadataQueue.process().local<PLPersonChanges>()) {}

PLPerson::~PLPerson() = default;

void PLPerson::prefetch() const {
  const char* const memory = reinterpret_cast<const char*>(this);
  for (std::size_t offset = 0; offset < sizeof(PLPerson); offset += PLPersonRecord::CacheLine) {
    prefetchLine(memory + offset);
  }
}

// The caller publishes the person once it is complete.
std::shared_ptr<PLPerson> PLPerson::_make() { return std::make_shared<PLPerson>(Passkey{}); }

std::shared_ptr<PLPerson> PLPerson::init() {
  auto person = _make();
  person->_publish();
  return person;
}

std::shared_ptr<PLPerson> PLPerson::initWithDictionaryRepresentationAddressBook(const PersonDictionary& dictionary,
                                                                                AddressBook*) {
  PLPersonForm form(dictionary);
  return initWithForm(form);
}

std::shared_ptr<PLPerson> PLPerson::initWithDestinationsAddressBook(const std::vector<std::string>& destinations,
                                                                    AddressBook* addressBook) {
  auto person = _make();
  person->_record = person->_record.withDestinations({destinations.begin(), destinations.end()});
  person->_reconcileCanPostChangeNotificationShouldLogUpdates(addressBook, false, false, {});
  person->_publish();
  return person;
}

std::shared_ptr<PLPerson> PLPerson::initWithABRecordGUIDAddressBook(const std::string& guid, AddressBook* addressBook) {
  auto person = _make();
  person->_record = person->_record.with(PLPersonRecord::_abRecordGUID, guid);
  person->_reconcileCanPostChangeNotificationShouldLogUpdates(addressBook, false, false, {});
  person->_publish();
  return person;
}

std::shared_ptr<PLPerson> PLPerson::initWithFavoriteAddressBook(const FavoriteEntry& favorite,
                                                                AddressBook* addressBook) {
  auto person = _make();
  const RecordRef record = addressBook ? addressBook->personForRecordID(favorite.abRecordID) : nullptr;
  if (record) {
    person->_record = person->_record.withRecordID(favorite.abRecordID)
                          .with(PLPersonRecord::_abRecordGUID, record->recordGUID())
                          .with(PLPersonRecord::_abDatabaseUID, addressBook->databaseUID());
    person->_reconcileCanPostChangeNotificationShouldLogUpdates(addressBook, false, false, {});
  } else {
    auto destination = plMessageCanonicalRawAddress(favorite.value);
    require(destination.has_value(), "an identity service that has an identifier for every phone number");
    person->_record =
        person->_record.with(PLPersonRecord::_name, favorite.displayName).withDestinations({std::move(*destination)});
  }
  person->_publish();
  return person;
}

// --- What a person is ---

std::optional<std::string> PLPerson::displayName() const {
  if (hasName()) return _text(PLPersonRecord::_name);
  auto destination = primaryDestination();
  const Process::Scope scope(_process());
  if (!destination || plMessageDestinationType(*destination) != PLMessageDestinationTypePhoneNumber) return destination;
  return PLUtility::compressPhoneNumberString(*destination);
}

bool PLPerson::hasName() const { return !isBlank(_record.text(PLPersonRecord::_name)); }

std::optional<std::string> PLPerson::primaryDestination() const {
  if (_kept && _kept->_primaryDestination) return _kept->_primaryDestination;
  const Process::Scope scope(_process());
  const auto destinations = allValues();
  for (const auto& valuesInSet : {_allPhoneValuesInSet, _allEmailValuesInSet}) {
    const auto values = valuesInSet(destinations.get());
    if (!values || values->empty()) continue;
    return _keep()._primaryDestination = values->front();
  }
  return std::nullopt;
}

PLPerson::ExtraValues& PLPerson::_keep() const {
  if (!_kept) _kept = std::make_unique<ExtraValues>();
  return *_kept;
}

std::shared_ptr<const DestinationSet> PLPerson::allValues() const { return _record.destinations(); }

std::uint64_t PLPerson::allValuesCount() const { return _record.destinationCount(); }

std::optional<std::string> PLPerson::_text(PLPersonRecord::Text which) const { return owned(_record.text(which)); }

std::optional<std::string> PLPerson::initials() const { return _text(PLPersonRecord::_initials); }

std::optional<std::string> PLPerson::abRecordGUID() const { return _text(PLPersonRecord::_abRecordGUID); }

std::optional<std::string> PLPerson::abDatabaseUID() const { return _text(PLPersonRecord::_abDatabaseUID); }

std::optional<std::string> PLPerson::preferredReplyAs() const { return _text(PLPersonRecord::_preferredReplyAs); }

void PLPerson::setPreferredReplyAs(std::optional<std::string> preferredReplyAs) {
  _setPreference(PLPersonRecord::_preferredReplyAs, preferredReplyAs,
                 "updating preferredReplyAs for [%@] (GUID %@): %@ -> %@");
}

std::optional<std::string> PLPerson::preferredDestination() const {
  return _text(PLPersonRecord::_preferredDestination);
}

void PLPerson::setPreferredDestination(std::optional<std::string> preferredDestination) {
  _setPreference(PLPersonRecord::_preferredDestination, preferredDestination,
                 "updating preferredDestination for [%@] (GUID %@): %@ -> %@");
}

bool PLPerson::isLike(const PLPerson& other) const {
  const std::string_view guid = _record.identifyingGUID();
  if (!guid.empty() && guid == other._record.identifyingGUID()) return true;
  return _record.sharesDestination(other._record);
}

bool PLPerson::isEqualToDictionaryRepresentation(const PersonDictionary& dictionary) const {
  return isEqualToForm(PLPersonForm(dictionary));
}

bool PLPerson::isEqualToForm(const PLPersonForm& form) const {
  const std::string_view stored = form.identifyingGUID();
  const std::string_view mine = _record.identifyingGUID();
  if (!stored.empty() || !mine.empty()) return stored == mine;
  return std::ranges::any_of(form.storedDestinations(),
                             [&](std::string_view text) { return _record.containsDestination(text); });
}

std::string PLPerson::description() const {
  std::ostringstream text;
  text << "<PLPerson: " << static_cast<const void*>(this) << " [" << displayName().value_or("(null)")
       << "]:" << primaryDestination().value_or("(null)") << ">";
  return text.str();
}

// --- Edits ---
//
// An operation changes the record, which the other operations of the main queue see at once, and publishes it at its
// end, so that the save queue sees all of the operation or nothing.

// Indexes that know the person by its identifiers are told before, while the published record still has the old ones,
// and after.
void PLPerson::_publish() {
  if (_wasPublished && _record.isSameObject(record())) return;
  if (!_wasPublished) {
    _wasPublished = true;
    _published.store(_record);
    return;
  }
  const bool isOtherIdentity = !_record.hasIdentityOf(record());
  auto& identities = _process().local<PLPersonIdentityChanges>();
  if (isOtherIdentity) identities.announceWillChange(*this);
  _changes.touches.note(*this);
  _lastChange.begin(_changes);
  _published.store(_record);
  _lastChange.end(_changes);
  if (isOtherIdentity) identities.announceDidChange(*this);
}

void PLPerson::setNeedsSave(bool needsSave) {
  _needsSave.store(needsSave, std::memory_order_release);
  if (!needsSave) return;
  if (_process().mainQueue().isCurrent()) {
    _changes.touches.note(*this);
  } else {
    _changes.touches.noteElsewhere();
  }
  // Counted after it can be seen: a save that reads the new count finds the flag.
  _changes.marks.fetch_add(1, std::memory_order_release);
}

void PLPerson::ChangeReport::operator()(const LogFormat& format, const LogArgument& oldValue,
                                        const LogArgument& newValue) const {
  if (!isWanted) return;
  // A GUID is often the name of a file, and the same in other programs.
  const LogArgument name =
      subject == Subject::guid ? LogArgument(person.abRecordGUID()) : LogArgument(person.description());
  _PLGetLogSystem().log(format, redactable(name), oldValue, newValue);
}

bool PLPerson::_adopt(PLPersonRecord::Text which, std::optional<std::string_view> text, const ChangeReport& report,
                      const LogFormat& format) {
  if (_record.text(which) == text) return false;
  report(format, redactable(_text(which)), redactable(owned(text)));
  if (which == PLPersonRecord::_abRecordGUID) {
    _setABRecordGUID(text);
  } else {
    _record = _record.with(which, text);
  }
  return true;
}

bool PLPerson::_adoptInitials(std::optional<std::string_view> initials, const ChangeReport& report,
                              const LogFormat& format) {
  // A stored form writes no initials as empty ones, so that between these there is no difference.
  if (isBlank(initials) && isBlank(_record.text(PLPersonRecord::_initials))) return false;
  return _adopt(PLPersonRecord::_initials, initials, report, format);
}

bool PLPerson::_adoptUnknownEntries(const std::shared_ptr<const Dictionary>& entries) {
  const auto known = _record.unknownEntries();
  if (known && entries ? *known == *entries : known == entries) return false;
  _record = _record.withUnknownEntries(entries);
  return true;
}

void PLPerson::_setPreference(PLPersonRecord::Text which, const std::optional<std::string>& text,
                              const LogFormat& format) {
  if (_text(which) == text) return;
  const Process::Scope scope(_process());
  _PLGetLogSystem().log(format, redactable(_text(PLPersonRecord::_name)), redactable(abRecordGUID()),
                        redactable(_text(which)), redactable(text));
  _record = _record.with(which, text);
  _publish();
  setNeedsSave(true);
  _postChangeNotification();
}

bool PLPerson::_adoptAllValues(const DestinationSet& values, const ChangeReport& report, const LogFormat& format) {
  PLPersonRecord changed = _record.withDestinations(values);
  if (_record.hasIdentityOf(changed)) return false;
  report(format, redactable(destinationsArgument(_record)), redactable(values));
  _record = std::move(changed);
  return true;
}

void PLPerson::_setABRecordGUID(std::optional<std::string_view> guid) {
  const auto current = _record.text(PLPersonRecord::_abRecordGUID);
  if (current && *current != guid.value_or(std::string_view())) {
    Dictionary userInfo{{std::string(PLPersonUnlinkedABGUIDKey), *current}};
    postOnMainQueue(_process(), PLPersonUnlinkedFromAddressBookNotification, weak_from_this(), std::move(userInfo));
  }
  _record = _record.with(PLPersonRecord::_abRecordGUID, guid);
}

void PLPerson::_clearDerivedValues() { _kept.reset(); }

void PLPerson::_postChangeNotification() {
  postOnMainQueue(_process(), PLPersonValuesChangedNotification, weak_from_this());
}

}  // namespace pellor
