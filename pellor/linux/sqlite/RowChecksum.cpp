#include "pellor/linux/sqlite/RowChecksum.h"

#include <xxhash.h>

#include "pellor/runtime/Fatal.h"

namespace pellor {

void RowChecksum::append(std::uint64_t word) {
  require(_size + WordSize <= _words.size(), "a row of few cells");
  for (std::size_t index = 0; index < WordSize; ++index) {
    _words[_size++] = static_cast<std::uint8_t>(word >> (8 * index));
  }
}

RowChecksum& RowChecksum::add(std::int64_t integer) {
  append(static_cast<std::uint64_t>(integer));
  return *this;
}

RowChecksum& RowChecksum::add(std::span<const std::uint8_t> bytes) {
  append(bytes.size());
  append(XXH3_64bits(bytes.data(), bytes.size()));
  return *this;
}

RowChecksum& RowChecksum::add(std::string_view text) {
  return add(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

std::int64_t RowChecksum::value() const { return static_cast<std::int64_t>(XXH3_64bits(_words.data(), _size)); }

}  // namespace pellor
