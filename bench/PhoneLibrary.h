// How much the phone library was used.
#pragma once

#include <cstdint>

namespace pellor::bench {

/// Counts from its construction on, in all threads.
class PhoneLibraryUse {
 public:
  PhoneLibraryUse();
  std::uint64_t parses() const;
  /// How often the library was asked for, which starts it the first time.
  std::uint64_t starts() const;

 private:
  const std::uint64_t _parsesBefore;
  const std::uint64_t _startsBefore;
};

}  // namespace pellor::bench
