#include "testing/SimulatedIdentityService.h"

#include <utility>

#include "runtime/Process.h"
#include "testing/Addresses.h"

namespace pellor {

SimulatedIdentityService::SimulatedIdentityService(std::shared_ptr<SimulatedPhoneNumbers> phoneNumbers)
    : _phoneNumbers(std::move(phoneNumbers)) {}

std::vector<SimulatedIdentityService::Query> SimulatedIdentityService::queries() const {
  std::lock_guard lock(_mutex);
  return _queries;
}

void SimulatedIdentityService::clearQueries() {
  std::lock_guard lock(_mutex);
  _queries.clear();
}

std::optional<std::string> SimulatedIdentityService::identifierForPhoneNumber(std::string_view number) {
  return identifierForPhoneNumberWithOptions(number, std::nullopt, 0);
}

std::optional<std::string> SimulatedIdentityService::identifierForEmailAddress(std::string_view address) {
  // A scheme in capitals shows only in lower case, and an address holds none.
  return "mailto:" + withoutSchemes(lowerCased(withoutSchemes(address)));
}

std::optional<std::string> SimulatedIdentityService::identifierForPhoneNumberWithOptions(
    std::string_view number, std::optional<std::string> countryCode, std::uint32_t /*options*/) {
  return "tel:" + _phoneNumbers->normalised(withoutSchemes(number), countryCode);
}

std::string SimulatedIdentityService::rawAddressForDestination(std::string_view destination) {
  return withoutSchemes(destination);
}

void SimulatedIdentityService::queryStatusForDestinations(const std::set<std::string>& destinations,
                                                          std::string_view serviceName, bool hasPriority,
                                                          std::weak_ptr<ReachabilityClient> client) {
  if (Process::hasCurrent()) Process::current().requireMainQueue("ReachabilityService::queryStatusForDestinations");
  std::lock_guard lock(_mutex);
  _queries.push_back({destinations, std::string(serviceName), hasPriority, std::move(client)});
}

}  // namespace pellor
