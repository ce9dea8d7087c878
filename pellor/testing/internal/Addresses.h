// The written forms of addresses.
#pragma once

#include <string>
#include <string_view>

namespace pellor {

/// The text with every "tel:" and "mailto:" taken out, also those that come together when another one goes.
std::string withoutSchemes(std::string_view text);
/// Lower case, letters A to Z alone.
std::string lowerCasedAddress(std::string_view text);

}  // namespace pellor
