// Where a friend is, as the user writes it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "pellor/list/ListIds.h"

namespace pellor::cli {

/// PAGE:SLOT, both from 1.
std::string textOf(const Place& place);

/// The place in a text of the form PAGE:SLOT; absent for any other text. Throws UsageError for a page or slot 0 and for
/// numbers beyond all measure.
std::optional<Place> placeIn(std::string_view text);

/// A page number, from 1, as an index from 0. Throws UsageError for any other text.
std::uint64_t pageIn(std::string_view text);

}  // namespace pellor::cli
