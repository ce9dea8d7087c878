// The region and locale of a store.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "pellor/linux/files/UserFolders.h"
#include "pellor/linux/preferences/SharedPreferences.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// By which national phone numbers are read and names are written: "DE", "de_DE".
struct RegionAndLocale {
  std::string region;
  std::string locale;
  friend bool operator==(const RegionAndLocale&, const RegionAndLocale&) = default;
};

struct RegionProposal : RegionAndLocale {
  bool isAssumed = false;  ///< neither the option nor a locale names a region
};

/// What a process would choose: the given region, else the territory of the first of LC_ALL, LC_TELEPHONE and LANG that
/// names one, else "US". The language is that of the first of LC_ALL, LC_MESSAGES and LANG that names one, else "en";
/// it makes the locale together with the region. `region` must be valid (see isRegion).
RegionProposal proposedRegion(const std::optional<std::string>& region,
                              const Environment& environment = processEnvironment);

/// Whether the text is a region: two ASCII letters, upper case, of a country whose numbers can be read.
bool isRegion(std::string_view text);

/// The region and locale that all processes of a store share. Destinations are made canonical by them, so two processes
/// that each used their own would rewrite each other's list for ever. The first process writes what it proposes; every
/// other one uses what is there. It does not change for the life of the object; any thread.
class StoreRegion {
 public:
  /// What this process would choose. Asked at most once, and only where the store does not say.
  using Proposal = std::function<RegionProposal()>;

  StoreRegion(std::shared_ptr<SharedPreferences> store, Proposal proposal);

  /// While the store cannot be read these give the proposal and ask the store again each time. The texts stay.
  const std::string& region();
  const std::string& locale();

  /// Whether this object was the first to use the store, nothing named a region for it, and it is the store's still.
  bool isAssumed();

  /// The region that the store has; absent when it has none, or cannot be read.
  static std::optional<std::string> stored(PreferencesStore& store);

  /// Writes another region and locale for all processes that start from now on; true when they are on the disk. This
  /// object keeps its own. The list is rewritten in the new canonical forms as the processes save.
  static bool change(PreferencesStore& store, const RegionAndLocale& regionAndLocale);

 private:
  const RegionAndLocale& current();
  const RegionAndLocale& settledOrProposed();
  std::optional<RegionAndLocale> readOrWrite() PELLOR_REQUIRES(_mutex);
  const RegionProposal& proposed() PELLOR_REQUIRES(_mutex);

  const std::shared_ptr<SharedPreferences> _store;
  const Proposal _proposal;
  std::atomic<const RegionAndLocale*> _known = nullptr;  // `_settled`, once it is; written with the lock
  Mutex _mutex;
  std::optional<RegionAndLocale> _settled PELLOR_GUARDED_BY(_mutex);  ///< what the store says
  std::optional<RegionProposal> _proposed PELLOR_GUARDED_BY(_mutex);  ///< does not change
  bool _isProposalWritten PELLOR_GUARDED_BY(_mutex) = false;
};

}  // namespace pellor
