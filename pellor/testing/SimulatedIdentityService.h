// An identity service without a network.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "pellor/platform/ReachabilityService.h"
#include "pellor/runtime/ThreadSafety.h"
#include "pellor/testing/SimulatedPhoneNumbers.h"

namespace pellor {

/// Makes identifiers by the rules of `SimulatedPhoneNumbers`, of e-mail addresses in lower case. It keeps the queries
/// of all processes, and answers them as its script says; what it answered is the last known status in all of them. Any
/// thread.
class SimulatedIdentityService : public ReachabilityService {
 public:
  struct Query {
    std::set<std::string> destinations;
    std::optional<std::string> serviceName;
    bool hasPriority = false;
    std::weak_ptr<ReachabilityClient> client;
  };
  /// One part of an answer: the statuses, and how many seconds of the process's time after the query they come.
  struct AnswerPart {
    double delay = 0;
    DestinationStatuses statuses;
  };
  /// The answer to a query, in one part or several; none: silence.
  using Script = std::function<std::vector<AnswerPart>(const Query&)>;

  explicit SimulatedIdentityService(std::shared_ptr<SimulatedPhoneNumbers> phoneNumbers);

  /// Answers queries from now on by that script; null, as at first: it is a service that answers no queries.
  void setScript(Script script);
  /// The script that gives every destination this status, `delay` seconds after the query.
  static Script answering(DestinationStatus status, double delay);
  /// The script that lets queries go out and says nothing.
  static Script silence();

  /// All queries of all processes, oldest first.
  std::vector<Query> queries() const;
  void clearQueries();
  /// Sets what it last said of a destination, in any spelling, as if to another process.
  void setLastKnownStatus(std::string_view destination, StatusAnswer answer);

  std::optional<std::string> identifierForPhoneNumber(std::string_view number) override;
  std::optional<std::string> identifierForEmailAddress(std::string_view address) override;
  std::optional<std::string> identifierForPhoneNumberWithOptions(std::string_view number,
                                                                 std::optional<std::string> countryCode,
                                                                 std::uint32_t options) override;
  std::string rawAddressForDestination(std::string_view destination) override;
  bool queryStatusForDestinations(const std::set<std::string>& destinations,
                                  const std::optional<std::string>& serviceName, bool hasPriority,
                                  std::weak_ptr<ReachabilityClient> client) override;
  std::optional<StatusAnswer> lastKnownStatus(std::string_view destination) override;

 private:
  const std::shared_ptr<SimulatedPhoneNumbers> _phoneNumbers;
  Script record(const Query& query);
  std::string keyOf(std::string_view destination);
  void remember(const DestinationStatuses& statuses, const std::string& service);

  mutable Mutex _mutex;
  std::vector<Query> _queries PELLOR_GUARDED_BY(_mutex);
  Script _script PELLOR_GUARDED_BY(_mutex);
  std::map<std::string, StatusAnswer> _answers PELLOR_GUARDED_BY(_mutex);  ///< by address in normalised form
};

}  // namespace pellor
