// A domain of the preferences in the tables of a PostgreSQL database, as it was at one moment.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "pellor/linux/preferences/internal/PreferencesMemory.h"
#include "pellor/platform/PreferencesStore.h"

namespace pellor {

/// Immutable values, of which each has its version.
struct PostgreSQLDomain {
  using SnapshotValue = PreferencesMemory::SnapshotValue;
  using Snapshot = PreferencesMemory::Snapshot;
  /// Stands for a revision when nothing is known: below that of any row.
  static constexpr std::int64_t Everything = -1;

  /// What a key has; the version without a count when it has no value.
  VersionedPreference preference(std::string_view key) const {
    const auto found = values->find(key);
    if (found == values->end()) return {std::nullopt, {store, 0, {}}};
    return {found->second.value, found->second.version};
  }

  std::uint64_t store = 0;  ///< the number of the store
  std::int64_t revision = Everything;
  std::shared_ptr<const Snapshot> values;
};

}  // namespace pellor
