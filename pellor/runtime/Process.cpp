#include "pellor/runtime/Process.h"

#include <algorithm>
#include <atomic>
#include <utility>
#include <vector>

#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/Scheduler.h"
#include "pellor/runtime/Strand.h"
#include "pellor/runtime/internal/MainStrand.h"
#include "pellor/runtime/internal/ThreadedScheduler.h"

namespace pellor {

namespace {

constexpr double SettleLimitAtEnd = 5;
constexpr double SettleLimitWhenOvertaken = 25;

/// The processes of the program that have not ended. A program has one; tests have more.
class LiveProcesses {
 public:
  void add(Process& process) {
    const MutexLock lock(_mutex);
    _processes.push_back(&process);
    publishOnly();
  }
  void remove(Process& process) {
    const MutexLock lock(_mutex);
    std::erase(_processes, &process);
    publishOnly();
  }
  /// Null when there are none or several.
  Process* only() const { return _only.load(std::memory_order_acquire); }

 private:
  void publishOnly() PELLOR_REQUIRES(_mutex) {
    _only.store(_processes.size() == 1 ? _processes.front() : nullptr, std::memory_order_release);
  }

  Mutex _mutex;
  std::vector<Process*> _processes PELLOR_GUARDED_BY(_mutex);
  std::atomic<Process*> _only = nullptr;  // written with the lock, read on any thread
};

LiveProcesses& liveProcesses() {
  static LiveProcesses processes;
  return processes;
}

Process* currentOrNull() {
  const TaskContext* context = TaskContext::innermost();
  return context ? &context->process() : liveProcesses().only();
}

}  // namespace

class Process::State {
 public:
  State(Process& process, std::shared_ptr<Scheduler> processScheduler, std::shared_ptr<LogSink> processSink)
      : scheduler(std::move(processScheduler)),
        sink(std::move(processSink)),
        mainQueue(std::make_shared<MainStrand>(process, scheduler)),
        _process(process) {
    scheduler->attach(mainQueue);
  }

  bool settle(double limit);
  bool isWritten() const { return std::ranges::all_of(participants, &SettleParticipant::isWritten); }
  void requireEnd() const;
  void close(LocalObjects& locals);
  void taskEnded();
  void queueMade(const std::shared_ptr<Strand>& queue);

  const std::shared_ptr<Scheduler> scheduler;
  const std::shared_ptr<LogSink> sink;
  const std::shared_ptr<MainStrand> mainQueue;
  NotificationCenter notificationCenter;
  std::atomic<long> outstanding = 0;             // counted as tasks are queued and end, on any thread
  std::vector<SettleParticipant*> participants;  // main queue
  bool isClosed = false;                         // main thread

 private:
  static constexpr long NotSettling = -1;

  bool isAtRest(long ownTasks) const;
  bool comesToRest(long ownTasks);
  std::vector<Task> closeQueues();

