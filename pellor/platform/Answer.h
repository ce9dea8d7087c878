// What a service answers that may not be able to tell.
#pragma once

#include <optional>
#include <type_traits>
#include <utility>

namespace pellor {

/// One of three answers: a value, none, or that it cannot be read.
template <class T>
class Answer {
 public:
  static Answer some(T value) { return Answer(std::move(value), true); }
  static Answer none() { return Answer(std::nullopt, true); }
  /// The value, or none where it is absent.
  static Answer of(std::optional<T> value) { return Answer(std::move(value), true); }
  static Answer unreadable() { return Answer(std::nullopt, false); }

  /// Whether there was an answer at all: a value or that there is none.
  bool isReadable() const { return _readable; }
  /// The value; absent when there is none and when it cannot be read.
  const std::optional<T>& value() const { return _value; }

  /// The answer with what `convert` makes of the value: an optional, none where it is absent.
  template <class Convert>
  auto converted(Convert convert) const {
    using Result = Answer<typename std::invoke_result_t<Convert, const T&>::value_type>;
    if (!_readable) return Result::unreadable();
    return _value ? Result::of(convert(*_value)) : Result::none();
  }

 private:
  Answer(std::optional<T> value, bool readable) : _value(std::move(value)), _readable(readable) {}
  std::optional<T> _value;
  bool _readable;
};

}  // namespace pellor
