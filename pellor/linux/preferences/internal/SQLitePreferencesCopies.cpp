// Copies of the store, stores that are made of them, and what is left of values that are gone.
#include <utility>

#include "pellor/linux/preferences/internal/CopiedDomain.h"
#include "pellor/linux/preferences/internal/PreferencesDatabase.h"
#include "pellor/linux/preferences/internal/SQLiteDomainReader.h"
#include "pellor/linux/preferences/internal/SQLitePreferences.h"
#include "pellor/linux/sqlite/UnusedSpace.h"
#include "pellor/runtime/WallClock.h"

namespace pellor {

void SQLitePreferences::setWriteObserver(std::function<void()> observer) {
  const MutexLock lock(_connectionMutex);
  _observer = std::move(observer);
}

std::optional<StoreCopy> SQLitePreferences::copyOfStore(double date) {
  StoreCopy copy;
  std::vector<std::pair<std::string, std::shared_ptr<const Snapshot>>> snapshots;
  {
    const MutexLock lock(_connectionMutex);
    try {
      const PreferencesDatabase& store = database();
      const SQLiteTransaction transaction = store.transaction(SQLiteTransaction::Kind::read);
      for (const std::string& domain : store.domains()) snapshots.emplace_back(domain, present(domain).snapshot);
      copy.store = store.number();
      copy.removed = store.highestRemoved();
    } catch (const SQLiteError& error) {
      _memory.begins(Fault::read, error.what());
      closeAfter(error);
      return std::nullopt;
    }
  }
  copy.date = date;
  for (const auto& [domain, snapshot] : snapshots) addDomain(copy, domain, *snapshot);
  countFriends(copy);
  return copy;
}

// A program that has the values keeps them when their file goes. The copy has the domains that it did not read, and the
// values that others wrote after it had read.
std::optional<StoreCopy> SQLitePreferences::contentOfNewStore() {
  StoreCopy known;
  known.date = wallClockNow();
  for (const auto& [domain, each] : _known) {
    if (!each.snapshot) continue;
    addDomain(known, domain, *each.snapshot);
    known.store = each.number;
  }
  std::optional<StoreCopy> copy = _copies.newest();
  if (known.values.empty()) return copy;
  if (!copy) copy.emplace();
  for (auto& [name, content] : copy->values) {
    const auto found = _known.find(name.first);
    const bool isRead = found != _known.end() && found->second.snapshot;
    const StoreCopy::Content* read = known.find(name);
    const bool isLater = read && copy->store == known.store && content.count > read->count;
    if (!isRead || isLater) known.values.insert_or_assign(name, std::move(content));
  }
  countFriends(known);
  return known;
}

// Of a domain that was read first over the connection: what is there later may be later than the copy.
void SQLitePreferences::compareWithCopy(std::string_view domain, const DomainState& known) {
  if (!_newestCopy || _newestCopy->store != known.number) return;
  StoreCopyHead stored;
  stored.store = known.number;
  stored.removed = _database->highestRemoved();
  for (const auto& [key, value] : *known.snapshot) stored.counts[{std::string(domain), key}] = value.version.count;
  StoreCopyHead copied = *_newestCopy;
  std::erase_if(copied.counts, [&](const auto& entry) { return entry.first.first != domain; });
  if (!copied.isLaterThan(stored)) return;
  _memory.remark("the store has come to lack what was saved before its copy of " + dateText(copied.date) +
                 " was made, with " + friendsText(copied.friends) + " (pellor backup restore newest takes it back)");
  _newestCopy.reset();
}

// The last that is known of a value of which neither row is whole.
bool SQLitePreferences::takeFromCopy(std::string_view domain, const std::string& key, SnapshotValue& stored) {
  const auto copy = _copies.newest();
  if (!copy || copy->store != _database->number()) return false;
  const StoreCopy::Content* content = copy->find({std::string(domain), key});
  auto value = content ? content->value() : std::nullopt;
  if (!value) return false;
  stored.value = *std::move(value);
  stored.isGoodCopy = true;
  return true;
}

bool SQLitePreferences::replaceStore(const std::string& reason, const std::function<bool()>& isToGo) {
  const auto content = contentOfNewStore();
  if (!content) return false;
  PreferencesDatabase::startAnew(_folder, _patience, &*content, isToGo);
  _memory.remark("the store's file " + reason + " and was put aside; what was known of it is in its place, with " +
                 friendsText(content->friends) + " (pellor backup)");
  return true;
}

// What a file has lost may still be there for the connection, and go into another file.
void SQLitePreferences::replaceLostStore() {
  const auto loss = _database->loss();
  if (loss == PreferencesDatabase::Loss::none) return;
  if (loss == PreferencesDatabase::Loss::log) {
    const SQLiteTransaction transaction = _database->transaction(SQLiteTransaction::Kind::read);
    for (const std::string& domain : _database->domains()) present(domain);
  }
  replaceStore(loss == PreferencesDatabase::Loss::log ? "lost its log" : "was cut",
               [this]()
                   PELLOR_REQUIRES(_connectionMutex) { return _database->loss() != PreferencesDatabase::Loss::none; });
}

// Unless another program has replaced it already.
bool SQLitePreferences::replaceDamagedStore(const SQLiteError& error) {
  const bool isFileDamaged = error.code() == SQLITE_CORRUPT || error.code() == SQLITE_NOTADB;
  if (!isFileDamaged || !_database || !_database->isWritable()) return false;
  // What this program knows may be one domain of several, which the rest of the file still has.
  if (!_copies.newest()) return false;
  try {
    return replaceStore(std::string("was damaged (") + error.what() + ")",
                        [this]() PELLOR_REQUIRES(_connectionMutex) { return _database->isCurrent(); });
  } catch (const SQLiteError&) {
    return false;
  }
}

std::optional<KeptTrace> SQLitePreferences::eraseUnusedSpace() {
  try {
    const SQLiteDatabase database(PreferencesDatabase::fileIn(_folder), SQLiteDatabase::Access::readWrite, _patience);
    overwriteUnusedSpace(database);
    if (emptyLog(database)) return std::nullopt;
    return KeptTrace{"the log of the store", "another program is reading the store; forget again when it has ended"};
  } catch (const SQLiteError& error) {
    return KeptTrace{"the unused space of the store's file", std::string(error.what()) + "; forget again later"};
  }
}

bool SQLitePreferences::startAnew(const StoreCopy* content) {
  const MutexLock lock(_connectionMutex);
  _database.reset();
  _known.clear();
  try {
    PreferencesDatabase::startAnew(_folder, _patience, content, [] { return true; });
    return true;
  } catch (const SQLiteError& error) {
    _memory.begins(Fault::write, error.what());
    return false;
  }
}

}  // namespace pellor
