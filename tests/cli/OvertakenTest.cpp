// Commands whose edit another program overtakes while the user is asked whom they mean.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/cli/Program.h"
#include "tests/cli/Terminal.h"

namespace pellor {
namespace {

using ::testing::HasSubstr;

/// Two namesakes, and room for three friends.
struct FullHouse : Home {
  FullHouse() {
    addContact("a1", "Anna Berg", "TEL:+49301111111\n");
    addContact("a2", "Anna Lee", "TEL:+49302222222\n");
    pellor(*this, {"settings", "page-size", "3"});
    pellor(*this, {"settings", "max-pages", "1"});
  }
};

// All of a command or nothing, and why.
TEST(Overtaken, AStepThatNoLongerHoldsIsNotDone) {
  const struct {
    const char* what;
    const char* before;
    const char* asked;
    const char* meanwhile;
    int exitCode;
    const char* says;
    const char* list;
  } cases[] = {
      {"one finds no room", "", "add info@example.org anna", "add x@example.org y@example.org", 1,
       "there is no room for Anna Berg",
       "1:1\t+\tx@example.org\tx@example.org\n1:2\t+\ty@example.org\ty@example.org\n"},
      {"one is a friend by now", "", "add info@example.org anna", "add x@example.org info@example.org", 1,
       "info@example.org is a friend already (1:2)",
       "1:1\t+\tx@example.org\tx@example.org\n1:2\t+\tinfo@example.org\tinfo@example.org\n"},
      {"who is to move is gone", "add a1 a2", "move anna 1:3", "remove a1", 1,
       "nothing was changed: Anna Berg: another program changed it first", "1:2\t+\tAnna Lee\t030 2222222\n"},
      {"who is to leave has left", "add a1 a2", "remove anna", "remove a1", 0, "", "1:2\t+\tAnna Lee\t030 2222222\n"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    const FullHouse home;
    ASSERT_EQ(pellor(home, wordsOf(each.before)).exitCode, 0);
    Terminal terminal(80);
    Program program(home, pellorCommand(wordsOf(each.asked)), {.errors = terminal.line(), .input = terminal.line()});
    terminal.awaitText("Esc for nobody: ");
    ASSERT_EQ(pellor(home, wordsOf(each.meanwhile)).exitCode, 0);
    terminal.type("1");
    EXPECT_EQ(program.finish().exitCode, each.exitCode);
    EXPECT_THAT(terminal.content(), HasSubstr(each.says));
    EXPECT_EQ(pellor(home, {"list", "--lines"}).output, each.list);
  }
}

}  // namespace
}  // namespace pellor
