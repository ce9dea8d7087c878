// Change logs and how they are merged.
#include "Pellor/PLChangeLog.h"

#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

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

using ChangeLogTest = ManagerTest;

TEST_F(ChangeLogTest, LogsAreMergedByPrecedence) {
  auto a = launch();
  const auto ann = a->person("Ann");
  const struct {
    std::vector<std::string> logs;
    std::string merged;
  } rows[] = {
      {{"+>", "-"}, "-"},     {{"-~", "+>"}, "+>"},    {{"-", "~"}, "~-"},     {{"-", "-"}, "-"},
      {{"+", "-", "+"}, "+"}, {{"+", "-", "~"}, "~-"}, {{"-", "~", "+"}, "+"}, {{"+-", "~"}, "+~-"},
  };
  for (const auto& row : rows) {
    std::vector<PLChangeLog> logs;
    for (const auto& marks : row.logs) logs.push_back(logOf(ann, marks));
    const PLChangeLog merged = PLFriendsManager::collapseChangeLogsIntoChangeLog(logs);
    EXPECT_EQ(textOf(merged), mailOf("Ann") + row.merged);
  }
  EXPECT_TRUE(PLFriendsManager::collapseChangeLogsIntoChangeLog({}).isEmpty());
  const PLChangeLog several =
      PLFriendsManager::collapseChangeLogsIntoChangeLog({logOf(a->person("Cy"), "-"), logOf(ann, "+")});
  EXPECT_EQ(textOf(several), "cy@example.org- ann@example.org+");
}

}  // namespace
}  // namespace pellor
