// The checksums of rows in a database.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace pellor {

/// Which table a row belongs to, so that a row of another table is none of this one.
enum class CheckedTable : std::uint8_t { store = 1, values, goodValues, chunks, goodChunks, contacts };

/// The checksum of a row: of its table and of each cell, in order. Text and bytes count with their length. It is equal
/// on every machine.
class RowChecksum {
 public:
  explicit RowChecksum(CheckedTable table) { add(static_cast<std::int64_t>(table)); }

  RowChecksum& add(std::int64_t integer);
  RowChecksum& add(std::span<const std::uint8_t> bytes);
  RowChecksum& add(std::string_view text);

  /// As the signed integer of the same bits, which is how a database keeps it.
  std::int64_t value() const;

 private:
  static constexpr std::size_t WordSize = 8;
  static constexpr std::size_t MostWords = 32;

  void append(std::uint64_t word);

  std::array<std::uint8_t, MostWords * WordSize> _words{};
  std::size_t _size = 0;
};

}  // namespace pellor
