// Search filters of directories (RFC 4515).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace pellor {

/// The value with every byte that means something in a filter, and every byte beyond ASCII, as "\" and two digits.
std::string escapedFilterValue(std::string_view value);

/// That an attribute has a value, for a search of several.
struct FilterTerm {
  std::string attribute;
  std::string value;
};

/// Finds entries for which one of the terms holds and, unless it is empty, the condition: a filter of its own. Values
/// are escaped; attributes and condition are taken as they are.
std::string filterOfAny(const std::vector<FilterTerm>& terms, const std::string& condition);

}  // namespace pellor
