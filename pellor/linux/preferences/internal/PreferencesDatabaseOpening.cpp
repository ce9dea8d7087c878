// How the store's file is found, made, filled and replaced.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "pellor/linux/files/internal/AsideFolder.h"
#include "pellor/linux/files/internal/FileLock.h"
#include "pellor/linux/files/internal/PrivatePlace.h"
#include "pellor/linux/preferences/internal/PreferencesDatabase.h"
#include "pellor/linux/preferences/internal/StoredList.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

// So that the row of a run, of 5 to 8 kB, fits into a page: else each write of it takes other pages than the last one.
constexpr int PageSize = 8192;

/// Held while the file is made, opened and laid out. SQLite's own locks do not cover the change to write-ahead logging
/// when several processes start at once.
FileLock lockFolder(const fs::path& folder, LockPatience& patience) {
  PrivateFolder::Opened opened = PrivateFolder(folder).open();
  if (!opened.descriptor) throw SQLiteError(SQLITE_CANTOPEN, opened.problem);
  auto lock = FileLock::take(std::move(opened.descriptor), patience);
  if (!lock) throw SQLiteError(errno == EWOULDBLOCK ? SQLITE_BUSY : SQLITE_IOERR, lockError(folder));
  return *std::move(lock);
}

fs::path besideFile(const fs::path& file, const char* suffix) { return file.string() + suffix; }

// SQLite gives its other files its mode too.
void makeEmptyFile(const fs::path& file) {
  const OpenedFile made = PrivateFile(file).open(O_RDWR | O_CREAT);
  if (!made.descriptor) throw SQLiteError(SQLITE_CANTOPEN, made.problem);
}

// Of a file, and of no copy of it: a copy goes on from earlier versions than others know, and their counts would be
// given a second time. Where the system does not know when a file was made, its number has to do.
std::string identityOf(const fs::path& file) {
  struct statx found {};
  if (::statx(AT_FDCWD, file.c_str(), 0, STATX_INO | STATX_BTIME, &found) != 0) return "";
  const bool isDated = (found.stx_mask & STATX_BTIME) != 0;
  std::string identity = std::to_string(found.stx_ino);
  if (isDated) identity += " " + std::to_string(found.stx_btime.tv_sec) + "." + std::to_string(found.stx_btime.tv_nsec);
  return identity;
}

// Where something beside the file would have to be written, and cannot be.
bool lacksPlace(const SQLiteError& error) {
  return error.code() == SQLITE_CANTOPEN || error.code() == SQLITE_READONLY || error.code() == SQLITE_FULL;
}

bool isThere(const fs::path& file) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(file, ignored));
}

void removeFile(const fs::path& file) { static_cast<void>(PrivateFile(file).remove()); }

// What a connection that uses the log has made of it: an empty one is left where there was no space for it.
bool isIndexOfLog(const fs::path& file) {
  std::error_code error;
  const auto size = fs::file_size(file, error);
  constexpr std::uintmax_t smallest = 32 * 1024;
  return !error && size >= smallest;
}

/// A folder for the user alone in the system's memory, which goes with the object; what is open in it stays.
class MemoryFolder {
 public:
  MemoryFolder() {
    std::string path = "/dev/shm/pellor-XXXXXX";
    if (!::mkdtemp(path.data())) throw SQLiteError(SQLITE_CANTOPEN, systemError("cannot make", path));
    _path = path;
    if (auto problem = PrivateFolder(_path).make()) throw SQLiteError(SQLITE_CANTOPEN, *problem);
  }
  ~MemoryFolder() {
    std::error_code ignored;
    fs::remove_all(_path, ignored);
  }
  MemoryFolder(const MemoryFolder&) = delete;
  MemoryFolder& operator=(const MemoryFolder&) = delete;
  const fs::path& path() const { return _path; }

 private:
  fs::path _path;
};

std::string inItsPlace(const StoreCopy& copy) {
  return "; the copy of " + dateText(copy.date) + " is in its place, with " + friendsText(copy.friends) +
         " (pellor backup)";
}

}  // namespace

fs::path PreferencesDatabase::fileIn(const fs::path& folder) { return folder / "preferences.sqlite"; }

PreferencesDatabase::PreferencesDatabase(std::shared_ptr<LockPatience> patience) : _patience(std::move(patience)) {}

PreferencesDatabase::PreferencesDatabase(const fs::path& folder, bool forWriting,
                                         std::shared_ptr<LockPatience> patience, const Content& content)
    : PreferencesDatabase(std::move(patience)) {
  if (forWriting) openForWriting(folder, content);
  if (!_isWritable) openForReading(fileIn(folder));
}

void PreferencesDatabase::openForWriting(const fs::path& folder, const Content& content) {
  const fs::path file = fileIn(folder);
  if (auto error = PrivateFolder(folder).make()) throw SQLiteError(SQLITE_CANTOPEN, *error);
  const FileLock lock = lockFolder(folder, *_patience);
  if (!isThere(file)) {
    const auto copy = content();
    makeStore(file, copy ? &*copy : nullptr);
    if (copy) _remarks.push_back("the store was gone" + inItsPlace(*copy));
  }
  try {
    openFile(file);
  } catch (const SQLiteError& error) {
    if (error.code() != SQLITE_CORRUPT && error.code() != SQLITE_NOTADB) throw;
    const auto copy = content();
    _statements.reset();
    if (!copy || !moveAside(folder / AsideFolderName, file)) throw;
    makeStore(file, &*copy);
    _remarks.push_back(std::string("the store was damaged (") + error.what() + ") and was put aside" +
                       inItsPlace(*copy));
    openFile(file);
  }
}

