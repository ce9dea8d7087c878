// How long SQLite itself waits for another program.
#pragma once

#include <sqlite3.h>

namespace pellor {

/// Where the index of a log has to be made anew, and another program that holds the lock for it does not do so, SQLite
/// tries a hundred times with pauses of its own, which no busy handler ends: 10 seconds for each statement. These are
/// its pauses for all connections of the program, as long together as other locks are waited for: about 3 seconds, and
/// after a wait in vain, for a minute, next to nothing. Any thread.
class RecoveryPauses {
 public:
  /// For `xSleep` of a way to files.
  static int sleep(sqlite3_vfs* way, int microseconds);
  /// A wait was in vain.
  static void lose();
};

}  // namespace pellor
