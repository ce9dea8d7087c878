#include "pellor/friends/internal/PLListCounters.h"

#include <utility>

#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/friends/internal/PLPageLayout.h"
#include "pellor/platform/Platform.h"

namespace pellor {
namespace {

std::string prefixed(std::string_view name) { return std::string(PLVendorPrefix) + std::string(name); }

}  // namespace

PLListCounters::PLListCounters(Process& process, std::string domain, const PLPageLayout& pages)
    : _process(process), _domain(std::move(domain)), _pages(pages) {}

void PLListCounters::_tallySetValueForScalarKey(std::int64_t value, std::string_view key) const {
  if (_domain == TapnoteDomain) platformOf(_process).counters->setValueForScalarKey(key, value);
}

void PLListCounters::_tallyLogFriendCount() const {
  _tallySetValueForScalarKey(static_cast<std::int64_t>(_pages._numberOfFriendsInList()),
                             prefixed(".tn.friendList.size"));
}

void PLListCounters::_tallyLogFriendGroupCount() const {
  _tallySetValueForScalarKey(static_cast<std::int64_t>(_pages.count()) - 1, prefixed(".tn.friendGroups.count"));
}

void PLListCounters::_tallyUnreachableFriends(std::int64_t count) const {
  _tallySetValueForScalarKey(count, prefixed(".tn.unreachableFriends.count"));
}

}  // namespace pellor
