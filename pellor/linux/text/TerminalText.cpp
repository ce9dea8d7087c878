#include "pellor/linux/text/TerminalText.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <cstddef>
#include <cstdint>

namespace pellor {
namespace {

// Isolates are marked with control characters, which no visible text holds.
constexpr char IsolateMark = '\x0E';
constexpr char EndMark = '\x0F';
constexpr std::string_view Isolate = "\u2068";
constexpr std::string_view EndOfIsolate = "\u2069";
constexpr std::string_view ReplacementText = "\uFFFD";

constexpr UChar32 NonJoiner = 0x200C;
constexpr UChar32 Joiner = 0x200D;
constexpr UChar32 None = -1;

enum class Look { visible, control, unseen, broken };

bool isUnseen(UChar32 character) {
  if (u_hasBinaryProperty(character, UCHAR_DEFAULT_IGNORABLE_CODE_POINT)) return true;
  // Signs that stand before a number and are drawn around it are visible.
  return u_charType(character) == U_FORMAT_CHAR && !u_hasBinaryProperty(character, UCHAR_PREPENDED_CONCATENATION_MARK);
}

bool isPrintableAscii(UChar32 character) { return character >= ' ' && character <= '~'; }

bool isControl(UChar32 character) {
  const auto category = u_charType(character);
  return category == U_CONTROL_CHAR || category == U_LINE_SEPARATOR || category == U_PARAGRAPH_SEPARATOR;
}

bool isSelector(UChar32 character) { return u_hasBinaryProperty(character, UCHAR_VARIATION_SELECTOR) != 0; }

bool isPicture(UChar32 character) { return u_hasBinaryProperty(character, UCHAR_EXTENDED_PICTOGRAPHIC) != 0; }

// A letter of a script in which letters take the form of their place, or are put together to signs.
bool isJoined(UChar32 character) {
  if ((U_GET_GC_MASK(character) & (U_GC_L_MASK | U_GC_M_MASK)) == 0) return false;
  if (u_getIntPropertyValue(character, UCHAR_INDIC_SYLLABIC_CATEGORY) != U_INSC_OTHER) return true;
  const auto joining = u_getIntPropertyValue(character, UCHAR_JOINING_TYPE);
  return joining == U_JT_DUAL_JOINING || joining == U_JT_RIGHT_JOINING || joining == U_JT_LEFT_JOINING;
}

// What does not change whether the character before it is joined.
bool belongsToBase(UChar32 character) {
  if (isSelector(character) || u_hasBinaryProperty(character, UCHAR_EMOJI_MODIFIER)) return true;
  return u_charType(character) == U_NON_SPACING_MARK && !isJoined(character);
}

/// The characters of a text, with what stands around each.
class Characters {
 public:
  explicit Characters(std::string_view text) : _text(text) { advance(); }

  bool hasNext() const { return _next != None; }

  /// Takes the next character; its bytes are `bytes()`.
  Look take() {
    const UChar32 before = _current;
    if (before != None && !belongsToBase(before)) _base = before;
    _current = _next;
    _bytes = _text.substr(_start, _end - _start);
    advance();
    return lookAfter(before);
  }

  UChar32 character() const { return _current; }
  std::string_view bytes() const { return _bytes; }

 private:
  // Bytes that are no UTF-8 are a character of their own.
  static constexpr UChar32 Broken = -2;

  void advance() {
    _start = _end;
    if (_start == _text.size()) {
      _next = None;
      return;
    }
    // The library counts in 32 bits.
    const std::string_view rest = _text.substr(_start, U8_MAX_LENGTH);
    std::int32_t length = 0;
    UChar32 character = 0;
    U8_NEXT(reinterpret_cast<const std::uint8_t*>(rest.data()), length, static_cast<std::int32_t>(rest.size()),
            character);
    _next = character < 0 ? Broken : character;
    _end = _start + static_cast<std::size_t>(length);
  }

