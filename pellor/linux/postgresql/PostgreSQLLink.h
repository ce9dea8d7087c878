// The thread that keeps a connection to a PostgreSQL server, and does on it what others ask for.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/ServiceReport.h"
#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/linux/postgresql/PostgreSQLConnection.h"
#include "pellor/linux/postgresql/PostgreSQLOptions.h"
#include "pellor/linux/threads/ServiceThread.h"
#include "pellor/runtime/BackOff.h"
#include "pellor/runtime/Log.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

class PostgreSQLLink;

/// Hears what happens on the connection, on the link's thread.
class PostgreSQLListener {
 public:
  virtual ~PostgreSQLListener() = default;
  /// A connection was made; what was notified before it is lost. May throw PostgreSQLError.
  virtual void connected(PostgreSQLConnection& connection) = 0;
  /// Another session's notification.
  virtual void notified(PostgreSQLLink& link, const PostgreSQLNotification& notification) = 0;
};

/// Any thread, but for the destructor's. Where the system refuses the link its thread it is as if the server were away;
/// each job tries again.
class PostgreSQLLink {
 public:
  /// Runs on the link's thread. May throw PostgreSQLError.
  using Job = std::function<void(PostgreSQLConnection& connection)>;

  /// That a domain was written, in the transaction that wrote it: what of it, and `fileNameOf` the domain.
  static constexpr std::string_view DataChannel = "pellor_data";
  static constexpr std::string_view ListWritten = "list ";
  static constexpr std::string_view ValuesWritten = "values ";
  /// That a name was posted: `fileNameOf` the name. So it fits in a notification, however long it is.
  static constexpr std::string_view PostChannel = "pellor_posts";

  PostgreSQLLink(Process& process, PostgreSQLOptions options, LogHandle log);
  ~PostgreSQLLink();
  PostgreSQLLink(const PostgreSQLLink&) = delete;
  PostgreSQLLink& operator=(const PostgreSQLLink&) = delete;

  /// Does the job, after those that were asked for before, and waits for its end. Throws what it threw; at once while
  /// the connection is known to be away, and when the caller's limit has passed. Then a job that has begun goes on.
  void perform(Job job);
  /// Does the job likewise without waiting for its end, unless the connection is away.
  void performSoon(Job job);

  /// From now on. The listener is kept as long as others keep it.
  void addListener(const std::shared_ptr<PostgreSQLListener>& listener);

  bool isConnected() const;
  /// How many connections there were; what is heard belongs to the last one.
  std::uint64_t connectionCount() const;
  std::string error() const;
  ServiceReport report() const;

 private:
  enum class State { starting, connected, away };
  struct Request {
    Job job;
    bool isDone = false;
    std::optional<PostgreSQLError> error = std::nullopt;
  };

  // For callers.
  std::chrono::steady_clock::time_point endOfWait() const;
  void requireNotAway() const PELLOR_REQUIRES(_mutex);
  void wake() const;
  void ensureStarted() PELLOR_REQUIRES(_mutex);

  // Of the thread.
  void serve();
  bool isStopped() const;
  void connect() PELLOR_REQUIRES(_role);
  void setUp() PELLOR_REQUIRES(_role);
  void work() PELLOR_REQUIRES(_role);
  std::shared_ptr<Request> nextRequest();
  void perform(const std::shared_ptr<Request>& request) PELLOR_REQUIRES(_role);
  void hear() PELLOR_REQUIRES(_role);
  void waitForWork() PELLOR_REQUIRES(_role);
  void goAway(const PostgreSQLError& error) PELLOR_REQUIRES(_role);
  void sayAway(const PostgreSQLError& error) PELLOR_REQUIRES(_role);
  bool pause() PELLOR_REQUIRES(_role);
  std::vector<std::shared_ptr<PostgreSQLListener>> listeners() const;

  Process& _process;
  const PostgreSQLOptions _options;
  const LogHandle _log;
  const FileDescriptor _stop;
  const FileDescriptor _work;

  mutable Mutex _mutex;
  mutable Condition _changed;
  State _state PELLOR_GUARDED_BY(_mutex) = State::starting;
  std::uint64_t _connectionCount PELLOR_GUARDED_BY(_mutex) = 0;
  std::optional<PostgreSQLError> _error PELLOR_GUARDED_BY(_mutex);  ///< why it is away
  std::string _version PELLOR_GUARDED_BY(_mutex);
  std::deque<std::shared_ptr<Request>> _requests PELLOR_GUARDED_BY(_mutex);
  std::shared_ptr<Request> _running PELLOR_GUARDED_BY(_mutex);
  std::vector<std::weak_ptr<PostgreSQLListener>> _listeners PELLOR_GUARDED_BY(_mutex);

  ThreadRole _role;
  std::unique_ptr<PostgreSQLConnection> _connection PELLOR_GUARDED_BY(_role);
  BackOff _pauses PELLOR_GUARDED_BY(_role);
  bool _isSaidToBeAway PELLOR_GUARDED_BY(_role) = false;
  ServiceThread _thread PELLOR_GUARDED_BY(_mutex);
};

}  // namespace pellor
