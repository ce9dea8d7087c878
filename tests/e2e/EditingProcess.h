// A process that edits the list at random. Speaks lines over standard input and output.
#pragma once

#include <string>

namespace pellor {

// What it is told, one a line, until it is told no more:
inline constexpr const char* EditCommand = "edit";      ///< do the edits, then say "edited"
inline constexpr const char* ReportCommand = "report";  ///< come to rest, then say the list on one line

}  // namespace pellor
