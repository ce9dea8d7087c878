// What a SQLite file still has of rows that are gone.
#pragma once

#include "pellor/linux/sqlite/SQLiteDatabase.h"

namespace pellor {

/// Writes all rows anew, in one transaction, and zeros over all else: free pages, and what rows have left within pages.
/// The file becomes no shorter, so that nobody takes it for one that was cut, and rows keep their numbers where a
/// column has them. Throws SQLiteError.
void overwriteUnusedSpace(const SQLiteDatabase& database);

/// Empties the write-ahead log of a database, once its last reader of an earlier state is done. False when that did not
/// come to pass within the patience of the connection. Throws SQLiteError.
bool emptyLog(const SQLiteDatabase& database);

}  // namespace pellor
