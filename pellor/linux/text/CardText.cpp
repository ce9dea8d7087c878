#include "pellor/linux/text/CardText.h"

#include <unicode/ucnv.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <optional>

namespace pellor {

namespace {

constexpr std::string_view ByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view CharsetStart = ";charset=";

unsigned char byteAt(std::string_view bytes, std::size_t index) { return static_cast<unsigned char>(bytes[index]); }

bool isControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7F;
}

/// Calls `visit` for each line, without its end.
template <class Visit>
void forEachLine(std::string_view text, Visit visit) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    visit(line);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

std::size_t sequenceLength(unsigned char first) {
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first < 0xE0) return 2;
  if (first >= 0xE0 && first < 0xF0) return 3;
  if (first >= 0xF0 && first < 0xF5) return 4;
  return 0;
}

// Overlong forms, halves of pairs and what lies beyond the last code point show in the second byte.
bool isSecondByte(unsigned char first, unsigned char second) {
  if (first == 0xE0) return second >= 0xA0 && second < 0xC0;
  if (first == 0xED) return second >= 0x80 && second < 0xA0;
  if (first == 0xF0) return second >= 0x90 && second < 0xC0;
  if (first == 0xF4) return second >= 0x80 && second < 0x90;
  return second >= 0x80 && second < 0xC0;
}

/// Absent for a character set that ICU does not know.
std::optional<std::string> fromCharset(std::string_view bytes, const char* charset) {
  UErrorCode error = U_ZERO_ERROR;
  const icu::LocalUConverterPointer converter(ucnv_open(charset, &error));
  if (U_FAILURE(error)) return std::nullopt;
  const icu::UnicodeString text(bytes.data(), static_cast<std::int32_t>(bytes.size()), converter.getAlias(), error);
  if (U_FAILURE(error)) return std::nullopt;
  std::string result;
  return text.toUTF8String(result);
}

/// Where a line names its character set: the parameter with the semicolon before it.
struct CharsetParameter {
  std::size_t start = std::string::npos;
  std::size_t end = 0;
};

CharsetParameter charsetParameter(std::string_view line) {
  const std::size_t colon = std::min(line.find(':'), line.size());
  const std::size_t start = lowerCased(line.substr(0, colon)).find(CharsetStart);
  if (start == std::string::npos) return {};
  return {start, std::min(line.find(';', start + 1), colon)};
}

std::string charsetOf(std::string_view line) {
  const auto [start, end] = charsetParameter(line);
  if (start == std::string::npos) return {};
  std::string name = lowerCased(line.substr(start, end - start).substr(CharsetStart.size()));
  std::erase(name, '"');
  return name;
}

// What has been converted must not be converted again by the parser.
std::string withoutCharset(std::string_view line) {
  const auto [start, end] = charsetParameter(line);
  if (start == std::string::npos) return std::string(line);
  return std::string(line.substr(0, start)) + std::string(line.substr(end));
}

// A line that claims to be UTF-8 and is not was written by a program that knows no character sets. Latin-1 differs from
// Windows-1252 in control characters alone, which nobody writes into a card.
std::string converted(std::string_view line, const std::string& charset) {
  constexpr std::array western = {"", "utf-8", "us-ascii", "iso-8859-1"};
  const bool isWestern = std::ranges::find(western, charset) != western.end();
  auto text = isWestern ? std::nullopt : fromCharset(line, charset.c_str());
  if (!text) text = fromCharset(line, "windows-1252");
  return text.value_or(std::string(line));
}

bool isQuotedPrintable(std::string_view line) {
  return lowerCased(line.substr(0, line.find(':'))).find("quoted-printable") != std::string::npos;
}

bool isContinuation(std::string_view line) { return line.starts_with(' ') || line.starts_with('\t'); }

}  // namespace

std::string asUtf8Card(std::string_view text) {
  if (text.starts_with(ByteOrderMark)) text.remove_prefix(ByteOrderMark.size());
  if (isUtf8(text)) return std::string(text);
  std::string result;
  std::string charset;
  forEachLine(text, [&](std::string_view line) {
    if (!isContinuation(line)) charset = charsetOf(line);
    result += isUtf8(line) ? std::string(line) : withoutCharset(converted(line, charset));
    result += "\r\n";
  });
  return result;
}

std::string withoutSoftBreaks(std::string_view text) {
  if (text.find("=\r\n") == std::string_view::npos && text.find("=\n") == std::string_view::npos)
    return std::string(text);
  std::string result;
  bool isQuoted = false;
  bool isJoined = false;  // with the line before
  forEachLine(text, [&](std::string_view line) {
    if (!isJoined && !isContinuation(line)) isQuoted = isQuotedPrintable(line);
    isJoined = isQuoted && line.ends_with('=');
    if (isJoined) line.remove_suffix(1);
    result += line;
    if (!isJoined) result += "\r\n";
  });
  return result;
}

std::string cardPropertyName(std::string_view line) {
  std::string_view name = line.substr(0, line.find_first_of(":;"));
  const std::size_t dot = name.find('.');
  return lowerCased(dot == std::string_view::npos ? name : name.substr(dot + 1));
}

bool hasEscapedComma(std::string_view text, std::string_view property) {
  bool inside = false;
  bool over = false;
  std::string value;
  forEachLine(text, [&](std::string_view line) {
    if (over) return;
    if (isContinuation(line)) {
      if (inside) value += line.substr(1);
      return;
    }
    over = inside;
    inside = !over && cardPropertyName(line) == lowerCased(property);
    if (inside) value = line;
  });
  return value.find("\\,") != std::string::npos;
}

bool isUtf8(std::string_view bytes) {
  std::size_t index = 0;
  while (index < bytes.size()) {
    const unsigned char first = byteAt(bytes, index);
    const std::size_t length = sequenceLength(first);
    if (length == 0 || index + length > bytes.size()) return false;
    if (length > 1 && !isSecondByte(first, byteAt(bytes, index + 1))) return false;
    for (std::size_t next = 2; next < length; ++next) {
      if ((byteAt(bytes, index + next) & 0xC0) != 0x80) return false;
    }
    index += length;
  }
  return true;
}

std::string cleanCardText(std::string_view text) {
  std::string result;
  for (const char c : text) {
    const bool blank = isControl(c);
    if (blank && (result.empty() || result.back() == ' ')) continue;
    result += blank ? ' ' : c;
  }
  const std::size_t first = result.find_first_not_of(' ');
  if (first == std::string::npos) return {};
  return result.substr(first, result.find_last_not_of(' ') - first + 1);
}

std::string lowerCased(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}

std::vector<std::string> splitCardText(std::string_view text, std::string_view separators) {
  std::vector<std::string> parts;
  while (true) {
    const std::size_t end = text.find_first_of(separators);
    std::string part = cleanCardText(text.substr(0, end));
    if (!part.empty()) parts.push_back(std::move(part));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

// FNV-1a with 64 bits.
std::int64_t contentHash(std::string_view text) {
  std::uint64_t hash = 0xcbf29ce484222325U;
  for (const char c : text) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 0x100000001b3U;
  }
  return static_cast<std::int64_t>(hash);
}

}  // namespace pellor
