#include "pellor/testing/RecordingSyncService.h"

#include <utility>

namespace pellor {

RecordingSyncService::RecordingSyncService(std::shared_ptr<const InMemoryPreferences> preferences)
    : _preferences(std::move(preferences)) {}

void RecordingSyncService::setCompletedInitialSync(bool hasCompleted) {
  const MutexLock lock(_mutex);
  _hasCompletedInitialSync = hasCompleted;
}

std::vector<RecordingSyncService::Push> RecordingSyncService::pushes() const {
  const MutexLock lock(_mutex);
  return _pushes;
}

void RecordingSyncService::clearPushes() {
  const MutexLock lock(_mutex);
  _pushes.clear();
}

bool RecordingSyncService::hasCompletedInitialSync() {
  const MutexLock lock(_mutex);
  return _hasCompletedInitialSync;
}

void RecordingSyncService::synchronizeDomainKeys(std::string_view domain, const std::set<std::string>& keys) {
  Push push{std::string(domain), keys, {}};
  for (const std::string& key : keys) {
    if (auto value = _preferences->value(key, domain)) push.values.emplace(key, *std::move(value));
  }
  const MutexLock lock(_mutex);
  _pushes.push_back(std::move(push));
}

}  // namespace pellor
