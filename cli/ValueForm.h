// Values as JSON that says all of them. docs/export.md describes the form.
#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

#include "pellor/runtime/Value.h"

namespace pellor::cli {

using Json = nlohmann::ordered_json;

/// What is wrong with a piece of JSON that is to be a value: "is no base64".
class ValueFormError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// How deep arrays and dictionaries of a value may be nested, and about how many bytes it may take.
struct ValueLimits {
  std::size_t depth;
  std::size_t length;
};

/// Booleans, integers, strings, arrays and dictionaries are what they are in JSON; a real number has a fraction or an
/// exponent. Data, dates and numbers that JSON has not are objects with one member that begins with "$".
Json valueFormOf(const Value& value);

/// The value. Throws ValueFormError for null, for an integer of more than 64 bits, for an unknown "$" and beyond the
/// limits, of which `limits.length` is lowered by what the value takes.
Value valueIn(const Json& form, ValueLimits& limits);

// A key that begins with "$" has one more of them in the form.
std::string keyFormOf(std::string_view key);
/// The key; throws ValueFormError for a form that begins with one "$" alone.
std::string keyIn(std::string_view form);

}  // namespace pellor::cli
