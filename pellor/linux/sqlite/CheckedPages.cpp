#include "pellor/linux/sqlite/CheckedPages.h"

#include <xxhash.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>
#include <vector>

#include "pellor/linux/sqlite/RecoveryPauses.h"

namespace pellor {
namespace {

constexpr int ChecksumSize = 8;
constexpr int HeaderSize = 100, SmallestPage = 512;
// In the header: how many bytes at the end of each page SQLite does not use.
constexpr std::size_t PlaceOfFreeBytes = 20;
constexpr std::string_view Magic("SQLite format 3\0", 16);

// What a connection asks its file.
constexpr int AreChecked = 0x706C6370;

using Checksum = std::array<std::uint8_t, ChecksumSize>;

/// A file of SQLite with the system's behind it.
struct CheckedFile {
  sqlite3_file base;  // first: what SQLite sees
  bool isChecked;     // its pages carry checksums
  sqlite3_file* system() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

CheckedFile& fileOf(sqlite3_file* file) { return *reinterpret_cast<CheckedFile*>(file); }
sqlite3_file* systemOf(sqlite3_file* file) { return fileOf(file).system(); }
const sqlite3_io_methods& methodsOf(sqlite3_file* file) { return *systemOf(file)->pMethods; }

// The number of the page counts too: one that came to another place is damaged.
Checksum checksumOf(const std::uint8_t* page, int size, sqlite3_int64 offset) {
  const auto length = static_cast<std::size_t>(size - ChecksumSize);
  const std::uint64_t number = XXH3_64bits_withSeed(page, length, static_cast<std::uint64_t>(offset));
  Checksum checksum;
  for (std::size_t index = 0; index < checksum.size(); ++index) {
    checksum[index] = static_cast<std::uint8_t>(number >> (8 * index));
  }
  return checksum;
}

bool isPage(int size) { return size >= SmallestPage && (size & (size - 1)) == 0; }

// The header is the first that SQLite reads and writes of a database.
void noticeHeader(CheckedFile& file, const std::uint8_t* bytes, int size, sqlite3_int64 offset) {
  if (offset != 0 || size < HeaderSize || std::memcmp(bytes, Magic.data(), Magic.size()) != 0) return;
  file.isChecked = bytes[PlaceOfFreeBytes] == ChecksumSize;
}

int closeFile(sqlite3_file* file) {
  const int code = methodsOf(file).xClose(systemOf(file));
  file->pMethods = nullptr;
  return code;
}

int readFile(sqlite3_file* file, void* into, int size, sqlite3_int64 offset) {
  const int code = methodsOf(file).xRead(systemOf(file), into, size, offset);
  // SQLite takes what a disk cannot read for damage, also where the disk can a moment later.
  if (code == SQLITE_IOERR_CORRUPTFS) return SQLITE_IOERR_READ;
  if (code != SQLITE_OK) return code;
  const auto* bytes = static_cast<const std::uint8_t*>(into);
  noticeHeader(fileOf(file), bytes, size, offset);
  if (!fileOf(file).isChecked || !isPage(size)) return SQLITE_OK;
  const Checksum checksum = checksumOf(bytes, size, offset);
  return std::equal(checksum.begin(), checksum.end(), bytes + size - ChecksumSize) ? SQLITE_OK : SQLITE_CORRUPT;
}

int writeFile(sqlite3_file* file, const void* from, int size, sqlite3_int64 offset) {
  const auto* bytes = static_cast<const std::uint8_t*>(from);
  noticeHeader(fileOf(file), bytes, size, offset);
  if (!fileOf(file).isChecked || !isPage(size)) return methodsOf(file).xWrite(systemOf(file), from, size, offset);
  try {
    std::vector<std::uint8_t> page(bytes, bytes + size);
    const Checksum checksum = checksumOf(bytes, size, offset);
    std::copy(checksum.begin(), checksum.end(), page.end() - ChecksumSize);
    return methodsOf(file).xWrite(systemOf(file), page.data(), size, offset);
  } catch (const std::bad_alloc&) {
    return SQLITE_IOERR_NOMEM;
  }
}

// Pages that SQLite would see without reading them would be seen unchecked.
int fetchNothing(sqlite3_file*, sqlite3_int64, int, void** page) {
  *page = nullptr;
  return SQLITE_OK;
}
int unfetchNothing(sqlite3_file*, sqlite3_int64, void*) { return SQLITE_OK; }

const sqlite3_io_methods& methods() {
  static const sqlite3_io_methods all = [] {
    sqlite3_io_methods made{};
    made.iVersion = 3;
    made.xClose = closeFile;
    made.xRead = readFile;
    made.xWrite = writeFile;
    made.xTruncate = [](sqlite3_file* file, sqlite3_int64 size) {
      return methodsOf(file).xTruncate(systemOf(file), size);
    };
    made.xSync = [](sqlite3_file* file, int flags) { return methodsOf(file).xSync(systemOf(file), flags); };
    made.xFileSize = [](sqlite3_file* file, sqlite3_int64* size) {
      return methodsOf(file).xFileSize(systemOf(file), size);
    };
    made.xLock = [](sqlite3_file* file, int lock) { return methodsOf(file).xLock(systemOf(file), lock); };
    made.xUnlock = [](sqlite3_file* file, int lock) { return methodsOf(file).xUnlock(systemOf(file), lock); };
    made.xCheckReservedLock = [](sqlite3_file* file, int* isHeld) {
      return methodsOf(file).xCheckReservedLock(systemOf(file), isHeld);
    };
    made.xFileControl = [](sqlite3_file* file, int operation, void* argument) {
      if (operation == AreChecked) {
        *static_cast<bool*>(argument) = fileOf(file).isChecked;
        return SQLITE_OK;
      }
      return methodsOf(file).xFileControl(systemOf(file), operation, argument);
    };
    made.xSectorSize = [](sqlite3_file* file) { return methodsOf(file).xSectorSize(systemOf(file)); };
    made.xDeviceCharacteristics = [](sqlite3_file* file) {
      return methodsOf(file).xDeviceCharacteristics(systemOf(file));
    };
    made.xShmMap = [](sqlite3_file* file, int page, int size, int extend, void volatile** place) {
      const int code = methodsOf(file).xShmMap(systemOf(file), page, size, extend, place);
      // No error of the disk: the index of the log finds no space there.
      return code == SQLITE_IOERR_SHMSIZE ? SQLITE_FULL : code;
    };
    made.xShmLock = [](sqlite3_file* file, int offset, int count, int flags) {
      return methodsOf(file).xShmLock(systemOf(file), offset, count, flags);
    };
    made.xShmBarrier = [](sqlite3_file* file) { methodsOf(file).xShmBarrier(systemOf(file)); };
    made.xShmUnmap = [](sqlite3_file* file, int remove) { return methodsOf(file).xShmUnmap(systemOf(file), remove); };
    made.xFetch = fetchNothing;
    made.xUnfetch = unfetchNothing;
    return made;
  }();
  return all;
}

int openFile(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* given) {
  sqlite3_vfs* const system = sqlite3_vfs_find(nullptr);
  // All other files, which nobody keeps, are the system's own.
  constexpr int kept = SQLITE_OPEN_MAIN_DB | SQLITE_OPEN_WAL | SQLITE_OPEN_MAIN_JOURNAL;
  if ((flags & kept) == 0) return system->xOpen(system, name, file, flags, given);
  CheckedFile& checked = fileOf(file);
  checked.isChecked = false;
  checked.system()->pMethods = nullptr;
  const int code = system->xOpen(system, name, checked.system(), flags, given);
  file->pMethods = checked.system()->pMethods ? &methods() : nullptr;
  return code;
}

}  // namespace

const char* CheckedPages::name() {
  constexpr const char* name = "pellor-checked-pages";
  static const bool isRegistered = [] {
    static sqlite3_vfs way = *sqlite3_vfs_find(nullptr);
    way.zName = name;
    way.pNext = nullptr;
    way.szOsFile += static_cast<int>(sizeof(CheckedFile));
    way.xOpen = openFile;
    way.xSleep = RecoveryPauses::sleep;
    return sqlite3_vfs_register(&way, 0) == SQLITE_OK;
  }();
  return isRegistered ? name : nullptr;
}

void CheckedPages::begin(sqlite3* database) {
  int size = ChecksumSize;
  sqlite3_file_control(database, "main", SQLITE_FCNTL_RESERVE_BYTES, &size);
}

bool CheckedPages::areIn(sqlite3* database) {
  bool are = false;
  return sqlite3_file_control(database, "main", AreChecked, &are) == SQLITE_OK && are;
}

}  // namespace pellor
