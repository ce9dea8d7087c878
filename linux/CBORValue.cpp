#include "linux/CBORValue.h"

#include <cbor.h>

#include <limits>
#include <string>
#include <type_traits>
#include <utility>

namespace pellor {
namespace {

// Our dates count from 2001, those of tag 1 from 1970.
constexpr double SecondsFrom1970To2001 = 978307200;
constexpr std::uint64_t DateTag = 1;
constexpr std::size_t LongestHead = 9;

class Encoder {
 public:
  /// False when a limit is exceeded.
  bool put(const Value& value, std::size_t depth) {
    if (depth > CBORMaximumDepth || _bytes.size() > CBORMaximumSize) return false;
    switch (value.kind()) {
      case Value::Kind::boolean:
        return head(cbor_encode_bool, *value.boolean());
      case Value::Kind::integer:
        return putInteger(*value.integer());
      case Value::Kind::real:
        return head(cbor_encode_double, *value.real());
      case Value::Kind::string:
        return head(cbor_encode_string_start, value.string()->size()) && content(*value.string());
      case Value::Kind::data:
        return head(cbor_encode_bytestring_start, value.data()->size()) && content(*value.data());
      case Value::Kind::date:
        return head(cbor_encode_tag, DateTag) &&
               head(cbor_encode_double, value.date()->seconds + SecondsFrom1970To2001);
      case Value::Kind::array:
        return putArray(*value.array(), depth);
      case Value::Kind::dictionary:
        return putDictionary(*value.dictionary(), depth);
    }
    return false;
  }

  std::optional<Data> take() && {
    if (_bytes.size() > CBORMaximumSize) return std::nullopt;
    return std::move(_bytes);
  }

 private:
  bool putInteger(std::int64_t integer) {
    if (integer >= 0) return head(cbor_encode_uint, static_cast<std::uint64_t>(integer));
    return head(cbor_encode_negint, static_cast<std::uint64_t>(-(integer + 1)));
  }

  bool putArray(const Array& array, std::size_t depth) {
    if (!head(cbor_encode_array_start, array.size())) return false;
    for (const Value& element : array) {
      if (!put(element, depth + 1)) return false;
    }
    return true;
  }

  bool putDictionary(const Dictionary& dictionary, std::size_t depth) {
    if (!head(cbor_encode_map_start, dictionary.size())) return false;
    for (const auto& [key, element] : dictionary) {
      head(cbor_encode_string_start, key.size());
      content(key);
      if (!put(element, depth + 1)) return false;
    }
    return true;
  }

  template <class Argument>
  bool head(std::size_t (*encode)(Argument, unsigned char*, std::size_t), std::type_identity_t<Argument> argument) {
    unsigned char buffer[LongestHead];
    const std::size_t length = encode(argument, buffer, sizeof buffer);
    _bytes.insert(_bytes.end(), buffer, buffer + length);
    return length > 0;
  }

  template <class Bytes>
  bool content(const Bytes& bytes) {
    _bytes.insert(_bytes.end(), bytes.begin(), bytes.end());
    return true;
  }

  Data _bytes;
};

/// What libcbor found at the front of the input: a whole scalar or the head of something nested.
struct Item {
  enum class Kind { unsupported, boolean, integer, negative, real, string, data, array, map, tag };
  Kind kind = Kind::unsupported;
  std::uint64_t number = 0;  ///< the integer, the element count or the tag
  double real = 0;
  std::span<const std::uint8_t> bytes;
};

Item& itemOf(void* context) { return *static_cast<Item*>(context); }

template <Item::Kind kind, class Number>
void numberCallback(void* context, Number number) {
  itemOf(context) = Item{kind, number, 0, {}};
}

template <Item::Kind kind>
void bytesCallback(void* context, cbor_data bytes, std::size_t length) {
  itemOf(context) = Item{kind, 0, 0, {bytes, length}};
}

template <class Real>
void realCallback(void* context, Real real) {
  itemOf(context) = Item{Item::Kind::real, 0, static_cast<double>(real), {}};
}

// Everything that has no callback here (null, open-ended items, simple values) stays unsupported.
const cbor_callbacks& callbacks() {
  using Kind = Item::Kind;
  static const cbor_callbacks shared = [] {
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
  }();
  return shared;
}

class Decoder {
 public:
  explicit Decoder(std::span<const std::uint8_t> input) : _input(input) {}

