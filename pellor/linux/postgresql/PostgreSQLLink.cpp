#include "pellor/linux/postgresql/PostgreSQLLink.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <utility>

#include "pellor/linux/postgresql/PostgreSQLSchema.h"
#include "pellor/runtime/WallClock.h"

namespace pellor {
namespace {

void raise(const FileDescriptor& event) {
  const std::uint64_t one = 1;
  while (::write(event.get(), &one, sizeof one) < 0 && errno == EINTR) {
  }
}

int milliseconds(double seconds) { return static_cast<int>(std::ceil(seconds * 1000)); }

PostgreSQLStatement setting(const std::string& name, double seconds) {
  return {"SET " + name + " = " + std::to_string(milliseconds(seconds))};
}

}  // namespace

PostgreSQLLink::PostgreSQLLink(Process& process, PostgreSQLOptions options, LogHandle log)
    : _process(process),
      _options(std::move(options)),
      _log(std::move(log)),
      _stop(::eventfd(0, EFD_CLOEXEC)),
      _work(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      _pauses({.first = _options.firstPause, .longest = _options.longestPause}) {
  const MutexLock lock(_mutex);
  ensureStarted();
}

PostgreSQLLink::~PostgreSQLLink() {
  raise(_stop);
  _thread.join();
}

// For callers

void PostgreSQLLink::ensureStarted() {
  if (_thread.isStarted()) return;
  const auto refusal = _thread.start("pellor-postgres", [this] { serve(); });
  _state = refusal ? State::away : State::starting;
  if (!refusal) return;
  _role.isThisThread();  // there is none yet
  sayAway(_error.emplace(PostgreSQLError::Kind::away,
                         PostgreSQLError::Problem{ServiceThread::Problem, ServiceThread::Advice}, *refusal));
}

std::chrono::steady_clock::time_point PostgreSQLLink::endOfWait() const {
  return steadyTimeAfter(_process.mainQueue().isCurrent() ? _options.mainQueueLimit : _options.limit);
}

void PostgreSQLLink::requireNotAway() const {
  if (_state == State::away) throw *_error;
}

void PostgreSQLLink::perform(Job job) {
  const auto end = endOfWait();
  const auto request = std::make_shared<Request>(Request{std::move(job)});
  const MutexLock lock(_mutex);
  ensureStarted();
  requireNotAway();
  _requests.push_back(request);
  wake();
  while (!request->isDone) {
    if (_changed.waitUntil(_mutex, end) || request->isDone) continue;
    std::erase(_requests, request);
    const PostgreSQLError late(PostgreSQLError::Kind::away,
                               {"it did not answer in time", "see that the server runs and can be reached"});
    // Nobody else has to wait for the first connection.
    if (_state == State::starting) {
      _state = State::away;
      _error = late;
    }
    throw late;
  }
  if (request->error) throw *request->error;
}

void PostgreSQLLink::performSoon(Job job) {
  const MutexLock lock(_mutex);
  ensureStarted();
  if (_state == State::away) return;
  _requests.push_back(std::make_shared<Request>(Request{std::move(job)}));
  wake();
}

void PostgreSQLLink::addListener(const std::shared_ptr<PostgreSQLListener>& listener) {
  const MutexLock lock(_mutex);
  std::erase_if(_listeners, [](const auto& known) { return known.expired(); });
  _listeners.push_back(listener);
}

bool PostgreSQLLink::isConnected() const {
  const MutexLock lock(_mutex);
  return _state == State::connected;
}

std::uint64_t PostgreSQLLink::connectionCount() const {
  const MutexLock lock(_mutex);
  return _connectionCount;
}

std::string PostgreSQLLink::error() const {
  const MutexLock lock(_mutex);
  return _state == State::away ? _error->what() : "";
}

ServiceReport PostgreSQLLink::report() const {
  const auto end = endOfWait();
  const MutexLock lock(_mutex);
  while (_state == State::starting && _changed.waitUntil(_mutex, end)) {
  }
  if (_state == State::connected) return ServiceReport::working(_version);
  if (_state == State::starting)
    return ServiceReport::failing("it does not answer", "look at the server and the way to it");
  return ServiceReport::failing(_error->reason(), _error->problem().advice);
}

void PostgreSQLLink::wake() const { raise(_work); }

// Of the thread

void PostgreSQLLink::serve() {
  _role.isThisThread();
  do {
    try {
      connect();
      work();
    } catch (const PostgreSQLError& error) {
      _connection.reset();
      if (!isStopped()) goAway(error);
    }
  } while (pause());
}

bool PostgreSQLLink::isStopped() const {
  pollfd file{_stop.get(), POLLIN, 0};
  return ::poll(&file, 1, 0) > 0;
}

void PostgreSQLLink::connect() {
  _connection = std::make_unique<PostgreSQLConnection>(
      _options.connection, PostgreSQLConnection::Limits{_options.connectLimit, _options.answerLimit}, _stop.get());
  setUp();
  PostgreSQLSchema::ensure(*_connection);
  if (std::exchange(_isSaidToBeAway, false)) _log.log("PostgreSQL can be used again");
  {
    const MutexLock lock(_mutex);
    _state = State::connected;
    ++_connectionCount;
    _version =
        "PostgreSQL " + _connection->serverVersion() + ", schema version " + std::to_string(PostgreSQLSchema::Version);
  }
  _changed.notifyAll();
  _pauses.reset();
  for (const auto& listener : listeners()) listener->connected(*_connection);
}

void PostgreSQLLink::setUp() {
  // A writer that vanished in the midst of its transaction holds up the others for less long than they wait for each
  // other, and these give up before they take the server for gone.
  const double patience = _options.answerLimit / 2;
  _connection->run({{"SET search_path = pg_catalog"},
                    setting("lock_timeout", patience),
                    setting("idle_in_transaction_session_timeout", patience / 2),
                    setting("statement_timeout", _options.limit),
                    setting("tcp_user_timeout", _options.answerLimit),
                    // Rows are always found by an index, which a planner that has no statistics yet may not know; the
                    // costs by which it is kept from others would make it compile.
                    {"SET jit = off"},
                    {"SET enable_seqscan = off"},
                    {"SET enable_hashjoin = off"},
                    {"SET enable_mergejoin = off"},
                    {std::string("LISTEN ").append(DataChannel)},
                    {std::string("LISTEN ").append(PostChannel)}});
}

void PostgreSQLLink::work() {
  while (!isStopped()) {
    // Some may have come with an answer.
    hear();
    if (const auto request = nextRequest()) {
      perform(request);
    } else {
      waitForWork();
    }
  }
}

std::shared_ptr<PostgreSQLLink::Request> PostgreSQLLink::nextRequest() {
  const MutexLock lock(_mutex);
  if (_requests.empty()) return nullptr;
  _running = std::move(_requests.front());
  _requests.pop_front();
  return _running;
}

void PostgreSQLLink::perform(const std::shared_ptr<Request>& request) {
  std::optional<PostgreSQLError> error;
  try {
    request->job(*_connection);
  } catch (const PostgreSQLError& problem) {
    // The other callers that wait are told at once.
    if (problem.kind() == PostgreSQLError::Kind::away) throw;
    error = problem;
    _connection->rollBack();
  }
  {
    const MutexLock lock(_mutex);
    request->error = error;
    request->isDone = true;
    _running.reset();
  }
  _changed.notifyAll();
}

void PostgreSQLLink::hear() {
  while (const auto notification = _connection->nextNotification()) {
    if (notification->sender == _connection->sessionNumber()) continue;
    for (const auto& listener : listeners()) listener->notified(*this, *notification);
  }
}

void PostgreSQLLink::waitForWork() {
  std::array<pollfd, 3> files{pollfd{_work.get(), POLLIN, 0}, pollfd{_stop.get(), POLLIN, 0},
                              pollfd{_connection->socket(), POLLIN, 0}};
  const int ready = ::poll(files.data(), files.size(), milliseconds(_options.heartbeat));
  if (ready == 0) _connection->run({{"SELECT 1"}});
  if (files[0].revents != 0) {
    std::uint64_t count = 0;
    (void)!::read(_work.get(), &count, sizeof count);
  }
  if (files[2].revents != 0) _connection->takeInput();
}

void PostgreSQLLink::goAway(const PostgreSQLError& error) {
  sayAway(error);
  {
    const MutexLock lock(_mutex);
    _state = State::away;
    _error.emplace(PostgreSQLError::Kind::away, error.problem(), error.detail());
    if (_running) _requests.push_back(std::exchange(_running, nullptr));
    for (const auto& request : std::exchange(_requests, {})) {
      request->error = _error;
      request->isDone = true;
    }
  }
  _changed.notifyAll();
}

void PostgreSQLLink::sayAway(const PostgreSQLError& error) {
  const auto& [what, advice] = error.problem();
  if (std::exchange(_isSaidToBeAway, true)) return;
  _log.log("PostgreSQL cannot be used: %@; %@: %@", what, advice, redactable(error.detail()));
}

/// Before the next attempt. False when the thread is to end.
bool PostgreSQLLink::pause() {
  pollfd file{_stop.get(), POLLIN, 0};
  const int timeout = milliseconds(_pauses.next());
  int ready = 0;
  do {
    ready = ::poll(&file, 1, timeout);
  } while (ready < 0 && errno == EINTR);
  return ready == 0;
}

std::vector<std::shared_ptr<PostgreSQLListener>> PostgreSQLLink::listeners() const {
  const MutexLock lock(_mutex);
  std::vector<std::shared_ptr<PostgreSQLListener>> living;
  for (const auto& known : _listeners) {
    if (auto listener = known.lock()) living.push_back(std::move(listener));
  }
  return living;
}

}  // namespace pellor
