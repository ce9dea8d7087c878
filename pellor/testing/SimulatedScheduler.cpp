#include "pellor/testing/SimulatedScheduler.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/internal/MainStrand.h"

namespace pellor {

SimulatedScheduler::SimulatedScheduler(std::uint64_t seed, std::uint64_t stepLimit, double start)
    : _seed(seed), _stepLimit(stepLimit), _random(seed), _randomForTasks(~seed), _now(start) {}

SimulatedScheduler::~SimulatedScheduler() = default;

bool SimulatedScheduler::step() { return runReady() || moveTime(std::numeric_limits<double>::infinity()); }

void SimulatedScheduler::runUntilQuiet() {
  while (runReady()) {
  }
}

void SimulatedScheduler::advance(double seconds) {
  const double end = _now + seconds;
  do {
    runUntilQuiet();
  } while (moveTime(end));
  // A task may have moved time further.
  _now = std::max(_now, end);
}

bool SimulatedScheduler::runUntil(const std::function<bool()>& predicate, double limit) {
  const double end = _now + limit;
  while (!predicate()) {
    if (runReady() || moveTime(end)) continue;
    _now = std::max(_now, end);
    return predicate();
  }
  return true;
}

void SimulatedScheduler::attach(const std::shared_ptr<MainStrand>& mainQueue) {
  requireOwnThread();
  _mainQueues.push_back(mainQueue);
}

void SimulatedScheduler::detach(const Process& process) {
  const auto isOfProcess = [&](const auto& strand) { return strand->owner() == &process; };
  std::erase_if(_ready, isOfProcess);
  std::erase_if(_mainQueues, isOfProcess);
  _deadlines.removeAllOf(process);
}

void SimulatedScheduler::submit(std::shared_ptr<Strand> strand) {
  requireOwnThread();
  _ready.push_back(std::move(strand));
}

void SimulatedScheduler::submitMain(MainStrand& mainQueue) { submit({mainQueue.shared_from_this(), &mainQueue}); }

Deadline SimulatedScheduler::setDeadline(TimerShot shot, double time) {
  requireOwnThread();
  return _deadlines.add(std::move(shot), time);
}

void SimulatedScheduler::clearDeadline(Deadline deadline) { _deadlines.remove(deadline); }

void SimulatedScheduler::serve(MainStrand&, double until) {
  if (runReady() || moveTime(until)) return;
  // Nothing in this world would ever end the wait.
  if (std::isinf(until)) fatal("a task or a timer to wait for (seed " + std::to_string(_seed) + ")");
  _now = until;
}

bool SimulatedScheduler::runReady() { return runOne(_ready); }

// What becomes ready meanwhile is kept beside the others.
bool SimulatedScheduler::stepOf(const Process& process) {
  const auto isOther = [&](const auto& strand) { return strand->owner() != &process; };
  const auto others = std::ranges::partition(_ready, isOther);
  std::vector<std::shared_ptr<Strand>> own(others.begin(), others.end());
  _ready.erase(others.begin(), others.end());
  const bool hasRun = runOne(own);
  _ready.insert(_ready.end(), own.begin(), own.end());
  return hasRun;
}

bool SimulatedScheduler::runOne(std::vector<std::shared_ptr<Strand>>& candidates) {
  while (!candidates.empty()) {
    const std::size_t chosen = nextRandom() % candidates.size();
    std::swap(candidates[chosen], candidates.back());
    const auto strand = std::move(candidates.back());
    candidates.pop_back();
    // A queue may find that its task was run by a drain or a synchronous read; then the next one is chosen.
    if (!strand->runNext()) continue;
    countStep();
    return true;
  }
  return false;
}

bool SimulatedScheduler::moveTime(double until) {
  const auto deadline = nextDeadline();
  if (!deadline || *deadline > until || std::isinf(*deadline)) return false;
  countStep();
  _now = std::max(_now, *deadline);
  fireAll(_deadlines.takeDue(_now));
  for (const auto& mainQueue : std::vector(_mainQueues)) mainQueue->fireDueTimers();
  return true;
}

std::optional<double> SimulatedScheduler::nextDeadline() const {
  auto earliest = _deadlines.earliest();
  for (const auto& mainQueue : _mainQueues) {
    const auto deadline = mainQueue->nextDeadline();
    if (deadline && (!earliest || *deadline < *earliest)) earliest = deadline;
  }
  return earliest;
}

void SimulatedScheduler::countStep() {
  if (++_steps > _stepLimit) {
    fatal("a world that comes to rest within " + std::to_string(_stepLimit) + " steps (seed " + std::to_string(_seed) +
          ")");
  }
}

namespace {

/// SplitMix64: one sequence with every standard library.
std::uint64_t nextAfter(std::uint64_t& state) {
  std::uint64_t mixed = (state += 0x9e3779b97f4a7c15U);
  mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9U;
  mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebU;
  return mixed ^ (mixed >> 31);
}

}  // namespace

std::uint64_t SimulatedScheduler::nextRandom() { return nextAfter(_random); }

std::uint64_t SimulatedScheduler::randomNumber() { return nextAfter(_randomForTasks); }

void SimulatedScheduler::requireOwnThread() const {
  if (std::this_thread::get_id() != _thread) {
    fatal("a simulated world to be used by the thread that made it (seed " + std::to_string(_seed) + ")");
  }
}

}  // namespace pellor
