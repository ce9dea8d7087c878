#include "pellor/testing/SimulatedIdentityService.h"

#include <utility>

#include "pellor/runtime/Process.h"
#include "pellor/testing/internal/Addresses.h"

namespace pellor {

SimulatedIdentityService::SimulatedIdentityService(std::shared_ptr<SimulatedPhoneNumbers> phoneNumbers)
    : _phoneNumbers(std::move(phoneNumbers)) {}

std::vector<SimulatedIdentityService::Query> SimulatedIdentityService::queries() const {
  const MutexLock lock(_mutex);
  return _queries;
}

void SimulatedIdentityService::clearQueries() {
  const MutexLock lock(_mutex);
  _queries.clear();
}

std::optional<std::string> SimulatedIdentityService::identifierForPhoneNumber(std::string_view number) {
  return identifierForPhoneNumberWithOptions(number, std::nullopt, 0);
}

std::optional<std::string> SimulatedIdentityService::identifierForEmailAddress(std::string_view address) {
  // A scheme in capitals shows only in lower case, and an address holds none.
  return "mailto:" + withoutSchemes(lowerCasedAddress(withoutSchemes(address)));
}

std::optional<std::string> SimulatedIdentityService::identifierForPhoneNumberWithOptions(
    std::string_view number, std::optional<std::string> countryCode, std::uint32_t /*options*/) {
  return "tel:" + _phoneNumbers->normalised(withoutSchemes(number), countryCode);
}

std::string SimulatedIdentityService::rawAddressForDestination(std::string_view destination) {
  return withoutSchemes(destination);
}

void SimulatedIdentityService::setScript(Script script) {
  const MutexLock lock(_mutex);
  _script = std::move(script);
}

SimulatedIdentityService::Script SimulatedIdentityService::answering(DestinationStatus status, double delay) {
  return [status, delay](const Query& query) -> std::vector<AnswerPart> {
    AnswerPart part{delay, {}};
    for (const std::string& destination : query.destinations) part.statuses.emplace(destination, status);
    return {part};
  };
}

SimulatedIdentityService::Script SimulatedIdentityService::silence() {
  return [](const Query&) { return std::vector<AnswerPart>(); };
}

SimulatedIdentityService::Script SimulatedIdentityService::record(const Query& query) {
  const MutexLock lock(_mutex);
  _queries.push_back(query);
  return _script;
}

bool SimulatedIdentityService::queryStatusForDestinations(const std::set<std::string>& destinations,
                                                          const std::optional<std::string>& serviceName,
                                                          bool hasPriority, std::weak_ptr<ReachabilityClient> client) {
  Process& process = Process::current();
  process.requireMainQueue("ReachabilityService::queryStatusForDestinations");
  const Query query{destinations, serviceName, hasPriority, client};
  const Script script = record(query);
  if (!script) return false;
  if (const auto asker = client.lock()) asker->queryDidStart(destinations, hasPriority);
  for (AnswerPart& part : script(query)) {
    // The service outlives the processes that ask it, as one far away does.
    process.mainQueue().asyncAfter(
        part.delay, [this, client, service = serviceName.value_or(""), statuses = std::move(part.statuses)] {
          remember(statuses, service);
          if (const auto asker = client.lock()) asker->queryDidAnswer(statuses);
        });
  }
  return true;
}

std::string SimulatedIdentityService::keyOf(std::string_view destination) {
  const std::string raw = withoutSchemes(destination);
  if (raw.find('@') != std::string::npos) return lowerCasedAddress(raw);
  return _phoneNumbers->normalised(raw, std::nullopt);
}

void SimulatedIdentityService::setLastKnownStatus(std::string_view destination, StatusAnswer answer) {
  const std::string key = keyOf(destination);
  const MutexLock lock(_mutex);
  _answers.insert_or_assign(key, std::move(answer));
}

void SimulatedIdentityService::remember(const DestinationStatuses& statuses, const std::string& service) {
  const double now = Process::current().now();
  for (const auto& [destination, status] : statuses) {
    if (status != DestinationStatus::valid && status != DestinationStatus::invalid) continue;
    setLastKnownStatus(destination, {status, now, service, std::nullopt});
  }
}

std::optional<StatusAnswer> SimulatedIdentityService::lastKnownStatus(std::string_view destination) {
  const std::string key = keyOf(destination);
  const MutexLock lock(_mutex);
  const auto found = _answers.find(key);
  return found == _answers.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace pellor
