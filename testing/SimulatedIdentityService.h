// An identity service without a network.
#pragma once

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/ReachabilityService.h"
#include "testing/SimulatedPhoneNumbers.h"

namespace pellor {

/// Makes identifiers by the rules of `SimulatedPhoneNumbers`, of e-mail addresses in lower case. It keeps the queries
/// and answers none: a test that wants an answer gives it to the query's client on the main queue. Any thread.
class SimulatedIdentityService : public ReachabilityService {
 public:
  struct Query {
    std::set<std::string> destinations;
    std::string serviceName;
    bool hasPriority = false;
    std::weak_ptr<ReachabilityClient> client;
  };

  explicit SimulatedIdentityService(std::shared_ptr<SimulatedPhoneNumbers> phoneNumbers);

  /// All queries of all processes, oldest first.
  std::vector<Query> queries() const;
  void clearQueries();

  std::optional<std::string> identifierForPhoneNumber(std::string_view number) override;
  std::optional<std::string> identifierForEmailAddress(std::string_view address) override;
  std::optional<std::string> identifierForPhoneNumberWithOptions(std::string_view number,
                                                                 std::optional<std::string> countryCode,
                                                                 std::uint32_t options) override;
  std::string rawAddressForDestination(std::string_view destination) override;
  void queryStatusForDestinations(const std::set<std::string>& destinations, std::string_view serviceName,
                                  bool hasPriority, std::weak_ptr<ReachabilityClient> client) override;

 private:
  const std::shared_ptr<SimulatedPhoneNumbers> _phoneNumbers;
  mutable std::mutex _mutex;
  std::vector<Query> _queries;
};

}  // namespace pellor
