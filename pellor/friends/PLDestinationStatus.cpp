#include "pellor/friends/PLDestinationStatus.h"

#include <algorithm>
#include <iterator>

namespace pellor {

DestinationStatus betterDestinationStatus(DestinationStatus left, DestinationStatus right) {
  using enum DestinationStatus;
  if (left == valid || right == valid) return valid;
  const auto [smaller, larger] = std::minmax(left, right);
  return smaller == unknown && larger == invalid ? unknown : larger;
}

std::string destinationStatusName(DestinationStatus status) {
  switch (status) {
    case DestinationStatus::unspecified:
      return "unspecified";
    case DestinationStatus::unknown:
      return "unknown";
    case DestinationStatus::valid:
      return "valid";
    case DestinationStatus::invalid:
      return "invalid";
  }
  return std::to_string(static_cast<std::int64_t>(status));
}

Dictionary destinationStatusNumbers(const DestinationStatuses& statuses) {
  Dictionary numbers;
  for (const auto& [destination, status] : statuses) {
    numbers.insert_or_assign(destination, static_cast<std::int64_t>(status));
  }
  return numbers;
}

void PLDestinationStatusCache::update(const DestinationStatuses& statuses) {
  for (const auto& [destination, status] : statuses) _statuses.insert_or_assign(destination, status);
}

DestinationStatus PLDestinationStatusCache::status(const std::string& destination) const {
  const auto known = _statuses.find(destination);
  return known == _statuses.end() ? DestinationStatus::unspecified : known->second;
}

bool PLDestinationStatusCache::hasValid() const {
  return std::ranges::any_of(_statuses, [](const auto& known) { return known.second == DestinationStatus::valid; });
}

DestinationSet PLDestinationStatusCache::validAmong(const DestinationSet& destinations) const {
  DestinationSet valid;
  std::ranges::copy_if(destinations, std::inserter(valid, valid.end()),
                       [this](const std::string& destination) { return isValid(destination); });
  return valid;
}

bool PLDestinationStatusCache::hasValidAmong(const DestinationSet& destinations) const {
  return std::ranges::any_of(destinations, [this](const std::string& destination) { return isValid(destination); });
}

}  // namespace pellor
