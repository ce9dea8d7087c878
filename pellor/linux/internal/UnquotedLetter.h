// What TOML has between quotes and in comments alone.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace pellor {

/// The line, from 1 on, of the first character beyond ASCII that stands neither between quotes nor in a comment. TOML
/// has none there, and its parser takes for granted that it meets none. Absent: there is none. Any text, also one that
/// is no TOML. Any thread.
std::optional<std::size_t> lineOfUnquotedLetter(std::string_view toml);

}  // namespace pellor
