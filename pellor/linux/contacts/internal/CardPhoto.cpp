#include "pellor/linux/contacts/internal/CardPhoto.h"

#include <nettle/base64.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "pellor/linux/text/CardText.h"

namespace pellor {

namespace {

constexpr std::string_view DataScheme = "data:";
constexpr std::string_view FileScheme = "file://";

std::string_view takeLineWithoutEnd(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

bool isPhotoLine(std::string_view line) {
  constexpr std::size_t longestName = 100;
  const std::size_t end = line.substr(0, longestName).find_first_of(":;");
  return end != std::string_view::npos && cardPropertyName(line.substr(0, end + 1)) == "photo";
}

bool isFolded(std::string_view rest) { return rest.starts_with(' ') || rest.starts_with('\t'); }

/// The first property of that name with a value, on one line; empty without one.
std::string photoLine(std::string_view card) {
  while (!card.empty()) {
    const std::string_view first = takeLineWithoutEnd(card);
    if (!isPhotoLine(first)) continue;
    std::string line(first);
    while (isFolded(card)) line += takeLineWithoutEnd(card).substr(1);
    if (line.find_first_not_of(' ', line.find(':') + 1) != std::string::npos) return line;
  }
  return {};
}

// In the usual alphabet or in that of URLs; the text ends with its first "=". Empty for what is no base64.
Data fromBase64(std::string_view text) {
  std::string letters(text.substr(0, text.find('=')));
  std::ranges::replace(letters, '-', '+');
  std::ranges::replace(letters, '_', '/');
  base64_decode_ctx decoding;
  base64_decode_init(&decoding);
  Data bytes(BASE64_DECODE_LENGTH(letters.size()));
  std::size_t size = bytes.size();
  const bool isWhole = base64_decode_update(&decoding, &size, bytes.data(), letters.size(), letters.data()) != 0;
  bytes.resize(isWhole ? size : 0);
  return bytes;
}

std::string fromPercents(std::string_view text) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const std::string pair = lowerCased(text.substr(at, 3));
    const bool isEscape = pair.size() == 3 && pair[0] == '%' && digits.find(pair[1]) != std::string::npos &&
                          digits.find(pair[2]) != std::string::npos;
    result += isEscape ? static_cast<char>(digits.find(pair[1]) * 16 + digits.find(pair[2])) : text[at];
    if (isEscape) at += 2;
  }
  return result;
}

struct Parameters {
  std::string type;
  bool isBase64 = false;
};

// TYPE=JPEG, MEDIATYPE=image/jpeg, and as version 2.1 writes them: JPEG, BASE64.
Parameters parametersOf(std::string_view header) {
  Parameters parameters;
  for (const std::string& parameter : splitCardText(lowerCased(header), ";")) {
    const std::size_t sign = parameter.find('=');
    const std::string name = sign == std::string::npos ? std::string() : parameter.substr(0, sign);
    std::string value = parameter.substr(sign == std::string::npos ? 0 : sign + 1);
    std::erase(value, '"');
    if (value == "b" || value == "base64") {
      parameters.isBase64 = true;
    } else if (name == "mediatype") {
      parameters.type = value;
    } else if (name == "type" || (name.empty() && !value.ends_with("photo"))) {
      parameters.type = value.find('/') == std::string::npos ? "image/" + value : value;
    }
  }
  return parameters;
}

// "data:image/png;base64,AAAA". Some programs escape what separates its parts.
std::optional<ContactPhoto> photoOfDataURI(std::string text) {
  std::erase(text, '\\');
  const std::size_t comma = text.find(',');
  if (comma == std::string::npos) return std::nullopt;
  const std::string header = lowerCased(std::string_view(text).substr(DataScheme.size(), comma - DataScheme.size()));
  if (!header.ends_with(";base64")) return std::nullopt;
  ContactPhoto photo{header.substr(0, header.find(';')), fromBase64(std::string_view(text).substr(comma + 1)), {}};
  return photo.bytes.empty() ? std::nullopt : std::optional(std::move(photo));
}

}  // namespace

bool hasPhoto(std::string_view card) { return !photoLine(card).empty(); }

std::optional<ContactPhoto> photoOfCard(std::string_view card) {
  const std::string line = photoLine(card);
  if (line.empty()) return std::nullopt;
  // A data: URI has a colon as well, a parameter with one has quotes that no picture has.
  std::size_t colon = line.find(':');
  while (std::count(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(colon), '"') % 2 != 0) {
    colon = line.find(':', colon + 1);
    if (colon == std::string::npos) return std::nullopt;
  }
  Parameters parameters = parametersOf(std::string_view(line).substr(0, colon));
  const std::string value = line.substr(std::min(line.find_first_not_of(" \t", colon + 1), line.size()));
  const std::string scheme = lowerCased(std::string_view(value).substr(0, FileScheme.size()));
  if (scheme.starts_with(DataScheme)) return photoOfDataURI(value);
  if (parameters.isBase64) {
    ContactPhoto photo{std::move(parameters.type), fromBase64(value), {}};
    return photo.bytes.empty() ? std::nullopt : std::optional(std::move(photo));
  }
  if (value.find(':') == std::string::npos || !isUtf8(value)) return std::nullopt;
  if (scheme != FileScheme) return ContactPhoto{std::move(parameters.type), {}, cleanCardText(value)};
  const std::size_t root = value.find('/', FileScheme.size());
  if (root == std::string::npos) return std::nullopt;
  return ContactPhoto{std::move(parameters.type), {}, fromPercents(std::string_view(value).substr(root))};
}

}  // namespace pellor
