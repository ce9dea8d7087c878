// The connection to the store, and whether the store may be written.
#include <memory>
#include <string>

#include "pellor/linux/preferences/internal/PreferencesDatabase.h"
#include "pellor/linux/preferences/internal/SQLitePreferences.h"

namespace pellor {
namespace {

bool isDamage(const SQLiteError& error) {
  // A failure that another try on this connection could not cure.
  const int code = error.code();
  return code == SQLITE_CORRUPT || code == SQLITE_NOTADB || code == SQLITE_IOERR || code == SQLITE_CANTOPEN ||
         code == SQLITE_READONLY;
}

}  // namespace

bool SQLitePreferences::isWritable() {
  const MutexLock lock(_connectionMutex);
  try {
    if (database().isWritable()) return true;
    _memory.begins(Fault::write, _database->readOnlyError());
    return false;
  } catch (const SQLiteError& error) {
    _memory.begins(Fault::read, error.what());
    closeAfter(error);
    return false;
  }
}

// By now it may be writable.
bool SQLitePreferences::isReadOnly() {
  if (!_isReadOnly) return false;
  {
    const MutexLock lock(_connectionMutex);
    _database.reset();
  }
  return !isWritable() && _isReadOnly;
}

const PreferencesDatabase& SQLitePreferences::database() {
  if (_database) replaceLostStore();
  if (_database && _database->isCurrent()) return *_database;
  _database.reset();
  for (auto& [domain, known] : _known) known.dataVersion.reset();
  _newestCopy = _copies.headOfNewest();
  _database =
      std::make_unique<PreferencesDatabase>(_folder, _access == Access::readWrite, _patience,
                                            [this]() PELLOR_REQUIRES(_connectionMutex) { return contentOfNewStore(); });
  for (const std::string& remark : _database->remarks()) _memory.remark(remark);
  _isReadOnly = !_database->isWritable();
  return *_database;
}

bool SQLitePreferences::closeAfter(const SQLiteError& error) {
  if (!isDamage(error)) return false;
  const bool isReplaced = replaceDamagedStore(error);
  _database.reset();
  return isReplaced;
}

}  // namespace pellor
