#include "pellor/runtime/internal/CBOREncoder.h"

#include <bit>

#include "pellor/runtime/CBOR.h"
#include "pellor/runtime/WallClock.h"
#include "pellor/runtime/internal/CBORFormat.h"

namespace pellor {
namespace {

class Encoder {
 public:
  explicit Encoder(Data& bytes) : _bytes(bytes) {}

  /// False when a limit is exceeded.
  bool put(const Value& value, std::size_t depth) {
    if (depth > CBORMaximumDepth || _bytes.size() > CBORMaximumSize) return false;
    switch (value.kind()) {
      case Value::Kind::boolean:
        _bytes.push_back(*value.boolean() ? CBORFirstByte::True : CBORFirstByte::False);
        return true;
      case Value::Kind::integer:
        return putInteger(*value.integer());
      case Value::Kind::real:
        return putReal(*value.real());
      case Value::Kind::string:
        return head(Type::text, value.string()->size()) && content(*value.string());
      case Value::Kind::data:
        return head(Type::data, value.data()->size()) && content(*value.data());
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
  using Type = CBORHead::Type;

  bool putInteger(std::int64_t integer) {
    if (integer >= 0) return head(Type::integer, static_cast<std::uint64_t>(integer));
    return head(Type::negative, static_cast<std::uint64_t>(-(integer + 1)));
  }

  bool putReal(double real) {
    _bytes.push_back(CBORFirstByte::DoubleReal);
    CBORHead::appendNumber(std::bit_cast<std::uint64_t>(real), 64, _bytes);
    return true;
  }

  bool putDate(double seconds) {
    const double since1970 = seconds + SecondsFrom1970To2001;
    const bool comesBack =
        std::bit_cast<std::uint64_t>(since1970 - SecondsFrom1970To2001) == std::bit_cast<std::uint64_t>(seconds);
    return comesBack ? head(Type::tag, CBORDateTag) && putReal(since1970)
                     : head(Type::tag, CBORExactDateTag) && putReal(seconds);
  }

  bool putArray(const Array& array, std::size_t depth) {
    head(Type::array, array.size());
    for (const Value& element : array) {
      if (!put(element, depth + 1)) return false;
    }
    return true;
  }

  bool putDictionary(const Dictionary& dictionary, std::size_t depth) {
    head(Type::map, dictionary.size());
    for (const auto& [key, element] : dictionary) {
      head(Type::text, key.size());
      content(key);
      if (!put(element, depth + 1)) return false;
    }
    return true;
  }

  bool head(Type type, std::uint64_t number) {
    CBORHead{type, number}.appendTo(_bytes);
    return true;
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

}  // namespace pellor
