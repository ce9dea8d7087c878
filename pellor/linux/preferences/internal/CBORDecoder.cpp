#include "pellor/linux/preferences/internal/CBORDecoder.h"

#include <cbor.h>

#include <limits>
#include <string>
#include <utility>

#include "pellor/linux/preferences/internal/CBORValue.h"

namespace pellor {
namespace {

constexpr std::uint64_t LargestInteger = std::numeric_limits<std::int64_t>::max();

CBORItem& itemOf(void* context) { return *static_cast<CBORItem*>(context); }

template <CBORItem::Kind kind, class Number>
void numberCallback(void* context, Number number) {
  CBORItem& item = itemOf(context);
  item.kind = kind;
  item.number = number;
}

template <CBORItem::Kind kind>
void bytesCallback(void* context, cbor_data bytes, std::size_t length) {
  CBORItem& item = itemOf(context);
  item.kind = kind;
  item.bytes = {bytes, length};
}

template <class Real>
void realCallback(void* context, Real real) {
  CBORItem& item = itemOf(context);
  item.kind = CBORItem::Kind::real;
  item.real = static_cast<double>(real);
}

cbor_callbacks makeCallbacks() {
  // Everything that has no callback here (null, open-ended items, simple values) stays unsupported.
  using Kind = CBORItem::Kind;
  cbor_callbacks made = cbor_empty_callbacks;
  made.uint8 = numberCallback<Kind::integer, std::uint8_t>;
  made.uint16 = numberCallback<Kind::integer, std::uint16_t>;
  made.uint32 = numberCallback<Kind::integer, std::uint32_t>;
  made.uint64 = numberCallback<Kind::integer, std::uint64_t>;
  made.negint8 = numberCallback<Kind::negative, std::uint8_t>;
  made.negint16 = numberCallback<Kind::negative, std::uint16_t>;
  made.negint32 = numberCallback<Kind::negative, std::uint32_t>;
  made.negint64 = numberCallback<Kind::negative, std::uint64_t>;
  made.boolean = numberCallback<Kind::boolean, bool>;
  made.array_start = numberCallback<Kind::array, std::size_t>;
  made.map_start = numberCallback<Kind::map, std::size_t>;
  made.tag = numberCallback<Kind::tag, std::uint64_t>;
  made.string = bytesCallback<Kind::string>;
  made.byte_string = bytesCallback<Kind::data>;
  made.float2 = realCallback<float>;
  made.float4 = realCallback<float>;
  made.float8 = realCallback<double>;
  return made;
}

const cbor_callbacks Callbacks = makeCallbacks();

}  // namespace

std::optional<std::int64_t> CBORItem::integer() const {
  if (number > LargestInteger) return std::nullopt;
  const auto value = static_cast<std::int64_t>(number);
  return kind == Kind::negative ? -1 - value : value;
}

CBORItem CBORDecoder::next() {
  CBORItem item;
  if (_input.empty()) return item;
  const cbor_decoder_result result = cbor_stream_decode(_input.data(), _input.size(), &Callbacks, &item);
  if (result.status != CBOR_DECODER_FINISHED) return {};
  _input = _input.subspan(result.read);
  return item;
}

inline bool CBORDecoder::skipBytes(std::uint64_t count) {
  if (count > _input.size()) return false;
  _input = _input.subspan(count);
  return true;
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

}  // namespace pellor
