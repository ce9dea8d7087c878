// How long the texts of a person may be.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace pellor {

// In code points.
inline constexpr std::size_t LongestName = 1000;
inline constexpr std::size_t LongestNumber = 64;
/// 64 before the sign, 255 behind it.
inline constexpr std::size_t LongestAddress = 320;

/// The name as far as it is looked at: whole, or cut where its last character within LongestName code points ends, the
/// marks that belong to it included; a character that is longer than that is cut. A name that is cut ends without a
/// blank. Any thread; takes no longer for a longer name.
std::string_view nameWithinLimit(std::string_view name);

/// Any thread; takes no longer for a longer text.
bool isTooLongForNumber(std::string_view text);

/// Whether the text is too long to be a number or, with "@", an address. Any thread.
bool isTooLongForDestination(std::string_view text);

}  // namespace pellor
