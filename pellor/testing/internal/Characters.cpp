#include "pellor/testing/internal/Characters.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace pellor::characters {

namespace {

struct Range {
  char32_t first;
  char32_t last;
};

constexpr Range LatinLetters[] = {
    {0x41, 0x5A},     {0x61, 0x7A},     {0xAA, 0xAA},     {0xB5, 0xB5},     {0xBA, 0xBA},     {0xC0, 0xD6},
    {0xD8, 0xF6},     {0xF8, 0x2C1},    {0x2C6, 0x2D1},   {0x2E0, 0x2E4},   {0x2EC, 0x2EC},   {0x2EE, 0x2EE},
    {0x1D00, 0x1D25}, {0x1D2C, 0x1D5C}, {0x1D62, 0x1D65}, {0x1D6B, 0x1D77}, {0x1E00, 0x1EFF}, {0x2071, 0x2071},
    {0x207F, 0x207F}, {0x2C60, 0x2C7F}, {0xA722, 0xA787}, {0xA78B, 0xA7CA}, {0xAB30, 0xAB5A}, {0xFB00, 0xFB06},
    {0xFF21, 0xFF3A}, {0xFF41, 0xFF5A}};

constexpr Range OtherLetters[] = {
    {0x370, 0x373},   {0x376, 0x377},   {0x37B, 0x37D},   {0x37F, 0x37F},   {0x386, 0x386},   {0x388, 0x3FF},
    {0x400, 0x481},   {0x48A, 0x52F},   {0x531, 0x556},   {0x560, 0x588},   {0x5D0, 0x5EA},   {0x5EF, 0x5F2},
    {0x620, 0x64A},   {0x66E, 0x66F},   {0x671, 0x6D3},   {0x6D5, 0x6D5},   {0x6FA, 0x6FC},   {0x710, 0x710},
    {0x712, 0x72F},   {0x750, 0x77F},   {0x780, 0x7A5},   {0x904, 0x939},   {0x958, 0x961},   {0x985, 0x9B9},
    {0xA05, 0xA39},   {0xA85, 0xAB9},   {0xB05, 0xB39},   {0xB83, 0xBB9},   {0xC05, 0xC39},   {0xC85, 0xCB9},
    {0xD05, 0xD3A},   {0xD85, 0xDC6},   {0xE01, 0xE30},   {0xE40, 0xE46},   {0xE81, 0xEB0},   {0xF40, 0xF6C},
    {0x1000, 0x102A}, {0x10A0, 0x10C5}, {0x10D0, 0x10FA}, {0x10FC, 0x10FF}, {0x1100, 0x135A}, {0x13A0, 0x13F5},
    {0x1780, 0x17B3}, {0x1820, 0x1878}, {0x1C80, 0x1C88}, {0x1C90, 0x1CBF}, {0x1F00, 0x1FBC}, {0x1FC2, 0x1FCC},
    {0x1FD0, 0x1FDB}, {0x1FE0, 0x1FEC}, {0x1FF2, 0x1FFC}, {0x2D00, 0x2D25}, {0x3005, 0x3006}, {0x3041, 0x3096},
    {0x309D, 0x309F}, {0x30A1, 0x30FA}, {0x30FC, 0x30FF}, {0x3105, 0x312F}, {0x3131, 0x318E}, {0x31F0, 0x31FF},
    {0x3400, 0x4DBF}, {0x4E00, 0x9FFF}, {0xA000, 0xA48C}, {0xAC00, 0xD7A3}, {0xF900, 0xFAD9}, {0xFB1D, 0xFB1D},
    {0xFB1F, 0xFB28}, {0xFB2A, 0xFBB1}, {0xFBD3, 0xFD3D}, {0xFE70, 0xFEFC}, {0xFF66, 0xFFDC}, {0x20000, 0x323AF}};

constexpr Range SyllablesAndIdeographs[] = {{0x1100, 0x11FF}, {0x3005, 0x3006},  {0x3041, 0x318E}, {0x31F0, 0x31FF},
                                            {0x3400, 0x4DBF}, {0x4E00, 0xA48C},  {0xAC00, 0xD7A3}, {0xF900, 0xFAD9},
                                            {0xFF66, 0xFFDC}, {0x20000, 0x323AF}};

constexpr Range Marks[] = {{0x300, 0x36F},   {0x483, 0x489},   {0x591, 0x5BD},   {0x5BF, 0x5BF},   {0x5C1, 0x5C2},
                           {0x5C4, 0x5C5},   {0x610, 0x61A},   {0x64B, 0x65F},   {0x670, 0x670},   {0x6D6, 0x6DC},
                           {0x6DF, 0x6E4},   {0x6E7, 0x6E8},   {0x711, 0x711},   {0x730, 0x74A},   {0x7A6, 0x7B0},
                           {0x900, 0x903},   {0x93A, 0x93C},   {0x93E, 0x94F},   {0x951, 0x957},   {0x962, 0x963},
                           {0xE31, 0xE31},   {0xE34, 0xE3A},   {0xE47, 0xE4E},   {0x102B, 0x103E}, {0x135D, 0x135F},
                           {0x1AB0, 0x1ACE}, {0x1DC0, 0x1DFF}, {0x20D0, 0x20F0}, {0x302A, 0x302F}, {0x3099, 0x309A},
                           {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}};

constexpr Range Emoji[] = {
    {0xA9, 0xA9},       {0xAE, 0xAE},       {0x203C, 0x203C},   {0x2049, 0x2049},   {0x2122, 0x2122},
    {0x2139, 0x2139},   {0x2194, 0x2199},   {0x21A9, 0x21AA},   {0x231A, 0x231B},   {0x2328, 0x2328},
    {0x23CF, 0x23CF},   {0x23E9, 0x23F3},   {0x23F8, 0x23FA},   {0x24C2, 0x24C2},   {0x25AA, 0x25AB},
    {0x25B6, 0x25B6},   {0x25C0, 0x25C0},   {0x25FB, 0x25FE},   {0x2600, 0x2605},   {0x2607, 0x2612},
    {0x2614, 0x2685},   {0x2690, 0x2705},   {0x2708, 0x2712},   {0x2714, 0x2714},   {0x2716, 0x2716},
    {0x271D, 0x271D},   {0x2721, 0x2721},   {0x2728, 0x2728},   {0x2733, 0x2734},   {0x2744, 0x2744},
    {0x2747, 0x2747},   {0x274C, 0x274C},   {0x274E, 0x274E},   {0x2753, 0x2755},   {0x2757, 0x2757},
    {0x2763, 0x2767},   {0x2795, 0x2797},   {0x27A1, 0x27A1},   {0x27B0, 0x27B0},   {0x27BF, 0x27BF},
    {0x2934, 0x2935},   {0x2B05, 0x2B07},   {0x2B1B, 0x2B1C},   {0x2B50, 0x2B50},   {0x2B55, 0x2B55},
    {0x3030, 0x3030},   {0x303D, 0x303D},   {0x3297, 0x3297},   {0x3299, 0x3299},   {0x1F000, 0x1F0FF},
    {0x1F10D, 0x1F10F}, {0x1F12F, 0x1F12F}, {0x1F16C, 0x1F171}, {0x1F17E, 0x1F17F}, {0x1F18E, 0x1F18E},
    {0x1F191, 0x1F19A}, {0x1F1AD, 0x1F1FF}, {0x1F201, 0x1F20F}, {0x1F21A, 0x1F21A}, {0x1F22F, 0x1F22F},
    {0x1F232, 0x1F23A}, {0x1F23C, 0x1F23F}, {0x1F249, 0x1FAFF}, {0x1FC00, 0x1FFFD}};

// The zeros of the decimal digits; nine more follow each.
constexpr char32_t Zeros[] = {0x30,    0x660,   0x6F0,   0x7C0,   0x966,   0x9E6,   0xA66,   0xAE6,   0xB66,   0xBE6,
                              0xC66,   0xCE6,   0xD66,   0xDE6,   0xE50,   0xED0,   0xF20,   0x1040,  0x1090,  0x17E0,
                              0x1810,  0x1946,  0x19D0,  0x1A80,  0x1A90,  0x1B50,  0x1BB0,  0x1C40,  0x1C50,  0xA620,
                              0xA8D0,  0xA900,  0xA9D0,  0xA9F0,  0xAA50,  0xABF0,  0xFF10,  0x104A0, 0x10D30, 0x11066,
                              0x110F0, 0x11136, 0x111D0, 0x112F0, 0x11450, 0x114D0, 0x11650, 0x116C0, 0x11730, 0x118E0,
                              0x11950, 0x11C50, 0x11D50, 0x11DA0, 0x16A60, 0x16AC0, 0x16B50, 0x1D7CE, 0x1D7D8, 0x1D7E2,
                              0x1D7EC, 0x1D7F6, 0x1E140, 0x1E2F0, 0x1E950, 0x1FBF0};

template <std::size_t N>
bool isIn(const Range (&ranges)[N], char32_t character) {
  const auto next = std::upper_bound(std::begin(ranges), std::end(ranges), character,
                                     [](char32_t value, const Range& range) { return value < range.first; });
  return next != std::begin(ranges) && character <= std::prev(next)->last;
}

bool isBetween(char32_t character, char32_t first, char32_t last) { return first <= character && character <= last; }

std::size_t lengthAnnouncedBy(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead < 0xE0) return 2;
  if (lead >= 0xE0 && lead < 0xF0) return 3;
  if (lead >= 0xF0 && lead < 0xF5) return 4;
  return 0;
}

