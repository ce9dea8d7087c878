// How change logs are merged.
#include "pellor/friends/PLChangeLog.h"

#include "pellor/friends/PLPerson.h"
#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

using ChangeLogTest = ManagerTest;

PLChangeLog logOf(const std::shared_ptr<PLPerson>& person, const std::string& marks) {
  PLChangeLog log;
  for (const char mark : marks) {
    log.add(person, mark == '+'   ? PLFriendsManagerPersonAdded
                    : mark == '-' ? PLFriendsManagerPersonDeleted
                    : mark == '~' ? PLFriendsManagerPersonUpdated
                                  : PLFriendsManagerPersonMoved);
  }
  return log;
}

TEST_F(ChangeLogTest, LogsAreMergedByPrecedence) {
  auto a = launch();
  const auto ann = a->person("Ann");
  const struct {
    std::vector<std::string> logs;
    std::string merged;
  } rows[] = {
      {{"~", "-"}, "-"},   {{"+>", "-"}, "-"},     {{"-", "+"}, "+"},       {{"-~", "+>"}, "+>"},
      {{"-", "~"}, "~-"},  {{"+", ">"}, "+>"},     {{"-", "-"}, "-"},       {{"-~", "->"}, "~->"},
      {{"+"}, "+"},        {{"+", "-", "+"}, "+"}, {{"+", "-", "~"}, "~-"}, {{"-", "~", "+"}, "+"},
      {{"-", "+-"}, "+-"}, {{"+-", "~"}, "+~-"},   {{"+", "~-"}, "~-"},     {{"-", "~", "+", ">"}, "+>"},
  };
  for (const auto& row : rows) {
    std::vector<PLChangeLog> logs;
    for (const auto& marks : row.logs) logs.push_back(logOf(ann, marks));
    const PLChangeLog merged = PLFriendsManager::collapseChangeLogsIntoChangeLog(logs);
    EXPECT_EQ(textOf(merged), mailOf("Ann") + row.merged);
  }
  EXPECT_TRUE(PLFriendsManager::collapseChangeLogsIntoChangeLog({}).isEmpty());
  auto both = logOf(ann, "+");
  both.add(a->person("Bob"), PLFriendsManagerPersonMoved);
  EXPECT_EQ(textOf(PLFriendsManager::collapseChangeLogsIntoChangeLog({logOf(a->person("Cy"), "-"), both})),
            "cy@example.org- ann@example.org+ bob@example.org>");
}

}  // namespace
}  // namespace pellor
