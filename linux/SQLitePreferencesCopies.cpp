// Copies of the store, and stores that are made of them.
#include <utility>

#include "linux/CBORValue.h"
#include "linux/PreferencesDatabase.h"
#include "linux/SQLitePreferences.h"
#include "linux/StoredList.h"
#include "runtime/DictionaryView.h"
#include "runtime/WallClock.h"

namespace pellor {
namespace {

// Whose elements are friends, or empty slots.
constexpr std::string_view ListKey = "FriendList";

std::uint64_t numberOfFriends(const Runs& runs) {
  std::uint64_t friends = 0;
  DictionaryView view;
  for (const auto& run : runs) {
    for (std::size_t index = 0; index < run->size(); ++index) {
      if (run->show(index, view) && !view.isEmpty()) ++friends;
    }
  }
  return friends;
}

// What is neither bytes nor runs was found damaged, and there is no copy of it.
std::optional<StoreCopy::Content> contentOf(const PreferencesMemory::Stored& stored) {
  if (stored.list) return StoreCopy::Content{{}, runsOf(stored.list.get())};
  if (stored.bytes) return StoreCopy::Content{*stored.bytes, {}};
  if (!stored.isGoodCopy) return std::nullopt;
  const auto encoded = EncodedValue::encode(stored.value);
  if (!encoded) return std::nullopt;
  if (encoded->list) return StoreCopy::Content{{}, encoded->list->runs};
  return StoreCopy::Content{*encoded->bytes, {}};
}

void take(const std::string& domain, const PreferencesMemory::Snapshot& snapshot, StoreCopy& copy) {
  for (const auto& [key, stored] : snapshot) {
    auto content = contentOf(stored);
    if (!content) continue;
    if (key == ListKey) copy.friends += numberOfFriends(content->runs);
    copy.values.insert_or_assign({domain, key}, *std::move(content));
  }
}

}  // namespace

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
    } catch (const SQLiteError& error) {
      _memory.begins(Fault::read, error.what());
      closeAfter(error);
      return std::nullopt;
    }
  }
  copy.date = date;
  for (const auto& [domain, snapshot] : snapshots) take(domain, *snapshot, copy);
  return copy;
}

// A program that has the values keeps them when their file goes; of domains that it did not read the copy tells.
std::optional<StoreCopy> SQLitePreferences::contentOfNewStore() {
  StoreCopy known;
  known.date = wallClockNow();
  std::optional<StoreCopy> copy = _copies.newest();
  for (const auto& [domain, each] : _known) {
    if (each.snapshot) take(domain, *each.snapshot, known);
  }
  if (known.values.empty()) return copy;
  if (!copy) return known;
  for (auto& [name, content] : copy->values) {
    const auto found = _known.find(name.first);
    const bool isKnown = found != _known.end() && found->second.snapshot;
    if (!isKnown) known.values.emplace(name, std::move(content));
  }
  return known;
}

bool SQLitePreferences::replaceStore(const std::string& reason, const std::function<bool()>& isToGo) {
  const auto content = contentOfNewStore();
  if (!content) return false;
  PreferencesDatabase::startAnew(_folder, _patience, &*content, isToGo);
  _memory.remark("the store's file " + reason + " and was put aside; what was known of it is in its place, with " +
                 friendsText(content->friends) + " (pellor backup)");
  return true;
}

void SQLitePreferences::replaceCutStore() {
  replaceStore("was cut", [this]() PELLOR_REQUIRES(_connectionMutex) { return _database->wasCut(); });
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
