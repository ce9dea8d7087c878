// Races of edits by real processes.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/e2e/RaceEdit.h"
#include "tests/e2e/RaceGround.h"
#include "tests/e2e/RaceJudge.h"

namespace pellor {

enum class RaceMode {
  program,     ///< two `pellor` commands on the store in the data folder
  library,     ///< two processes that hold a manager
  postgresql,  ///< two `pellor` commands on PostgreSQL
  three,       ///< one `pellor` command against three
  kill,        ///< two `pellor` commands, of which one is killed on the way
};

inline constexpr std::array RaceModes = {RaceMode::program, RaceMode::library, RaceMode::postgresql, RaceMode::three,
                                         RaceMode::kill};

/// What options and results call it.
std::string_view nameOf(RaceMode mode);

using RacePair = std::pair<RaceEditKind, RaceEditKind>;
/// Each kind of edit with itself and with each other one.
std::vector<RacePair> racePairs();
/// Such as "add+move".
std::string nameOf(const RacePair& pair);

/// One race; the same one has the same edits every time.
struct RaceId {
  RaceMode mode = RaceMode::program;
  RacePair pair;
  int number = 0;
};

/// A race that took place.
struct RaceResult {
  RaceRecord record;
  RaceVerdict verdict;
  std::string story;  ///< the edits, what became of them, and what the list showed then; for people
};

/// When the processes of a race begin.
enum class RaceStart {
  together,
  inTurn,  ///< each after the end of the one before: for the judge, who may find no fault then
};

/// Runs races one after the other. What they need is made at the first one of a mode: a user's folders with a prepared
/// list, and for PostgreSQL a server. Gone with the object. Throws std::runtime_error where something cannot be made.
class RaceTrack {
 public:
  explicit RaceTrack(RaceStart start = RaceStart::together) : _start(start) {}

  RaceResult run(const RaceId& race);

  /// Whether there can be such races.
  static bool has(RaceMode mode);
  /// A word that differs between builds of the programs that race.
  static std::string build();

 private:
  RaceGround& groundOf(const RaceId& race);

  const RaceStart _start;
  std::unique_ptr<RaceDatabases> _databases;
  std::map<std::pair<bool, RaceListShape>, std::unique_ptr<RaceGround>> _grounds;  // first: in a database
  std::chrono::duration<double> _lastTime{0.03};                                   // of the racers, from start to end
};

}  // namespace pellor
