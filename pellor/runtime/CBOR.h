// Values as bytes, in CBOR (RFC 8949): what stores, copies and messages of a port are made of.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "pellor/runtime/Value.h"

namespace pellor {

/// How deep arrays and dictionaries may be nested. Deeper values are neither written nor read.
inline constexpr std::size_t CBORMaximumDepth = 128;
/// How many bytes one value may take. Longer values are neither written nor read.
inline constexpr std::size_t CBORMaximumSize = std::size_t{256} << 20;

/// The value as one CBOR item, absent when it exceeds a limit. Booleans, integers and reals stay distinct; reals and
/// dates come back bit for bit. One value has one encoding, in every version of the library. Any thread.
std::optional<Data> encodeCBOR(const Value& value);

/// The value that the bytes hold; absent unless they are exactly one item of the kinds that `encodeCBOR` writes, within
/// the limits, whatever bytes they are. Reals and dates are read in any precision. Takes memory in proportion to the
/// bytes alone, not to the sizes that they announce. Any thread.
std::optional<Value> decodeCBOR(std::span<const std::uint8_t> bytes);

}  // namespace pellor
