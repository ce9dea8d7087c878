#include "cli/Base64.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace pellor::cli {
namespace {

constexpr std::string_view Letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t BytesOfGroup = 3;
constexpr std::size_t LettersOfGroup = 4;

}  // namespace

std::string base64(const Data& data) {
  std::string text;
  for (std::size_t index = 0; index < data.size(); index += BytesOfGroup) {
    const std::size_t count = std::min(BytesOfGroup, data.size() - index);
    std::uint32_t bits = 0;
    for (std::size_t byte = 0; byte < BytesOfGroup; ++byte) bits = bits << 8 | (byte < count ? data[index + byte] : 0U);
    for (std::size_t letter = 0; letter < LettersOfGroup; ++letter) {
      text += letter <= count ? Letters[bits >> (18 - 6 * letter) & 0x3F] : '=';
    }
  }
  return text;
}

std::optional<Data> base64Decoded(std::string_view text) {
  Data data;
  std::uint32_t bits = 0;
  std::size_t count = 0;
  for (const char letter : text.substr(0, text.find('='))) {
    const auto value = Letters.find(letter);
    if (value == std::string_view::npos) return std::nullopt;
    bits = bits << 6 | static_cast<std::uint32_t>(value);
    if (++count % LettersOfGroup == 1) continue;
    data.push_back(static_cast<std::uint8_t>(bits >> (6 - 2 * ((count - 1) % LettersOfGroup))));
  }
  // Padding that lacks or is one too many, a letter alone, and bits that no byte has.
  return base64(data) == text ? std::optional(std::move(data)) : std::nullopt;
}

}  // namespace pellor::cli
