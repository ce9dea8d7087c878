// Whether refreshing waits for contacts that are gone: the rule, and the part that follows it.
#include "pellor/platform/RefreshHold.h"

#include <optional>

#include "pellor/friends/internal/PLRefreshHold.h"
#include "tests/pellor/OneProcess.h"

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

/// Ten contacts, of which six go after a refresh.
class HeldRefreshTest : public OneProcess {
 protected:
  HeldRefreshTest() {
    for (int index = 0; index < 10; ++index) guids.push_back(world.addressBook().add({.first = "Ann"}));
    hold->noteRefresh();
    EXPECT_FALSE(hold->holdsBack());
    for (int index = 0; index < 6; ++index) world.addressBook().remove(guids[static_cast<std::size_t>(index)]);
  }

  /// How often a refresh is asked for within so many seconds.
  int asksWithin(double seconds) {
    scheduler->advance(seconds);
    return std::exchange(asks, 0);
  }

  std::vector<std::string> guids;
  int asks = 0;
  std::optional<PLRefreshHold> hold{std::in_place, process, [this] { ++asks; }};
};

TEST_F(HeldRefreshTest, ARefreshIsAskedForAgainWithinTheHourAndWhenTheDayIsOver) {
  EXPECT_TRUE(hold->holdsBack());
  EXPECT_EQ(asksWithin(Hour / 2), 0);
  EXPECT_TRUE(hold->holdsBack());
  EXPECT_EQ(asksWithin(Hour - 1), 0) << "the hour begins anew";
  EXPECT_EQ(asksWithin(2), 1);
  EXPECT_TRUE(hold->isHolding());
  EXPECT_EQ(asksWithin(Day - 2 * Hour), 0) << "each answer asks once";
  EXPECT_TRUE(hold->holdsBack());
  EXPECT_EQ(asksWithin(Hour / 2), 1) << "the day is over";
  EXPECT_EQ(log->count("refreshing friends is held back: only 4 of 10 contacts are there"), 1U);
  EXPECT_FALSE(hold->holdsBack());
  EXPECT_EQ(log->count("refreshing friends is held back no longer"), 1U);
}

TEST_F(HeldRefreshTest, ALastMomentIsASecond) {
  EXPECT_TRUE(hold->holdsBack());
  world.addressBook().shiftWallClock(Day - 0.01);
  EXPECT_TRUE(hold->holdsBack());
  EXPECT_EQ(asksWithin(0.9), 0);
  EXPECT_EQ(asksWithin(0.2), 1);
}

TEST_F(HeldRefreshTest, NothingIsAskedForOnceNothingIsHeldBack) {
  EXPECT_TRUE(hold->holdsBack());
  world.addressBook().add({.first = "Ann"});
  EXPECT_FALSE(hold->holdsBack());
  EXPECT_FALSE(hold->isHolding());
  EXPECT_EQ(asksWithin(Day), 0);
  world.addressBook().remove(guids[9]);
  EXPECT_TRUE(hold->holdsBack());
  EXPECT_EQ(log->count("refreshing friends is held back: only "), 2U) << "another fall";
  hold.reset();
  EXPECT_EQ(asksWithin(Day), 0);
}

}  // namespace
}  // namespace pellor
