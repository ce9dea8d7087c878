#include "pellor/linux/contacts/internal/ContactIndexUpdate.h"

#include <memory>
#include <utility>

#include "pellor/linux/contacts/NameSearchKey.h"
#include "pellor/linux/contacts/internal/ContactIndexCards.h"
#include "pellor/linux/contacts/internal/ContactLinks.h"
#include "pellor/linux/contacts/internal/ContactNames.h"
#include "pellor/linux/contacts/internal/ContactWords.h"
#include "pellor/linux/contacts/internal/DestinationKey.h"
#include "pellor/linux/sqlite/MorePagesInMemory.h"
#include "pellor/linux/text/CardText.h"
#include "pellor/platform/AddressBookStore.h"

namespace pellor {

namespace {

constexpr std::size_t IndexProgressStep = 100;
constexpr std::size_t LongestAllWords = 300;

// The words of very many cards go all over the file.
std::unique_ptr<MorePagesInMemory> roomFor(const SQLiteStatements& statements, std::size_t cards) {
  constexpr std::size_t few = 2000;
  return cards > few ? std::make_unique<MorePagesInMemory>(statements.database()) : nullptr;
}

void bindSignature(SQLiteStatement& statement, int parameter, const CardSignature& signature) {
  for (const std::int64_t mark : signature.marks) statement.bind(parameter++, mark);
}

std::int32_t recordIn(const SQLiteStatement& row, int column) { return static_cast<std::int32_t>(row.integer(column)); }

CardSignature signatureOfRow(const SQLiteStatement& row, int column) {
  return {{row.integer(column), row.integer(column + 1), row.integer(column + 2), row.integer(column + 3)}};
}

}  // namespace

std::map<std::string, CardSignature> indexedSignatures(SQLiteStatements& statements, std::int64_t folder) {
  std::map<std::string, CardSignature> signatures;
  const auto row = statements.use("SELECT name, inode, size, modified, changed FROM files WHERE folder=?");
  row->bind(1, folder);
  while (row->step()) signatures.emplace(row->text(0), signatureOfRow(*row.operator->(), 1));
  return signatures;
}

std::map<std::string, CardSignature> signaturesOf(CardSource& source, const std::set<std::string>& names) {
  std::map<std::string, CardSignature> present;
  for (const std::string& name : names) {
    if (const auto signature = source.signature(name)) present.emplace(name, *signature);
  }
  return present;
}

struct ContactIndexUpdate::Claimant {
  std::int64_t card;
  std::string file;
  std::string own;
  std::string guid;
  std::int32_t record;
};

std::map<std::string, CardSignature> ContactIndexUpdate::indexed(const FolderChange& change) {
  if (change.everything) return indexedSignatures(_statements, _folder);
  std::map<std::string, CardSignature> signatures;
  for (const std::string& file : change.names) {
    const auto row = _statements.use("SELECT inode, size, modified, changed FROM files WHERE folder=? AND name=?");
    row->bind(1, _folder).bind(2, file);
    if (row->step()) signatures.emplace(file, signatureOfRow(*row.operator->(), 0));
  }
  return signatures;
}

void ContactIndexUpdate::bringInStep(const std::map<std::string, CardSignature>& present, const FolderChange& change) {
  const std::map<std::string, CardSignature> known = indexed(change);
  for (const auto& [file, signature] : known) {
    if (!present.contains(file)) removeFile(file);
  }
  std::vector<std::string> changed;
  for (const auto& [file, signature] : present) {
    const auto former = known.find(file);
    const bool isSame = signature.isKnown() && former != known.end() && former->second == signature;
    if (!isSame || change.names.contains(file)) changed.push_back(file);
  }
  for (std::size_t done = 0; done < changed.size(); ++done) {
    readFile(changed[done]);
    const bool isTold = (done + 1) % IndexProgressStep == 0 || done + 1 == changed.size();
    if (_options.progress && isTold) _options.progress(done + 1, changed.size());
  }
  finish();
}

// Before anything else is known of it: a file that is only touched is not looked at any closer.
bool ContactIndexUpdate::isTextOfFile(const std::string& file, std::int64_t hash) {
  const auto row = _statements.use("SELECT 1 FROM files WHERE folder=? AND name=? AND hash=?");
  return row->bind(1, _folder).bind(2, file).bind(3, hash).step();
}

std::vector<StoredCard> ContactIndexUpdate::storedCards(const std::string& file) {
  std::vector<StoredCard> cards;
  const auto row = _statements.use(
      "SELECT card, id, text, content, claim, has_uid, formatted FROM cards WHERE folder=? AND file=? ORDER BY card");
  row->bind(1, _folder).bind(2, file);
  while (row->step())
    cards.push_back({row->integer(0), recordIn(*row.operator->(), 1), row->integer(2), row->integer(3), row->text(4),
                     row->integer(5) != 0, row->text(6)});
  return cards;
}

void ContactIndexUpdate::removeFile(const std::string& file) {
  for (const StoredCard& card : storedCards(file)) removeCard(card);
  storeFaults(file, {});
  const auto statement = _statements.use("DELETE FROM files WHERE folder=? AND name=?");
  statement->bind(1, _folder).bind(2, file).run();
}

void ContactIndexUpdate::removeCard(const StoredCard& card) {
  touch(card.claim);
  markChanged(card.record);
  _hasChanged = true;
  --_growth;
  _statements.use("DELETE FROM cards WHERE card=?")->bind(1, card.row).run();
}

void ContactIndexUpdate::readFile(const std::string& file) {
  const CardContent content = _source.read(file);
  ++_cardsRead;
  if (content.isForNow)
    throw CardSourceError(_source.title() + ": " + content.problem, CardSourceError::Remedy::tryAgain);
  if (content.isMissing) return removeFile(file);
  if (!content.text) {
    storeFile(file, content.signature, std::nullopt);
    return storeFaults(file, {{0, {}, content.problem, false, !storedCards(file).empty()}});
  }
  const std::int64_t hash = contentHash(*content.text);
  const bool isTouched = isTextOfFile(file, hash);
  storeFile(file, content.signature, hash);
  if (isTouched) return;
  const std::vector<StoredCard> stored = storedCards(file);
  storeReading(file, stored, readCardFile(*content.text, file, stored));
}

void ContactIndexUpdate::storeFile(const std::string& file, const CardSignature& signature,
                                   std::optional<std::int64_t> hash) {
  const auto statement = _statements.use("INSERT OR REPLACE INTO files VALUES (?,?,?,?,?,?,?)");
  statement->bind(1, _folder).bind(2, file);
  bindSignature(*statement.operator->(), 3, signature);
  if (hash) statement->bind(7, *hash);
  statement->run();
}

// What was good of a file stays where its cards cannot be read: half a card is seen whenever somebody is just writing
// it, and a contact that goes away for a moment would cost a friend its link.
void ContactIndexUpdate::storeReading(const std::string& file, const std::vector<StoredCard>& stored,
                                      CardFileReading reading) {
  for (const std::size_t place : reading.gone) removeCard(stored[place]);
  for (FileCard& card : reading.cards) {
    if (card.card) storeCard(file, std::move(card), card.former ? &stored[*card.former] : nullptr);
  }
  storeFaults(file, reading.faults);
}

void ContactIndexUpdate::storeFaults(const std::string& file, const std::vector<CardFault>& faults) {
  std::set<std::string> known;
  {
    const auto row = _statements.use("SELECT number, name, reason FROM faults WHERE folder=? AND file=?");
    row->bind(1, _folder).bind(2, file);
    while (row->step()) known.insert(textOf({static_cast<std::size_t>(row->integer(0)), row->text(1), row->text(2)}));
  }
  if (!known.empty())
    _statements.use("DELETE FROM faults WHERE folder=? AND file=?")->bind(1, _folder).bind(2, file).run();
  for (const CardFault& fault : faults) {
    _statements.use("INSERT INTO faults VALUES (?,?,?,?,?)")
        ->bind(1, _folder)
        .bind(2, file)
        .bind(3, static_cast<std::int64_t>(fault.number))
        .bind(4, fault.name)
        .bind(5, fault.reason)
        .run();
    const char* kept = fault.isReplaced ? "; its last good content is used" : "";
    const std::string text = textOf(fault);
    if (!known.contains(text))
      _lines.push_back({file, (fault.number == 0 ? "is ignored: " : "holds no contact in ") + text + kept});
  }
}

std::int64_t ContactIndexUpdate::rowFor(const std::string& file, const FileCard& card, const StoredCard* former) {
  if (!former) {
    const auto row =
        _statements.use("INSERT INTO cards (folder, file, claim, has_uid, own) VALUES (?,?,?,0,'') RETURNING card");
    row->bind(1, _folder).bind(2, file).bind(3, card.claim).step();
    ++_growth;
    return row->integer(0);
  }
  touch(former->claim);
  markChanged(former->record);
  return former->row;
}

void ContactIndexUpdate::storeCard(const std::string& file, FileCard card, const StoredCard* former) {
  const std::int64_t row = rowFor(file, card, former);
  touch(card.claim);
  const CardBinding binding(*card.card);
  static const std::string update = "UPDATE cards SET (text, content, claim, has_uid, own, " +
                                    std::string(CardColumns) +
                                    ") = (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?) WHERE card=?";
  {
    const auto statement = _statements.use(update);
    statement->bind(1, card.textHash).bind(2, card.valueHash).bind(3, card.claim);
    statement->bind(4, std::int64_t{card.hasUID}).bind(5, card.ownName);
    const int next = binding.bindTo(*statement.operator->(), 6);
    statement->bind(next, row).run();
  }
  _changedCards.insert(row);
  _hasChanged = true;
  for (std::string& remark : card.remarks) _lines.push_back({file, std::move(remark)});
}

void ContactIndexUpdate::touch(const std::string& claim) {
  if (_knownClaims.insert(claim).second) _claims.push_back(claim);
}

void ContactIndexUpdate::stampChanges(std::int64_t sequence) {
  for (const std::int32_t record : _changedRecords) {
    const auto statement = _statements.use("UPDATE identities SET sequence=? WHERE id=?");
    statement->bind(1, sequence).bind(2, std::int64_t{record}).run();
  }
}

void ContactIndexUpdate::markChanged(std::int32_t record) {
  if (_changedRecords.empty()) _formerLinks = storedLinks();
  _changedRecords.insert(record);
}

void ContactIndexUpdate::finish() {
  for (const std::string& claim : _claims) settleClaim(claim);
  {
    const auto room = roomFor(_statements, _changedCards.size());
    for (const std::int64_t card : _changedCards) derive(card);
  }
  if (_hasChanged) settleLinks();
}

// By file; in one file the card that has the claim keeps it, whichever place the others have.
std::vector<ContactIndexUpdate::Claimant> ContactIndexUpdate::claimantsOf(const std::string& claim) {
  std::vector<Claimant> claimants;
  const auto row = _statements.use(
      "SELECT card, file, own, guid, id FROM cards WHERE folder=? AND claim=?"
      " ORDER BY file, guid IS NOT claim, content, card");
  row->bind(1, _folder).bind(2, claim);
  while (row->step())
    claimants.push_back({row->integer(0), row->text(1), row->text(2), row->text(3), recordIn(*row.operator->(), 4)});
  return claimants;
}

void ContactIndexUpdate::settleClaim(const std::string& claim) {
  const std::vector<Claimant> claimants = claimantsOf(claim);
  for (const Claimant& claimant : claimants) {
    const Claimant& first = claimants.front();
    const std::string ownName = claimant.own == claim ? "file:" + claimant.own : claimant.own;
    const std::string& guid = &claimant == &first ? claim : ownName;
    if (guid == claimant.guid) continue;
    if (&claimant != &first)
      _lines.push_back({claimant.file, "repeats the UID of " + first.file + " and gets its name for one"});
    const std::int32_t identity = identityOf(guid);
    markChanged(identity);
    if (claimant.record != 0) markChanged(claimant.record);
    const auto statement = _statements.use("UPDATE cards SET guid=?, id=? WHERE card=?");
    statement->bind(1, guid).bind(2, std::int64_t{identity}).bind(3, claimant.card).run();
  }
}

std::int32_t ContactIndexUpdate::identityOf(const std::string& guid) {
  {
    const auto row = _statements.use("SELECT id FROM identities WHERE folder=? AND guid=?");
    row->bind(1, _folder).bind(2, guid);
    if (row->step()) return recordIn(*row.operator->(), 0);
  }
  const auto statement = _statements.use("INSERT INTO identities (folder, guid) VALUES (?, ?) RETURNING id");
  statement->bind(1, _folder).bind(2, guid).step();
  return recordIn(*statement.operator->(), 0);
}

void ContactIndexUpdate::deriveOthers() {
  std::vector<std::int64_t> cards;
  {
    const auto row = _statements.use("SELECT card FROM cards WHERE folder=? AND id IS NOT NULL");
    row->bind(1, _folder);
    while (row->step()) cards.push_back(row->integer(0));
  }
  const auto room = roomFor(_statements, cards.size());
  for (const std::int64_t card : cards) {
    if (!_changedCards.contains(card)) derive(card);
  }
}

void ContactIndexUpdate::derive(std::int64_t card) {
  _statements.use("DELETE FROM destinations WHERE card=?")->bind(1, card).run();
  _statements.use("DELETE FROM names WHERE card=?")->bind(1, card).run();
  _statements.use("DELETE FROM words WHERE card=?")->bind(1, card).run();
  static const std::string select = "SELECT " + std::string(CardColumns) + " FROM cards WHERE card=?";
  ContactCard content;
  {
    const auto row = _statements.use(select);
    row->bind(1, card);
    if (!row->step()) return;
    content = cardOfRow(*row.operator->(), 0);
  }
  std::vector<std::string> numbers;
  for (const CardValue& phone : content.phones) numbers.push_back(addDestination(card, phone.value));
  for (const CardValue& email : content.emails) addDestination(card, email.value);
  for (const std::string& name : searchableNames(content)) addName(card, name);
  addWords(card, indexedWords(content, numbers));
}

std::string ContactIndexUpdate::addDestination(std::int64_t card, const std::string& value) {
  std::string key = destinationKey(_options.canonicalDestination(value));
  const auto statement = _statements.use("INSERT OR IGNORE INTO destinations VALUES (?, ?)");
  statement->bind(1, key).bind(2, card).run();
  return key;
}

void ContactIndexUpdate::addWords(std::int64_t card, const IndexedWords& words) {
  // A card of very many words has them once.
  const bool isShort = words.all.size() <= LongestAllWords;
  for (const IndexedWord& word : words.words) {
    const auto statement = _statements.use("INSERT OR IGNORE INTO words VALUES (?,?,?,?,?,?)");
    statement->bind(1, _folder).bind(2, static_cast<std::int64_t>(word.kind)).bind(3, word.word);
    statement->bind(4, word.place).bind(5, card);
    if (isShort && word.kind == WordKind::name) statement->bind(6, words.all);
    statement->run();
  }
}

void ContactIndexUpdate::addName(std::int64_t card, const std::string& name) {
  const std::string key = nameSearchKey(name);
  const auto statement = _statements.use("INSERT OR IGNORE INTO names VALUES (?, ?)");
  statement->bind(1, key).bind(2, card).run();
}

std::int32_t ContactIndexUpdate::recordNamed(const std::string& name) {
  // Some programs write where the card is kept before its UID, some leave out what the UID begins with.
  const std::string tail = name.substr(name.rfind(':') + 1);
  for (const std::string& guid : {name, tail, "urn:uuid:" + tail}) {
    const auto row = _statements.use("SELECT id FROM cards WHERE folder=? AND guid=?");
    row->bind(1, _folder).bind(2, guid);
    if (row->step()) return recordIn(*row.operator->(), 0);
  }
  return InvalidRecordID;
}

std::vector<std::int32_t> ContactIndexUpdate::recordsNamed(const std::vector<std::string>& names) {
  std::vector<std::int32_t> records;
  for (const std::string& name : names) {
    const std::int32_t record = recordNamed(name);
    if (record != InvalidRecordID) records.push_back(record);
  }
  return records;
}

std::map<std::int32_t, std::int32_t> ContactIndexUpdate::storedLinks() {
  std::map<std::int32_t, std::int32_t> links;
  const auto row = _statements.use("SELECT id, link FROM cards WHERE folder=? AND link>-1");
  row->bind(1, _folder);
  while (row->step()) links.emplace(recordIn(*row.operator->(), 0), recordIn(*row.operator->(), 1));
  return links;
}

void ContactIndexUpdate::settleLinks() {
  _statements.use("UPDATE cards SET link=-1 WHERE folder=? AND link>-1")->bind(1, _folder).run();
  std::vector<LinkStatement> said;
  {
    const auto row =
        _statements.use("SELECT id, links, antilinks FROM cards WHERE folder=? AND (links<>'' OR antilinks<>'')");
    row->bind(1, _folder);
    while (row->step())
      said.push_back({recordIn(*row.operator->(), 0), recordsNamed(namesOfColumn(row->text(1))),
                      recordsNamed(namesOfColumn(row->text(2)))});
  }
  const std::map<std::int32_t, std::int32_t> links = linkedSets(said);
  _changedRecords = affectedRecords(_changedRecords, _formerLinks, links);
  for (const auto& [record, set] : links) {
    const auto statement = _statements.use("UPDATE cards SET link=? WHERE folder=? AND id=?");
    statement->bind(1, std::int64_t{set}).bind(2, _folder).bind(3, std::int64_t{record}).run();
  }
}

}  // namespace pellor
