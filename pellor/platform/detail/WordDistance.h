// How far a mistyped word is from the one that was meant.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

namespace pellor {

/// How many bytes have to be put right, put in, taken out or exchanged with their neighbours to make one of the other.
inline std::size_t wordDistance(std::string_view first, std::string_view second) {
  // The optimal alignment, row by row: each cell is the distance of a beginning of one and one of the other.
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

/// Two words agree in so little beyond this distance, about a third of their letters, that none was meant by the other.
inline std::size_t mostWordDistance(std::string_view first, std::string_view second) {
  return (std::max(first.size(), second.size()) + 1) / 3;
}

}  // namespace pellor
