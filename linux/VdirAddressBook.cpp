#include "linux/VdirAddressBook.h"

#include <algorithm>
#include <utility>

#include "linux/ContactFolder.h"
#include "linux/ContactIndex.h"
#include "linux/FolderWatch.h"
#include "linux/IcuText.h"
#include "linux/VdirHandle.h"
#include "runtime/ThreadSafety.h"

namespace pellor {

namespace {

constexpr double FirstRetryPause = 1;
constexpr double LongestRetryPause = 60;

LogHandle contactsLog(Process& process) { return {"org.tapnote.Pellor", "contacts", process.logSink()}; }

bool concernsContacts(std::string_view name) { return isContactFileName(name) || name == FavoritesFileName; }

class ReadingScope {
 public:
  explicit ReadingScope(ContactIndex& index) : _index(index) { _index.beginReading(); }
  ~ReadingScope() { _index.endReading(); }
  ReadingScope(const ReadingScope&) = delete;
  ReadingScope& operator=(const ReadingScope&) = delete;

 private:
  ContactIndex& _index;
};

}  // namespace

struct VdirAddressBook::Inbox {
  Mutex mutex;
  FolderChange change PELLOR_GUARDED_BY(mutex);
  std::string problem PELLOR_GUARDED_BY(mutex);
  bool isTaskQueued PELLOR_GUARDED_BY(mutex) = false;
  bool isPutOff PELLOR_GUARDED_BY(mutex) = false;
};

std::shared_ptr<VdirAddressBook> VdirAddressBook::make(Process& process, VdirAddressBookOptions options) {
  return std::make_shared<VdirAddressBook>(Passkey(), process, std::move(options));
}

VdirAddressBook::VdirAddressBook(Passkey, Process& process, VdirAddressBookOptions options)
    : _process(process),
      _log(contactsLog(process)),
      _contactsFolder(normalisedFolder(options.index.contactsFolder)),
      _shortNameFormatEnabled(options.shortNameFormatEnabled),
      _shortNamePreferNicknames(options.shortNamePreferNicknames),
      _noticesChanges(options.noticesChanges),
      _index(std::make_shared<ContactIndex>(std::move(options.index), _log)),
      _shared(std::make_shared<VdirHandle>(_index, std::move(options.surnameFirst))),
      _inbox(std::make_shared<Inbox>()) {}

VdirAddressBook::~VdirAddressBook() = default;

// The watch comes first, so that no change falls between the look at the folder and the watch.
void VdirAddressBook::start() {
  if (std::exchange(_isStarted, true)) return;
  if (_noticesChanges) _watch = makeWatch();
  update(FolderChange::all());
  _announcedSequence = readableSequence();
}

// Zero while the contacts cannot be read, so that the number that follows is announced.
std::int32_t VdirAddressBook::readableSequence() { return _index->isReadable() ? _index->sequenceNumber() : 0; }

std::unique_ptr<FolderWatch> VdirAddressBook::makeWatch() {
  const auto queue = _process.mainQueue().shared_from_this();
  auto notice = [inbox = _inbox, queue, store = weak_from_this()](const FolderChange& change,
                                                                  const std::string& problem) {
    {
      const MutexLock lock(inbox->mutex);
      inbox->change.merge(change);
      inbox->problem = problem;
      if (std::exchange(inbox->isTaskQueued, true)) return;
    }
    queue->async([store] {
      if (const auto self = store.lock()) self->takeInbox();
    });
  };
  return std::make_unique<FolderWatch>(_contactsFolder, concernsContacts, std::move(notice));
}

void VdirAddressBook::takeInbox() {
  FolderChange change;
  std::string problem;
  {
    const MutexLock lock(_inbox->mutex);
    // The task runs inside somebody's `performWithAddressBook`, whose end asks for it again.
    _inbox->isPutOff = _index->isReading();
    if (_inbox->isPutOff) return;
    std::swap(change, _inbox->change);
    problem = _inbox->problem;
    _inbox->isTaskQueued = false;
  }
  takeWatchProblem(problem);
  const bool hasNewFavorites = change.names.erase(std::string(FavoritesFileName)) > 0;
  if (!change.isEmpty()) update(change);
  announce();
  if (hasNewFavorites) post(FavoritesFileChangedNotification);
}

void VdirAddressBook::takeWatchProblem(const std::string& problem) {
  if (problem == _watchProblem) return;
  _watchProblem = problem;
  if (problem.empty()) {
    _log.log("changes of the contacts folder are noticed again");
  } else {
    _log.log("changes of the contacts folder cannot be noticed: %@", problem);
  }
}

void VdirAddressBook::update(const FolderChange& change) {
  _unfinished.merge(change);
  if (!_index->update(_unfinished)) return tryAgainLater();
  _unfinished = {};
}

void VdirAddressBook::tryAgainLater() {
  if (_retry && _retry->isValid()) return;
  _retryPause = std::clamp(2 * _retryPause, FirstRetryPause, LongestRetryPause);
  _retry = Timer::after(_process.mainQueue(), _retryPause, [store = weak_from_this()] {
    const auto self = store.lock();
    if (!self || self->_unfinished.isEmpty()) return;
    if (self->_index->isReading()) return self->tryAgainLater();
    self->update({});
    self->announce();
  });
}

// The number tells of changes that another process brought into the index first, too.
void VdirAddressBook::announce() {
  const std::int32_t sequence = readableSequence();
  if (sequence == 0 || sequence == _announcedSequence) return;
  _announcedSequence = sequence;
  post(AddressBookChangedNotification);
}

void VdirAddressBook::post(const char* notification) {
  _process.notificationCenter().post({notification, nullptr, {}});
}

void VdirAddressBook::performWithAddressBook(const std::function<void(AddressBook&)>& work) {
  _process.requireMainQueue("performWithAddressBook");
  start();
  {
    const ReadingScope scope(*_index);
    work(*_shared);
    takeOutcomeOfReading();
  }
  if (!_index->isReading()) resumeInbox();
}

// Whoever met the failure concluded nothing, and is told when the contacts can be read again. An update that goes well
// does not end the growth of the pauses alone: the look that follows it may fail again.
void VdirAddressBook::takeOutcomeOfReading() {
  if (_index->hasFailedWhileReading()) {
    _announcedSequence = 0;
    _unfinished.merge(FolderChange::all());
    tryAgainLater();
  } else if (_unfinished.isEmpty()) {
    _retryPause = 0;
  }
}

void VdirAddressBook::resumeInbox() {
  {
    const MutexLock lock(_inbox->mutex);
    if (!_inbox->isPutOff) return;
    _inbox->isPutOff = false;
  }
  _process.mainQueue().async([store = weak_from_this()] {
    if (const auto self = store.lock()) self->takeInbox();
  });
}

std::shared_ptr<AddressBook> VdirAddressBook::openPrivateAddressBook() {
  _process.requireMainQueue("openPrivateAddressBook");
  start();
  if (!_shared->databaseUID()) return nullptr;
  return _shared->another();
}

std::optional<std::string> VdirAddressBook::folderError() {
  start();
  return _index->folderError();
}

std::optional<std::string> VdirAddressBook::readError() {
  start();
  if (_index->failure() || _index->isReadable()) return _index->failure();
  return _index->folderError();
}

std::uint32_t VdirAddressBook::propertyType(RecordProperty property) const {
  const bool isMulti = property == RecordProperty::phone || property == RecordProperty::email;
  return isMulti ? RecordPropertyTypeMultiString : RecordPropertyTypeString;
}

std::int32_t VdirAddressBook::addMultiValueEntry(MultiValue& multiValue, std::string value, std::string label) const {
  for (const MultiValue::Entry& entry : multiValue.entries)
    _lastEntryIdentifier = std::max(_lastEntryIdentifier, entry.identifier);
  multiValue.entries.push_back({++_lastEntryIdentifier, std::move(label), std::move(value)});
  return _lastEntryIdentifier;
}

bool VdirAddressBook::containsNonLatinCharacters(std::string_view text) const {
  return pellor::containsNonLatinCharacters(text);
}

bool VdirAddressBook::containsEmojiCharacters(std::string_view text) const {
  return pellor::containsEmojiCharacters(text);
}

}  // namespace pellor
