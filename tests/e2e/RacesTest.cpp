// Edits of real processes at the same moment. `make races` runs many more of them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/cli/Program.h"
#include "tests/e2e/Race.h"
#include "tests/e2e/RaceList.h"

namespace pellor {
namespace {

using Kind = RaceEditKind;

constexpr int RacesOfEachPair = 5;
constexpr int AdditionsAtOnce = 20;

TEST(Races, NoAcknowledgedEditIsLost) {
  RaceTrack track;
  const RacePair pairs[] = {{Kind::add, Kind::add},
                            {Kind::add, Kind::remove},
                            {Kind::move, Kind::purge},
                            {Kind::swap, Kind::title},
                            {Kind::meta, Kind::refresh}};
  for (const RacePair& pair : pairs) {
    for (int number = 0; number < RacesOfEachPair; ++number) {
      const RaceResult result = track.run({RaceMode::program, pair, number});
      EXPECT_EQ(result.verdict.faults(), 0) << nameOf(pair) << ' ' << number << '\n'
                                            << testing::PrintToString(result.verdict.reasons) << '\n'
                                            << result.story;
    }
  }
}

TEST(Races, TwentyAdditionsAtOnceAreAllThere) {
  const Home home;
  std::vector<std::string> numbers;
  std::vector<std::unique_ptr<Program>> programs;
  for (int index = 0; index < AdditionsAtOnce; ++index) numbers.push_back("+493055501" + std::to_string(10 + index));
  for (const std::string& number : numbers) {
    programs.push_back(std::make_unique<Program>(home, pellorCommand({"add", number})));
  }
  for (const auto& program : programs) {
    const ProgramResult result = program->finish();
    EXPECT_EQ(result.exitCode, 0) << result.errors;
  }
  const auto list = raceListIn(pellor(home, {"--json", "list"}).output);
  ASSERT_TRUE(list);
  for (const std::string& number : numbers) EXPECT_EQ(placesOf(*list, number).size(), 1) << number;
}

// Whatever the order: one has it, the other is told.
TEST(Races, TheLastRoomIsGivenOnce) {
  for (int round = 0; round < RacesOfEachPair; ++round) {
    const Home home;
    for (const char* setting : {"max-pages", "page-size"}) pellor(home, {"settings", setting, "1"});
    std::vector<std::unique_ptr<Program>> programs;
    for (const char* number : {"+493055501", "+493055502"}) {
      programs.push_back(std::make_unique<Program>(home, pellorCommand({"add", number})));
    }
    int stored = 0;
    for (const auto& program : programs) {
      const ProgramResult result = program->finish();
      if (result.exitCode == 0) {
        ++stored;
      } else {
        EXPECT_THAT(result.errors, testing::StartsWith("pellor: there is no room"));
      }
    }
    EXPECT_EQ(stored, 1);
  }
}

}  // namespace
}  // namespace pellor
