// Change logs and how they are merged.
#include "pellor/friends/PLChangeLog.h"

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLPendingChanges.h"
#include "tests/pellor/ManagerWorld.h"
#include "tests/pellor/OneProcess.h"

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

using PendingChangesTest = OneProcess;

TEST_F(PendingChangesTest, WhatEnteredIsTakenOnceAndALogThatWasTakenStaysAsItIs) {
  const auto pending = PLPendingChanges::make();
  const auto record = [&](const std::shared_ptr<PLPerson>& person, std::string_view change) {
    pending->_addEntryToChangeLogForPersonChangeType(person, change);
  };
  record(nullptr, PLFriendsManagerPersonAdded);
  pending->addChanges({});
  EXPECT_EQ(pending->_copyAndResetChangeLog(), std::nullopt);
  const auto ann = PLPerson::init(), bob = PLPerson::init();
  record(ann, PLFriendsManagerPersonMoved);
  record(bob, PLFriendsManagerPersonDeleted);
  record(ann, PLFriendsManagerPersonDeleted);
  EXPECT_EQ(pending->_changeLogCount(), 2U);
  EXPECT_FALSE(pending->_changeLogContainsFriendAdditionsOrUpdates());
  const auto taken = pending->_copyAndResetChangeLog();
  record(ann, PLFriendsManagerPersonUpdated);
  EXPECT_TRUE(pending->_changeLogContainsFriendAdditionsOrUpdates());
  EXPECT_EQ(pending->_changeLogCount(), 1U);
  EXPECT_EQ(taken->count(), 2U);
  EXPECT_FALSE(taken->containsAdditionsOrUpdates());
  EXPECT_EQ(pending->_copyAndResetChangeLog()->count(), 1U);
  EXPECT_EQ(pending->_copyAndResetChangeLog(), std::nullopt);
}

}  // namespace
}  // namespace pellor
