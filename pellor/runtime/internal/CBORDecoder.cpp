#include "pellor/runtime/internal/CBORDecoder.h"

#include <bit>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include "pellor/runtime/CBOR.h"
#include "pellor/runtime/WallClock.h"
#include "pellor/runtime/internal/CBORFormat.h"

namespace pellor {
namespace {

constexpr std::uint64_t LargestInteger = std::numeric_limits<std::int64_t>::max();

double halfReal(std::uint64_t bits) {
  const auto exponent = static_cast<int>(bits >> 10 & 0x1F);
  const auto fraction = static_cast<double>(bits & 0x3FF);
  constexpr int denormal = 0, infinite = 31, least = -24;
  double real = std::ldexp(1024 + fraction, exponent - 1 + least);
  if (exponent == denormal) real = std::ldexp(fraction, least);
  if (exponent == infinite) real = fraction == 0 ? HUGE_VAL : std::nan("");
  return (bits & 0x8000) != 0 ? -real : real;
}

std::optional<double> realOf(std::uint8_t firstByte, std::uint64_t bits) {
  if (firstByte == CBORFirstByte::DoubleReal) return std::bit_cast<double>(bits);
  if (firstByte == CBORFirstByte::SingleReal) return std::bit_cast<float>(static_cast<std::uint32_t>(bits));
  if (firstByte == CBORFirstByte::HalfReal) return halfReal(bits);
  return std::nullopt;
}

// Null, undefined and other simple values stay unsupported.
CBORItem otherItem(std::uint8_t firstByte, std::uint64_t bits) {
  CBORItem item;
  if (firstByte == CBORFirstByte::False || firstByte == CBORFirstByte::True) {
    item.kind = CBORItem::Kind::boolean;
    item.number = firstByte == CBORFirstByte::True ? 1 : 0;
  } else if (const auto real = realOf(firstByte, bits)) {
    item.kind = CBORItem::Kind::real;
    item.real = *real;
  }
  return item;
}

// In the order of the types, without the last.
constexpr CBORItem::Kind Kinds[] = {CBORItem::Kind::integer, CBORItem::Kind::negative, CBORItem::Kind::data,
                                    CBORItem::Kind::string,  CBORItem::Kind::array,    CBORItem::Kind::map,
                                    CBORItem::Kind::tag};

}  // namespace

std::optional<std::int64_t> CBORItem::integer() const {
  if (number > LargestInteger) return std::nullopt;
  const auto value = static_cast<std::int64_t>(number);
  return kind == Kind::negative ? -1 - value : value;
}

inline bool CBORDecoder::skipBytes(std::uint64_t count) {
  if (count > _input.size()) return false;
  _input = _input.subspan(count);
  return true;
}

CBORItem CBORDecoder::next() {
  const auto start = _input;
  CBORHead head;
  if (!head.takeFrom(_input)) return {};
  if (head.type == CBORHead::Type::other) return otherItem(start[0], head.number);
  CBORItem item;
  const bool hasBytes = head.type == CBORHead::Type::data || head.type == CBORHead::Type::text;
  if (hasBytes) {
    const auto rest = _input;
    if (!skipBytes(head.number)) return {};
    item.bytes = rest.first(head.number);
  }
  item.kind = Kinds[static_cast<std::size_t>(head.type)];
  item.number = head.number;
  return item;
}

inline bool CBORDecoder::takeKey(std::string_view& key) {
  CBORHead head;
  if (!head.takeFrom(_input) || head.type != CBORHead::Type::text) return false;
  key = {reinterpret_cast<const char*>(_input.data()), head.number};
  return skipBytes(head.number);
}

std::optional<Value> CBORDecoder::value(std::size_t depth) {
  const CBORItem item = next();
  switch (item.kind) {
    case CBORItem::Kind::boolean:
      return Value(item.number != 0);
    case CBORItem::Kind::integer:
    case CBORItem::Kind::negative:
      if (const auto integer = item.integer()) return Value(*integer);
      break;
    case CBORItem::Kind::real:
      return Value(item.real);
    case CBORItem::Kind::string:
      return Value(item.text());
    case CBORItem::Kind::data:
      return Value(Data(item.bytes.begin(), item.bytes.end()));
    case CBORItem::Kind::array:
      return array(item.number, depth);
    case CBORItem::Kind::map:
      return dictionary(item.number, depth);
    case CBORItem::Kind::tag:
      return date(item.number);
    case CBORItem::Kind::unsupported:
      break;
  }
  return std::nullopt;
}

bool CBORDecoder::skip(std::size_t depth) {
  const auto start = _input;
  CBORHead head;
  if (!head.takeFrom(_input)) return false;
  switch (head.type) {
    case CBORHead::Type::integer:
    case CBORHead::Type::negative:
      return head.number <= LargestInteger;
    case CBORHead::Type::data:
    case CBORHead::Type::text:
      return skipBytes(head.number);
    case CBORHead::Type::array:
      return skipArray(head.number, depth);
    case CBORHead::Type::map:
      return skipDictionary(head.number, depth);
    case CBORHead::Type::tag:
      return date(head.number).has_value();
    case CBORHead::Type::other:
      break;
  }
  _input = start;
  return next().kind != CBORItem::Kind::unsupported;
}

// An announced count is believed only as far as the input reaches: each element takes a byte at least.
bool CBORDecoder::canHold(std::uint64_t elements, std::size_t depth) const {
  return depth < CBORMaximumDepth && elements <= _input.size();
}

std::optional<Value> CBORDecoder::date(std::uint64_t tag) {
  if (tag != CBORDateTag && tag != CBORExactDateTag) return std::nullopt;
  const CBORItem item = next();
  const double origin = tag == CBORDateTag ? SecondsFrom1970To2001 : 0;
  if (item.kind == CBORItem::Kind::real) return Value(Date{item.real - origin});
  const bool isWhole = item.kind == CBORItem::Kind::integer || item.kind == CBORItem::Kind::negative;
  const auto seconds = isWhole ? item.integer() : std::nullopt;
  if (!seconds) return std::nullopt;
  return Value(Date{static_cast<double>(*seconds) - origin});
}

std::optional<Value> CBORDecoder::array(std::uint64_t count, std::size_t depth) {
  if (!canHold(count, depth)) return std::nullopt;
  Array array;
  for (std::uint64_t index = 0; index < count; ++index) {
    std::optional<Value> element = value(depth + 1);
    if (!element) return std::nullopt;
    array.push_back(*std::move(element));
  }
  return Value(std::move(array));
}

std::optional<Value> CBORDecoder::dictionary(std::uint64_t count, std::size_t depth) {
  if (!canHold(count, depth)) return std::nullopt;
  Dictionary dictionary;
  for (std::uint64_t index = 0; index < count; ++index) {
    std::string_view key;
    std::optional<Value> element = takeKey(key) ? value(depth + 1) : std::nullopt;
    if (!element || !dictionary.emplace(key, *std::move(element)).second) return std::nullopt;
  }
  return Value(std::move(dictionary));
}

bool CBORDecoder::skipArray(std::uint64_t count, std::size_t depth) {
  if (!canHold(count, depth)) return false;
  for (std::uint64_t index = 0; index < count; ++index) {
    if (!skip(depth + 1)) return false;
  }
  return true;
}

bool CBORDecoder::skipDictionary(std::uint64_t count, std::size_t depth) {
  if (!canHold(count, depth)) return false;
  std::string_view last;
  for (std::uint64_t index = 0; index < count; ++index) {
    std::string_view key;
    if (!takeKey(key) || !skip(depth + 1)) return false;
    if (index > 0 && key <= last) _keysWereInOrder = false;
    last = key;
  }
  return true;
}

std::optional<Value> decodeCBOR(std::span<const std::uint8_t> bytes) {
  if (bytes.size() > CBORMaximumSize) return std::nullopt;
  CBORDecoder decoder(bytes);
  std::optional<Value> value = decoder.value(0);
  return decoder.rest().empty() ? value : std::nullopt;
}

}  // namespace pellor
