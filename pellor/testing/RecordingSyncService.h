// A paired device that remembers what was pushed to it.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/platform/PreferencesSyncService.h"
#include "pellor/runtime/ThreadSafety.h"
#include "pellor/testing/InMemoryPreferences.h"

namespace pellor {

/// The one paired device of a world. Any thread.
class RecordingSyncService : public PreferencesSyncService {
 public:
  struct Push {
    std::string domain;
    std::set<std::string> keys;
    std::map<std::string, Value, std::less<>> values;  ///< what was stored under the keys at that moment
  };

  explicit RecordingSyncService(std::shared_ptr<const InMemoryPreferences> preferences);

  /// Whether the initial sync has completed; it has not at first.
  void setCompletedInitialSync(bool hasCompleted);
  /// All pushes, oldest first.
  std::vector<Push> pushes() const;
  void clearPushes();

  bool hasCompletedInitialSync() override;
  void synchronizeDomainKeys(std::string_view domain, const std::set<std::string>& keys) override;

 private:
  const std::shared_ptr<const InMemoryPreferences> _preferences;
  mutable Mutex _mutex;
  bool _hasCompletedInitialSync PELLOR_GUARDED_BY(_mutex) = false;
  std::vector<Push> _pushes PELLOR_GUARDED_BY(_mutex);
};

}  // namespace pellor
