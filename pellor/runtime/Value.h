// A property-list value: what preferences, stored forms and metadata are made of.
#pragma once

#include <concepts>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace pellor {

class LongArray;
class Value;

using Data = std::vector<std::uint8_t>;
using Array = std::vector<Value>;
/// Enumerated by key, so that one input gives one output.
using Dictionary = std::map<std::string, Value, std::less<>>;

/// A point in time, in seconds since 2001-01-01T00:00:00Z.
struct Date {
  double seconds = 0;
  friend bool operator==(const Date&, const Date&) = default;
};

/// An immutable value of exactly one kind. Copying is cheap: strings, data, arrays and dictionaries are shared.
/// Boolean, integer and real are different kinds and never equal to one another. "No value" is spelled
/// `std::optional<Value>`; there is no null kind. Safe to read from any thread.
class Value {
 public:
  enum class Kind { boolean, integer, real, string, data, date, array, dictionary };

  /// Only a real `bool` makes a boolean: a pointer does not turn into one by accident.
  template <std::same_as<bool> B>
  Value(B value) : _content(value) {}
  template <std::integral I>
    requires(!std::same_as<I, bool>)
  Value(I value) : _content(static_cast<std::int64_t>(value)) {}
  Value(double value) : _content(value) {}
  Value(std::string value);
  Value(std::string_view value);
  Value(const char* value);
  Value(Data value);
  Value(Date value) : _content(value) {}
  Value(Array value);
  /// A long array is an array as well: it equals the array of its elements.
  Value(LongArray value);
  Value(Dictionary value);

  Kind kind() const noexcept;

  // Each gives the content when the value is of that kind, else nothing. No kind converts into another.
  std::optional<bool> boolean() const noexcept;
  std::optional<std::int64_t> integer() const noexcept;
  std::optional<double> real() const noexcept;
  std::optional<Date> date() const noexcept;
  const std::string* string() const noexcept;
  const Data* data() const noexcept;
  /// The elements of a long array are made at the first call, and then kept by the value.
  const Array* array() const;
  /// The array if it is a long one, without making an element; null for any other value.
  const LongArray* longArray() const noexcept;
  const Dictionary* dictionary() const noexcept;

  /// Whether both share one content object: then they are equal without looking inside.
  bool isSameObject(const Value& other) const noexcept;

  /// For log lines: strings as they are, arrays as `(a, b)`, dictionaries as `{key = value, key = value}`.
  std::string description() const;

  friend bool operator==(const Value& left, const Value& right);

 private:
  struct Elements;

  // In the order of Kind, and the other way to be an array.
  std::variant<bool, std::int64_t, double, std::shared_ptr<const std::string>, std::shared_ptr<const Data>, Date,
               std::shared_ptr<const Array>, std::shared_ptr<const Dictionary>, std::shared_ptr<const Elements>>
      _content;
};

/// The value under `key`, or nullptr. The pointer lives as long as the dictionary.
const Value* valueForKey(const Dictionary& dictionary, std::string_view key);
/// The string under `key`; absent when there is none or when it is of another kind.
std::optional<std::string> stringForKey(const Dictionary& dictionary, std::string_view key);

}  // namespace pellor
