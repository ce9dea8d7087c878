#include "pellor/linux/reachability/AnswerMemory.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "pellor/linux/files/internal/PrivatePlace.h"
#include "pellor/linux/text/CardText.h"

namespace pellor {
namespace {

using Answers = AnswerMemory::Answers;

constexpr std::size_t LargestFile = std::size_t{16} << 20;
constexpr std::chrono::milliseconds LockLimit{1000};
// Clocks of programs that share a folder may differ by that much, in seconds.
constexpr double ClockTolerance = 300;
// Far beyond every clock and every wish, and still exact in thousandths.
constexpr double LatestTime = 1e12;
constexpr double LongestLifetime = 366 * 86400.0;
// A line is "TIME LIFETIME STATUS IDENTIFIER": thousandths of a second, whole seconds or "-", a number. The first line
// says in which form the file is written, the last one is the checksum of all others.
constexpr std::string_view FirstLine = "reachable 1\n";

bool isControl(char character) { return static_cast<unsigned char>(character) < ' '; }

bool isKept(const std::string& identifier, const StatusAnswer& answer) {
  const bool isAnswer = answer.status == DestinationStatus::valid || answer.status == DestinationStatus::invalid;
  return isAnswer && std::abs(answer.time) <= LatestTime && std::ranges::none_of(identifier, isControl);
}

void takeOver(Answers& answers, const Answers& others) {
  for (const auto& [identifier, answer] : others) {
    const auto [place, isNew] = answers.try_emplace(identifier, answer);
    if (!isNew && place->second.time <= answer.time) place->second = answer;
  }
}

void dropOldest(Answers& answers) {
  if (answers.size() <= AnswerMemory::MostAnswers) return;
  std::vector<std::pair<double, const std::string*>> byAge;
  byAge.reserve(answers.size());
  for (const auto& [identifier, answer] : answers) byAge.emplace_back(answer.time, &identifier);
  const std::size_t tooMany = answers.size() - AnswerMemory::MostAnswers;
  std::ranges::nth_element(byAge, byAge.begin() + static_cast<std::ptrdiff_t>(tooMany));
  byAge.resize(tooMany);
  for (const auto& [time, identifier] : byAge) answers.erase(answers.find(*identifier));
}

std::string_view takeUntil(std::string_view& text, char end) {
  const std::size_t length = text.find(end);
  const std::string_view part = text.substr(0, length);
  text.remove_prefix(length == std::string_view::npos ? text.size() : length + 1);
  return part;
}

std::optional<std::int64_t> integerIn(std::string_view text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

std::string lineOf(const std::string& identifier, const StatusAnswer& answer) {
  const auto milliseconds = static_cast<std::int64_t>(std::floor(answer.time * 1000));
  const auto lifetime = answer.lifetime ? std::to_string(static_cast<std::int64_t>(*answer.lifetime)) : "-";
  return std::to_string(milliseconds) + " " + lifetime + " " +
         std::to_string(static_cast<std::int64_t>(answer.status)) + " " + identifier + "\n";
}

std::optional<std::pair<std::string, StatusAnswer>> answerIn(std::string_view line) {
  const auto milliseconds = integerIn(takeUntil(line, ' '));
  const auto lifetime = takeUntil(line, ' ');
  const auto status = integerIn(takeUntil(line, ' '));
  if (!milliseconds || !status) return std::nullopt;
  StatusAnswer answer{static_cast<DestinationStatus>(*status), static_cast<double>(*milliseconds) / 1000, "", {}};
  if (const auto seconds = integerIn(lifetime)) answer.lifetime = static_cast<double>(*seconds);
  std::pair result(std::string(line), std::move(answer));
  return isKept(result.first, result.second) ? std::optional(std::move(result)) : std::nullopt;
}

}  // namespace

AnswerMemory::AnswerMemory(Place place, std::function<double()> wallClock, LogHandle log)
    : _file(place.folder ? std::optional(*place.folder / ("reachable-" + fileNameOf(place.account))) : std::nullopt),
      _account(std::move(place.account)),
      _wallClock(std::move(wallClock)),
      _log(std::move(log)),
      _patience(LockLimit),
      _isToBeRead(_file.has_value()) {}

std::optional<StatusAnswer> AnswerMemory::find(const std::string& identifier) {
  bool isToBeRead = false;
  {
    const MutexLock lock(_mutex);
    isToBeRead = std::exchange(_isToBeRead, false);
  }
  const Answers kept = isToBeRead ? read() : Answers();
  const MutexLock lock(_mutex);
  takeOver(_answers, kept);
  const auto found = _answers.find(identifier);
  return found == _answers.end() ? std::nullopt : std::optional(found->second);
}

void AnswerMemory::add(const Answers& answers) {
  Answers added;
  for (const auto& [identifier, answer] : answers) {
    if (!isKept(identifier, answer)) continue;
    StatusAnswer& taken = added.emplace(identifier, answer).first->second;
    if (taken.lifetime) taken.lifetime = std::clamp(std::floor(*taken.lifetime), 0.0, LongestLifetime);
  }
  const MutexLock lock(_mutex);
  takeOver(_answers, added);
  dropOldest(_answers);
  takeOver(_unwritten, added);
  dropOldest(_unwritten);
}

void AnswerMemory::readAgain() {
  const MutexLock lock(_mutex);
  _isToBeRead = _file.has_value();
}

bool AnswerMemory::write() {
  Answers unwritten;
  {
    const MutexLock lock(_mutex);
    if (!_file || _unwritten.empty()) return false;
    unwritten.swap(_unwritten);
  }
  const bool isWritten = writeTogetherWith(unwritten);
  const MutexLock lock(_mutex);
  takeOver(isWritten ? _answers : _unwritten, unwritten);
  return isWritten;
}

/// Afterwards it is all that is kept, where that worked.
bool AnswerMemory::writeTogetherWith(Answers& unwritten) {
  std::filesystem::path lockFile = *_file;
  lockFile += ".lock";
  const auto lock = FileLock::take(lockFile, _patience);
  if (!lock) {
    note(lockError(lockFile));
    return false;
  }
  Answers all = read();
  takeOver(all, unwritten);
  dropOldest(all);
  const auto problem = PrivateFile(*_file).replace(contentOf(all));
  note(problem);
  if (!problem) unwritten = std::move(all);
  return !problem;
}

void AnswerMemory::note(const std::optional<std::string>& problem) {
  bool hadProblem = false;
  {
    const MutexLock lock(_mutex);
    hadProblem = std::exchange(_hasProblem, problem.has_value());
  }
  if (problem && !hadProblem) _log.log("who is reachable cannot be kept: %@", redactable(*problem));
}

AnswerMemory::Answers AnswerMemory::read() const {
  const FileContent content = PrivateFile(*_file).read(LargestFile);
  auto answers = content.text ? answersIn(*content.text) : std::nullopt;
  if (!answers) return {};
  const double latest = _wallClock() + ClockTolerance;
  std::erase_if(*answers, [latest](const auto& entry) { return entry.second.time > latest; });
  return *std::move(answers);
}

/// Absent where it is not what was written, whole.
std::optional<AnswerMemory::Answers> AnswerMemory::answersIn(const std::string& content) const {
  if (!content.starts_with(FirstLine) || !content.ends_with('\n')) return std::nullopt;
  const std::size_t end = content.rfind('\n', content.size() - 2) + 1;
  const std::string lines = content.substr(0, end);
  if (content.substr(end) != checkLineOf(lines)) return std::nullopt;
  Answers answers;
  std::string_view rest = std::string_view(lines).substr(FirstLine.size());
  while (!rest.empty()) {
    if (auto answer = answerIn(takeUntil(rest, '\n'))) answers.insert(*std::move(answer));
  }
  return answers;
}

std::string AnswerMemory::contentOf(const Answers& answers) const {
  std::string lines(FirstLine);
  for (const auto& [identifier, answer] : answers) lines += lineOf(identifier, answer);
  return lines + checkLineOf(lines);
}

std::string AnswerMemory::checkLineOf(const std::string& lines) const {
  return std::to_string(contentHash(_account + "\n" + lines)) + "\n";
}

}  // namespace pellor
