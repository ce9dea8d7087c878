#include "pellor/friends/internal/PLOwnPosts.h"

#include <algorithm>

#include "pellor/friends/internal/PLDomainSettings.h"
#include "pellor/platform/Platform.h"

namespace pellor {
namespace {

// A bus that has not brought an own post back for so long is taken for gone.
constexpr double EchoLimit = 2;

bool takeOne(std::uint64_t& count) {
  if (count == 0) return false;
  --count;
  return true;
}

}  // namespace

PLOwnPosts::~PLOwnPosts() {
  if (!_isObserving) return;
  SystemNotifyBus& bus = *platformOf(_process).notifyBus;
  bus.removeObserver(this, _notificationForExternalListChange());
  if (!_settings.haveOneExternalName()) {
    bus.removeObserver(&_titlePostCount, _settings.friendGroupTitleChangedExternallyNotificationName());
  }
}

void PLOwnPosts::observe(const std::function<void()>& listWasPosted, const std::function<void()>& titlesWerePosted) {
  if (std::exchange(_isObserving, true)) return;
  SystemNotifyBus& bus = *platformOf(_process).notifyBus;
  bus.addObserver(this, listWasPosted, _notificationForExternalListChange());
  if (!_settings.haveOneExternalName()) {
    bus.addObserver(&_titlePostCount, titlesWerePosted, _settings.friendGroupTitleChangedExternallyNotificationName());
  }
}

const std::string& PLOwnPosts::_notificationForExternalListChange() const {
  return _settings.friendsChangedExternallyNotificationName();
}

void PLOwnPosts::postTitles() { _postExternally(_settings.friendGroupTitleChangedExternallyNotificationName()); }

void PLOwnPosts::_postExternally(const std::string& name) {
  if (name == _notificationForExternalListChange()) {
    _incrementExternalChangePostCount();
  } else {
    ++_titlePostCount;
  }
  _lastPost = _process.now();
  platformOf(_process).notifyBus->post(name);
}

bool PLOwnPosts::takeListEcho() { return takeOne(_postCount); }

bool PLOwnPosts::takeTitlesEcho() { return takeOne(_titlePostCount); }

void PLOwnPosts::awaitEchoes() {
  if (haveAllEchoes() || (_timer && _timer->isValid())) return;
  const double pause = std::max(0.0, _lastPost + EchoLimit - _process.now());
  // The timer ends with this object.
  _timer = Timer::after(_process.mainQueue(), pause, [this] {
    if (_process.now() < _lastPost + EchoLimit) return;
    _postCount = 0;
    _titlePostCount = 0;
  });
}

}  // namespace pellor
