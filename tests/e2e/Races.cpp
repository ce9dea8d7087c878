// races: lets real processes edit one list at the same moment, and tells what of the edits was lost. Each of the pairs
// of edits, in several ways. Ends with 0 when all races were run and none had a fault, with 1 after faults, and with 2
// when the time was over before: the same command then goes on.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "tests/e2e/Race.h"
#include "tests/e2e/RaceResults.h"

namespace pellor {
namespace {

using Clock = std::chrono::steady_clock;

struct Options {
  std::string results = "races.txt";
  std::vector<std::string> modes;
  std::vector<std::string> pairs;
  int races = 200;
  int otherRaces = 50;
  int only = -1;
  double minutes = 60;
  bool isInTurn = false;
};

bool isNamed(const std::vector<std::string>& names, std::string_view name) {
  return names.empty() || std::ranges::find(names, name) != names.end();
}

// Races of one number run for all pairs before those of the next: a short run has some of all.
std::vector<RaceId> racesOf(const Options& options) {
  std::vector<RaceId> races;
  for (const RaceMode mode : RaceModes) {
    if (!isNamed(options.modes, nameOf(mode))) continue;
    if (!RaceTrack::has(mode)) {
      std::cerr << "this build has no PostgreSQL: those races are left out\n";
      continue;
    }
    const int count = mode == RaceMode::program ? options.races : options.otherRaces;
    for (int number = 0; number < count; ++number) {
      if (options.only >= 0 && number != options.only) continue;
      for (const RacePair& pair : racePairs()) {
        if (isNamed(options.pairs, nameOf(pair))) races.push_back({mode, pair, number});
      }
    }
  }
  return races;
}

class Run {
 public:
  explicit Run(const Options& options)
      : _options(options),
        _track(options.isInTurn ? RaceStart::inTurn : RaceStart::together),
        _results(options.results, RaceTrack::build()) {}

  int run() {
    for (const RaceId& race : racesOf(_options)) runUnlessDone(race);
    std::cout << _results.text();
    if (_left > 0) std::cerr << "the time is over: " << _left << " races are left, the same command goes on\n";
    if (_results.haveFaults()) return 1;
    return _left > 0 ? 2 : 0;
  }

 private:
  void runUnlessDone(const RaceId& race) {
    if (_results.has(race) && _options.only < 0) return;
    if (Clock::now() - _begin > std::chrono::duration<double, std::ratio<60>>(_options.minutes)) {
      ++_left;
      return;
    }
    const RaceResult result = _track.run(race);
    if (_options.only < 0) _results.add(race, result);
    if (_options.only >= 0 || result.verdict.faults() > 0) tell(race, result);
  }

  void tell(const RaceId& race, const RaceResult& result) const {
    if (_options.only >= 0) std::cerr << result.story;
    for (const std::string& reason : result.verdict.reasons) {
      std::cerr << nameOf(race.mode) << ' ' << nameOf(race.pair) << ' ' << race.number << ": " << reason << '\n';
    }
  }

  const Options _options;
  const Clock::time_point _begin = Clock::now();
  RaceTrack _track;
  RaceResults _results;
  int _left = 0;
};

template <class Names>
CLI::IsMember oneOf(const Names& named) {
  std::vector<std::string> names;
  for (const auto& each : named) names.emplace_back(nameOf(each));
  return CLI::IsMember(names);
}

int program(int count, char** arguments) {
  Options options;
  CLI::App app("Lets real processes edit one list at the same moment and tells what was lost.", "races");
  app.add_option("--results", options.results,
                 "The file that keeps the results: a run of the same build goes on where it ends");
  app.add_option("--modes", options.modes, "program, library, postgresql, three, kill; all of them")
      ->check(oneOf(RaceModes))
      ->delimiter(',');
  app.add_option("--pairs", options.pairs, "Such as add+move; all of them")->check(oneOf(racePairs()))->delimiter(',');
  app.add_option("--races", options.races, "Races of each pair by the program")->capture_default_str();
  app.add_option("--other-races", options.otherRaces, "Races of each pair in each other mode")->capture_default_str();
  app.add_option("--minutes", options.minutes, "After which it stops")->capture_default_str();
  app.add_option("--only", options.only, "Runs the races with this number again and tells about them");
  app.add_flag("--in-turn", options.isInTurn, "Let one begin when the other has ended: nothing may be lost then");
  CLI11_PARSE(app, count, arguments);
  return Run(options).run();
}

}  // namespace
}  // namespace pellor

int main(int count, char** arguments) {
  try {
    return pellor::program(count, arguments);
  } catch (const std::exception& error) {
    std::cerr << "races: " << error.what() << '\n';
    return 1;
  }
}
