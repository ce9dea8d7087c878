// A disk on which the files beside a SQLite database cannot be written.
#pragma once

#include <sqlite3.h>

#include <atomic>
#include <string_view>

namespace pellor {

/// Stands between SQLite and the files of all databases that are opened while it is there, and has to outlive their
/// connections. One at a time.
class FaultyDisk {
 public:
  enum class Fault {
    none,
    full,     ///< writes fail for want of room
    unsure,   ///< what was written cannot be forced to the disk
    bad,      ///< pages of a database cannot be read
    indexes,  ///< there is no room for the index of a log that is not there yet, but in memory
  };

  FaultyDisk() {
    _system = sqlite3_vfs_find(nullptr);
    _disk = *_system;
    _disk.zName = "faulty";
    _disk.xOpen = open;
    sqlite3_vfs_register(&_disk, 1);
  }
  ~FaultyDisk() {
    sqlite3_vfs_unregister(&_disk);
    sqlite3_vfs_register(_system, 1);
  }
  FaultyDisk(const FaultyDisk&) = delete;
  FaultyDisk& operator=(const FaultyDisk&) = delete;

  /// Happens to `times` writes to logs, attempts to force them to the disk, or reads of databases, after `passed` of
  /// them.
  void fail(Fault fault, int times, int passed = 0) {
    _passed = passed;
    _times = times;
    _fault = fault;
  }

 private:
  static int open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* flagsOfFile) {
    const int code = _system->xOpen(_system, name, file, flags, flagsOfFile);
    const bool isInMemory = name && std::string_view(name).starts_with("/dev/shm/");
    if (code == SQLITE_OK && (flags & SQLITE_OPEN_MAIN_DB) != 0 && !isInMemory) {
      _databases = file->pMethods;
      _faultyDatabases = *_databases;
      _faultyDatabases.xShmMap = mapIndex;
      _faultyDatabases.xRead = read;
      file->pMethods = &_faultyDatabases;
    }
    if (code != SQLITE_OK || (flags & SQLITE_OPEN_WAL) == 0) return code;
    // The system has one table of methods for all files of this kind.
    _files = file->pMethods;
    _faultyFiles = *_files;
    _faultyFiles.xWrite = write;
    _faultyFiles.xSync = sync;
    file->pMethods = &_faultyFiles;
    return code;
  }
  static int write(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 offset) {
    return happens(Fault::full) ? SQLITE_FULL : _files->xWrite(file, bytes, count, offset);
  }
  static int sync(sqlite3_file* file, int flags) {
    return happens(Fault::unsure) ? SQLITE_IOERR_FSYNC : _files->xSync(file, flags);
  }
  static int read(sqlite3_file* file, void* bytes, int count, sqlite3_int64 offset) {
    return happens(Fault::bad) ? SQLITE_IOERR_CORRUPTFS : _databases->xRead(file, bytes, count, offset);
  }
  static int mapIndex(sqlite3_file* file, int page, int size, int extend, void volatile** place) {
    return _fault == Fault::indexes ? SQLITE_IOERR_SHMSIZE : _databases->xShmMap(file, page, size, extend, place);
  }
  static bool happens(Fault fault) { return _fault == fault && _passed.fetch_sub(1) <= 0 && _times.fetch_sub(1) > 0; }

  sqlite3_vfs _disk{};
  static inline sqlite3_vfs* _system = nullptr;
  static inline const sqlite3_io_methods* _files = nullptr;
  static inline sqlite3_io_methods _faultyFiles{};
  static inline const sqlite3_io_methods* _databases = nullptr;
  static inline sqlite3_io_methods _faultyDatabases{};
  static inline std::atomic<Fault> _fault = Fault::none;
  static inline std::atomic<int> _passed = 0, _times = 0;
};

}  // namespace pellor
