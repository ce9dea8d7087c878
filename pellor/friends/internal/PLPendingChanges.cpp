#include "pellor/friends/internal/PLPendingChanges.h"

#include <string>

#include "pellor/friends/PLBundle.h"

namespace pellor {

std::shared_ptr<PLPendingChanges> PLPendingChanges::make() { return std::make_shared<PLPendingChanges>(Passkey{}); }

PLPendingChanges::PLPendingChanges(Passkey)
    : _changeLogQueue(ConcurrentQueue::make(std::string(PLVendorPrefix) + ".Pellor.PLFriendsManager.ChangeLog")) {}

void PLPendingChanges::_addEntryToChangeLogForPersonChangeType(const std::shared_ptr<PLPerson>& person,
                                                               std::string_view changeType) {
  if (!person) return;
  PLChangeLog changes;
  changes.add(person, changeType);
  addChanges(std::move(changes));
}

void PLPendingChanges::addChanges(PLChangeLog changes) {
  if (changes.isEmpty()) return;
  _changeLogQueue->asyncBarrier([weak = weak_from_this(), changes = std::move(changes)] {
    const auto self = weak.lock();
    if (!self) return;
    self->_changeLogQueue->requireCurrent();
    if (!self->_changeLog) self->_changeLog.emplace();
    self->_changeLog->add(changes);
  });
}

std::uint64_t PLPendingChanges::_changeLogCount() const {
  std::uint64_t count = 0;
  _changeLogQueue->sync([&] {
    _changeLogQueue->requireReader();
    count = _changeLog ? _changeLog->count() : 0;
  });
  return count;
}

bool PLPendingChanges::_changeLogContainsFriendAdditionsOrUpdates() const {
  bool contains = false;
  _changeLogQueue->sync([&] {
    _changeLogQueue->requireReader();
    contains = _changeLog && _changeLog->containsAdditionsOrUpdates();
  });
  return contains;
}

std::optional<PLChangeLog> PLPendingChanges::_copyAndResetChangeLog() {
  std::optional<PLChangeLog> taken;
  _changeLogQueue->sync([&] {
    _changeLogQueue->requireReader();
    if (!_changeLog || _changeLog->isEmpty()) return;
    taken = _changeLog;
    _changeLogQueue->asyncBarrier([weak = weak_from_this()] {
      const auto self = weak.lock();
      if (!self) return;
      self->_changeLogQueue->requireCurrent();
      self->setChangeLog(std::nullopt);
    });
  });
  return taken;
}

}  // namespace pellor
