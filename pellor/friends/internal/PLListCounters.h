// The counters that tell how long a list is.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "pellor/runtime/Process.h"

namespace pellor {

class PLPageLayout;

/// Writes the counters of a list. Its invariant: lists of other domains than the default one count nothing. Main queue.
class PLListCounters {
 public:
  /// The layout outlives this object.
  PLListCounters(Process& process, std::string domain, const PLPageLayout& pages);

  void _tallyLogFriendCount() const;
  /// Not counting one group, the trailing one.
  void _tallyLogFriendGroupCount() const;
  void _tallyUnreachableFriends(std::int64_t count) const;

 private:
  void _tallySetValueForScalarKey(std::int64_t value, std::string_view key) const;

  Process& _process;
  const std::string _domain;
  const PLPageLayout& _pages;
};

}  // namespace pellor
