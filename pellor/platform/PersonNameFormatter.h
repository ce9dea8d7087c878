// Names in the order and form of the user's locale.
#pragma once

#include <optional>
#include <string>

namespace pellor {

/// Any thread; pure.
class PersonNameFormatter {
 public:
  virtual ~PersonNameFormatter() = default;
  /// The initials of a name in the order in which the locale writes names. Without fallbacks: empty when the name
  /// cannot be abbreviated. Absent and empty parts count as missing.
  virtual std::string abbreviatedName(const std::optional<std::string>& givenName,
                                      const std::optional<std::string>& familyName) = 0;
};

}  // namespace pellor
