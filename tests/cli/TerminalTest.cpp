// How the program looks on a terminal and in a pipe.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "pellor/linux/text/IcuText.h"
#include "tests/cli/Program.h"
#include "tests/cli/Story.h"
#include "tests/cli/Terminal.h"

namespace pellor {
namespace {

std::size_t widestLine(const std::string& text) {
  std::size_t widest = 0;
  for (const std::string& line : linesOf(text)) widest = std::max(widest, displayWidth(line));
  return widest;
}

std::size_t columnOf(const std::string& line, const std::string& text) {
  const auto place = line.find(text);
  EXPECT_NE(place, std::string::npos) << text << " in " << line;
  return displayWidth(line.substr(0, place));
}

std::string onTerminal(const Home& home, unsigned short columns, const std::vector<std::string>& arguments = {"list"}) {
  Terminal terminal(columns);
  Program(home, pellorCommand(arguments), {.output = terminal.line()}).finish();
  return terminal.content();
}

TEST(Terminal, PagesFitItsWidth) {
  const Home home;
  home.addContact("long", "Bartholomew James Quillfeather of the Outer Islands", "TEL:+12125550151\n");
  home.addContact("wide", "林云雀 かざみ 🌻", "EMAIL:lin@example.org\n");
  home.addContact("ann", "Ann", "EMAIL:ann@example.org\n");
  ASSERT_EQ(pellor(home, {"add", "long", "wide", "ann"}).errors, "");
  EXPECT_LE(widestLine(onTerminal(home, 40)), 40U);
  EXPECT_LE(widestLine(onTerminal(home, 9)), 9U);
  const std::string piped = pellor(home, {"list"}).output;
  EXPECT_LE(widestLine(piped), 80U);
  const auto lines = linesOf(piped);
  EXPECT_THAT(lines[1], testing::HasSubstr("…"));
  EXPECT_EQ(columnOf(lines[1], "3 "), columnOf(lines[3], "6 ")) << "wide letters shift the column";
}

TEST(Terminal, LinesForReadingAreBrokenBetweenWords) {
  const Home home;
  home.addContact("long", "Karl-Theodor von der Leyen-Österreicher", "TEL:+12125550151\n");
  home.addContact("dana", "דנה בת אברהם בן יצחק הלוי", "TEL:+4930123456\n");
  ASSERT_EQ(pellor(home, {"add", "long", "dana"}).errors, "");
  for (const std::vector<std::string>& command :
       {Arguments{"help"}, {"help", "services"}, {"help", "add"}, {"status"}, {"settings"}, {"device", "--help"}}) {
    SCOPED_TRACE(testing::PrintToString(command));
    const std::string piped = pellor(home, command).output;
    EXPECT_GT(widestLine(piped), 40U);
    for (const unsigned short columns : std::array<unsigned short, 3>{40, 60, 100}) {
      const std::string shown = onTerminal(home, columns, command);
      EXPECT_EQ(wordsOf(shown), wordsOf(piped));
      for (const std::string& line : linesOf(shown))
        EXPECT_TRUE(displayWidth(line) <= columns || wordsOf(line).size() == 1) << line;
    }
    EXPECT_EQ(onTerminal(home, 400, command), piped);
  }
  EXPECT_EQ(linesOf(onTerminal(home, 20, {"--json", "list"})).size(), 1U) << "JSON is one line";
  EXPECT_EQ(linesOf(onTerminal(home, 20, {"list", "--lines"})).size(), 2U) << "a friend is one line";
  Terminal terminal(40);
  EXPECT_EQ(Program(home, pellorCommand({"add", "Nobody at all"}), {.errors = terminal.line()}).finish().exitCode, 1);
  const std::string errors = terminal.content();
  EXPECT_LE(widestLine(errors), 40U) << errors;
}

// Names, numbers, titles, arguments and paths, by every way out of the program.
TEST(Terminal, WhatCannotBeSeenStaysOutAndWritingFromTheRightIsIsolated) {
  const std::string hidden = "\u202E\u200B\U000E0041\u009B";
  const Home home;
  home.addContact("dana", "דנה" + hidden + " לוי", "TEL:+4930123456\n");
  home.addContact("ann", "Ann" + hidden, "EMAIL:ann" + hidden + "@example.org\n");
  pellor(home, {"title", "1", "כותרת" + hidden});
  const struct {
    std::vector<std::string> arguments;
    std::string contains;
  } steps[] = {
      {{"contacts"}, "  Ann       ann @example.org  ann\n  \u2068דנה  לוי\u2069"},
      {{"add", "dana", "ann"}, "added \u2068דנה  לוי\u2069 (1:1)\nadded Ann  (1:2)\n"},
      {{"list"}, "Page 1: \u2068כותרת \u2069\n"},
      {{"add", "רות" + hidden}, "no contact is called \"\u2068רות \u2069\""},
      {{"--contacts", (home / ("רות" + hidden)).string(), "contacts"}, "/רות \u2069: put vCard files there"},
      {{"--verbose", "remove", "1:1"}, "\u2068דנה? לוי\u2069"},
      {{"--unknown" + hidden}, "--unknown "},
  };
  for (const auto& [arguments, contains] : steps) {
    const ProgramResult result = pellor(home, arguments);
    const std::string all = result.output + result.errors;
    SCOPED_TRACE(testing::PrintToString(arguments));
    EXPECT_THAT(all, testing::HasSubstr(contains));
    for (const char* unseen : {"\u202E", "\u200B", "\U000E0041", "\u009B"})
      EXPECT_THAT(all, testing::Not(testing::HasSubstr(unseen)));
  }
  const std::string json = pellor(home, {"--json", "contacts"}).output;
  EXPECT_THAT(json, testing::HasSubstr(R"("name":"Ann\u202e\u200b\udb40\udc41\u009b")"));
  EXPECT_THAT(json, testing::Not(testing::HasSubstr("\u2068")));
}

}  // namespace
}  // namespace pellor
