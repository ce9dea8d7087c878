// Keys by which names are found and sorted, whatever their case and accents.
#pragma once

#include <string>
#include <string_view>

namespace pellor {

/// Equal for texts with equal words in any order, case and accents and punctuation aside; empty for a text without
/// words. Keys of different versions of the collation (`nameKeyVersion`) do not compare. Any thread.
std::string nameSearchKey(std::string_view name);

/// Sorts before another text's key when the text comes before the other, case and accents aside. Any thread.
std::string nameSortKey(std::string_view name);

/// Names the collation that made the keys.
std::string nameKeyVersion();

}  // namespace pellor
