// The rule by which refreshing waits for contacts that are gone.
#include "pellor/platform/RefreshHold.h"

#include <gtest/gtest.h>

namespace pellor {
namespace {

constexpr double Hour = 60.0 * 60;
constexpr double Day = 24 * Hour;

TEST(RefreshHoldTest, HoldsBackWhileFewerThanHalfAreThere) {
  struct Row {
    const char* what;
    std::uint64_t before, now;
    bool isHeld;
  };
  const Row rows[] = {
      {"all are gone", 8, 0, true},     {"half of an even number", 8, 4, false},
      {"one fewer", 8, 3, true},        {"less than half of an odd one", 9, 4, true},
      {"too few to tell", 7, 0, false}, {"huge numbers", ~std::uint64_t{0}, ~std::uint64_t{0} / 2, true},
  };
  for (const Row& row : rows) {
    RefreshHold hold;
    EXPECT_FALSE(hold.look(row.now, 1000)) << "nothing is known yet";
    hold.noteRefresh(row.before, 1000);
    const auto fall = hold.look(row.now, 2000);
    ASSERT_EQ(fall.has_value(), row.isHeld) << row.what;
    EXPECT_EQ(hold.memory()->fallSeen.has_value(), row.isHeld) << row.what;
    if (!fall) continue;
    EXPECT_EQ(fall->before, row.before) << row.what;
    EXPECT_EQ(fall->now, row.now) << row.what;
    EXPECT_EQ(fall->secondsLeft, Day) << row.what;
  }
}

TEST(RefreshHoldTest, HoldsBackForADayFromTheFirstLookOn) {
  RefreshHold hold;
  hold.noteRefresh(100, 0);
  EXPECT_EQ(hold.look(10, Hour)->secondsLeft, Day);
  EXPECT_EQ(hold.look(20, 2 * Hour)->secondsLeft, Day - Hour) << "still the same fall";
  hold = RefreshHold(hold.memory());
  EXPECT_EQ(hold.look(10, 3 * Hour)->secondsLeft, Day - 2 * Hour) << "also after a restart";
  EXPECT_FALSE(hold.look(50, 4 * Hour)) << "half are back";
  EXPECT_EQ(hold.look(10, 5 * Hour)->secondsLeft, Day) << "another fall";
  EXPECT_EQ(hold.look(10, 2 * Hour)->secondsLeft, Day) << "the clock was set back";
  EXPECT_FALSE(hold.look(10, 2 * Hour + Day)) << "the day is over";
  hold.noteRefresh(10, 2 * Hour + Day);
  EXPECT_EQ(hold.look(4, 3 * Day)->before, 10U);
  hold.accept(4);
  EXPECT_FALSE(hold.look(4, 3 * Day));
  EXPECT_FALSE(hold.look(0, 3 * Day)) << "of so few";
}

}  // namespace
}  // namespace pellor
