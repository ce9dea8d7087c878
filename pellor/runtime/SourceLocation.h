// Where a call stands in the source.
#pragma once

#include <version>

#ifdef __cpp_lib_source_location
#include <source_location>
#else
#include <cstdint>
#endif

namespace pellor {

#ifdef __cpp_lib_source_location

using SourceLocation = std::source_location;

#else

// The builtins stand in the default arguments below, where they mean the caller. Without them no place is known.
#ifdef __has_builtin
#if __has_builtin(__builtin_FUNCTION) && __has_builtin(__builtin_LINE)
#define PELLOR_CALLING_FUNCTION __builtin_FUNCTION()
#define PELLOR_CALLING_LINE __builtin_LINE()
#endif
#endif
#ifndef PELLOR_CALLING_FUNCTION
#define PELLOR_CALLING_FUNCTION "(unknown)"
#define PELLOR_CALLING_LINE 0
#endif

/// What the library uses of std::source_location, for standard libraries that lack it.
class SourceLocation {
 public:
  static constexpr SourceLocation current(const char* function = PELLOR_CALLING_FUNCTION,
                                          std::uint_least32_t line = PELLOR_CALLING_LINE) {
    SourceLocation location;
    location._function = function;
    location._line = line;
    return location;
  }
  constexpr const char* function_name() const { return _function; }
  constexpr std::uint_least32_t line() const { return _line; }

 private:
  const char* _function = "";
  std::uint_least32_t _line = 0;
};

#undef PELLOR_CALLING_FUNCTION
#undef PELLOR_CALLING_LINE

#endif

}  // namespace pellor
