// SQLite files of which each page carries a checksum.
#pragma once

#include <sqlite3.h>

namespace pellor {

/// A way to files for SQLite that writes a checksum into the last bytes of each page of a database which leaves them
/// free, and takes a page whose checksum is off for damage (SQLITE_CORRUPT), whatever the page holds: rows, or the
/// order in which they are found. Other databases, logs and journals (which have checksums of their own) pass as they
/// are. It also calls a disk full that has no room for the index of a log, takes what the disk cannot read for no
/// damage (SQLITE_IOERR), and makes SQLite's own pauses those of RecoveryPauses.
class CheckedPages {
 public:
  /// The name under which SQLite knows it, in connections that are opened after the call. Any thread.
  static const char* name();

  /// Lets the pages of an empty database carry checksums, before anything is written to it.
  static void begin(sqlite3* database);
  /// Whether they carry them, as far as the file was read.
  static bool areIn(sqlite3* database);
};

}  // namespace pellor