// The first character of a non-empty text; absent when its bytes do not decode.
std::optional<char32_t> firstCharacter(std::string_view utf8, std::size_t length) {
  if (length == 0 || utf8.size() < length) return std::nullopt;
  if (length == 1) return static_cast<unsigned char>(utf8.front());
  char32_t character = static_cast<unsigned char>(utf8.front()) & (0xFFu >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    const auto byte = static_cast<unsigned char>(utf8[i]);
    if ((byte & 0xC0u) != 0x80u) return std::nullopt;
    character = (character << 6) | (byte & 0x3Fu);
  }
  constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool isSurrogate = isBetween(character, 0xD800, 0xDFFF);
  if (character < smallest[length] || character > 0x10FFFF || isSurrogate) return std::nullopt;
  return character;
}

// In these blocks upper and lower case letters alternate; in the second group the upper case ones are odd.
bool hasEvenUpperCase(char32_t c) {
  return isBetween(c, 0x100, 0x12F) || isBetween(c, 0x132, 0x137) || isBetween(c, 0x14A, 0x177) ||
         isBetween(c, 0x1E00, 0x1E95) || isBetween(c, 0x1EA0, 0x1EFF) || isBetween(c, 0x460, 0x481) ||
         isBetween(c, 0x48A, 0x4BF) || isBetween(c, 0x4D0, 0x52F);
}
bool hasOddUpperCase(char32_t c) {
  return isBetween(c, 0x139, 0x148) || isBetween(c, 0x179, 0x17E) || isBetween(c, 0x4C1, 0x4CE);
}

