// How the program looks on a terminal and in a pipe.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "pellor/linux/text/IcuText.h"
#include "tests/cli/Program.h"
#include "tests/cli/Terminal.h"

namespace pellor {
namespace {

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

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

std::string onTerminal(const Home& home, unsigned short columns) {
  Terminal terminal(columns);
  EXPECT_EQ(Program(home, pellorCommand({"list"}), {.output = terminal.line()}).finish().exitCode, 0);
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

TEST(Terminal, ALongReadingShowsItsProgressThere) {
  const Home home, other;
  for (int number = 0; number < 250; ++number) {
    for (const Home* each : {&home, &other}) each->addContact(std::to_string(number), "Person", "TEL:+49301234567\n");
  }
  Terminal terminal(80);
  Program(home, pellorCommand({"list"}), {.errors = terminal.line()}).finish();
  const std::string screen = terminal.content();
  EXPECT_THAT(screen, testing::HasSubstr("reading contacts: 100 of 250"));
  EXPECT_TRUE(screen.ends_with("\r\x1B[K")) << "the line is still there";
  EXPECT_EQ(pellor(other, {"list"}).errors, "") << "shown where there is no terminal";
}

}  // namespace
}  // namespace pellor