  Process& _process;
  std::atomic<long> _awaitedOutstanding = NotSettling;  // written by `settle`, read as tasks end
  Mutex _mutex;
  std::vector<std::weak_ptr<Strand>> _queues PELLOR_GUARDED_BY(_mutex);
  bool _hasClosedQueues PELLOR_GUARDED_BY(_mutex) = false;
};

bool Process::State::isAtRest(long ownTasks) const {
  return outstanding == ownTasks && std::ranges::all_of(participants, &SettleParticipant::isSettled);
}

// What was marked without a request for a save is asked for first.
bool Process::State::comesToRest(long ownTasks) {
  if (outstanding != ownTasks) return false;
  for (SettleParticipant* participant : std::vector(participants)) participant->prepareToSettle();
  return isAtRest(ownTasks);
}

bool Process::State::settle(double limit) {
  // The tasks that the caller is inside of cannot end before it returns.
  const long ownTasks = TaskContext::taskCount(_process);
  const Scope scope(_process);
  const long outerAwaited = _awaitedOutstanding.exchange(ownTasks);
  const double until = scheduler->now() + limit;
  // Asked once a turn: in the next moment another thread may bring news again.
  bool isSettled = comesToRest(ownTasks);
  while (!isSettled && scheduler->now() < until) {
    scheduler->serve(*mainQueue, until);
    isSettled = comesToRest(ownTasks);
  }
  _awaitedOutstanding = outerAwaited;
  const bool result = isSettled && isWritten();
  for (SettleParticipant* participant : std::vector(participants)) participant->didSettle();
  return result;
}

void Process::State::taskEnded() {
  const long left = --outstanding;
  if (left <= _awaitedOutstanding) mainQueue->nudge();
}

void Process::State::queueMade(const std::shared_ptr<Strand>& queue) {
  const MutexLock lock(_mutex);
  std::erase_if(_queues, [](const auto& known) { return known.expired(); });
  _queues.push_back(queue);
  std::vector<Task> none;
  if (_hasClosedQueues) queue->close(none);
}

std::vector<Task> Process::State::closeQueues() {
  const MutexLock lock(_mutex);
  _hasClosedQueues = true;
  std::vector<Task> dropped;
  for (const auto& known : _queues) {
    if (const auto queue = known.lock()) queue->close(dropped);
  }
  return dropped;
}

void Process::State::requireEnd() const {
  require(mainQueue->isOwnerThread(), "a process to end on its main thread");
  require(TaskContext::taskCount(_process) == 0, "a process to end outside of its tasks");
}

void Process::State::close(LocalObjects& locals) {
  isClosed = true;
  const Scope scope(_process);
  // All queues are closed before the first task is dropped: what its captures queue as they go is dropped as well.
  std::vector<Task> dropped = closeQueues();
  for (Task& task : dropped) {
    task = nullptr;
    taskEnded();
  }
  scheduler->detach(_process);
  locals.destroyAll();
  liveProcesses().remove(_process);
}

Process::Process(std::shared_ptr<LogSink> sink) : Process(std::make_shared<ThreadedScheduler>(), std::move(sink)) {}

Process::Process(std::shared_ptr<Scheduler> scheduler, std::shared_ptr<LogSink> sink) {
  const Scope scope(*this);
  _state = std::make_unique<State>(*this, std::move(scheduler), std::move(sink));
  _state->queueMade(_state->mainQueue);
  liveProcesses().add(*this);
}

Process::~Process() {
  if (_state->isClosed) return;
  _state->requireEnd();
  // What could not be written is given up soon; what other processes kept from being written, later.
  if (!_state->settle(SettleLimitAtEnd) && _state->isWritten()) _state->settle(SettleLimitWhenOvertaken);
  _state->close(_locals);
}

Process& Process::current() {
  Process* process = currentOrNull();
  require(process != nullptr, "a current process: one process, or a Process::Scope to choose one");
  return *process;
}

bool Process::hasCurrent() { return currentOrNull() != nullptr; }

double Process::now() const { return _state->scheduler->now(); }

MainQueue& Process::mainQueue() { return *_state->mainQueue; }

NotificationCenter& Process::notificationCenter() { return _state->notificationCenter; }

Scheduler& Process::scheduler() { return *_state->scheduler; }

const std::shared_ptr<LogSink>& Process::logSink() const {
  static const std::shared_ptr<LogSink> none;
  // A fatal error may come before the state is made.
  return _state ? _state->sink : none;
}

void Process::requireMainQueue(std::string_view operation) const {
  if (!_state->mainQueue->isCurrent()) fatal(std::string(operation) + " to be called on the main queue");
}

bool Process::settle(double limit) {
  requireMainQueue("Process::settle");
  return _state->settle(limit);
}

void Process::addSettleParticipant(SettleParticipant& participant) {
  requireMainQueue("Process::addSettleParticipant");
  _state->participants.push_back(&participant);
}

void Process::removeSettleParticipant(SettleParticipant& participant) {
  std::erase(_state->participants, &participant);
}

void Process::abandon() {
  if (_state->isClosed) return;
  _state->requireEnd();
  _state->close(_locals);
}

void Process::taskQueued() { ++_state->outstanding; }

void Process::taskEnded() { _state->taskEnded(); }

void Process::queueMade(const std::shared_ptr<Strand>& queue) { _state->queueMade(queue); }

void* Process::makeLocal(std::size_t key, LocalObjects::Make make) {
  const Scope scope(*this);
  return _locals.make(key, make);
}

}  // namespace pellor