void PreferencesDatabase::openFile(const fs::path& file) {
  open(file, SQLiteDatabase::Access::readWrite);
  if (_statements->database().isReadOnly()) return;
  try {
    prepareForWriting(identityOf(file));
    _isWritable = true;
    remember(file);
  } catch (const SQLiteError& error) {
    // The file may be written but not its folder, where the log would have to be; or the disk is full.
    if (!lacksPlace(error)) throw;
    if (error.code() == SQLITE_FULL) _readOnlyError = error.what();
  }
}

void PreferencesDatabase::startAnew(const fs::path& folder, std::shared_ptr<LockPatience> patience,
                                    const StoreCopy* content, const std::function<bool()>& isToGo) {
  const fs::path file = fileIn(folder);
  if (auto error = PrivateFolder(folder).make()) throw SQLiteError(SQLITE_CANTOPEN, *error);
  const FileLock lock = lockFolder(folder, *patience);
  if (!isToGo()) return;
  PreferencesDatabase made(std::move(patience));
  if (isThere(file)) {
    try {
      made.openFile(file);
    } catch (const SQLiteError& error) {
      if (error.code() == SQLITE_MISMATCH) throw;
    }
    made._statements.reset();
    if (!moveAside(folder / AsideFolderName, file)) throw SQLiteError(SQLITE_CANTOPEN, "the store cannot be put aside");
  }
  made.makeStore(file, content);
}

// Beside the place of the file, which it takes once it is laid out and filled: a file there that holds nothing has lost
// it.
void PreferencesDatabase::makeStore(const fs::path& file, const StoreCopy* content) {
  const fs::path made = besideFile(file, ".new");
  for (const char* suffix : {"", "-journal"}) removeFile(besideFile(made, suffix));
  makeEmptyFile(made);
  open(made, SQLiteDatabase::Access::readWrite);
  {
    const SQLiteDatabase& database = _statements->database();
    database.execute("PRAGMA synchronous = FULL");
    database.execute("PRAGMA page_size = " + std::to_string(PageSize));
    SQLiteTransaction transaction(database, SQLiteTransaction::Kind::write);
    PreferencesLayout::make(database);
    PreferencesLayout::nameStore(database, identityOf(made));
    if (content) fill(*content);
    transaction.commit();
  }
  _statements.reset();
  // The log of a file that is gone belongs to that file.
  for (const char* suffix : {"-wal", "-shm"}) removeFile(besideFile(file, suffix));
  const PrivateFolder::Opened folder = PrivateFolder(file.parent_path()).enter();
  if (!folder.descriptor) throw SQLiteError(SQLITE_CANTOPEN, folder.problem);
  if (::rename(made.c_str(), file.c_str()) != 0 || !syncNames(folder.descriptor.get()))
    throw SQLiteError(SQLITE_CANTOPEN, systemError("cannot make", file));
}

void PreferencesDatabase::fill(const StoreCopy& content) const {
  const PreferenceVersion version{storedNumber(), 1, {}};
  for (const auto& [name, value] : content.values) {
    const auto& [domain, key] = name;
    if (value.chunks.empty()) {
      write(key, domain, value.bytes, version);
    } else {
      writeList(*this, key, domain, {value.chunks, LongArray(value.chunks).size()}, nullptr, version,
                EqualValues::areWritten);
    }
  }
}

void PreferencesDatabase::open(const fs::path& file, SQLiteDatabase::Access access) {
  _statements = std::make_unique<SQLiteStatements>(SQLiteDatabase(file, access, _patience));
}

void PreferencesDatabase::prepareForWriting(const std::string& identity) {
  const SQLiteDatabase& database = _statements->database();
  database.execute("PRAGMA synchronous = FULL");
  database.execute("PRAGMA cell_size_check = ON");
  const PreferencesLayout& found = PreferencesLayout::withNumber(version());
  database.execute("PRAGMA journal_mode = WAL");
  const auto named = found.hasVersions ? storedIdentity() : std::nullopt;
  if (found.hasVersions && !named) _remarks.emplace_back("the number of the store was damaged; it has a new one");
  if (!named || *named != identity) {
    SQLiteTransaction transaction(database, SQLiteTransaction::Kind::write);
    PreferencesLayout::migrate(database, found);
    PreferencesLayout::nameStore(database, identity);
    transaction.commit();
  }
  _number = storedNumber();
}

void PreferencesDatabase::openForReading(const fs::path& file) {
  open(file, SQLiteDatabase::Access::readOnly);
  try {
    layout();
  } catch (const SQLiteError& error) {
    // Reading beside writers needs two more files. Where they cannot be made nobody writes either.
    if (!lacksPlace(error)) throw;
    if (error.code() == SQLITE_FULL) _readOnlyError = error.what();
    openFrozen(file);
  }
}

// The file by itself is complete, unless a log with commits that are not in it yet was left beside it.
void PreferencesDatabase::openFrozen(const fs::path& file) {
  _isFrozen = true;
  std::error_code ignored;
  const auto logSize = fs::file_size(besideFile(file, "-wal"), ignored);
  if (ignored || logSize == 0) {
    open(file, SQLiteDatabase::Access::frozen);
    layout();
    return;
  }
  if (isIndexOfLog(besideFile(file, "-shm")))
    throw SQLiteError(SQLITE_CANTOPEN, "the index of its log may not be read");
  const MemoryFolder folder;
  std::error_code error;
  for (const char* suffix : {"", "-wal"}) {
    fs::copy_file(besideFile(file, suffix), besideFile(folder.path() / "store", suffix), error);
    if (error) throw SQLiteError(SQLITE_CANTOPEN, "the log beside it cannot be read: " + error.message());
  }
  open(folder.path() / "store", SQLiteDatabase::Access::readOnly);
  layout();
}

}  // namespace pellor
