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

constexpr int RacesOfEachPair = 6;
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
      const RaceMode mode = number % 3 == 0 ? RaceMode::library : RaceMode::program;
      const RaceResult result = track.run({mode, pair, number});
      EXPECT_EQ(result.verdict.faults(), 0) << nameOf(pair) << ' ' << number << '\n'
                                            << testing::PrintToString(result.verdict.reasons) << '\n'
                                            << result.story;
    }
  }
}

std::vector<ProgramResult> addAtOnce(const Home& home, int count) {
  std::vector<std::unique_ptr<Program>> programs;
  for (int number = 0; number < count; ++number) {
    const std::string phone = "+493055501" + std::to_string(10 + number);
    programs.push_back(std::make_unique<Program>(home, pellorCommand({"add", phone})));
  }
  std::vector<ProgramResult> results;
  for (const auto& program : programs) results.push_back(program->finish());
  return results;
}

TEST(Races, AdditionsAtOnceAreAllThereAndOneThatRunsHearsOfEach) {
  const Home home;
  Program watch(home, pellorCommand({"watch"}));
  EXPECT_EQ(watch.readErrorLine(), "pellor: watching");
  for (const ProgramResult& result : addAtOnce(home, AdditionsAtOnce)) EXPECT_EQ(result.exitCode, 0) << result.errors;
  for (int number = 0; number < AdditionsAtOnce; ++number) EXPECT_THAT(watch.readLine(), testing::StartsWith("added "));
  const auto list = raceListIn(pellor(home, {"--json", "list"}).output);
  ASSERT_TRUE(list);
  for (int number = 0; number < AdditionsAtOnce; ++number)
    EXPECT_EQ(placesOf(*list, "+493055501" + std::to_string(10 + number)).size(), 1) << number;
}

// Whatever the order: one has it, the other is told.
TEST(Races, TheLastRoomIsGivenOnce) {
  for (int round = 0; round < RacesOfEachPair; ++round) {
    const Home home;
    for (const char* setting : {"max-pages", "page-size"}) pellor(home, {"settings", setting, "1"});
    auto results = addAtOnce(home, 2);
    if (results[0].exitCode != 0) std::swap(results[0], results[1]);
    EXPECT_EQ(results[0].exitCode, 0);
    EXPECT_THAT(results[1].errors, testing::StartsWith("pellor: there is no room"));
  }
}

}  // namespace
}  // namespace pellor
