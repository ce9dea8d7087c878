// The numbers and addresses of friends: what kind they are of, and when two of them are one. Any thread that has a
// current process.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace pellor {

enum class DestinationKind { neither, phoneNumber, emailAddress };

/// An address holds "@" or "mailto:", any other text with a decimal digit of any script, or with "tel:", is a number.
DestinationKind destinationKind(std::string_view text);

/// The text without "tel:" and "mailto:".
std::string rawDestination(std::string_view text);

/// The one spelling of a number under which it is stored and compared; an address is its own, with "tel:" and "mailto:"
/// taken out. Absent for a number of which there is none.
std::optional<std::string> canonicalDestination(std::string_view text);

/// Equal for two texts of one number or address, as somebody looks for it: A-Z count as a-z in an address, in every
/// locale. Absent for a text that is neither.
std::optional<std::string> comparableDestination(std::string_view text);

}  // namespace pellor