  bool isAtEnd() const { return _input.empty(); }

  std::optional<Value> value(std::size_t depth) {
    const Item item = next();
    switch (item.kind) {
      case Item::Kind::boolean:
        return Value(item.number != 0);
      case Item::Kind::integer:
      case Item::Kind::negative:
        return integer(item);
      case Item::Kind::real:
        return Value(item.real);
      case Item::Kind::string:
        return Value(text(item));
      case Item::Kind::data:
        return Value(Data(item.bytes.begin(), item.bytes.end()));
      case Item::Kind::array:
        return array(item.number, depth);
      case Item::Kind::map:
        return dictionary(item.number, depth);
      case Item::Kind::tag:
        return date(item.number);
      case Item::Kind::unsupported:
        break;
    }
    return std::nullopt;
  }

 private:
  Item next() {
    if (_input.empty()) return {};
    Item item;
    const cbor_decoder_result result = cbor_stream_decode(_input.data(), _input.size(), &callbacks(), &item);
    if (result.status != CBOR_DECODER_FINISHED) return {};
    _input = _input.subspan(result.read);
    return item;
  }

  static std::string text(const Item& item) { return {item.bytes.begin(), item.bytes.end()}; }

  static std::optional<Value> integer(const Item& item) {
    if (item.number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) return std::nullopt;
    const auto number = static_cast<std::int64_t>(item.number);
    return Value(item.kind == Item::Kind::negative ? -1 - number : number);
  }

  std::optional<Value> date(std::uint64_t tag) {
    if (tag != DateTag) return std::nullopt;
    const Item item = next();
    if (item.kind == Item::Kind::real) return Value(Date{item.real - SecondsFrom1970To2001});
    const bool isWhole = item.kind == Item::Kind::integer || item.kind == Item::Kind::negative;
    const std::optional<Value> seconds = isWhole ? integer(item) : std::nullopt;
    if (!seconds) return std::nullopt;
    return Value(Date{static_cast<double>(*seconds->integer()) - SecondsFrom1970To2001});
  }

  // An announced count is believed only as far as the input reaches: each element takes a byte at least.
  bool canHold(std::uint64_t elements, std::size_t depth) const {
    return depth < CBORMaximumDepth && elements <= _input.size();
  }

  std::optional<Value> array(std::uint64_t count, std::size_t depth) {
    if (!canHold(count, depth)) return std::nullopt;
    Array array;
    for (std::uint64_t index = 0; index < count; ++index) {
      std::optional<Value> element = value(depth + 1);
      if (!element) return std::nullopt;
      array.push_back(*std::move(element));
    }
    return Value(std::move(array));
  }

  std::optional<Value> dictionary(std::uint64_t count, std::size_t depth) {
    if (!canHold(count, depth)) return std::nullopt;
    Dictionary dictionary;
    for (std::uint64_t index = 0; index < count; ++index) {
      const Item key = next();
      if (key.kind != Item::Kind::string) return std::nullopt;
      std::optional<Value> element = value(depth + 1);
      if (!element || !dictionary.emplace(text(key), *std::move(element)).second) return std::nullopt;
    }
    return Value(std::move(dictionary));
  }

  std::span<const std::uint8_t> _input;
};

}  // namespace

std::optional<Data> encodeCBOR(const Value& value) {
  Encoder encoder;
  if (!encoder.put(value, 0)) return std::nullopt;
  return std::move(encoder).take();
}

std::optional<Value> decodeCBOR(std::span<const std::uint8_t> bytes) {
  if (bytes.size() > CBORMaximumSize) return std::nullopt;
  Decoder decoder(bytes);
  std::optional<Value> value = decoder.value(0);
  return decoder.isAtEnd() ? value : std::nullopt;
}

}  // namespace pellor
