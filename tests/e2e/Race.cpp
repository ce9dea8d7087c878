#include "tests/e2e/Race.h"

#include <signal.h>

#include <algorithm>
#include <functional>
#include <random>
#include <stdexcept>
#include <thread>

#include "tests/cli/Program.h"

namespace pellor {
namespace {

constexpr std::array<std::string_view, RaceModes.size()> ModeNames = {"program", "library", "postgresql", "three",
                                                                      "kill"};
constexpr std::array<std::string_view, 3> OutcomeNames = {"acknowledged", "refused", "killed"};
// Every so many races the list has hardly any room.
constexpr int NarrowEvery = 8;
constexpr std::size_t OpponentsOfOne = 3;

// Different for all races.
std::uint64_t seedOf(const RaceId& race) {
  const auto number = [](auto kind) { return static_cast<std::uint64_t>(kind); };
  const std::uint64_t pair = number(race.pair.first) * RaceEditKinds.size() + number(race.pair.second);
  return (number(race.mode) * 100 + pair) * 1'000'000 + number(race.number);
}

std::vector<RaceEdit> editsOf(const RaceId& race, const RaceGround& ground) {
  std::vector<std::string> newcomers;
  for (const auto& [key, contact] : RaceGround::newcomers()) newcomers.push_back(key);
  std::vector<RaceEditKind> kinds(race.mode == RaceMode::three ? 1 + OpponentsOfOne : 2, race.pair.second);
  kinds.front() = race.pair.first;
  return randomEdits(seedOf(race), ground.list(), newcomers, kinds);
}

// The shell says that it is ready, waits for its start, and becomes the program.
std::vector<std::string> atTheGate(const std::vector<std::string>& command) {
  std::vector<std::string> gate = {"/bin/sh", "-c", "echo ready; read go; exec \"$@\"", "race"};
  gate.insert(gate.end(), command.begin(), command.end());
  return gate;
}

using Seconds = std::chrono::duration<double>;

struct Racer {
  std::unique_ptr<Program> program;
  bool isVictim = false;
  std::optional<ProgramResult> result;  // once it has ended
};

std::vector<Racer> startRacers(const RaceId& race, const RaceGround& ground, const std::vector<RaceEdit>& edits) {
  std::vector<Racer> racers;
  for (const RaceEdit& edit : edits) {
    const std::vector<std::string> arguments = argumentsOf(edit);
    std::vector<std::string> command = {PELLOR_RACE_WRITER};
    command.insert(command.end(), arguments.begin(), arguments.end());
    if (race.mode != RaceMode::library) command = atTheGate(ground.command(arguments));
    racers.push_back({std::make_unique<Program>(ground.home(), command), false, {}});
  }
  for (const Racer& racer : racers) {
    if (racer.program->readLine() != "ready") throw std::runtime_error("a process of a race did not start");
  }
  return racers;
}

void changeContact(RaceRecord& record, RaceGround& ground, std::uint64_t seed) {
  const std::vector<std::string> friends = ground.contactFriends();
  const std::string& guid = friends[seed % friends.size()];
  record.changedContacts[guid] = RaceGround::changedContact(guid);
  ground.changeContact(guid);
}

// At any moment of what such a process usually lives, and a little beyond.
void killOne(std::vector<Racer>& racers, std::mt19937_64& random, Seconds lastTime) {
  const double fraction = std::uniform_real_distribution<double>(0, 1.2)(random);
  Racer& victim = racers[random() % racers.size()];
  std::this_thread::sleep_for(fraction * lastTime);
  victim.isVictim = true;
  victim.program->sendSignal(SIGKILL);
}

void letRace(std::vector<Racer>& racers, const RaceId& race, RaceStart start, Seconds lastTime) {
  std::mt19937_64 random(seedOf(race));
  std::vector<Racer*> order;
  for (Racer& racer : racers) order.push_back(&racer);
  std::ranges::shuffle(order, random);
  for (Racer* racer : order) {
    racer->program->write("go\n");
    if (start == RaceStart::inTurn) racer->result = racer->program->finish();
  }
  if (race.mode == RaceMode::kill) killOne(racers, random, lastTime);
  for (Racer* racer : order) {
    if (!racer->result) racer->result = racer->program->finish();
  }
}

void readOutcomes(const std::vector<Racer>& racers, const RaceId& race, RaceResult& result) {
  for (std::size_t index = 0; index < racers.size(); ++index) {
    const ProgramResult& ended = *racers[index].result;
    RaceAttempt& attempt = result.record.attempts[index];
    const bool wasKilled = racers[index].isVictim && ended.exitCode == -SIGKILL;
    if (ended.exitCode != 0) attempt.outcome = wasKilled ? RaceOutcome::killed : RaceOutcome::refused;
    result.story += std::string(race.mode == RaceMode::library ? "" : "pellor ") + textOf(attempt.edit) + ": " +
                    std::string(OutcomeNames[static_cast<std::size_t>(attempt.outcome)]) + " (" +
                    std::to_string(ended.exitCode) + ") " + ended.errors + (ended.errors.ends_with('\n') ? "" : "\n");
  }
}

}  // namespace

std::string_view nameOf(RaceMode mode) { return ModeNames[static_cast<std::size_t>(mode)]; }

std::vector<RacePair> racePairs() {
  std::vector<RacePair> pairs;
  for (auto first = RaceEditKinds.begin(); first != RaceEditKinds.end(); ++first) {
    for (auto second = first; second != RaceEditKinds.end(); ++second) pairs.emplace_back(*first, *second);
  }
  return pairs;
}

std::string nameOf(const RacePair& pair) {
  return std::string(nameOf(pair.first)) + "+" + std::string(nameOf(pair.second));
}

bool RaceTrack::has(RaceMode mode) { return mode != RaceMode::postgresql || hasRaceDatabases(); }

std::string RaceTrack::build() {
  std::string content;
  for (const std::filesystem::path program : {PELLOR_PROGRAM, PELLOR_PROGRAM "-services", PELLOR_RACE_WRITER}) {
    content += contentOf(program);
  }
  return std::to_string(std::hash<std::string>()(content));
}

RaceResult RaceTrack::run(const RaceId& race) {
  RaceGround& ground = groundOf(race);
  ground.reset();
  RaceResult result;
  result.record = {ground.list(), ground.maxPages(), {}, {}, RaceGround::newcomers(), {}};
  const std::vector<RaceEdit> edits = editsOf(race, ground);
  for (const RaceEdit& edit : edits) result.record.attempts.push_back({edit, RaceOutcome::acknowledged});
  const bool refreshes =
      std::ranges::any_of(edits, [](const RaceEdit& edit) { return edit.kind == RaceEditKind::refresh; });

  std::vector<Racer> racers = startRacers(race, ground, edits);
  // Processes that hold a manager hear of it; the others find it when they start.
  if (refreshes) changeContact(result.record, ground, seedOf(race));
  const auto begin = std::chrono::steady_clock::now();
  letRace(racers, race, _start, _lastTime);
  _lastTime = std::chrono::steady_clock::now() - begin;
  readOutcomes(racers, race, result);
  // The look at the list must not do itself what was asked for.
  if (refreshes) Program(ground.home(), ground.command({"settings", "refresh-contacts", "false"})).finish();
  const std::string list = ground.readList();
  result.record.after = raceListIn(list);
  result.verdict = judge(result.record);
  result.story += "list: " + list;
  return result;
}

RaceGround& RaceTrack::groundOf(const RaceId& race) {
  const bool isInDatabase = race.mode == RaceMode::postgresql;
  const bool isNarrow = race.number % NarrowEvery == NarrowEvery - 1;
  const auto shape = isNarrow ? RaceListShape::narrow : RaceListShape::roomy;
  auto& ground = _grounds[{isInDatabase, shape}];
  if (ground) return *ground;
  if (isInDatabase && !_databases) _databases = makeRaceDatabases();
  if (isInDatabase && !_databases) throw std::runtime_error("this build has no PostgreSQL");
  ground = std::make_unique<RaceGround>(shape, isInDatabase ? _databases.get() : nullptr);
  return *ground;
}

}  // namespace pellor
