// Counters for the makers of the phone.
#pragma once

#include <cstdint>
#include <string_view>

namespace pellor {

/// Main queue.
class AnalyticsCounters {
 public:
  virtual ~AnalyticsCounters() = default;
  /// Records the value in place of the one recorded before.
  virtual void setValueForScalarKey(std::string_view key, std::int64_t value) = 0;
};

}  // namespace pellor
