// The form in which numbers are compared and stored.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace pellor {

/// The one form of all spellings of a number, read in `region`. A number that can be dialled from everywhere has its
/// international form (see `internationalPhoneNumber`). One that is complete only inside its area, a short one and a
/// service code such as "*100#" are their digits, in ASCII, and the signs "*" and "#": spaces, hyphens and brackets say
/// nothing. Any other text, and one that is too long for a number, is its own form. A form is its own form. Any thread;
/// pure.
std::string comparableNumber(std::string_view text, std::string_view region);

/// The digits of a typed number, in ASCII, with the signs "*" and "#" and a "+" before them all: the text as its writer
/// would have typed it with the keys of a phone. Absent for a text that holds something else than these and
/// punctuation. Any thread; pure.
std::optional<std::string> keysOfNumber(std::string_view text);

}  // namespace pellor
