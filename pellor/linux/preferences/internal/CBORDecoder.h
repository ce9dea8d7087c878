// Reads CBOR item by item, over libcbor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "pellor/runtime/Value.h"

namespace pellor {

/// The front of an item of any kind: three bits and a number, the length in the case of text and data. Read here and
/// not by libcbor, because a call for each item would be most of the time that reading a list takes.
struct CBORHead {
  enum class Type : std::uint8_t { integer, negative, data, text, array, map, tag, other };
  Type type = Type::other;
  std::uint64_t number = 0;

  /// Takes it off the front of `input`. False, and nothing taken, when it is cut off or an open-ended item's.
  bool takeFrom(std::span<const std::uint8_t>& input) {
    constexpr std::uint8_t inNextByte = 24, inNextEightBytes = 27;
    if (input.empty()) return false;
    number = input[0] & 0x1F;
    if (number > inNextEightBytes) return false;
    const std::size_t length = number < inNextByte ? 0 : std::size_t{1} << (number - inNextByte);
    if (length >= input.size()) return false;
    type = static_cast<Type>(input[0] >> 5);
    if (length > 0) number = 0;
    for (const std::uint8_t byte : input.subspan(1, length)) number = number << 8 | byte;
    input = input.subspan(1 + length);
    return true;
  }
};

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
