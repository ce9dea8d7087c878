// The ids of the rows that hold the chunks of a list.
#pragma once

#include <cstdint>

namespace pellor {

/// An id is made of the list and, in as many bits, the chunk's number there.
struct ChunkRowID {
  static constexpr int NumberBits = 24;
  static constexpr std::int64_t HighestNumber = (std::int64_t{1} << NumberBits) - 1;
  static std::int64_t of(std::int64_t list, std::int64_t number) { return (list << NumberBits) + number; }
};

}  // namespace pellor
