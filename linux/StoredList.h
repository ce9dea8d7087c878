// A long array in the preferences database, one row a run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "linux/PreferencesDatabase.h"
#include "runtime/LongArray.h"
#include "runtime/Value.h"

namespace pellor {

/// The array as it is stored, with what reading it again and writing over it need to know. Each row has the revision of
/// its last change; whoever writes raises the list's revision, so that an index gives others the rows that they have
/// not read. A row's last good copy is written with it.
///
/// Runs that did not change stay the same objects from one reading or writing to the next, and a list in which nothing
/// changed stays the same object too.
struct StoredList {
  StoredRuns rows;
  std::int64_t revision = 0;  ///< the newest that was read or written
  Value value;                ///< a long array of EncodedRuns
};

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

/// An array to be written: the runs of a long array, encoded.
struct EncodedList {
  /// The same runs, those that are no EncodedRuns made into such. Absent when one exceeds a limit of `encodeCBOR`.
  static std::optional<EncodedList> encode(const LongArray& array);

  std::vector<std::shared_ptr<const ArrayRun>> runs;
  std::size_t count = 0;  ///< of elements
};

/// Writes the rows that differ from `stored`, which is what the key has in the open transaction. When it is null, all
/// of them, in place of whatever the key has.
std::shared_ptr<const StoredList> writeList(const PreferencesDatabase& store, std::string_view key,
                                            std::string_view domain, EncodedList list,
                                            const std::shared_ptr<const StoredList>& stored);

}  // namespace pellor
