#include "pellor/linux/contacts/internal/IndexedAddressBook.h"

#include <algorithm>
#include <utility>

#include "pellor/linux/contacts/internal/ContactIndex.h"
#include "pellor/linux/contacts/internal/IndexedAddressBookHandle.h"
#include "pellor/linux/text/IcuText.h"
#include "pellor/runtime/BundleIdentifier.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

namespace {

constexpr BackOff::Pauses RetryPauses{.first = 1, .longest = 60};

LogHandle contactsLog(Process& process) { return {BundleIdentifier, "contacts", process.logSink()}; }

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

struct IndexedAddressBook::Inbox {
  Mutex mutex;
  CardNews news PELLOR_GUARDED_BY(mutex);
  bool isTaskQueued PELLOR_GUARDED_BY(mutex) = false;
  bool isPutOff PELLOR_GUARDED_BY(mutex) = false;
};

std::shared_ptr<IndexedAddressBook> IndexedAddressBook::make(Process& process, std::shared_ptr<CardSource> source,
                                                             IndexedAddressBookOptions options) {
  return std::make_shared<IndexedAddressBook>(Passkey(), process, std::move(source), std::move(options));
}

IndexedAddressBook::IndexedAddressBook(Passkey, Process& process, std::shared_ptr<CardSource> source,
                                       IndexedAddressBookOptions options)
    : _process(process),
      _log(contactsLog(process)),
      _source(std::move(source)),
      _nameSettings(std::move(options.nameSettings)),
      _noticesChanges(options.noticesChanges),
      _wallClock(std::move(options.wallClock)),
      _refreshMemory(options.index.dataFolder, _source->name(), _log),
      _index(std::make_shared<ContactIndex>(std::move(options.index), _source, _log)),
      _shared(std::make_shared<IndexedAddressBookHandle>(_index, std::move(options.locale))),
      _inbox(std::make_shared<Inbox>()),
      _retryPauses(RetryPauses) {}

IndexedAddressBook::~IndexedAddressBook() = default;

// The watch comes first, so that no change falls between the look at the source and the watch.
void IndexedAddressBook::start() {
  if (std::exchange(_isStarted, true)) return;
  if (_noticesChanges) _watch = makeWatch();
  update(FolderChange::all());
  _announcedSequence = readableSequence();
}

// Zero while the contacts cannot be read, so that the number that follows is announced.
std::int32_t IndexedAddressBook::readableSequence() { return _index->isReadable() ? _index->sequenceNumber() : 0; }

std::unique_ptr<CardWatch> IndexedAddressBook::makeWatch() {
  const auto queue = _process.mainQueue().shared_from_this();
  return _source->watch([inbox = _inbox, queue, store = weak_from_this()](const CardNews& news) {
    {
      const MutexLock lock(inbox->mutex);
      inbox->news.merge(news);
      if (std::exchange(inbox->isTaskQueued, true)) return;
    }
    queue->async([store] {
      if (const auto self = store.lock()) self->takeInbox();
    });
  });
}

void IndexedAddressBook::takeInbox() {
  CardNews news;
  {
    const MutexLock lock(_inbox->mutex);
    // The task runs inside somebody's `performWithAddressBook`, whose end asks for it again.
    _inbox->isPutOff = _index->isReading();
    if (_inbox->isPutOff) return;
    news = std::exchange(_inbox->news, {});
    _inbox->isTaskQueued = false;
  }
  takeWatchProblem(news.problem);
  if (!news.change.isEmpty()) update(news.change);
  announce();
  if (news.favoritesChanged) post(FavoritesChangedNotification);
}

void IndexedAddressBook::takeWatchProblem(const std::string& problem) {
  if (problem == _watchProblem) return;
  _watchProblem = problem;
  if (problem.empty()) {
    _log.log("changes of %@ are noticed again", _source->title());
  } else {
    _log.log("changes of %@ cannot be noticed: %@", _source->title(), problem);
  }
}

void IndexedAddressBook::update(const FolderChange& change) {
  _unfinished.merge(change);
  if (!_index->update(_unfinished)) return tryAgainLater();
  _unfinished = {};
}

void IndexedAddressBook::tryAgainLater() {
  if (_retry && _retry->isValid()) return;
  _retry = Timer::after(_process.mainQueue(), _retryPauses.next(), [store = weak_from_this()] {
    const auto self = store.lock();
    if (!self || self->_unfinished.isEmpty()) return;
    if (self->_index->isReading()) return self->tryAgainLater();
    self->update({});
    self->announce();
  });
}

// The number tells of changes that another process brought into the index first, too.
void IndexedAddressBook::announce() {
  const std::int32_t sequence = readableSequence();
  if (sequence == 0 || sequence == _announcedSequence) return;
  _announcedSequence = sequence;
  post(AddressBookChangedNotification);
}

void IndexedAddressBook::post(const char* notification) {
  _process.notificationCenter().post({notification, nullptr, {}});
}

void IndexedAddressBook::performWithAddressBook(const std::function<void(AddressBook&)>& work) {
  _process.requireMainQueue("performWithAddressBook");
  start();
  if (!_index->isReading()) _settingsOfReading.reset();
  {
    const ReadingScope scope(*_index);
    work(*_shared);
    takeOutcomeOfReading();
  }
  if (!_index->isReading()) resumeInbox();
}

// The code that met the failure concluded nothing, and is told when the contacts can be read again. An update that goes
// well does not end the growth of the pauses alone: the look that follows it may fail again.
void IndexedAddressBook::takeOutcomeOfReading() {
  if (_index->hasFailedWhileReading()) {
    _announcedSequence = 0;
    _unfinished.merge(FolderChange::all());
    tryAgainLater();
  } else if (_unfinished.isEmpty()) {
    _retryPauses.reset();
  }
}

void IndexedAddressBook::resumeInbox() {
  {
    const MutexLock lock(_inbox->mutex);
    if (!_inbox->isPutOff) return;
    _inbox->isPutOff = false;
  }
  _process.mainQueue().async([store = weak_from_this()] {
    if (const auto self = store.lock()) self->takeInbox();
  });
}

// A refresh names all friends alike.
NameSettings IndexedAddressBook::nameSettings() const {
  if (!_nameSettings) return {};
  if (!_index->isReading()) return _nameSettings();
  if (!_settingsOfReading) _settingsOfReading = _nameSettings();
  return *_settingsOfReading;
}

std::shared_ptr<AddressBook> IndexedAddressBook::openPrivateAddressBook() {
  _process.requireMainQueue("openPrivateAddressBook");
  start();
  if (!_shared->databaseUID()) return nullptr;
  return _shared->another();
}

std::optional<std::uint64_t> IndexedAddressBook::readableCardCount() {
  _process.requireMainQueue("the number of contacts");
  start();
  return _index->isReadable() ? _index->cardCount() : std::nullopt;
}

std::optional<ContactsFall> IndexedAddressBook::contactsFall() {
  const auto cards = readableCardCount();
  if (!cards) return std::nullopt;
  RefreshHold hold(_refreshMemory.read());
  const auto fall = hold.look(*cards, _wallClock());
  _refreshMemory.write(hold.memory());
  return fall;
}

void IndexedAddressBook::noteRefresh() {
  const auto cards = readableCardCount();
  if (!cards) return;
  RefreshHold hold(_refreshMemory.read());
  hold.noteRefresh(*cards, _wallClock());
  _refreshMemory.write(hold.memory());
}

void IndexedAddressBook::acceptContacts() {
  const auto cards = readableCardCount();
  if (!cards) return;
  RefreshHold hold(_refreshMemory.read());
  hold.accept(*cards);
  _refreshMemory.write(hold.memory());
}

std::optional<std::string> IndexedAddressBook::sourceError() {
  start();
  return _index->sourceError();
}

std::optional<std::string> IndexedAddressBook::readError() {
  start();
  if (_index->failure() || _index->isReadable()) return _index->failure();
  return _index->sourceError();
}

std::size_t IndexedAddressBook::unusableCards() {
  start();
  return _index->unusableCards();
}

std::uint32_t IndexedAddressBook::propertyType(RecordProperty property) const {
  const bool isMulti = property == RecordProperty::phone || property == RecordProperty::email;
  return isMulti ? RecordPropertyTypeMultiString : RecordPropertyTypeString;
}

std::int32_t IndexedAddressBook::addMultiValueEntry(MultiValue& multiValue, std::string value,
                                                    std::string label) const {
  for (const MultiValue::Entry& entry : multiValue.entries)
    _lastEntryIdentifier = std::max(_lastEntryIdentifier, entry.identifier);
  multiValue.entries.push_back({++_lastEntryIdentifier, std::move(label), std::move(value)});
  return _lastEntryIdentifier;
}

bool IndexedAddressBook::containsNonLatinCharacters(std::string_view text) const {
  return pellor::containsNonLatinCharacters(text);
}

bool IndexedAddressBook::containsEmojiCharacters(std::string_view text) const {
  return pellor::containsEmojiCharacters(text);
}

}  // namespace pellor
