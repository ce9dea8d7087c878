// Queries of reachability, answered by a directory.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/reachability/DestinationDirectory.h"
#include "pellor/linux/threads/ServiceThread.h"
#include "pellor/platform/ReachabilityService.h"
#include "pellor/runtime/BackOff.h"
#include "pellor/runtime/Log.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// Leaves conversions to another service and asks a directory for statuses, from a thread of its own that is started
/// by the first query.
///
/// What waits is asked for together, up to the directory's largest query: destinations with priority first, then those
/// of the others. Every destination is answered: `unknown` where the directory could not tell. While it cannot be asked
/// at all, which the log says once each way, it is left alone for a growing pause, from 1 second to a minute, or as
/// long as it wishes, up to 15 minutes; what is asked for meanwhile is `unknown` at once. So it is where the system
/// refuses the thread. Answers are not kept.
class DirectoryReachability final : public ReachabilityService {
 public:
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  /// `conversions` may be used by any thread. Lives no longer than `process`.
  DirectoryReachability(Process& process, std::shared_ptr<ReachabilityService> conversions,
                        std::unique_ptr<DestinationDirectory> directory, LogHandle log,
                        Clock clock = std::chrono::steady_clock::now);
  /// Cancels the query that is under way and waits for its end. What is not answered yet never is.
  ~DirectoryReachability() override;
  DirectoryReachability(const DirectoryReachability&) = delete;
  DirectoryReachability& operator=(const DirectoryReachability&) = delete;

  std::optional<std::string> identifierForPhoneNumber(std::string_view number) override;
  std::optional<std::string> identifierForEmailAddress(std::string_view address) override;
  std::optional<std::string> identifierForPhoneNumberWithOptions(std::string_view number,
                                                                 std::optional<std::string> countryCode,
                                                                 std::uint32_t options) override;
  std::string rawAddressForDestination(std::string_view destination) override;
  std::optional<std::string> comparableNumber(std::string_view number) override;

  /// Always true. The client hears that the query went out inside the call. There is one directory for all services,
  /// so `serviceName` plays no part.
  bool queryStatusForDestinations(const std::set<std::string>& destinations,
                                  const std::optional<std::string>& serviceName, bool hasPriority,
                                  std::weak_ptr<ReachabilityClient> client) override;

 private:
  struct Question {
    std::string destination;
    std::weak_ptr<ReachabilityClient> client;
  };

  bool ensureStarted();
  void serve();
  std::vector<Question> next();
  bool isStopping();
  DestinationStatuses statusesOf(const std::vector<Question>& questions) PELLOR_REQUIRES(_role);
  DestinationStatuses lookUp(const std::set<std::string>& identifiers) PELLOR_REQUIRES(_role);
  void note(const DestinationDirectory::Answer& answer) PELLOR_REQUIRES(_role);
  std::optional<std::string> identifierOf(const std::string& destination);
  void report(const std::vector<Question>& questions, const DestinationStatuses& statuses);
  void post(std::weak_ptr<ReachabilityClient> client, DestinationStatuses statuses);

  Process& _process;
  const std::shared_ptr<ReachabilityService> _conversions;
  const std::unique_ptr<DestinationDirectory> _directory;
  const LogHandle _log;
  const Clock _clock;

  Mutex _mutex;
  Condition _changed;
  std::deque<Question> _urgent PELLOR_GUARDED_BY(_mutex);
  std::deque<Question> _others PELLOR_GUARDED_BY(_mutex);
  bool _isStopping PELLOR_GUARDED_BY(_mutex) = false;

  ThreadRole _role;
  bool _isAway PELLOR_GUARDED_BY(_role) = false;
  BackOff _pauses PELLOR_GUARDED_BY(_role);
  std::chrono::steady_clock::time_point _restsUntil PELLOR_GUARDED_BY(_role);
  ServiceThread _thread;  // main queue
};

}  // namespace pellor
