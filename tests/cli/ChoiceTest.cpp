// Which one is meant, where several fit.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/Story.h"
#include "tests/cli/Terminal.h"

namespace pellor {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

void addAnnas(const Home& home) {
  home.addContact("a1", "Anna Berg", "ORG:Acme\nTEL:030 7654321\n");
  home.addContact("a2", "Anna Berg", "TEL:030 7654322\n");
  home.addContact("a3", "Anna Lee", "TEL:030 7654321\n");
}

// More of them than one key can choose among.
void addJims(const Home& home, int count) {
  for (int number = 1; number <= count; ++number) {
    const std::string digits = std::to_string(100 + number);
    home.addContact("j" + digits, "Jim " + digits, "TEL:030 7650" + digits + "\n");
  }
}

void expectErrors(const Home& home, const Arguments& arguments, const std::string& expected) {
  const ProgramResult result = pellor(home, arguments);
  EXPECT_EQ(result.exitCode, 1) << testing::PrintToString(arguments);
  EXPECT_EQ(result.errors, expected);
  EXPECT_THAT(result.output, IsEmpty());
}

TEST(Choice, WithoutATerminalEachCandidateIsGivenWithWhatToType) {
  const Home home;
  addAnnas(home);
  expectErrors(home, {"add", "anna"},
               "pellor: \"anna\" fits several: type one of these\n"
               "  anna#1  Anna Berg  030 7654321  Acme\n"
               "  anna#2  Anna Berg  030 7654322\n"
               "  anna#3  Anna Lee   030 7654321\n");
  expectErrors(home, {"allow", "anna berg"},
               "pellor: \"anna berg\" fits several: type one of these\n"
               "  'anna berg#1'  Anna Berg  030 7654321  Acme\n"
               "  'anna berg#2'  Anna Berg  030 7654322\n");
  tell(home, {
                 {{"add", "anna#4"}, 1, "there is no anna#4: \"anna\" fits 3"},
                 {{"add", "anna#0"}, 1, "no contact is called \"anna#0\""},
                 {{"add", "lee#2"}, 1, "there is no lee#2: \"lee\" fits one"},
                 {{"add", "nobody#1"}, 1, "no contact is called \"nobody#1\""},
                 {{"add", "Anna Berg#2", "anna#3"}, 0, "added Anna Berg (1:1)\nadded Anna Lee (1:2)\n"},
                 {{"add", "ANNA#1"}, 0, "added Anna Berg (1:3)"},
             });
  expectErrors(home, {"remove", "anna"},
               "pellor: \"anna\" fits several: type one of these\n"
               "  anna#1  Anna Berg  030 7654322  1:1\n"
               "  anna#2  Anna Lee   030 7654321  1:2\n"
               "  anna#3  Anna Berg  030 7654321  1:3\n");
  tell(home, {
                 {{"number", "030 7654321#1"}, 0, "030 7654321\n"},
                 {{"status", "030 7654321#2"}, 0, "+ Anna Berg (1:3)"},
                 {{"remove", "030 7654321#3"}, 1, "there is no 030 7654321#3: \"030 7654321\" fits 2"},
                 {{"move", "anna#3", "2:1"}, 0, "moved Anna Berg (2:1)"},
                 {{"remove", "anna#1", "anna#3"}, 0, "removed Anna Berg (1:1)\nremoved Anna Berg (2:1)\n"},
             });
}

TEST(Choice, AFavoriteIsNotTakenForItsNamesakesAmongTheContacts) {
  const Home home;
  addAnnas(home);
  tell(home, {
                 {{"favorites", "add", "a2"}, 0, "1 Anna Berg 030 7654322\n"},
                 {{"favorites", "add", "a3"}, 0, "2 Anna Lee"},
                 {{"favorites", "remove", "anna berg"}, 0, "1 Anna Lee"},
                 {{"favorites", "add", "a1"}, 0, "2 Anna Berg"},
                 {{"favorites", "add", "a2"}, 0, "3 Anna Berg"},
                 {{"favorites", "remove", "anna berg#2"}, 0, "1 Anna Lee 030 7654321\n2 Anna Berg 030 7654321\n"},
                 {{"favorites", "remove", "anna#2"}, 1, "no favorite is called \"anna#2\""},
                 {{"favorites", "remove", "lee"}, 0, "1 Anna Berg"},
                 {{"favorites", "add", "030 99"}, 0, "2 030 99"},
                 {{"favorites", "remove", ""}, 2, "WHO is empty"},
             });
}

TEST(Choice, ANameOrANumberThatEndsInASignAndDigitsIsItself) {
  const Home home;
  addAnnas(home);
  home.addContact("anna#2", "Anna Berg #1", "TEL:*100#2\n");
  home.addContact("code", "Code", "TEL:*100\n");
  tell(home, {
                 {{"add", "anna#2"}, 0, "added Anna Berg #1 (1:1)"},
                 {{"remove", "anna berg#1"}, 0, "removed Anna Berg #1"},
                 {{"add", "anna berg #1"}, 0, "added Anna Berg #1"},
                 {{"remove", "*100#2"}, 0, "removed Anna Berg #1"},
                 {{"add", "*100#3", "*100#"}, 0, "added *100#3 (1:1)\nadded *100# (1:2)"},
                 {{"remove", "*100#"}, 0, "removed *100# (1:2)"},
             });
}

TEST(Choice, InJSONCandidatesAreObjects) {
  const Home home;
  addAnnas(home);
  addJims(home, 23);
  const auto errorOf = [&](const Arguments& arguments) {
    return nlohmann::json::parse(pellor(home, arguments).errors)["error"];
  };
  const auto contacts = errorOf({"--json", "add", "anna"});
  EXPECT_EQ(contacts["message"], "\"anna\" fits several");
  EXPECT_EQ(contacts["moreCandidates"], 0);
  EXPECT_EQ(contacts["candidates"][1], nlohmann::json::parse(R"({"number":2,"name":"Anna Berg","guid":"a2",
      "destination":"030 7654322","organization":null,"type":"anna#2"})"));
  EXPECT_EQ(contacts["candidates"][0]["organization"], "Acme");
  ASSERT_EQ(pellor(home, {"add", "a1", "a3"}).exitCode, 0);
  EXPECT_EQ(errorOf({"--json", "remove", "anna"})["candidates"][1], nlohmann::json::parse(R"({"number":2,
      "name":"Anna Lee","destination":"030 7654321","place":{"page":0,"slot":1},"type":"anna#2"})"));
  const auto jims = errorOf({"--json", "add", "jim"});
  EXPECT_EQ(jims["candidates"].size(), 20U);
  EXPECT_EQ(jims["moreCandidates"], 3);
  EXPECT_THAT(pellor(home, {"add", "jim"}).errors, HasSubstr("  jim#20  Jim 120  030 7650120\n  and 3 more\n"));
  EXPECT_EQ(pellor(home, {"add", "jim#23"}).output, "added Jim 123 (1:3)\n");
}

bool areEqual(const termios& left, const termios& right) {
  return left.c_lflag == right.c_lflag && left.c_iflag == right.c_iflag && left.c_oflag == right.c_oflag &&
         left.c_cflag == right.c_cflag && std::memcmp(left.c_cc, right.c_cc, sizeof left.c_cc) == 0;
}

/// A running command that asks, with these keys as the answer.
struct Asked {
  Asked(const Home& home, const Arguments& arguments, const std::string& keys, unsigned short columns = 80)
      : terminal(columns), before(terminal.settings()), program(home, command(arguments), redirection()) {
    terminal.awaitText("Esc for nobody: ");
    EXPECT_FALSE(areEqual(terminal.settings(), before)) << "keys are echoed, and one alone does not arrive";
    terminal.type(keys);
  }

