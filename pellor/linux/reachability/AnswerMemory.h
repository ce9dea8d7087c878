// What a directory said of destinations, kept for all programs of the data folder.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "pellor/linux/files/internal/FileLock.h"
#include "pellor/platform/ReachabilityService.h"
#include "pellor/runtime/Log.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// Answers by identifier, the newest of each: in memory, and with a folder in a file there that is its owner's alone.
/// The file is replaced in one step and has a checksum, which is over the account as well: one that is damaged, or
/// holds the answers of another account, counts as none and is replaced by the next write. It can all be asked for
/// again, so nothing here fails: a write that does not work is on the log once, and made up for by the next one.
///
/// Any thread; each operation but `add` and `readAgain` may wait for a disk, and no thread waits for the disk of
/// another.
class AnswerMemory {
 public:
  /// The oldest answers beyond these are dropped.
  static constexpr std::size_t MostAnswers = 20'000;

  struct Place {
    std::optional<std::filesystem::path> folder;  ///< absent: in memory alone
    std::string account;                          ///< all that answers depend on; another one has another file
  };
  using Answers = std::map<std::string, StatusAnswer>;  ///< without the name of the service

  /// `wallClock` gives the time of now: answers from a time to come are those of a clock that was wrong.
  AnswerMemory(Place place, std::function<double()> wallClock, LogHandle log);

  /// The newest answer, as far as this object has read; the first time it reads what is kept.
  std::optional<StatusAnswer> find(const std::string& identifier);
  /// Takes answers over, for the next write too.
  void add(const Answers& answers);
  /// Writes what was added since the last time to what others have written meanwhile. Whether there is news for them.
  bool write();
  /// The next look-up reads what is kept again: another program has written.
  void readAgain();

 private:
  bool writeTogetherWith(Answers& unwritten);
  Answers read() const;
  std::optional<Answers> answersIn(const std::string& content) const;
  std::string contentOf(const Answers& answers) const;
  std::string checkLineOf(const std::string& lines) const;
  void note(const std::optional<std::string>& problem);

  const std::optional<std::filesystem::path> _file;
  const std::string _account;
  const std::function<double()> _wallClock;
  const LogHandle _log;
  LockPatience _patience;

  Mutex _mutex;
  Answers _answers PELLOR_GUARDED_BY(_mutex);
  Answers _unwritten PELLOR_GUARDED_BY(_mutex);
  bool _isToBeRead PELLOR_GUARDED_BY(_mutex);
  bool _hasProblem PELLOR_GUARDED_BY(_mutex) = false;
};

}  // namespace pellor
