// A long array in the preferences database, one row a chunk.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "pellor/linux/preferences/StoredChunks.h"
#include "pellor/linux/preferences/internal/PreferencesDatabase.h"
#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// A list as it was read.
struct ListReading {
  std::shared_ptr<const StoredList> list;  ///< null when a row is damaged, missing or no chunk, without a good copy
  PreferenceVersion version;               ///< of the newest row, or that of the list where it is newer
  bool isDamaged = false;  ///< checksums tell that rows, or the index of rows, are not as they were written
};

/// Reads all rows of the list, which has that version. `previous`, if any, lends its chunks where the bytes are the
/// same.
ListReading readList(const PreferencesDatabase& store, const StoredChunks& rows, const PreferenceVersion& version,
                     const StoredList* previous);

/// Reads the rows that are newer than `previous`, which was read or written over this connection with version `known`.
/// The list is null when one of them is damaged.
ListReading readNewerRows(const PreferencesDatabase& store, const StoredChunks& rows, const PreferenceVersion& version,
                          const std::shared_ptr<const StoredList>& previous, const PreferenceVersion& known);

/// The last good copy of the array; absent when a row of it is damaged or missing.
std::optional<Value> lastGoodList(const PreferencesDatabase& store, const StoredChunks& rows);

/// What is stored of a value: of a list the bytes of all rows, one after the other, when they are whole a CBOR sequence
/// of arrays.
Data foundBytes(const PreferencesDatabase& store, const StoredValue& value);

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
