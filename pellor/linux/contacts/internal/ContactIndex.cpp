#include "pellor/linux/contacts/internal/ContactIndex.h"

#include <algorithm>
#include <random>
#include <stdexcept>
#include <utility>

#include "pellor/linux/contacts/NameSearchKey.h"
#include "pellor/linux/contacts/internal/ContactIndexCards.h"
#include "pellor/linux/contacts/internal/ContactIndexCounts.h"
#include "pellor/linux/contacts/internal/ContactIndexUpdate.h"
#include "pellor/linux/contacts/internal/DestinationKey.h"
#include "pellor/linux/contacts/internal/QueryLists.h"
#include "pellor/linux/text/CollationKeys.h"

namespace pellor {

namespace {

std::string randomUID() {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::random_device random;
  std::string uid;
  for (int index = 0; index < 32; ++index) {
    if (index == 8 || index == 12 || index == 16 || index == 20) uid += '-';
    uid += digits[random() % digits.size()];
  }
  return uid;
}

}  // namespace

ContactIndex::ContactIndex(ContactIndexOptions options, std::shared_ptr<CardSource> source, LogHandle log)
    : _options(std::move(options)),
      _source(std::move(source)),
      _log(std::move(log)),
      _photos(_source),
      _patience(std::make_shared<LockPatience>(_options.lockLimit)) {}

ContactIndex::~ContactIndex() = default;

void ContactIndex::open(IndexCheck check) {
  _statements.reset();
  OpenedContactIndex opened = openContactIndex(_options.dataFolder, check, _patience);
  _statements = std::move(opened.statements);
  _isInMemory = opened.isInMemory;
  for (const std::string& remark : opened.remarks) _log.log("%@", remark);
  try {
    findFolder();
  } catch (...) {
    _statements.reset();
    throw;
  }
}

void ContactIndex::findFolder() {
  const std::string path = _source->name();
  const auto find = [&] {
    const auto row = _statements->use("SELECT folder, uid FROM folders WHERE path=?");
    row->bind(1, path);
    const bool isKnown = row->step();
    _folder = isKnown ? row->integer(0) : 0;
    _uid = isKnown ? row->text(1) : std::string();
    return isKnown;
  };
  if (find()) return;
  SQLiteTransaction transaction(_statements->database(), SQLiteTransaction::Kind::write);
  const std::int64_t sequence = raiseSequence(*_statements);
  const std::string known = _source->databaseUID();
  const std::string uid = known.empty() ? randomUID() : known;
  // Without a form: nothing is known of the source yet; it may have contacts.
  _statements->use("INSERT OR IGNORE INTO folders (path, uid, sequence, derivation) VALUES (?, ?, ?, '')")
      ->bind(1, path)
      .bind(2, uid)
      .bind(3, sequence)
      .run();
  transaction.commit();
  find();
}

std::string ContactIndex::derivation() const { return collationVersion() + " " + _options.canonicalForm(); }

// The index holds nothing that is not in the source but the record identifiers: it is made anew in place of a damaged
// one, and friends stay linked by their GUIDs.
void ContactIndex::recover() {
  open(IndexCheck::thorough);
  updateOnce(FolderChange::all());
  if (_readers > 0) _statements->database().execute("BEGIN");
}

void ContactIndex::reportFailure(const std::string& reason) {
  if (!_failure) _log.log("the contact index cannot be used, it will be tried again: %@", reason);
  _failure = reason;
}

bool ContactIndex::attempt(const std::function<void()>& work) {
  if (_hasFailedWhileReading) return false;
  try {
    try {
      work();
    } catch (const SQLiteError& error) {
      if (error.code() != SQLITE_CORRUPT && error.code() != SQLITE_NOTADB) throw;
      recover();
      work();
    }
  } catch (const std::exception& error) {
    reportFailure(error.what());
    _hasFailedWhileReading = _readers > 0;
    return false;
  }
  return true;
}

// What was known of the source stays: a folder that is unmounted or replaced as a whole, or a service that is away,
// must cost no friend its contact. The watch of its place waits for a missing one.
void ContactIndex::takeSourceError(const CardSourceError& error) {
  _mustRetry = error.remedy() == CardSourceError::Remedy::tryAgain;
  if (_sourceError == error.what()) return;
  _sourceError = error.what();
  if (error.remedy() == CardSourceError::Remedy::soonToldOf) return;
  _isSourceErrorOnLog = true;
  _log.log("%@", *_sourceError);
}

void ContactIndex::takeSourceAnswer() {
  _sourceError.reset();
  if (std::exchange(_isSourceErrorOnLog, false)) _log.log("%@ can be read again", _source->title());
}

bool ContactIndex::update(const FolderChange& change) {
  _mustRetry = false;
  if (!attempt([&] { updateOnce(change); })) return false;
  if (_failure) _log.log("the contact index can be used again");
  _failure.reset();
  return !_mustRetry;
}

void ContactIndex::updateOnce(const FolderChange& change) {
  // Another process may have put the file aside and made a new one.
  const bool isStale = !_statements || (!_isInMemory && _statements->database().hasMoved());
  if (isStale) open(IndexCheck::quick);
  if (!change.everything && (isStale || indexedForm().empty())) return updateOnce(FolderChange::all());
  try {
    const bool mayBeCurrent = change.everything && change.names.empty();
    if (!mayBeCurrent || !isCurrent(present(change))) apply(change);
  } catch (const CardSourceError& error) {
    takeSourceError(error);
  }
}

std::map<std::string, CardSignature> ContactIndex::present(const FolderChange& change) {
  if (!change.everything) return signaturesOf(*_source, change.names);
  auto cards = _source->list();
  takeSourceAnswer();
  return cards;
}

// Empty before the source was read for the first time.
std::string ContactIndex::indexedForm() {
  const auto row = _statements->use("SELECT derivation FROM folders WHERE folder=?");
  row->bind(1, _folder);
  return row->step() ? row->text(0) : std::string();
}

bool ContactIndex::isCurrent(const std::map<std::string, CardSignature>& cards) {
  const bool areKnown = std::all_of(cards.begin(), cards.end(), [](const auto& card) { return card.second.isKnown(); });
  return areKnown && _uid == currentUID() && indexedForm() == derivation() &&
         cards == indexedSignatures(*_statements, _folder);
}

std::string ContactIndex::currentUID() const {
  const std::string known = _source->databaseUID();
  return known.empty() ? _uid : known;
}

void ContactIndex::apply(const FolderChange& change) {
  SQLiteTransaction transaction(_statements->database(), SQLiteTransaction::Kind::write);
  ContactIndexUpdate update(*_statements, _folder, _options, *_source);
  // The source is looked at with the lock held: its last holder may have done the work.
  update.bringInStep(present(change), change);
  const std::int64_t before = sequenceOfFolder(*_statements, _folder);
  std::int64_t sequence = before;
  if (const std::string form = derivation(); indexedForm() != form) {
    update.deriveOthers();
    _statements->use("UPDATE folders SET derivation=? WHERE folder=?")->bind(1, form).bind(2, _folder).run();
  }
  if (update.hasChanged()) {
    sequence = raiseSequence(*_statements);
    _statements->use("UPDATE folders SET sequence=? WHERE folder=?")->bind(1, sequence).bind(2, _folder).run();
    update.stampChanges(sequence);
  }
  const std::string uid = currentUID();
  if (uid != _uid) _statements->use("UPDATE folders SET uid=? WHERE folder=?")->bind(1, uid).bind(2, _folder).run();
  transaction.commit();
  _uid = uid;
  _cardCount.change(before, sequence, update.growth());
  _cardsRead += update.cardsRead();
  for (const ContactIndexUpdate::Line& line : update.lines())
    _log.log("%@ %@ %@", _source->cardTitle(), redactable(line.card), redactable(line.text));
}

void ContactIndex::beginReading() {
  if (_readers++ > 0) return;
  _isKnownReadable = false;
  attempt([this] { database().execute("BEGIN"); });
}

void ContactIndex::endReading() {
  if (--_readers > 0) return;
  _hasFailedWhileReading = false;
  _photos.forget();
  try {
    database().execute("COMMIT");
  } catch (const std::exception&) {
    // The transaction did not begin, or ended with a failure that has been reported.
  }
}

const SQLiteDatabase& ContactIndex::database() const {
  if (!_statements) throw std::runtime_error(_failure.value_or("no index is open"));
  return _statements->database();
}

bool ContactIndex::isReadable() {
  // One state of the index is being read: it stays as readable as it was.
  if (_isKnownReadable && isReading() && !_hasFailedWhileReading) return true;
  std::string form;
  attempt([&] {
    database();
    form = indexedForm();
  });
  return _isKnownReadable = !form.empty();
}

bool ContactIndex::read(const std::function<void(SQLiteStatements& statements, std::int64_t folder)>& work) {
  return attempt([&] {
    database();
    work(*_statements, _folder);
  });
}

std::string ContactIndex::databaseUID() {
  std::string uid;
  read([&](SQLiteStatements&, std::int64_t) { uid = _uid; });
  return uid;
}

std::int32_t ContactIndex::sequenceNumber() {
  std::int64_t number = 0;
  read([&](SQLiteStatements& statements, std::int64_t folder) { number = sequenceOfFolder(statements, folder); });
  return static_cast<std::int32_t>(number);
}

std::optional<std::uint64_t> ContactIndex::cardCount() {
  std::uint64_t count = 0;
  const bool isCounted =
      read([&](SQLiteStatements& statements, std::int64_t folder) { count = _cardCount.read(statements, folder); });
  return isCounted ? std::optional(count) : std::nullopt;
}

std::optional<ContactPhoto> ContactIndex::photo(std::int32_t recordID) {
  std::string file;
  std::int64_t text = 0;
  attempt([&] {
    database();
    const auto row = _statements->use("SELECT file, text FROM cards WHERE folder=? AND id=? AND photo=1");
    if (!row->bind(1, _folder).bind(2, std::int64_t{recordID}).step()) return;
    file = row->text(0);
    text = row->integer(1);
  });
  return file.empty() ? std::nullopt : _photos.photo(file, text);
}

std::size_t ContactIndex::unusableCards() {
  std::int64_t count = 0;
  read([&](SQLiteStatements& statements, std::int64_t folder) {
    const auto row = statements.use("SELECT count(*) FROM faults WHERE folder=?");
    count = row->bind(1, folder).step() ? row->integer(0) : 0;
  });
  return static_cast<std::size_t>(count);
}

namespace {

std::string contactQuery(std::string_view source, std::string_view condition) {
  return "SELECT " + contactColumns() + " FROM " + std::string(source) + " WHERE folder=? AND " +
         std::string(condition);
}

}  // namespace

std::optional<IndexedContact> ContactIndex::contact(std::string_view query, const Binding& bind) {
  std::optional<IndexedContact> found;
  attempt([&] {
    database();
    const auto row = _statements->use(query);
    bind(row->bind(1, _folder));
    if (row->step()) found = contactOfRow(*row.operator->());
  });
  return found;
}

std::optional<IndexedContact> ContactIndex::contactWithID(std::int32_t recordID) {
  static const std::string query = contactQuery("cards", "id=?");
  return contact(query, [&](SQLiteStatement& row) { row.bind(2, std::int64_t{recordID}); });
}

std::optional<IndexedContact> ContactIndex::contactWithGUID(std::string_view guid) {
  static const std::string query = contactQuery("cards", "guid=?");
  return contact(query, [&](SQLiteStatement& row) { row.bind(2, guid); });
}

// The list that is asked for goes in as one parameter: one statement, whatever its length.
std::vector<IndexedContact> ContactIndex::contacts(std::string_view query, const std::string& asked) {
  std::vector<IndexedContact> found;
  attempt([&] {
    found.clear();
    database();
    const auto row = _statements->use(query);
    row->bind(1, asked).bind(2, _folder);
    while (row->step()) found.push_back(contactOfRow(*row.operator->()));
  });
  return found;
}

std::vector<IndexedContact> ContactIndex::contactsWithGUIDs(std::span<const std::string_view> guids) {
  static const std::string query = contactQuery("json_each(?) AS asked CROSS JOIN cards", "guid=asked.value");
  return contacts(query, jsonOfTexts(guids));
}

std::vector<IndexedContact> ContactIndex::contactsOfLinkedSets(std::span<const std::int32_t> linkIDs) {
  static const std::string query =
      contactQuery("json_each(?) AS asked CROSS JOIN cards", "link=asked.value ORDER BY link, cards.id");
  return contacts(query, jsonOfNumbers(linkIDs));
}

std::optional<std::vector<std::string>> ContactIndex::guidsChangedSince(std::int32_t sequence, std::size_t limit) {
  // Numbers begin anew some day, and with a new index.
  if (sequence < 1 || sequence > sequenceNumber()) return std::nullopt;
  std::vector<std::string> guids;
  const bool couldRead = attempt([&] {
    guids.clear();
    const auto row = _statements->use("SELECT guid FROM identities WHERE folder=? AND sequence>? LIMIT ?");
    row->bind(1, _folder).bind(2, std::int64_t{sequence}).bind(3, static_cast<std::int64_t>(limit) + 1);
    while (row->step()) guids.push_back(row->text(0));
  });
  if (!couldRead || guids.size() > limit) return std::nullopt;
  std::sort(guids.begin(), guids.end());
  return guids;
}

std::vector<std::int32_t> ContactIndex::recordIDs(std::string_view query, const Binding& bind) {
  std::vector<std::int32_t> found;
  attempt([&] {
    found.clear();
    database();
    const auto row = _statements->use(query);
    bind(row->bind(1, _folder));
    while (row->step()) found.push_back(static_cast<std::int32_t>(row->integer(0)));
  });
  return found;
}

std::vector<std::int32_t> ContactIndex::allRecordIDs() {
  return recordIDs("SELECT id FROM cards WHERE folder=? AND id IS NOT NULL ORDER BY id", [](SQLiteStatement&) {});
}

// A cross join is one that SQLite leaves in its order; else it may go through all cards of the folder.
std::vector<std::int32_t> ContactIndex::recordIDsMatchingName(std::string_view name) {
  const std::string key = nameSearchKey(name);
  if (key.empty()) return {};
  return recordIDs("SELECT id FROM names CROSS JOIN cards USING (card) WHERE folder=? AND name=? ORDER BY id",
                   [&](SQLiteStatement& row) { row.bind(2, key); });
}

std::string ContactIndex::keyOfDestination(std::string_view destination) const {
  return destinationKey(_options.canonicalDestination(destination));
}

std::vector<std::int32_t> ContactIndex::recordIDsForDestination(std::string_view destination) {
  const std::string key = keyOfDestination(destination);
  return recordIDs(
      "SELECT id FROM destinations CROSS JOIN cards USING (card) WHERE folder=? AND destination=? ORDER BY id",
      [&](SQLiteStatement& row) { row.bind(2, key); });
}

std::vector<std::int32_t> ContactIndex::recordIDsOfLinkedSet(std::int32_t linkID) {
  return recordIDs("SELECT id FROM cards WHERE folder=? AND link=? ORDER BY id",
                   [&](SQLiteStatement& row) { row.bind(2, std::int64_t{linkID}); });
}

std::vector<std::int32_t> ContactIndex::favoriteRecordIDs() {
  return recordIDs("SELECT id FROM cards WHERE folder=? AND favorite=1 AND id IS NOT NULL ORDER BY id",
                   [](SQLiteStatement&) {});
}

}  // namespace pellor
