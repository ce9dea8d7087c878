// Change logs and how they are merged.
#include "pellor/friends/PLChangeLog.h"
#include "pellor/friends/PLPerson.h"

#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;

class ChangeLogTest : public ManagerTest {
 protected:
  ChangeLogTest() { setGroups(3, 2); }

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
};

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

TEST_F(ChangeLogTest, WhatHappensToOnePersonIsOneEntryAndEachPostStartsAnew) {
  contacts({"Ann"});
  auto a = launchWith("-,-");
  std::vector<PLChangeLog> posted;
  const auto observation = a->run([&] {
    return a->process().notificationCenter().addObserver(
        std::string(PLFriendsManagerChangedNotification),
        [&](const Notification& notification) { posted.push_back(*notification.userInfoAs<PLChangeLog>()); });
  });
  a->add("Ann");
  a->run([&] { a->friendAt(0, 0)->setPreferredReplyAs("home"); });
  a->remove(0, 0);
  rest();
  EXPECT_EQ(a->logged("posting PLFriendsManagerChangedNotification with 1 changelog entry"), 2U);
  // The person's own change is told of by a notification of its own, after the edits.
  EXPECT_THAT(posted, ElementsAre(testing::ResultOf([](const auto& log) { return textOf(log); }, "Ann+-"),
                                  testing::ResultOf([](const auto& log) { return textOf(log); }, "Ann~")));
  a->add("Ann");
  a->add("Bob");
  rest();
  EXPECT_EQ(a->logged("posting PLFriendsManagerChangedNotification with 2 changelog entries"), 1U);
  EXPECT_EQ(textOf(posted.front()), "Ann+-") << "a log that was posted stays as it is";
}

}  // namespace
}  // namespace pellor
