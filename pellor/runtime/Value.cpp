#include "pellor/runtime/Value.h"

#include <charconv>
#include <cmath>
#include <mutex>
#include <utility>

#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/LongArray.h"

namespace pellor {

/// A long array, and its elements for callers that want all of them.
struct Value::Elements {
  explicit Elements(LongArray content) : array(std::move(content)) {}

  const Array& made() const {
    std::call_once(_once, [this] { _made = array.elements(); });
    return _made;
  }

  friend bool operator==(const Elements& left, const Elements& right) { return left.array == right.array; }

  const LongArray array;

 private:
  mutable std::once_flag _once;
  mutable Array _made;  // written once, before it is read
};

namespace {

const char* present(const char* text) {
  require(text != nullptr, "a text for a value");
  return text;
}

/// The content behind a shared alternative; null when the value is of another kind.
template <class T, class Content>
const T* shared(const Content& content) noexcept {
  const auto* pointer = std::get_if<std::shared_ptr<const T>>(&content);
  return pointer ? pointer->get() : nullptr;
}

template <class T, class Content>
std::optional<T> plain(const Content& content) noexcept {
  const auto* value = std::get_if<T>(&content);
  return value ? std::optional(*value) : std::nullopt;
}

bool areEqual(bool left, bool right) { return left == right; }
bool areEqual(std::int64_t left, std::int64_t right) { return left == right; }
/// Not a number equals itself here: a list that holds one would differ from its own stored form for ever.
bool areEqual(double left, double right) { return left == right || (std::isnan(left) && std::isnan(right)); }
bool areEqual(Date left, Date right) { return areEqual(left.seconds, right.seconds); }
template <class T>
bool areEqual(const std::shared_ptr<const T>& left, const std::shared_ptr<const T>& right) {
  return left == right || *left == *right;
}

std::string describe(bool value) { return value ? "true" : "false"; }
std::string describe(std::int64_t value) { return std::to_string(value); }
std::string describe(double value) {
  char text[32];
  return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
}
std::string describe(Date value) { return describe(value.seconds); }
std::string describe(const std::shared_ptr<const std::string>& value) { return *value; }
std::string describe(const std::shared_ptr<const Data>& value) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text = "<";
  for (const std::uint8_t byte : *value) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text + ">";
}
std::string describe(const std::shared_ptr<const Array>& value) {
  std::string text;
  std::string_view separator;
  for (const Value& element : *value) {
    text.append(std::exchange(separator, ", ")).append(element.description());
  }
  return "(" + text + ")";
}
template <class Elements>
std::string describe(const std::shared_ptr<const Elements>& longArray) {
  return Value(longArray->made()).description();
}
std::string describe(const std::shared_ptr<const Dictionary>& value) {
  std::string text;
  for (const auto& [key, element] : *value) {
    text.append(text.empty() ? "" : ", ").append(key).append(" = ").append(element.description());
  }
  return "{" + text + "}";
}

}  // namespace

Value::Value(std::string value) : _content(std::make_shared<const std::string>(std::move(value))) {}
Value::Value(std::string_view value) : Value(std::string(value)) {}
Value::Value(const char* value) : Value(std::string(present(value))) {}
Value::Value(Data value) : _content(std::make_shared<const Data>(std::move(value))) {}
Value::Value(Array value) : _content(std::make_shared<const Array>(std::move(value))) {}
Value::Value(LongArray value) : _content(std::make_shared<const Elements>(std::move(value))) {}
Value::Value(Dictionary value) : _content(std::make_shared<const Dictionary>(std::move(value))) {}

Value::Kind Value::kind() const noexcept { return longArray() ? Kind::array : static_cast<Kind>(_content.index()); }

std::optional<bool> Value::boolean() const noexcept { return plain<bool>(_content); }
std::optional<std::int64_t> Value::integer() const noexcept { return plain<std::int64_t>(_content); }
std::optional<double> Value::real() const noexcept { return plain<double>(_content); }
std::optional<Date> Value::date() const noexcept { return plain<Date>(_content); }
const std::string* Value::string() const noexcept { return shared<std::string>(_content); }
const Data* Value::data() const noexcept { return shared<Data>(_content); }
const Array* Value::array() const {
  const auto* elements = shared<Elements>(_content);
  return elements ? &elements->made() : shared<Array>(_content);
}
const LongArray* Value::longArray() const noexcept {
  const auto* elements = shared<Elements>(_content);
  return elements ? &elements->array : nullptr;
}
const Dictionary* Value::dictionary() const noexcept { return shared<Dictionary>(_content); }

bool Value::isSameObject(const Value& other) const noexcept {
  switch (kind()) {
    case Kind::string:
      return string() == other.string();
    case Kind::data:
      return data() == other.data();
    case Kind::array:
      return longArray() ? longArray() == other.longArray() : !other.longArray() && array() == other.array();
    case Kind::dictionary:
      return dictionary() == other.dictionary();
    default:
      return false;
  }
}

std::string Value::description() const {
  return std::visit([](const auto& content) { return describe(content); }, _content);
}

bool operator==(const Value& left, const Value& right) {
  if (left.kind() != right.kind()) return false;
  if (left._content.index() != right._content.index()) return *left.array() == *right.array();
  return std::visit(
      [&](const auto& content) {
        return areEqual(content, *std::get_if<std::remove_cvref_t<decltype(content)>>(&right._content));
      },
      left._content);
}

const Value* valueForKey(const Dictionary& dictionary, std::string_view key) {
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? nullptr : &found->second;
}

std::optional<std::string> stringForKey(const Dictionary& dictionary, std::string_view key) {
  const Value* value = valueForKey(dictionary, key);
  const std::string* text = value ? value->string() : nullptr;
  return text ? std::optional(*text) : std::nullopt;
}

}  // namespace pellor
