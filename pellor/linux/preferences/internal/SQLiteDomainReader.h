// What the SQLite store has in one domain.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/preferences/internal/PreferencesDatabase.h"
#include "pellor/linux/preferences/internal/PreferencesMemory.h"

namespace pellor {

/// A value that is not as it was written.
struct DamagedPreference {
  std::string key;
  Data bytes;                ///< what was found; empty where the value is missing
  bool hasGoodCopy = false;  ///< which stands in its place
  bool isCopied = false;     ///< a copy of the store does
};

/// A domain as it was read. In place of a damaged value stands its good copy, with the version that it was written as;
/// where that is damaged as well, data that holds the bytes that were found. What does not decode though it is as it
/// was written, or though nothing tells how it was written, is data too, and no damage.
struct DomainReading {
  PreferencesMemory::Snapshot snapshot;
  std::vector<DamagedPreference> damaged;  ///< by key; a damaged index of rows counts as damage of the list
};

/// Reads the domain in the open transaction. `previous` (null: none) lends what did not change;
/// `isSameConnection` says whether it was read or written over this one.
DomainReading readDomain(const PreferencesDatabase& store, std::string_view domain,
                         const PreferencesMemory::Snapshot* previous, bool isSameConnection);

}  // namespace pellor
