// Property-list values as CBOR (RFC 8949), over libcbor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "pellor/platform/PreferencesStore.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// How deep arrays and dictionaries may be nested. Deeper values are neither written nor read.
inline constexpr std::size_t CBORMaximumDepth = DeepestPreference;
/// How many bytes one value may take. Longer values are neither written nor read.
inline constexpr std::size_t CBORMaximumSize = LongestPreference;

/// How dates are written: this tag over seconds since 1970, where ours count from 2001.
inline constexpr std::uint64_t CBORDateTag = 1;
inline constexpr double SecondsFrom1970To2001 = 978307200;
/// Dates that would not come back exactly from seconds since 1970 are written over seconds since 2001.
inline constexpr std::uint64_t CBORExactDateTag = 978307200;

/// The value as one CBOR item, absent when it exceeds a limit. Booleans, integers and reals stay distinct; reals and
/// dates come back bit for bit. Any thread.
std::optional<Data> encodeCBOR(const Value& value);

/// Appends the value so encoded to `bytes`, for a value with `depth` arrays and dictionaries around it. False when a
/// limit is exceeded.
bool appendCBOR(const Value& value, std::size_t depth, Data& bytes);

/// The value that the bytes hold; absent unless they are exactly one item of the kinds that `encodeCBOR` writes, within
/// the limits. Reals and dates are read in any precision. Any thread.
std::optional<Value> decodeCBOR(std::span<const std::uint8_t> bytes);

}  // namespace pellor
