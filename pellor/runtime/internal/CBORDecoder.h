// Reads CBOR item by item.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "pellor/runtime/Value.h"

namespace pellor {

/// What stands at the front of the input: a whole scalar, or the head of something nested.
struct CBORItem {
  enum class Kind { unsupported, boolean, integer, negative, real, string, data, array, map, tag };
  Kind kind = Kind::unsupported;
  std::uint64_t number = 0;  ///< the integer, the element count or the tag
  double real = 0;
  std::span<const std::uint8_t> bytes;  ///< of text and data, as they lie in the input

  std::string_view text() const { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }
  /// The integer, or absent when 64 signed bits do not hold it. Of integers alone.
  std::optional<std::int64_t> integer() const;
};

/// Goes through an input, which has to outlive it, from front to end.
class CBORDecoder {
 public:
  explicit CBORDecoder(std::span<const std::uint8_t> input) : _input(input) {}

  /// What is left.
  std::span<const std::uint8_t> rest() const { return _input; }

  /// The next item; unsupported at the end, when it is cut off, and when it is of no kind that a value has.
  CBORItem next();

  /// The next value, absent when there is none. `depth` arrays and dictionaries are around it.
  std::optional<Value> value(std::size_t depth);

  /// Goes past the next value without making it. False unless `value` would have given one.
  bool skip(std::size_t depth);

  /// Whether the keys of every dictionary that was skipped were in ascending order, which is how they are written.
  /// Where they were not, a key may be there twice.
  bool keysWereInOrder() const { return _keysWereInOrder; }

 private:
  bool canHold(std::uint64_t elements, std::size_t depth) const;
  std::optional<Value> date(std::uint64_t tag);
  std::optional<Value> array(std::uint64_t count, std::size_t depth);
  std::optional<Value> dictionary(std::uint64_t count, std::size_t depth);
  bool takeKey(std::string_view& key);
  bool skipBytes(std::uint64_t count);
  bool skipArray(std::uint64_t count, std::size_t depth);
  bool skipDictionary(std::uint64_t count, std::size_t depth);

  std::span<const std::uint8_t> _input;
  bool _keysWereInOrder = true;
};

}  // namespace pellor
