// A world in one thread, in which one seed decides every order and time passes only when nothing is left to do.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "pellor/runtime/Scheduler.h"

namespace pellor {

/// Give it to each process of the world:
///
///     auto world = std::make_shared<SimulatedScheduler>(seed);
///     Process first(world, sink), second(world, sink);
///
/// Whenever several queues, of one process or several, have a task ready, the seed chooses; one seed with equal calls
/// gives equal runs on every platform. Time moves only when no task is ready, to the next
/// deadline. `Process::settle` and `MainQueue::run` drive the whole world, all its processes. One thread. Operations
/// may be called from inside a task; then the task's own pool queue stands still meanwhile.
class SimulatedScheduler final : public Scheduler {
 public:
  static constexpr double StartTime = 700'000'000;
  static constexpr std::uint64_t DefaultStepLimit = 1'000'000;

  /// `stepLimit`: how many tasks and moves of time the world may take in all. One more is fatal, with the seed in the
  /// text: a world that never comes to rest does not hang its test. `start`: when time begins, in seconds of absolute
  /// time, any.
  explicit SimulatedScheduler(std::uint64_t seed, std::uint64_t stepLimit = DefaultStepLimit, double start = StartTime);
  ~SimulatedScheduler() override;

  std::uint64_t seed() const { return _seed; }

  /// Runs one ready task, else moves time to the next deadline. False when there is neither.
  bool step();
  /// Runs one ready task of that process, without moving time. False when it has none.
  bool stepOf(const Process& process);
  /// Runs tasks until none is ready, without moving time.
  void runUntilQuiet();
  /// Runs what is ready, and what becomes due within the next `seconds` in the order of time, and moves time by as
  /// much.
  void advance(double seconds);
  /// Steps until `predicate` holds, for at most `limit` seconds of virtual time. Returns whether it holds.
  bool runUntil(const std::function<bool()>& predicate, double limit);

  double now() const override { return _now; }
  /// Of the seed as well, but not of the numbers that choose what runs next: asking changes no order.
  std::uint64_t randomNumber() override;
  void attach(const std::shared_ptr<MainStrand>& mainQueue) override;
  void detach(const Process& process) override;
  void submit(std::shared_ptr<Strand> strand) override;
  void submitMain(MainStrand& mainQueue) override;
  Deadline setDeadline(TimerShot shot, double time) override;
  void clearDeadline(Deadline deadline) override;
  void serve(MainStrand& mainQueue, double until) override;

 private:
  bool runReady();
  bool runOne(std::vector<std::shared_ptr<Strand>>& candidates);
  bool moveTime(double until);
  std::optional<double> nextDeadline() const;
  void countStep();
  std::uint64_t nextRandom();
  void requireOwnThread() const;

  const std::uint64_t _seed;
  const std::uint64_t _stepLimit;
  const std::thread::id _thread = std::this_thread::get_id();
  std::uint64_t _random;
  std::uint64_t _randomForTasks;
  std::uint64_t _steps = 0;
  double _now;
  std::vector<std::shared_ptr<Strand>> _ready;
  std::vector<std::shared_ptr<MainStrand>> _mainQueues;
  DeadlineList _deadlines;
};

}  // namespace pellor
