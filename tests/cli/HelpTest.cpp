// Help, suggestions, completions, and what scripts get.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/Program.h"

namespace pellor {
namespace {

using nlohmann::json;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Arguments = std::vector<std::string>;

TEST(Help, AMistypedWordIsAnsweredWithTheOneThatWasMeant) {
  const Home home;
  const struct {
    Arguments arguments;
    std::string error;
  } rows[] = {
      {{"ad"}, "pellor has no command ad: did you mean add?"},
      {{"favorites", "imports"}, "pellor favorites has no command imports: did you mean import?"},
      {{"list", "--jsn"}, "pellor list has no option --jsn: did you mean --json?"},
      {{"frobnicate"}, "pellor has no command frobnicate (see pellor help)"},
      {{"title"}, "PAGE is required (see pellor help title)"},
      {{"device"}, "a command is required (see pellor help device)"},
      {{"settings", "shrt-names", "true"}, "there is no setting \"shrt-names\": did you mean short-names?"},
      {{"move", "Ann", "1:1", "1:2"}, "pellor move has no use for 1:2 (see pellor help move)"},
      {{"help", "ad"}, "there is no help on ad: did you mean add?"},
      {{"completion", "csh"}, "SHELL is bash, zsh or fish, not csh"},
  };
  for (const auto& row : rows) {
    const ProgramResult result = pellor(home, row.arguments);
    EXPECT_EQ(result.errors, "pellor: " + row.error + "\n");
    EXPECT_EQ(result.exitCode, 2) << row.error;
  }
}

TEST(Help, EachCommandIsExplainedWithExamplesThatItUnderstands) {
  const Home home;
  const std::string help = pellor(home, {"help"}).output;
  EXPECT_EQ(pellor(home, {"--help"}).output, help);
  EXPECT_THAT(help, Not(HasSubstr("--ldap-base"))) << "most would be about services that most do not use";
  EXPECT_THAT(pellor(home, {"help", "services"}).output, HasSubstr("--ldap-base TEXT"));
  EXPECT_THAT(pellor(home, {"help", "title"}).output,
              AllOf(HasSubstr("\nArguments:\n  PAGE  "), HasSubstr("\n  TEXT  ")));
  EXPECT_THAT(pellor(home, {"help", "--man"}).output, HasSubstr("\\-\\-ldap\\-base"));
  EXPECT_THAT(pellor(home, {"help", "who"}).output, HasSubstr("zoe#2 is the second"));
  EXPECT_EQ(pellor(home, {"help", "favorites", "add"}).output, pellor(home, {"favorites", "add", "--help"}).output);

  std::size_t count = 0;
  for (const std::string& line : linesOf(pellor(home, {"complete", "--", ""}).output)) {
    const std::string name = line.substr(0, line.find('\t'));
    const std::string text = pellor(home, {"help", name}).output;
    SCOPED_TRACE(name);
    ASSERT_THAT(text, HasSubstr("Examples:\n"));
    for (const std::string& example : linesOf(text.substr(text.find("Examples:\n") + 10))) {
      if (example.empty()) break;
      ++count;
      EXPECT_THAT(example, HasSubstr("pellor"));
      if (name == "watch") continue;  // it goes on until it is interrupted
      const std::string program = "pellor() { '" PELLOR_PROGRAM "' \"$@\"; }; ";
      const ProgramResult result = Program(home, {"/bin/sh", "-c", program + example + " </dev/null"}).finish();
      EXPECT_THAT(result.errors, Not(HasSubstr("pellor help"))) << example;
    }
  }
  EXPECT_GT(count, 20U);
}

TEST(Completions, TellWhatTheLastWordMayBecome) {
  const Home home;
  home.addContact("ann", "Ann Lee", "N:Lee;Ann;;;\nTEL:0301234567\nX-FOLKS-FAVOURITE:true\n");
  EXPECT_THAT(pellor(home, {"complete", "--", "remove", ""}).output, IsEmpty()) << "no store is made for this";
  EXPECT_FALSE(std::filesystem::exists(home.storeFile()));
  pellor(home, {"list"});
  const struct {
    Arguments words;
    std::vector<std::string> completions;
  } rows[] = {
      {{"fav"}, {"favorites"}},
      {{"favorites", "import", ""}, {}},
      {{"--store", ""}, {"sqlite", "postgresql"}},
      {{"list", "--store", "p"}, {"postgresql"}},
      {{"remove", "A"}, {"Ann Lee"}},
      {{"remove", "Ann Lee", ""}, {"Ann Lee"}},
      {{"move", "Ann Lee", ""}, {}},
      {{"add", "A"}, {}},
  };
  for (const auto& row : rows) {
    Arguments arguments = {"complete", "--"};
    arguments.insert(arguments.end(), row.words.begin(), row.words.end());
    std::vector<std::string> words;
    for (const std::string& line : linesOf(pellor(home, arguments).output))
      words.push_back(line.substr(0, line.find('\t')));
    EXPECT_EQ(words, row.completions) << testing::PrintToString(row.words);
  }
}

TEST(Scripts, GetLinesTakeLinesAndAreToldOfErrorsInJSON) {
  const Home home;
  home.addContact("ann", "Ann Lee", "N:Lee;Ann;;;\nTEL:0301234567\n");
  home.addContact("anna", "Ann Berg", "N:Berg;Ann;;;\nTEL:0307654321\n");
  Program add(home, pellorCommand({"add", "-"}));
  add.write("  Ann Lee\r\n\n0305556677\n");
  add.closeInput();
  EXPECT_EQ(add.finish().output, "added Ann Lee (1:1)\nadded 030 5556677 (1:2)\n");
  EXPECT_EQ(pellor(home, {"list", "--lines"}).output,
            "1:1\t+\tAnn Lee\t030 1234567\n1:2\t+\t030 5556677\t030 5556677\n");
  EXPECT_THAT(pellor(home, {"add", "-", "-"}).errors, HasSubstr("once"));
  EXPECT_EQ(json::parse(pellor(home, {"list", "--json"}).output)["version"], 1);

  pellor(home, {"add", "Ann Berg"});
  const ProgramResult result = pellor(home, {"remove", "Ann", "--json"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output, IsEmpty());
  const json error = json::parse(result.errors)["error"];
  EXPECT_EQ(error["exitCode"], 1);
  EXPECT_THAT(std::string(error["message"]), HasSubstr("fits several"));
  EXPECT_EQ(error["candidates"].size(), 2U);
  EXPECT_EQ(json::parse(pellor(home, {"--json", "ad"}).errors)["error"]["exitCode"], 2);
}

}  // namespace
}  // namespace pellor