struct CasePair {
  char32_t upper;
  char32_t lower;
};
constexpr CasePair SinglePairs[] = {{0x178, 0xFF},  {0x386, 0x3AC}, {0x388, 0x3AD}, {0x389, 0x3AE},
                                    {0x38A, 0x3AF}, {0x38C, 0x3CC}, {0x38E, 0x3CD}, {0x38F, 0x3CE}};

}  // namespace

std::vector<char32_t> decode(std::string_view utf8) {
  std::vector<char32_t> characters;
  characters.reserve(utf8.size());
  while (!utf8.empty()) {
    const std::size_t length = lengthAnnouncedBy(static_cast<unsigned char>(utf8.front()));
    const auto character = firstCharacter(utf8, length);
    characters.push_back(character.value_or(0xFFFD));
    utf8.remove_prefix(character ? length : 1);
  }
  return characters;
}

void append(std::string& utf8, char32_t character) {
  const auto add = [&](char32_t byte) { utf8.push_back(static_cast<char>(static_cast<unsigned char>(byte))); };
  const auto addTail = [&](int shift) { add(0x80 | ((character >> shift) & 0x3F)); };
  if (character < 0x80) return add(character);
  if (character < 0x800) {
    add(0xC0 | (character >> 6));
  } else if (character < 0x10000) {
    add(0xE0 | (character >> 12));
    addTail(6);
  } else {
    add(0xF0 | (character >> 18));
    addTail(12);
    addTail(6);
  }
  addTail(0);
}