  Look lookAfter(UChar32 before) const {
    if (isPrintableAscii(_current)) return Look::visible;
    if (_current == Broken) return Look::broken;
    if (isControl(_current)) return Look::control;
    if (_current == Joiner || _current == NonJoiner) return joins(before) ? Look::visible : Look::unseen;
    if (isSelector(_current)) return selects(before) ? Look::visible : Look::unseen;
    return isUnseen(_current) ? Look::unseen : Look::visible;
  }

  bool joins(UChar32 before) const {
    if (before < 0 || _next < 0 || isUnseen(_next)) return false;
    if (isUnseen(before) && !isSelector(before)) return false;
    if (_current == Joiner && isPicture(_base) && isPicture(_next)) return true;
    return isJoined(_base) && isJoined(_next);
  }

  static bool selects(UChar32 before) {
    return before >= 0 && !isUnseen(before) && !isControl(before) && u_isUWhiteSpace(before) == 0;
  }

  const std::string_view _text;
  std::size_t _start = 0;
  std::size_t _end = 0;
  UChar32 _current = None;
  UChar32 _next = None;
  UChar32 _base = None;  ///< the last character before the current one that marks and selectors belong to
  std::string_view _bytes;
};

bool isWrittenFromRight(UChar32 character) {
  const auto direction = u_charDirection(character);
  return direction == U_RIGHT_TO_LEFT || direction == U_RIGHT_TO_LEFT_ARABIC;
}

bool holdsWritingFromRight(std::string_view text) {
  for (Characters characters(text); characters.hasNext();) {
    characters.take();
    if (characters.character() >= 0 && isWrittenFromRight(characters.character())) return true;
  }
  return false;
}

void appendEscaped(std::string& json, UChar32 character) {
  const auto append = [&](UChar32 unit) {
    constexpr std::string_view digits = "0123456789abcdef";
    json += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4) json += digits[static_cast<std::size_t>(unit >> shift & 0xF)];
  };
  if (U_IS_BMP(character)) return append(character);
  append(U16_LEAD(character));
  append(U16_TRAIL(character));
}

/// Isolates of a line, none of which is left open.
class Isolates {
 public:
  explicit Isolates(std::string& text) : _text(text) {}

  void begin() {
    _text += Isolate;
    ++_open;
  }
  void end() {
    if (_open == 0) return;
    _text += EndOfIsolate;
    --_open;
  }
  void endAll() {
    while (_open > 0) end();
  }

 private:
  std::string& _text;
  std::size_t _open = 0;
};

}  // namespace

std::string visibleText(std::string_view text, char blank) {
  std::string result;
  for (Characters characters(text); characters.hasNext();) {
    const Look look = characters.take();
    if (look == Look::visible) result += characters.bytes();
    if (look == Look::control) result += blank;
    if (look == Look::broken) result += ReplacementText;
  }
  return result;
}

std::string isolatedText(std::string_view text) {
  std::string visible = visibleText(text);
  return holdsWritingFromRight(visible) ? IsolateMark + std::move(visible) + EndMark : visible;
}

std::string_view withoutIsolation(std::string_view text) {
  const bool isIsolated = text.size() > 1 && text.front() == IsolateMark && text.back() == EndMark;
  return isIsolated ? text.substr(1, text.size() - 2) : text;
}

std::string terminalText(std::string_view text) {
  std::string result;
  Isolates isolates(result);
  for (Characters characters(text); characters.hasNext();) {
    const Look look = characters.take();
    const UChar32 character = characters.character();
    if (character == IsolateMark) {
      isolates.begin();
    } else if (character == EndMark) {
      isolates.end();
    } else if (character == '\n' || character == '\t') {
      isolates.endAll();
      result += static_cast<char>(character);
    } else if (look != Look::unseen) {
      result += look == Look::visible ? characters.bytes() : look == Look::broken ? ReplacementText : " ";
    }
  }
  isolates.endAll();
  return result;
}

std::string visibleJson(std::string_view json) {
  std::string result;
  for (Characters characters(json); characters.hasNext();) {
    const Look look = characters.take();
    if (look == Look::visible || look == Look::broken || characters.character() == '\n') {
      result += characters.bytes();
    } else {
      appendEscaped(result, characters.character());
    }
  }
  return result;
}

}  // namespace pellor
