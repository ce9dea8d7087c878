#include "pellor/linux/preferences/internal/CBORValue.h"

#include <cbor.h>

#include <bit>
#include <type_traits>

#include "pellor/linux/preferences/internal/CBORDecoder.h"

namespace pellor {
namespace {

constexpr std::size_t LongestHead = 9;

class Encoder {
 public:
  explicit Encoder(Data& bytes) : _bytes(bytes) {}

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
        return putDate(value.date()->seconds);
      case Value::Kind::array:
        return putArray(*value.array(), depth);
      case Value::Kind::dictionary:
        return putDictionary(*value.dictionary(), depth);
    }
    return false;
  }

 private:
  bool putInteger(std::int64_t integer) {
    if (integer >= 0) return head(cbor_encode_uint, static_cast<std::uint64_t>(integer));
    return head(cbor_encode_negint, static_cast<std::uint64_t>(-(integer + 1)));
  }

  bool putDate(double seconds) {
    const double since1970 = seconds + SecondsFrom1970To2001;
    const bool comesBack =
        std::bit_cast<std::uint64_t>(since1970 - SecondsFrom1970To2001) == std::bit_cast<std::uint64_t>(seconds);
    return comesBack ? head(cbor_encode_tag, CBORDateTag) && head(cbor_encode_double, since1970)
                     : head(cbor_encode_tag, CBORExactDateTag) && head(cbor_encode_double, seconds);
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

  Data& _bytes;
};

}  // namespace

bool appendCBOR(const Value& value, std::size_t depth, Data& bytes) {
  return Encoder(bytes).put(value, depth) && bytes.size() <= CBORMaximumSize;
}

std::optional<Data> encodeCBOR(const Value& value) {
  Data bytes;
  if (!appendCBOR(value, 0, bytes)) return std::nullopt;
  return bytes;
}

std::optional<Value> decodeCBOR(std::span<const std::uint8_t> bytes) {
  if (bytes.size() > CBORMaximumSize) return std::nullopt;
  CBORDecoder decoder(bytes);
  std::optional<Value> value = decoder.value(0);
  return decoder.rest().empty() ? value : std::nullopt;
}

}  // namespace pellor
