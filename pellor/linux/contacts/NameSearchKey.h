// Keys by which names are found, whatever their case and accents.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "pellor/platform/TextService.h"

namespace pellor {

/// Equal for texts with equal words in any order, case and accents and punctuation aside; empty for a text without
/// words. Keys of different versions of the collation (`collationVersion`) do not compare. Any thread.
std::string nameSearchKey(std::string_view name);
/// As for a text with these words.
std::string nameSearchKey(std::span<const SearchWord> words);

/// The key with each word in its other spelling, if it has one; empty when none of them has.
std::string spelledOutNameKey(std::span<const SearchWord> words);

/// A key of `AlphabeticalOrder` without a locale. Any thread.
[[deprecated("use AlphabeticalOrder")]] std::string nameSortKey(std::string_view name);

}  // namespace pellor
