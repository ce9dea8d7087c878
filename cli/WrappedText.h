#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace pellor::cli {

/// The text with lines that take no more than `width` columns, broken at spaces. A line goes on below its last column,
/// or a little to the right of its beginning. A longer word, a text that is isolated (pellor/linux/text/
/// TerminalText.h) and a line with tabs stay whole.
std::string wrapped(std::string_view text, std::size_t width);

}  // namespace pellor::cli
