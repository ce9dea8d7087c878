// Where a friend is, as the user writes it.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace pellor::cli {

/// A slot of a page, both from 0. Written PAGE:SLOT, both from 1.
struct Place {
  std::uint64_t page = 0;
  std::uint64_t slot = 0;
  friend auto operator<=>(const Place&, const Place&) = default;
};

std::string textOf(const Place& place);

/// The place in a text of the form PAGE:SLOT; absent for any other text. Throws UsageError for a page or slot 0 and for
/// numbers beyond all measure.
std::optional<Place> placeIn(std::string_view text);

/// A page number, from 1, as an index from 0. Throws UsageError for any other text.
std::uint64_t pageIn(std::string_view text);

}  // namespace pellor::cli
