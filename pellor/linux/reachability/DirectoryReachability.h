// Queries of reachability, answered by a directory.
#pragma once

#include <chrono>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/reachability/AnswerMemory.h"
#include "pellor/linux/reachability/DestinationDirectory.h"
#include "pellor/linux/threads/ServiceThread.h"
#include "pellor/platform/ReachabilityService.h"
#include "pellor/platform/SystemNotifyBus.h"
#include "pellor/runtime/BackOff.h"
#include "pellor/runtime/Log.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/ThreadSafety.h"
#include "pellor/runtime/WallClock.h"

namespace pellor {

/// Posted on the bus when other programs have more answers to read.
inline constexpr std::string_view ReachabilityNewsName = "org.tapnote.Pellor.reachability.news";

struct DirectoryReachabilityOptions {
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  /// Where answers are kept (see AnswerMemory); absent: in memory alone.
  std::optional<std::filesystem::path> dataFolder = std::nullopt;
  /// Gives the bus that tells of answers; called at the first use of it, on the main queue. Empty: none is told.
  std::function<std::shared_ptr<SystemNotifyBus>()> notifyBus = nullptr;
  Clock clock = std::chrono::steady_clock::now;
  std::function<double()> wallClock = wallClockNow;  ///< any thread
};

/// Leaves conversions to another service and asks a directory for statuses, from a thread of its own that is started
/// by the first query.
///
/// What waits is asked for together, up to the directory's largest query: destinations with priority first, then those
/// of the others. Every destination is answered: `unknown` where the directory could not tell. While it cannot be asked
/// at all, which the log says once each way, it is left alone for a growing pause, from 1 second to a minute, or as
/// long as it wishes, up to 15 minutes; what is asked for meanwhile is `unknown` at once. So it is where the system
/// refuses the thread.
///
/// What the directory answered is the last known status of a destination, here and in all programs that share the data
/// folder. An answer is kept before the client is told; answers of a list that is asked for in many queries are written
/// together, about once a second.
class DirectoryReachability final : public ReachabilityService {
 public:
  /// `conversions` may be used by any thread. Lives no longer than `process`.
  DirectoryReachability(Process& process, std::shared_ptr<ReachabilityService> conversions,
                        std::unique_ptr<DestinationDirectory> directory, LogHandle log,
                        DirectoryReachabilityOptions options = {});
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
  std::optional<StatusAnswer> lastKnownStatus(std::string_view destination) override;

 private:
  struct Question {
    std::string destination;
    std::weak_ptr<ReachabilityClient> client;
  };

  bool ensureStarted();
  void serve();
  std::vector<Question> next();
  bool isStopping();
  bool isMoreWaiting();
  DestinationStatuses statusesOf(const std::vector<Question>& questions) PELLOR_REQUIRES(_role);
  DestinationStatuses lookUp(const std::set<std::string>& identifiers) PELLOR_REQUIRES(_role);
  void note(const DestinationDirectory::Answer& answer) PELLOR_REQUIRES(_role);
  void remember(const DestinationDirectory::Answer& answer) PELLOR_REQUIRES(_role);
  void writeAnswers() PELLOR_REQUIRES(_role);
  void listenForNews();
  std::optional<std::string> identifierOf(const std::string& destination);
  void report(const std::vector<Question>& questions, const DestinationStatuses& statuses);
  void post(std::weak_ptr<ReachabilityClient> client, DestinationStatuses statuses);

  Process& _process;
  const std::shared_ptr<ReachabilityService> _conversions;
  const std::unique_ptr<DestinationDirectory> _directory;
  const LogHandle _log;
  const DirectoryReachabilityOptions _options;
  AnswerMemory _answers;

  Mutex _mutex;
  Condition _changed;
  std::deque<Question> _urgent PELLOR_GUARDED_BY(_mutex);
  std::deque<Question> _others PELLOR_GUARDED_BY(_mutex);
  bool _isStopping PELLOR_GUARDED_BY(_mutex) = false;

  ThreadRole _role;
  bool _isAway PELLOR_GUARDED_BY(_role) = false;
  BackOff _pauses PELLOR_GUARDED_BY(_role);
  std::chrono::steady_clock::time_point _restsUntil PELLOR_GUARDED_BY(_role);
  std::chrono::steady_clock::time_point _writesAfter PELLOR_GUARDED_BY(_role);
  std::shared_ptr<SystemNotifyBus> _bus;  // main queue; null until it is listened to
  ServiceThread _thread;                  // main queue
};

}  // namespace pellor
