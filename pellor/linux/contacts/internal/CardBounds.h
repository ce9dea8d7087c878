// The text of a card, made so short that the parser takes no longer than the text is long.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace pellor {

struct BoundedCard {
  std::string text;
  std::size_t leftOut = 0;  ///< properties that a contact has and that are too long to be read
};

/// The parser goes through the values of a property again for each one that follows, and for each value of a parameter.
/// So a property of more than 2 KiB is made shorter: names are cut far beyond LongestName, parameters beyond 2 KiB go,
/// numbers and addresses that are too long are left out, and so is every property that a contact does not have, such as
/// a picture. Shorter ones stay as they are, byte for byte. Any thread; in linear time.
BoundedCard boundedCard(std::string_view text);

}  // namespace pellor
