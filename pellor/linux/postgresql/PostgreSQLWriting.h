// What a transaction is to write, encoded.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "pellor/linux/preferences/StoredChunks.h"
#include "pellor/linux/preferences/internal/PreferencesMemory.h"
#include "pellor/platform/PreferencesStore.h"

namespace pellor {

/// What one transaction is to change in a domain.
struct PostgreSQLWriting {
  enum class Which {
    all,     ///< each key gets a new version, also when it gets an equal value
    absent,  ///< only keys that have no value
  };

  Which which = Which::all;
  PreferenceWriteID id = {};                                                     ///< in the versions that it makes
  std::map<std::string, std::optional<EncodedValue>, std::less<>> changes = {};  ///< absent: to be removed
  std::map<std::string, PreferenceVersion, std::less<>> madeFrom = {};           ///< the versions to be found
  /// Asked before the statements go out together with the COMMIT; false: nothing is written.
  std::function<bool()> mayCommit = [] { return true; };
};

// Any thread. Each throws a PostgreSQLError of the kind `refused` for a value that is too long or nested too deep.

/// What was set and is not stored: each key gets its value.
PostgreSQLWriting writingOf(const PreferencesMemory::PendingValues& values);
/// Values for keys that have none.
PostgreSQLWriting writingOf(const Dictionary& values);
/// Changes in place of the versions that they were made from.
PostgreSQLWriting writingOf(const PreferenceChanges& changes, PreferenceWriteID id);

}  // namespace pellor
