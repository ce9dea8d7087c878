// The parts of CBOR items that are read and written alike.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "pellor/runtime/Value.h"

namespace pellor {

/// The front of an item of any kind: three bits and a number, the length in the case of text and data.
struct CBORHead {
  enum class Type : std::uint8_t { integer, negative, data, text, array, map, tag, other };
  Type type = Type::other;
  std::uint64_t number = 0;

  /// Takes it off the front of `input`. False, and nothing taken, when it is cut off or an open-ended item's.
  bool takeFrom(std::span<const std::uint8_t>& input) {
    if (input.empty()) return false;
    number = input[0] & 0x1F;
    if (number > InNextEightBytes) return false;
    const std::size_t length = number < InNextByte ? 0 : std::size_t{1} << (number - InNextByte);
    if (length >= input.size()) return false;
    type = static_cast<Type>(input[0] >> 5);
    if (length > 0) number = 0;
    for (const std::uint8_t byte : input.subspan(1, length)) number = number << 8 | byte;
    input = input.subspan(1 + length);
    return true;
  }

  /// Appends it in the shortest of its forms.
  void appendTo(Data& bytes) const {
    if (number < InNextByte) return bytes.push_back(firstByte(type, static_cast<std::uint8_t>(number)));
    const int power = number >> 32 ? 3 : number >> 16 ? 2 : number >> 8 ? 1 : 0;
    bytes.push_back(firstByte(type, static_cast<std::uint8_t>(InNextByte + power)));
    appendNumber(number, 8 << power, bytes);
  }

  static constexpr std::uint8_t firstByte(Type type, std::uint8_t rest) {
    return static_cast<std::uint8_t>(static_cast<unsigned>(type) << 5 | rest);
  }
  static void appendNumber(std::uint64_t number, int bits, Data& bytes) {
    for (int shift = bits - 8; shift >= 0; shift -= 8) bytes.push_back(static_cast<std::uint8_t>(number >> shift));
  }

 private:
  static constexpr std::uint8_t InNextByte = 24, InNextEightBytes = 27;
};

/// First bytes of the items of type `other` that a value has.
struct CBORFirstByte {
  static constexpr std::uint8_t False = 0xF4, True = 0xF5, HalfReal = 0xF9, SingleReal = 0xFA, DoubleReal = 0xFB;
};

/// How dates are written: this tag over seconds since 1970.
inline constexpr std::uint64_t CBORDateTag = 1;
/// Dates that would not come back exactly from seconds since 1970 are written over seconds since 2001.
inline constexpr std::uint64_t CBORExactDateTag = 978307200;

}  // namespace pellor
