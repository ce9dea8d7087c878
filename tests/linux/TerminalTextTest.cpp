#include "pellor/linux/text/TerminalText.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace pellor {
namespace {

struct Row {
  const char* what;
  std::string text, shown;
};

TEST(TerminalText, NothingUnseenAndNothingThatSteersIsLeft) {
  struct Range {
    char32_t first, last;
    const char* becomes;
  };
  // Between two letters of a script without joined letters.
  const Range ranges[] = {
      {0x00, 0x1F, " "},      {0x7F, 0x9F, " "},      {0x2028, 0x2029, " "},   // control characters, separators
      {0x061C, 0x061C, ""},   {0x200E, 0x200F, ""},   {0x202A, 0x202E, ""},    // marks, embeddings, overrides
      {0x2066, 0x2069, ""},   {0x206A, 0x206F, ""},                            // isolates, old format characters
      {0x00AD, 0x00AD, ""},   {0x200B, 0x200D, ""},   {0x2060, 0x2064, ""},    // zero-width characters, joiners
      {0xFEFF, 0xFEFF, ""},   {0x180E, 0x180E, ""},   {0x034F, 0x034F, ""},    // the same
      {0x115F, 0x1160, ""},   {0x3164, 0x3164, ""},   {0xFFA0, 0xFFA0, ""},    // fillers
      {0xFFF9, 0xFFFB, ""},   {0x1D173, 0x1D17A, ""}, {0xE0000, 0xE007F, ""},  // annotations, tags
      {0xE0080, 0xE00FF, ""},
  };
  for (const Range& range : ranges) {
    for (char32_t character = range.first; character <= range.last; ++character) {
      const std::string text = std::filesystem::path(std::u32string({U'a', character, U'b'})).string();
      EXPECT_EQ(visibleText(text), std::string("a") + range.becomes + "b") << std::hex << std::uint32_t{character};
      const bool isOwn = character == '\n' || character == '\t' || character == 0x0E || character == 0x0F;
      EXPECT_EQ(isOwn || terminalText(text) == visibleText(text), true) << std::hex << std::uint32_t{character};
      const std::string json = nlohmann::json(text).dump();
      const std::string shown = visibleJson(json);
      EXPECT_EQ(nlohmann::json::parse(shown), nlohmann::json(text));
      EXPECT_EQ(visibleText(shown), shown) << std::hex << std::uint32_t{character};
    }
  }
}

TEST(TerminalText, JoinersAndSelectorsStayWhereTheyAreNeeded) {
  const Row rows[] = {
      {"ordinary text of many scripts", "Zoë Ångström Žižek Ελένη Борис 林云雀 かざみ 한글 ไทย",
       "Zoë Ångström Žižek Ελένη Борис 林云雀 かざみ 한글 ไทย"},
      {"Persian, a non-joiner in the word", "نمی\u200Cخواهم", "نمی\u200Cخواهم"},
      {"Hindi, a joiner behind the virama", "क\u094D\u200Dष", "क\u094D\u200Dष"},
      {"a joiner at the ends of a word", "\u200Dنمی\u200C نمی\u200D", "نمی نمی"},
      {"doubled", "نمی\u200C\u200Cخواهم क\u094D\u200D\u200Dष", "نمیخواهم क\u094Dष"},
      {"between letters that are not joined", "A\u200Dn\u200Cn 1\u200D2 ש\u200Dל", "Ann 12 של"},
      {"pictures with skin and selectors", "👩🏽\u200D🚒 🏳\uFE0F\u200D🌈 ❤\uFE0F\u200D🔥",
       "👩🏽\u200D🚒 🏳\uFE0F\u200D🌈 ❤\uFE0F\u200D🔥"},
      {"a picture that is joined to nothing", "👨\u200D \u200D👩 👨\u200D\u200D👩 👨\u200Cx", "👨 👩 👨👩 👨x"},
      {"a flag of tags loses them", "🏴\U000E0067\U000E0062\U000E0065\U000E006E\U000E0067\U000E007F!", "🏴!"},
      {"one selector for a character", "☺\uFE0F\uFE0F\uFE0E", "☺\uFE0F"},
      {"data in selectors", "a\U000E0100\U000E0101\U000E01EF", "a\U000E0100"},
      {"a sign around a number", "\u0600\u0661\u0662", "\u0600\u0661\u0662"},
  };
  for (const Row& each : rows) {
    EXPECT_EQ(visibleText(each.text), each.shown) << each.what;
    EXPECT_EQ(visibleText(each.shown), each.shown) << each.what << ", again";
    EXPECT_EQ(terminalText(each.shown), each.shown) << each.what << ", on its way out";
    EXPECT_EQ(visibleJson(each.shown), each.shown) << each.what << ", in JSON";
  }
}

TEST(TerminalText, BytesThatAreNoTextAreReplaced) {
  EXPECT_EQ(visibleText("a\x9B"
                        "31m\xC3(\xED\xA0\x80z\xF4"),
            "a\uFFFD31m\uFFFD(\uFFFD\uFFFD\uFFFDz\uFFFD");
  EXPECT_EQ(visibleText(std::string_view("a\0b", 3)), "a b");
  EXPECT_EQ(visibleText("\x1B[2J\n", '?'), "?[2J?");
}

TEST(TerminalText, WritingFromTheRightIsIsolatedAndEveryIsolateEnds) {
  const Row rows[] = {
      {"Hebrew", isolatedText("דנה") + " (1:1)", "\u2068דנה\u2069 (1:1)"},
      {"an override and isolates of the name's own", isolatedText("\u2067\u202Eדנה\u2069") + "!", "\u2068דנה\u2069!"},
      {"a line end inside and the next line", "a " + isolatedText("דנה\n") + "\nb", "a \u2068דנה \u2069\nb"},
      {"marks that nobody closes",
       "a\x0E"
       "b\nc",
       "a\u2068b\u2069\nc"},
      {"marks that nobody opened",
       "a\x0F"
       "b",
       "ab"},
      {"isolates that were not marked", "a\u2068b\u2069", "ab"},
  };
  for (const Row& each : rows) EXPECT_EQ(terminalText(each.text), each.shown) << each.what;
  EXPECT_EQ(withoutIsolation(isolatedText("דנה")), "דנה");
}

}  // namespace
}  // namespace pellor
