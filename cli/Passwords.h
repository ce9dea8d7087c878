// Whether a password stands in a setting.
#pragma once

#include <string_view>

namespace pellor::cli {

/// Whether the text, of the configuration or of the command line, has a password in it: a place with one before its
/// "@", or a word "password=". Rather one too many. Any thread.
bool holdsPassword(std::string_view text);

}  // namespace pellor::cli
