// A long array in the preferences database, one row a run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "linux/PreferencesDatabase.h"
#include "linux/StoredRuns.h"
#include "runtime/LongArray.h"
#include "runtime/Value.h"

namespace pellor {

/// Reads all rows. Null when one is damaged or missing. `previous`, if any, lends its runs where the bytes are the
/// same.
std::shared_ptr<const StoredList> readList(const PreferencesDatabase& store, const StoredRuns& rows,
                                           const StoredList* previous);

/// Reads the rows that are newer than `previous`, which was read or written over the same connection.
std::shared_ptr<const StoredList> readNewerRows(const PreferencesDatabase& store, const StoredRuns& rows,
                                                const std::shared_ptr<const StoredList>& previous);

/// The last good copy of the array; absent when a row of it is damaged or missing.
std::optional<Value> lastGoodList(const PreferencesDatabase& store, const StoredRuns& rows);

/// The bytes of all rows, one after the other: when they are whole, a CBOR sequence of arrays.
Data bytesOfList(const PreferencesDatabase& store, const StoredRuns& rows);

/// What becomes of a value that is stored already.
enum class EqualValues {
  areLeft,     ///< nothing is written, and it keeps its version
  areWritten,  ///< as a new version
};

/// Writes the rows that differ from `stored`, which is what the key has in the open transaction. When it is null, all
/// of them, in place of whatever the key has. Gives `stored` where an equal list was left; else the list of that
/// version.
std::shared_ptr<const StoredList> writeList(const PreferencesDatabase& store, std::string_view key,
                                            std::string_view domain, EncodedList list,
                                            const std::shared_ptr<const StoredList>& stored,
                                            const PreferenceVersion& version, EqualValues equal);

}  // namespace pellor
