#include "pellor/linux/contacts/internal/QueryLists.h"

#include <algorithm>

namespace pellor {

namespace {

bool isControl(char character) { return static_cast<unsigned char>(character) < 0x20; }

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

std::string jsonOfNumbers(std::span<const std::int32_t> numbers) {
  std::string json = "[";
  for (const std::int32_t number : numbers) json += (json.size() > 1 ? "," : "") + std::to_string(number);
  return json += ']';
}

}  // namespace pellor
