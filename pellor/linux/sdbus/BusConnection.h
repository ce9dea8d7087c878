// A connection to the session bus that carries names.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/linux/sdbus/SdBus.h"
#include "pellor/linux/threads/ServiceThread.h"
#include "pellor/runtime/BackOff.h"
#include "pellor/runtime/Log.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// Sends names and hears those that other connections send, on a thread of its own, to which the connection belongs.
/// A connection that fails is made again with a growing pause; what could not be sent is kept, a name once. Each state
/// change is logged once. Where the system refuses the thread it is as if the bus were away; each name that is sent or
/// observed tries again.
///
/// Names are ASCII without quotes or backslashes, so that they can stand in a match rule.
class BusConnection {
 public:
  struct Client {
    /// Somebody else sent the name, or may have sent it while it could not be heard. On the connection's thread.
    std::function<void(const std::string& name)> heard;
    /// `isSettled`, which was not so when it was asked, may be so now. On the connection's thread.
    std::function<void()> didSettle;
  };

  /// A bus that does not answer for `answerLimit` is taken for one that is away.
  BusConnection(std::string address, std::chrono::microseconds answerLimit, LogHandle log, Client client);
  /// Stops and joins. What was not sent is dropped.
  ~BusConnection();
  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;

  /// Hears the name from the moment on when this returns. Waits for that, unless the bus is away: then the client is
  /// told of the name once it can be heard. For one thread at a time.
  void observe(const std::string& name);
  void forget(const std::string& name);

  /// Sends the name soon. Names that are sent in one moment go out once. Any thread.
  void send(const std::string& name);
  /// Whether all names are sent or the bus is known to be away. Any thread.
  bool isSettled();

 private:
  using Clock = std::chrono::steady_clock;  // the one in which the library gives its own deadlines

  struct Interest {
    bool isAwaited = false;  ///< `observe` waits for it
    bool isHeard = false;
  };
  struct Match {
    BusConnection* owner = nullptr;
    std::string name;
    bool isInstalled = false;
    SlotHandle slot;
  };
  struct Callbacks;

  void ensureStarted() PELLOR_REQUIRES(_mutex);
  void wake();
  void serve();
  bool isEnding();
  int turn() PELLOR_REQUIRES(_role);
  int updateMatches() PELLOR_REQUIRES(_role);
  int add(const std::string& name, Match& match) PELLOR_REQUIRES(_role);
  void tellOfHeard() PELLOR_REQUIRES(_role);
  void tellOfRest();
  bool isAtRest() const PELLOR_REQUIRES(_mutex);
  int sendAll() PELLOR_REQUIRES(_role);
  int checkAnswers() PELLOR_REQUIRES(_role);
  bool hasAllAnswers() PELLOR_REQUIRES(_role);
  void lose(int error) PELLOR_REQUIRES(_role);
  void sayAway(const std::string& reason) PELLOR_REQUIRES(_role);
  void waitForWork() PELLOR_REQUIRES(_role);
  Clock::time_point nextTurn() PELLOR_REQUIRES(_role);

  const std::string _address;
  const std::chrono::microseconds _answerLimit;
  const LogHandle _log;
  const Client _client;
  const FileDescriptor _wake;

  Mutex _mutex;
  Condition _changed;
  bool _isEnding PELLOR_GUARDED_BY(_mutex) = false;
  bool _isAway PELLOR_GUARDED_BY(_mutex) = false;
  bool _isRestAwaited PELLOR_GUARDED_BY(_mutex) = false;
  std::map<std::string, Interest> _interests PELLOR_GUARDED_BY(_mutex);
  std::set<std::string> _unsent PELLOR_GUARDED_BY(_mutex);
  std::set<std::string> _onTheWay PELLOR_GUARDED_BY(_mutex);  ///< given to the library, not yet to the bus

  ThreadRole _role;
  BusHandle _bus PELLOR_GUARDED_BY(_role);
  std::map<std::string, Match> _matches PELLOR_GUARDED_BY(_role);  // after the bus, to which they belong
  bool _isReportedAway PELLOR_GUARDED_BY(_role) = false;
  int _refusal PELLOR_GUARDED_BY(_role) = 0;
  Clock::time_point _opensAt PELLOR_GUARDED_BY(_role);
  BackOff _pauses PELLOR_GUARDED_BY(_role);
  Clock::time_point _answersBy PELLOR_GUARDED_BY(_role) = Clock::time_point::max();
  ServiceThread _thread PELLOR_GUARDED_BY(_mutex);
};

}  // namespace pellor
