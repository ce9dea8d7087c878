#include "pellor/linux/contacts/internal/ContactIndexUpdate.h"

#include <utility>

#include "pellor/linux/contacts/internal/ContactIndexCards.h"
#include "pellor/linux/contacts/internal/ContactLinks.h"
#include "pellor/linux/contacts/internal/ContactNames.h"
#include "pellor/linux/contacts/internal/DestinationKey.h"
#include "pellor/linux/contacts/internal/NameSearchKey.h"
#include "pellor/linux/text/CardText.h"
#include "pellor/platform/AddressBookStore.h"

namespace pellor {

namespace {

constexpr std::size_t ProgressStep = 100;

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
  const auto row = statements.use("SELECT file, inode, size, modified, changed FROM cards WHERE folder=?");
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

struct ContactIndexUpdate::FileEntry {
  std::int32_t record = 0;  // none without a card
  std::int64_t hash = 0;
  std::string problem;
  std::string claim;
  bool hasCard() const { return record != 0; }
};

std::map<std::string, CardSignature> ContactIndexUpdate::indexed(const FolderChange& change) {
  if (change.everything) return indexedSignatures(_statements, _folder);
  std::map<std::string, CardSignature> signatures;
  for (const std::string& file : change.names) {
    const auto row = _statements.use("SELECT inode, size, modified, changed FROM cards WHERE folder=? AND file=?");
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
    const bool isTold = (done + 1) % ProgressStep == 0 || done + 1 == changed.size();
    if (_options.progress && isTold) _options.progress(done + 1, changed.size());
  }
  finish();
}

ContactIndexUpdate::FileEntry ContactIndexUpdate::storedFile(const std::string& file) {
  const auto row = _statements.use("SELECT id, hash, problem, claim FROM cards WHERE folder=? AND file=?");
  row->bind(1, _folder).bind(2, file);
  if (!row->step()) return {};
  return {recordIn(*row.operator->(), 0), row->integer(1), row->text(2), row->text(3)};
}

void ContactIndexUpdate::removeFile(const std::string& file) {
  const FileEntry stored = storedFile(file);
  if (stored.hasCard()) {
    touch(stored.claim);
    markChanged(stored.record);
    _hasChanged = true;
    --_growth;
  }
  const auto statement = _statements.use("DELETE FROM cards WHERE folder=? AND file=?");
  statement->bind(1, _folder).bind(2, file).run();
}

void ContactIndexUpdate::readFile(const std::string& file) {
  CardContent content = _source.read(file);
  ++_cardsRead;
  if (content.isMissing) return removeFile(file);
  const FileEntry stored = storedFile(file);
  if (!content.text) return storeProblem(file, stored, content);
  if (stored.hasCard() && stored.hash == contentHash(*content.text)) return storeSignature(file, content.signature);
  CardReading reading = readContactCard(*content.text);
  content.problem = reading.problem;
  if (!reading.card) return storeProblem(file, stored, content);
  storeCard(file, stored, content, std::move(reading));
}

void ContactIndexUpdate::addFile(const std::string& file) {
  const auto statement = _statements.use("INSERT OR IGNORE INTO cards (folder, file) VALUES (?, ?)");
  statement->bind(1, _folder).bind(2, file).run();
}

// What was good of the file stays: half a card is seen whenever somebody is just writing it, and a contact that goes
// away for a moment would cost a friend its link.
void ContactIndexUpdate::storeProblem(const std::string& file, const FileEntry& stored, const CardContent& content) {
  const std::string kept = stored.hasCard() ? "; its last good content is used" : "";
  if (content.problem != stored.problem) _lines.push_back({file, "is ignored: " + content.problem + kept});
  addFile(file);
  const auto statement =
      _statements.use("UPDATE cards SET inode=?, size=?, modified=?, changed=?, problem=? WHERE folder=? AND file=?");
  bindSignature(*statement.operator->(), 1, content.signature);
  statement->bind(5, content.problem).bind(6, _folder).bind(7, file).run();
}

void ContactIndexUpdate::storeSignature(const std::string& file, const CardSignature& signature) {
  const auto statement = _statements.use(
      "UPDATE cards SET inode=?, size=?, modified=?, changed=?, problem=NULL WHERE folder=? AND file=?");
  bindSignature(*statement.operator->(), 1, signature);
  statement->bind(5, _folder).bind(6, file).run();
}

void ContactIndexUpdate::storeCard(const std::string& file, const FileEntry& stored, const CardContent& content,
                                   CardReading reading) {
  addFile(file);
  storeSignature(file, content.signature);
  const std::string claim = reading.card->uid.value_or(file);
  const CardBinding binding(*reading.card);
  static const std::string update = "UPDATE cards SET (hash, claim, " + std::string(CardColumns) +
                                    ") = (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?) WHERE folder=? AND file=?";
  {
    const auto statement = _statements.use(update);
    statement->bind(1, contentHash(*content.text)).bind(2, claim);
    const int next = binding.bindTo(*statement.operator->(), 3);
    statement->bind(next, _folder).bind(next + 1, file).run();
  }
  touch(claim);
  if (stored.hasCard()) {
    touch(stored.claim);
    markChanged(stored.record);
  } else {
    ++_growth;
  }
  const auto row = _statements.use("SELECT card FROM cards WHERE folder=? AND file=?");
  row->bind(1, _folder).bind(2, file).step();
  _changedCards.insert(row->integer(0));
  _hasChanged = true;
  for (std::string& remark : reading.remarks) _lines.push_back({file, std::move(remark)});
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
  for (const std::int64_t card : _changedCards) derive(card);
  if (_hasChanged) settleLinks();
}

void ContactIndexUpdate::settleClaim(const std::string& claim) {
  struct Claimant {
    std::int64_t card;
    std::string file;
    std::string guid;
    std::int32_t record;
  };
  std::vector<Claimant> claimants;
  {
    const auto row = _statements.use("SELECT card, file, guid, id FROM cards WHERE folder=? AND claim=? ORDER BY file");
    row->bind(1, _folder).bind(2, claim);
    while (row->step())
      claimants.push_back({row->integer(0), row->text(1), row->text(2), recordIn(*row.operator->(), 3)});
  }
  for (const Claimant& claimant : claimants) {
    const std::string& first = claimants.front().file;
    const std::string ownName = claimant.file == claim ? "file:" + claimant.file : claimant.file;
    const std::string& guid = claimant.file == first ? claim : ownName;
    if (guid == claimant.guid) continue;
    if (claimant.file != first)
      _lines.push_back({claimant.file, "repeats the UID of " + first + " and gets its name for one"});
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
  for (const std::int64_t card : cards) {
    if (!_changedCards.contains(card)) derive(card);
  }
}

void ContactIndexUpdate::derive(std::int64_t card) {
  _statements.use("DELETE FROM destinations WHERE card=?")->bind(1, card).run();
  _statements.use("DELETE FROM names WHERE card=?")->bind(1, card).run();
  static const std::string select = "SELECT " + std::string(CardColumns) + " FROM cards WHERE card=?";
  ContactCard content;
  {
    const auto row = _statements.use(select);
    row->bind(1, card);
    if (!row->step()) return;
    content = cardOfRow(*row.operator->(), 0);
  }
  for (const CardValue& phone : content.phones) addDestination(card, phone.value);
  for (const CardValue& email : content.emails) addDestination(card, email.value);
  for (const std::string& name : searchableNames(content)) addName(card, name);
}

void ContactIndexUpdate::addDestination(std::int64_t card, const std::string& value) {
  const std::string key = destinationKey(_options.canonicalDestination(value));
  const auto statement = _statements.use("INSERT OR IGNORE INTO destinations VALUES (?, ?)");
  statement->bind(1, key).bind(2, card).run();
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
