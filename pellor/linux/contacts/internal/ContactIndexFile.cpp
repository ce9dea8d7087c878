#include "pellor/linux/contacts/internal/ContactIndexFile.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <optional>
#include <random>
#include <stdexcept>
#include <utility>

#include "pellor/linux/files/internal/AsideFolder.h"
#include "pellor/linux/files/internal/FileLock.h"
#include "pellor/linux/files/internal/PrivatePlace.h"

namespace pellor {

namespace {

constexpr const char* FileName = "contacts-index.sqlite";
constexpr std::int64_t LayoutVersion = 5;
// These are brought to today's layout where they are met: the one without words, and the one of one card a file.
constexpr std::int64_t WordlessVersion = 4;
constexpr std::int64_t SingleCardsVersion = 3;
constexpr std::int32_t HighestFirstSequence = 1 << 30;

// A file's `hash` is that of its text, null where that could not be read. `claim` is what a card is known by if no
// other card claims it: its UID, which `has_uid` tells, else what `readCardFile` says; `own` is what it is known by if
// another one does. `text` and `content` are the hashes of the card's text and of its values. What is not good of a
// file now is among its faults; the last good content stays. The sequence of an identity is that of the last change of
// its record or of one that it is or was linked with; identities stay when their records go.
//
// Each page carries a checksum: a row that is wrong, and one that is no longer found, would unlink friends.
constexpr std::array CardTables = {
    "CREATE TABLE files (folder INTEGER NOT NULL, name TEXT NOT NULL, inode INTEGER, size INTEGER, modified INTEGER,"
    " changed INTEGER, hash INTEGER, PRIMARY KEY (folder, name)) WITHOUT ROWID",
    "CREATE TABLE cards (card INTEGER PRIMARY KEY, folder INTEGER NOT NULL, file TEXT NOT NULL, text INTEGER,"
    " content INTEGER, claim TEXT NOT NULL, has_uid INTEGER NOT NULL, own TEXT NOT NULL, guid TEXT, id INTEGER,"
    " link INTEGER NOT NULL DEFAULT -1, kind INTEGER, given TEXT, family TEXT, additional TEXT, prefix TEXT,"
    " suffix TEXT, formatted TEXT, nickname TEXT, organization TEXT, note TEXT, derived INTEGER, phones TEXT,"
    " emails TEXT, favorite INTEGER, place INTEGER, links TEXT, antilinks TEXT, photo INTEGER)",
    "CREATE INDEX cards_by_file ON cards (folder, file)",
    "CREATE INDEX cards_by_id ON cards (folder, id)",
    "CREATE INDEX cards_by_guid ON cards (folder, guid)",
    "CREATE INDEX cards_by_claim ON cards (folder, claim, file)",
    "CREATE INDEX cards_by_link ON cards (folder, link, id)",
    "CREATE INDEX cards_with_links ON cards (folder) WHERE links<>'' OR antilinks<>''",
    "CREATE TABLE faults (folder INTEGER NOT NULL, file TEXT NOT NULL, number INTEGER NOT NULL, name TEXT NOT NULL,"
    " reason TEXT NOT NULL, PRIMARY KEY (folder, file, number)) WITHOUT ROWID",
};

constexpr std::array Tables = {
    "CREATE TABLE counter (sequence INTEGER NOT NULL)",
    "CREATE TABLE folders (folder INTEGER PRIMARY KEY, path TEXT NOT NULL UNIQUE, uid TEXT NOT NULL,"
    " sequence INTEGER NOT NULL, derivation TEXT NOT NULL)",
    "CREATE TABLE identities (id INTEGER PRIMARY KEY AUTOINCREMENT, folder INTEGER NOT NULL, guid TEXT NOT NULL,"
    " sequence INTEGER NOT NULL DEFAULT 0, UNIQUE (folder, guid))",
    "CREATE INDEX identities_by_sequence ON identities (folder, sequence)",
    "CREATE TABLE destinations (destination TEXT NOT NULL, card INTEGER NOT NULL REFERENCES cards ON DELETE CASCADE,"
    " PRIMARY KEY (destination, card)) WITHOUT ROWID",
    "CREATE INDEX destinations_by_card ON destinations (card)",
    "CREATE TABLE names (name TEXT NOT NULL, card INTEGER NOT NULL REFERENCES cards ON DELETE CASCADE,"
    " PRIMARY KEY (name, card)) WITHOUT ROWID",
    "CREATE INDEX names_by_card ON names (card)",
};

// Beginnings and endings by which contacts are found; see IndexedWord. A search of one source passes over no word of
// another. Words of names have all words of their card beside them: looking for these would be a page of the file each.
constexpr std::array WordTables = {
    "CREATE TABLE words (folder INTEGER NOT NULL, kind INTEGER NOT NULL, word TEXT NOT NULL, place INTEGER NOT NULL,"
    " card INTEGER NOT NULL REFERENCES cards ON DELETE CASCADE, all_words TEXT,"
    " PRIMARY KEY (folder, kind, word, place, card))"
    " WITHOUT ROWID",
    "CREATE INDEX words_by_card ON words (card, word)",
};

// The next update makes the words of all cards; until then the contacts can be read as they were.
constexpr const char* MakeWordsAnew = "UPDATE folders SET derivation=derivation||' without words' WHERE derivation<>''";

// Records keep their identifiers, and programs the numbers that they remember. The files count as changed: what became
// of their cards the next look at them tells.
constexpr std::array StepsFromSingleCards = {
    "CREATE TEMP TABLE former AS SELECT * FROM main.cards WHERE id IS NOT NULL",
    "DROP TABLE main.cards",
};
constexpr std::array StepsToManyCards = {
    "INSERT INTO files (folder, name, inode, size, modified, changed) SELECT folder, file, 0, 0, 0, 0 FROM former",
    "INSERT INTO cards SELECT card, folder, file, 0, 0, claim, claim<>file, file, guid, id, link, kind, given, family,"
    " additional, prefix, suffix, formatted, nickname, organization, note, derived, phones, emails, favorite, place,"
    " links, antilinks, 0 FROM former",
    "DROP TABLE former",
    "UPDATE folders SET derivation=''",
};

/// Why a file is put aside.
class UnusableIndex : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Programs remember the sequence number of their last look: a new index must not count through the old one's numbers.
void setFirstSequence(const SQLiteDatabase& database) {
  std::random_device random;
  std::uniform_int_distribution<std::int32_t> numbers(1, HighestFirstSequence);
  SQLiteStatement statement = database.prepare("INSERT INTO counter VALUES (?)");
  statement.bind(1, std::int64_t{numbers(random)}).run();
}

void makeTables(const SQLiteDatabase& database) {
  SQLiteTransaction transaction(database, SQLiteTransaction::Kind::write);
  for (const char* table : CardTables) database.execute(table);
  for (const char* table : Tables) database.execute(table);
  for (const char* table : WordTables) database.execute(table);
  setFirstSequence(database);
  database.execute("PRAGMA user_version=" + std::to_string(LayoutVersion));
  transaction.commit();
}

bool isFormerLayout(std::int64_t version) { return version == WordlessVersion || version == SingleCardsVersion; }

void bringToManyCards(const SQLiteDatabase& database) {
  for (const char* step : StepsFromSingleCards) database.execute(step);
  for (const char* table : CardTables) database.execute(table);
  for (const char* step : StepsToManyCards) database.execute(step);
}

// Before foreign keys are looked after: the rows that name cards stay.
void bringToThisLayout(const SQLiteDatabase& database) {
  SQLiteTransaction transaction(database, SQLiteTransaction::Kind::write);
  const std::int64_t version = database.integer("PRAGMA user_version");
  // Another process may have been faster.
  if (!isFormerLayout(version)) return;
  if (version == SingleCardsVersion) bringToManyCards(database);
  for (const char* table : WordTables) database.execute(table);
  database.execute(MakeWordsAnew);
  database.execute("PRAGMA user_version=" + std::to_string(LayoutVersion));
  transaction.commit();
}

bool isSound(const SQLiteDatabase& database) {
  SQLiteStatement statement = database.prepare("PRAGMA quick_check(1)");
  return statement.step() && statement.text(0) == "ok";
}

void prepareDatabase(const SQLiteDatabase& database, IndexCheck check, bool isInMemory = false) {
  const std::int64_t version = database.integer("PRAGMA user_version");
  const bool isEmpty = database.integer("SELECT count(*) FROM sqlite_schema") == 0;
  const bool isFormer = isFormerLayout(version);
  if (!isEmpty && version != LayoutVersion && !isFormer) throw UnusableIndex("is of an unknown layout");
  if (!isInMemory && !database.hasCheckedPages()) throw UnusableIndex("is damaged");
  if (check == IndexCheck::thorough && !isSound(database)) throw UnusableIndex("is damaged");
  database.execute("PRAGMA synchronous=FULL");
  if (isFormer) bringToThisLayout(database);
  database.execute("PRAGMA foreign_keys=ON");
  if (isEmpty) makeTables(database);
}

SQLiteDatabase openFile(const std::filesystem::path& file, IndexCheck check,
                        const std::shared_ptr<LockPatience>& patience) {
  try {
    SQLiteDatabase database(file, SQLiteDatabase::Access::readWrite, patience);
    if (database.integer("PRAGMA page_count") == 0) database.beginCheckedPages();
    database.execute("PRAGMA journal_mode=WAL");
    prepareDatabase(database, check);
    return database;
  } catch (const SQLiteError& error) {
    if (error.code() == SQLITE_CORRUPT || error.code() == SQLITE_NOTADB) throw UnusableIndex("is damaged");
    throw;
  }
}

/// Holds other processes off while one makes or replaces the file.
std::optional<FileLock> lockFolder(const std::filesystem::path& folder, LockPatience& patience) {
  PrivateFolder::Opened opened = PrivateFolder(folder).open();
  if (!opened.descriptor) return std::nullopt;
  auto lock = FileLock::take(std::move(opened.descriptor), patience);
  if (!lock && errno == EWOULDBLOCK) throw SQLiteError(SQLITE_BUSY, lockError(folder));
  return lock;
}

void makePrivateFile(const std::filesystem::path& file) {
  const OpenedFile made = PrivateFile(file).open(O_RDWR | O_CREAT);
  if (!made.descriptor) throw std::runtime_error(made.problem);
}

OpenedContactIndex openInFolder(const std::filesystem::path& folder, IndexCheck check,
                                const std::shared_ptr<LockPatience>& patience) {
  if (const auto error = PrivateFolder(folder).make()) throw std::runtime_error(*error);
  const auto lock = lockFolder(folder, *patience);
  const std::filesystem::path file = contactIndexIn(folder);
  OpenedContactIndex opened;
  makePrivateFile(file);
  try {
    opened.statements = std::make_unique<SQLiteStatements>(openFile(file, check, patience));
  } catch (const UnusableIndex& problem) {
    const auto aside = moveDatabaseAside(file, file.string() + ".damaged");
    if (!aside) throw;
    opened.remarks.push_back("the contact index " + file.string() + " " + problem.what() + "; it was put aside as " +
                             aside->filename().string() + " and is made anew");
    makePrivateFile(file);
    opened.statements = std::make_unique<SQLiteStatements>(openFile(file, IndexCheck::quick, patience));
  }
  return opened;
}

}  // namespace

std::filesystem::path contactIndexIn(const std::filesystem::path& dataFolder) { return dataFolder / FileName; }

OpenedContactIndex openContactIndex(const std::filesystem::path& dataFolder, IndexCheck check,
                                    const std::shared_ptr<LockPatience>& patience) {
  OpenedContactIndex inMemory;
  try {
    return openInFolder(dataFolder, check, patience);
  } catch (const std::exception& problem) {
    // It is there, and will be free again.
    const auto* error = dynamic_cast<const SQLiteError*>(&problem);
    if (error && error->code() == SQLITE_BUSY) throw;
    inMemory.remarks.push_back("no contact index can be kept in " + dataFolder.string() + " (" + problem.what() +
                               "); it is made in memory");
  }
  SQLiteDatabase database = SQLiteDatabase::inMemory();
  prepareDatabase(database, IndexCheck::quick, true);
  inMemory.statements = std::make_unique<SQLiteStatements>(std::move(database));
  inMemory.isInMemory = true;
  return inMemory;
}

}  // namespace pellor
