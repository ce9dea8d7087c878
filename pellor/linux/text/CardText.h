// The text of a vCard, as far as it has to be looked at before and after the parser.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace pellor {

/// The text as UTF-8 without a byte order mark. A line that is no UTF-8 is read by its CHARSET, which it loses, and as
/// Windows-1252 where it names none or one that is not known.
std::string asUtf8Card(std::string_view text);

/// The text with each value in quoted-printable on one line, as far as its soft line breaks go ("=" at the end of a
/// line). Other lines stay as they are, but for their ends, which are CRLF.
std::string withoutSoftBreaks(std::string_view text);

/// The name of the property on a line, in lower case and without its group; empty for a line without one.
std::string cardPropertyName(std::string_view line);

/// Whether the first property of that name has a comma that is part of a value and separates none.
bool hasEscapedComma(std::string_view text, std::string_view property);

/// Whether the bytes are valid UTF-8.
bool isUtf8(std::string_view bytes);

/// Without control characters (each run of them is a blank) and without blanks at the ends.
std::string cleanCardText(std::string_view text);

/// ASCII letters in lower case.
std::string lowerCased(std::string_view text);

/// The parts between any of the separators, cleaned; empty ones left out.
std::vector<std::string> splitCardText(std::string_view text, std::string_view separators);

/// A hash that does not depend on the program or the machine.
std::int64_t contentHash(std::string_view text);

}  // namespace pellor
