#include "cli/ValueForm.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "cli/Base64.h"
#include "pellor/runtime/WallClock.h"

namespace pellor::cli {
namespace {

constexpr char Mark = '$';
constexpr const char* DataMark = "$data";
constexpr const char* DateMark = "$date";
constexpr const char* RealMark = "$real";
constexpr const char* DateFormat = "%Y-%m-%dT%H:%M:%SZ";
// From 1900 to 2999, where all years have four digits.
constexpr double FirstShownDate = -3187296000;
constexpr double LastShownDate = 31525372799;

// --- Values as JSON ---

Json marked(const char* mark, Json content) {
  Json form = Json::object();
  form[mark] = std::move(content);
  return form;
}

// Calendars have whole seconds; any other date is its number of seconds since 2001.
Json formOf(const Date& date) {
  const bool isShown = date.seconds >= FirstShownDate && date.seconds <= LastShownDate &&
                       date.seconds == std::floor(date.seconds) && !(date.seconds == 0 && std::signbit(date.seconds));
  if (!isShown) return marked(DateMark, valueFormOf(date.seconds));
  const auto time = static_cast<std::time_t>(date.seconds + SecondsFrom1970To2001);
  std::tm parts{};
  std::array<char, 32> text{};
  ::gmtime_r(&time, &parts);
  std::strftime(text.data(), text.size(), DateFormat, &parts);
  return marked(DateMark, text.data());
}

Json formOf(double real) {
  if (std::isfinite(real)) return real;
  return marked(RealMark, std::isnan(real) ? "nan" : real > 0 ? "inf" : "-inf");
}

Json formOf(const Array& values) {
  Json form = Json::array();
  for (const Value& value : values) form.push_back(valueFormOf(value));
  return form;
}

Json formOf(const Dictionary& values) {
  Json form = Json::object();
  for (const auto& [key, value] : values) form[keyFormOf(key)] = valueFormOf(value);
  return form;
}

// --- JSON as values ---

double realIn(const Json& form) {
  const std::string text = form.is_string() ? form.get<std::string>() : "";
  if (text == "nan") return std::numeric_limits<double>::quiet_NaN();
  if (text == "inf") return std::numeric_limits<double>::infinity();
  if (text == "-inf") return -std::numeric_limits<double>::infinity();
  throw ValueFormError("has a \"$real\" that is neither \"nan\" nor \"inf\" nor \"-inf\"");
}

std::optional<double> secondsOf(const std::string& text) {
  std::tm parts{};
  const char* end = ::strptime(text.c_str(), DateFormat, &parts);
  if (!end || end != text.c_str() + text.size()) return std::nullopt;
  return static_cast<double>(::timegm(&parts)) - SecondsFrom1970To2001;
}

Date dateIn(const Json& form) {
  if (form.is_number()) return {form.get<double>()};
  if (form.is_object() && form.size() == 1 && form.contains(RealMark)) return {realIn(form[RealMark])};
  const auto seconds = form.is_string() ? secondsOf(form.get<std::string>()) : std::nullopt;
  // A day that no month has becomes another day.
  if (seconds && formOf(Date{*seconds})[DateMark] == form) return {*seconds};
  throw ValueFormError("has a \"$date\" that is no date such as 2026-01-31T12:00:00Z, nor a number");
}

Data dataIn(const Json& form) {
  auto data = form.is_string() ? base64Decoded(form.get<std::string>()) : std::nullopt;
  if (!data) throw ValueFormError("has a \"$data\" that is no base64");
  return *std::move(data);
}

std::int64_t integerIn(const Json& form) {
  if (form.is_number_unsigned() && form.get<std::uint64_t>() > std::uint64_t{std::numeric_limits<std::int64_t>::max()})
    throw ValueFormError("has the number " + form.dump() + ", which has more than 64 bits");
  return form.get<std::int64_t>();
}

// More than any store puts before a value.
constexpr std::size_t Head = 16;

void take(std::size_t length, ValueLimits& limits) {
  if (length + Head > limits.length) throw ValueFormError("is too long: no store would take it");
  limits.length -= length + Head;
}

void requireDepth(const ValueLimits& limits) {
  if (limits.depth == 0) throw ValueFormError("is nested deeper than a store can take");
}

Value arrayIn(const Json& form, ValueLimits& limits) {
  requireDepth(limits);
  --limits.depth;
  Array values;
  for (const Json& element : form) values.push_back(valueIn(element, limits));
  ++limits.depth;
  return values;
}

Value dictionaryIn(const Json& form, ValueLimits& limits) {
  if (form.size() == 1) {
    const auto member = form.begin();
    if (member.key() == DataMark) return dataIn(member.value());
    if (member.key() == DateMark) return dateIn(member.value());
    if (member.key() == RealMark) return realIn(member.value());
  }
  requireDepth(limits);
  --limits.depth;
  Dictionary values;
  for (const auto& [key, content] : form.items()) {
    take(key.size(), limits);
    values.insert_or_assign(keyIn(key), valueIn(content, limits));
  }
  ++limits.depth;
  return values;
}

}  // namespace

Json valueFormOf(const Value& value) {
  switch (value.kind()) {
    case Value::Kind::boolean:
      return *value.boolean();
    case Value::Kind::integer:
      return *value.integer();
    case Value::Kind::real:
      return formOf(*value.real());
    case Value::Kind::string:
      return *value.string();
    case Value::Kind::data:
      return marked(DataMark, base64(*value.data()));
    case Value::Kind::date:
      return formOf(*value.date());
    case Value::Kind::array:
      return formOf(*value.array());
    case Value::Kind::dictionary:
      return formOf(*value.dictionary());
  }
  return nullptr;
}

Value valueIn(const Json& form, ValueLimits& limits) {
  take(form.is_string() ? form.get_ref<const std::string&>().size() : 0, limits);
  switch (form.type()) {
    case Json::value_t::boolean:
      return form.get<bool>();
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
      return integerIn(form);
    case Json::value_t::number_float:
      return form.get<double>();
    case Json::value_t::string:
      return form.get<std::string>();
    case Json::value_t::array:
      return arrayIn(form, limits);
    case Json::value_t::object:
      return dictionaryIn(form, limits);
    default:
      throw ValueFormError("is null, which no value is");
  }
}

std::string keyFormOf(std::string_view key) {
  return (key.starts_with(Mark) ? std::string(1, Mark) : std::string()).append(key);
}

std::string keyIn(std::string_view form) {
  if (!form.starts_with(Mark)) return std::string(form);
  if (form.size() > 1 && form[1] == Mark) return std::string(form.substr(1));
  throw ValueFormError("has the member \"" + std::string(form) + "\", which this version does not know");
}

}  // namespace pellor::cli
