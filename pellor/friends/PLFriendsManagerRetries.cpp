// What the manager does while its store fails, and when another process was first.
#include <utility>

#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/internal/PLFriendsManagerParts.h"
#include "pellor/friends/internal/PLListWriter.h"
#include "pellor/friends/internal/PLPosting.h"

namespace pellor {

void PLFriendsManager::_retryLoadLater() {
  std::weak_ptr<PLFriendsManager> weak = weak_from_this();
  _parts->loadRetry.retry([weak] {
    if (auto self = weak.lock()) self->_loadAgain();
  });
}

std::optional<PLStoreTrouble> PLFriendsManager::storeTrouble() const {
  if (_storeIsUnreadable) return PLStoreTrouble::reading;
  return _writer->hasFailed() ? std::optional(PLStoreTrouble::writing) : std::nullopt;
}

void PLFriendsManager::_noteStoreTrouble() {
  const auto trouble = storeTrouble();
  if (std::exchange(_postedTrouble, trouble) == trouble) return;
  postOnMainQueue(_process, PLFriendsManagerStoreTroubleChangedNotification, weak_from_this());
}

void PLFriendsManager::_listWasOvertaken() {
  if (!std::exchange(_wasOvertaken, true)) return _loadIsDue();
  _parts->overtakenRetry.retry([weak = weak_from_this()] {
    if (auto self = weak.lock()) self->_loadIsDue();
  });
}

void PLFriendsManager::_loadIsDue() {
  if (!_writer->awaitsLoad()) return _loadIfOther();
  _loadAgain();
  _checkInvariants();
}

}  // namespace pellor