std::string encode(const std::vector<char32_t>& characters) {
  std::string utf8;
  for (const char32_t character : characters) append(utf8, character);
  return utf8;
}

bool isLatinLetter(char32_t character) { return isIn(LatinLetters, character); }
bool isOtherLetter(char32_t character) { return isIn(OtherLetters, character); }
bool isSyllableOrIdeograph(char32_t character) { return isIn(SyllablesAndIdeographs, character); }
bool isMark(char32_t character) { return isIn(Marks, character); }
bool isEmoji(char32_t character) { return isIn(Emoji, character); }

std::optional<int> decimalDigit(char32_t character) {
  const auto next = std::upper_bound(std::begin(Zeros), std::end(Zeros), character);
  if (next == std::begin(Zeros)) return std::nullopt;
  const char32_t distance = character - *std::prev(next);
  if (distance > 9) return std::nullopt;
  return static_cast<int>(distance);
}

char32_t upperCase(char32_t c) {
  if (isBetween(c, 'a', 'z') || (isBetween(c, 0xE0, 0xFE) && c != 0xF7)) return c - 0x20;
  if (c == 0xB5) return 0x39C;
  if (c == 0x131) return 'I';
  if (c == 0x17F) return 'S';
  if (c == 0x3C2) return 0x3A3;
  if (isBetween(c, 0x3B1, 0x3CB) || isBetween(c, 0x430, 0x44F)) return c - 0x20;
  if (isBetween(c, 0x450, 0x45F)) return c - 0x50;
  for (const CasePair& pair : SinglePairs) {
    if (c == pair.lower) return pair.upper;
  }
  if (hasEvenUpperCase(c)) return c & ~char32_t{1};
  if (hasOddUpperCase(c)) return c % 2 == 0 ? c - 1 : c;
  return c;
}

char32_t lowerCase(char32_t c) {
  if (isBetween(c, 'A', 'Z') || (isBetween(c, 0xC0, 0xDE) && c != 0xD7)) return c + 0x20;
  if (c == 0x130) return 'i';
  if ((isBetween(c, 0x391, 0x3AB) && c != 0x3A2) || isBetween(c, 0x410, 0x42F)) return c + 0x20;
  if (isBetween(c, 0x400, 0x40F)) return c + 0x50;
  for (const CasePair& pair : SinglePairs) {
    if (c == pair.upper) return pair.lower;
  }
  if (hasEvenUpperCase(c)) return c | 1;
  if (hasOddUpperCase(c)) return c % 2 == 1 ? c + 1 : c;
  return c;
}

std::string plainLetters(char32_t character) {
  constexpr std::string_view supplement = "aaaaaaaceeeeiiiidnooooo ouuuuytsaaaaaaaceeeeiiiidnooooo ouuuuyty";
  constexpr std::string_view extended =
      "aaaaaaccccccccddddeeeeeeeeeegggggggghhhhiiiiiiiiiijjjjkkkllllllllllnnnnnnnnnoooooooorrrrrrssssssssttttttuuuuuuuu"
      "uuuu"
      "wwyyyzzzzzzs";
  constexpr char32_t firstOfSupplement = 0xC0, firstOfExtended = 0x100;
  constexpr char32_t firstOfFullWidth = 0xFF01, lastOfFullWidth = 0xFF5E, firstVisible = '!';
  if (character >= firstOfFullWidth && character <= lastOfFullWidth)
    return plainLetters(character - firstOfFullWidth + firstVisible);
  if (character == U'ß') return "ss";
  if (character >= 'A' && character <= 'Z') return std::string(1, static_cast<char>(character - 'A' + 'a'));
  if (character >= 'a' && character <= 'z') return std::string(1, static_cast<char>(character));
  if (character >= firstOfSupplement && character < firstOfExtended)
    return std::string(1, supplement[character - firstOfSupplement]);
  if (character >= firstOfExtended && character < firstOfExtended + extended.size())
    return std::string(1, extended[character - firstOfExtended]);
  std::string other;
  append(other, upperCase(character));
  return other;
}

}  // namespace pellor::characters
