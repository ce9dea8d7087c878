#include "cli/Suggestion.h"

#include <algorithm>
#include <cstddef>
#include <optional>

#include "pellor/platform/detail/WordDistance.h"

namespace pellor::cli {
namespace {

// The dashes of an option tell nothing of what was meant.
std::string_view withoutDashes(std::string_view word) {
  return word.substr(std::min(word.find_first_not_of('-'), word.size()));
}

std::optional<std::string> nearestWord(std::string_view typed, std::span<const std::string> known) {
  std::optional<std::string> nearest;
  std::size_t least = 0;
  for (const std::string& word : known) {
    const std::size_t distance = wordDistance(typed, word);
    if (distance > mostWordDistance(withoutDashes(typed), withoutDashes(word)) || (nearest && distance >= least))
      continue;
    nearest = word;
    least = distance;
  }
  return nearest;
}

}  // namespace

std::string didYouMean(std::string_view typed, std::span<const std::string> known, const std::string& otherwise) {
  const auto nearest = nearestWord(typed, known);
  return nearest ? didYouMean(*nearest) : otherwise;
}

std::string didYouMean(const std::string& meant) { return meant.empty() ? "" : ": did you mean " + meant + "?"; }

}  // namespace pellor::cli