  // What was typed before the question is no answer to it.
  std::vector<std::string> command(const Arguments& arguments) const {
    terminal.type("1\n");
    return pellorCommand(arguments);
  }
  Program::Redirection redirection() const { return {.errors = terminal.line(), .input = terminal.line()}; }

  Terminal terminal;
  const termios before;
  Program program;
};

TEST(Choice, OnATerminalOneKeyChooses) {
  const Home home;
  addAnnas(home);
  const struct {
    Arguments arguments;
    std::string keys;
    int exitCode;
    std::string contains;
  } cases[] = {
      {{"add", "anna"}, "\x1b", 1, "nobody was chosen"},        {{"add", "anna"}, "\x1b[A", 1, "nobody was chosen"},
      {{"add", "anna"}, "q", 1, "nobody was chosen"},           {{"add", "anna"}, "\x03", 1, "nobody was chosen"},
      {{"add", "anna"}, "\x04", 1, "nobody was chosen"},        {{"add", "anna"}, "\x1a", 1, "nobody was chosen"},
      {{"add", "anna"}, "\n", 1, "nobody was chosen"},          {{"add", "anna"}, "0", 1, "nobody was chosen"},
      {{"add", "anna"}, "4", 1, "nobody was chosen"},           {{"add", "anna"}, "é", 1, "nobody was chosen"},
      {{"add", "anna"}, "2", 0, "added Anna Berg (1:1)\n"},     {{"add", "anna"}, "3", 0, "added Anna Lee (1:2)\n"},
      {{"remove", "anna"}, "2", 0, "removed Anna Lee (1:2)\n"},
  };
  for (const auto& [arguments, keys, exitCode, contains] : cases) {
    SCOPED_TRACE(arguments.front() + testing::PrintToString(keys));
    Asked asked(home, arguments, keys);
    const ProgramResult result = asked.program.finish();
    EXPECT_EQ(result.exitCode, exitCode);
    EXPECT_TRUE(areEqual(asked.terminal.settings(), asked.before));
    EXPECT_THAT(exitCode == 0 ? result.output : asked.terminal.content(), HasSubstr(contains));
  }
  EXPECT_EQ(pellor(home, {"list", "--lines"}).output, "1:1\t+\tAnna Berg\t030 7654322\n");
}

TEST(Choice, OfMoreThanNineTheNumberIsTyped) {
  const Home home;
  addJims(home, 12);
  Asked chosen(home, {"add", "jim"},
               "19\x7f\x7f\x7f"
               "11\n",
               40);
  EXPECT_EQ(chosen.program.finish().output, "added Jim 111 (1:1)\n");
  const std::string screen = chosen.terminal.content();
  EXPECT_THAT(screen, HasSubstr("\n   1  Jim 101  030 7650101\n"));
  EXPECT_THAT(screen, HasSubstr("\n  12  Jim 112  030 7650112\nWhich one? 1-12 and Enter, Esc for nobody: "));
  for (const char* keys : {"1q", "\n", "13\n", "1\x1b", "999999999999999999999\n"}) {
    EXPECT_EQ(Asked(home, {"add", "jim"}, keys).program.finish().exitCode, 1) << keys;
  }
  EXPECT_EQ(pellor(home, {"list", "--lines"}).output, "1:1\t+\tJim 111\t030 7650111\n");
}

TEST(Choice, ASignalOrTheEndOfTheInputChoosesNobodyAndGivesTheTerminalBack) {
  const Home home;
  addAnnas(home);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    Asked asked(home, {"add", "anna"}, "");
    asked.program.sendSignal(signal);
    EXPECT_EQ(asked.program.finish().exitCode, -signal);
    EXPECT_TRUE(areEqual(asked.terminal.settings(), asked.before)) << signal;
  }
  Asked closed(home, {"add", "anna"}, "");
  closed.terminal.closeScreen();
  EXPECT_EQ(closed.program.finish().exitCode, 1);
  EXPECT_THAT(pellor(home, {"list", "--lines"}).output, IsEmpty());
}

// A script that asks for JSON, or reads what is said, is never asked.
TEST(Choice, NobodyIsAskedElsewhere) {
  const Home home;
  addAnnas(home);
  const Terminal terminal(80);
  const Program::Redirection inputAlone = {.input = terminal.line()};
  EXPECT_EQ(Program(home, pellorCommand({"add", "anna"}), inputAlone).finish().exitCode, 1);
  const Program::Redirection whole = {.errors = terminal.line(), .input = terminal.line()};
  EXPECT_EQ(Program(home, pellorCommand({"add", "anna", "--json"}), whole).finish().exitCode, 1);
}

}  // namespace
}  // namespace pellor
