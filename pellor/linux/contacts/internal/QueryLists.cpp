#include "pellor/linux/contacts/internal/QueryLists.h"

#include <algorithm>

namespace pellor {

namespace {

bool isControl(char character) { return static_cast<unsigned char>(character) < 0x20; }

template <class Number>
std::string jsonOf(std::span<const Number> numbers) {
  std::string json = "[";
  for (const Number number : numbers) json += (json.size() > 1 ? "," : "") + std::to_string(number);
  return json += ']';
}

}  // namespace

std::string jsonOfTexts(std::span<const std::string_view> texts) {
  std::string json = "[";
  for (const std::string_view text : texts) {
    if (std::any_of(text.begin(), text.end(), isControl)) continue;
    json += json.size() > 1 ? ",\"" : "\"";
    for (const char character : text) {
      if (character == '"' || character == '\\') json += '\\';
      json += character;
    }
    json += '"';
  }
  return json += ']';
}

std::string jsonOfNumbers(std::span<const std::int32_t> numbers) { return jsonOf(numbers); }
std::string jsonOfNumbers(std::span<const std::int64_t> numbers) { return jsonOf(numbers); }

}  // namespace pellor
