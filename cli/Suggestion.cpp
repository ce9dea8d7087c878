#include "cli/Suggestion.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

namespace pellor::cli {
namespace {

// Two words agree in so little beyond this that none was meant by the other.
std::size_t mostDifferences(std::string_view typed, std::string_view known) {
  return (std::max(typed.size(), known.size()) + 2) / 3;
}

// The optimal alignment of the two, row by row: each cell is the distance of a beginning of one and one of the other.
std::size_t distanceBetween(std::string_view first, std::string_view second) {
  std::vector<std::size_t> before, above, row(second.size() + 1);
  for (std::size_t column = 0; column <= second.size(); ++column) row[column] = column;
  for (std::size_t line = 1; line <= first.size(); ++line) {
    before = std::exchange(above, row);
    row[0] = line;
    for (std::size_t column = 1; column <= second.size(); ++column) {
      const std::size_t exchange = first[line - 1] == second[column - 1] ? 0 : 1;
      row[column] = std::min({above[column] + 1, row[column - 1] + 1, above[column - 1] + exchange});
      const bool isSwapped =
          line > 1 && column > 1 && first[line - 1] == second[column - 2] && first[line - 2] == second[column - 1];
      if (isSwapped) row[column] = std::min(row[column], before[column - 2] + 1);
    }
  }
  return row.back();
}

std::optional<std::string> nearestWord(std::string_view typed, std::span<const std::string> known) {
  std::optional<std::string> nearest;
  std::size_t least = 0;
  for (const std::string& word : known) {
    const std::size_t distance = distanceBetween(typed, word);
    if (distance > mostDifferences(typed, word) || (nearest && distance >= least)) continue;
    nearest = word;
    least = distance;
  }
  return nearest;
}

}  // namespace

std::string didYouMean(std::string_view typed, std::span<const std::string> known, const std::string& otherwise) {
  const auto nearest = nearestWord(typed, known);
  return nearest ? ": did you mean " + *nearest + "?" : otherwise;
}

}  // namespace pellor::cli
