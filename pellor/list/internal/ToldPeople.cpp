#include "pellor/list/internal/ToldPeople.h"

#include <algorithm>

namespace pellor {

void ToldPeople::add(const FriendIdentity& identity) {
  if (!_entered.insert(identity).second) return;
  if (!identity.guid.empty()) _guids.insert(identity.guid);
  _names.insert(identity.name);
  for (const std::string& destination : identity.destinations) _byDestination.emplace(destination, _identities.size());
  _fingerprints.insert(fingerprintOf(identity));
  _identities.push_back(identity);
}

void ToldPeople::add(const Snapshot& list) {
  for (const auto& person : list.friends()) add(identityOf(*person));
}

void ToldPeople::add(const std::vector<StepRecord>& steps) {
  for (const StepRecord& step : steps) {
    for (const FriendRecord& person : step.friends)
      for (const Dictionary* form : {&person.before, &person.after})
        if (!form->empty()) add(identityOf(*form));
    for (const PageRecord& page : step.pages) _fingerprints.insert(page.fingerprints.begin(), page.fingerprints.end());
  }
}

bool ToldPeople::tellOf(const FriendIdentity& identity) const {
  if (!identity.guid.empty() && _guids.contains(identity.guid)) return true;
  if (identity.guid.empty() && identity.destinations.empty()) return _names.contains(identity.name);
  const auto mayBeIt = [&](const FriendIdentity& other) {
    return identity.guid.empty() || other.guid.empty() || identity.name == other.name;
  };
  return std::ranges::any_of(identity.destinations, [&](const std::string& destination) {
    const auto [first, last] = _byDestination.equal_range(destination);
    return std::any_of(first, last, [&](const auto& entry) { return mayBeIt(_identities[entry.second]); });
  });
}

}  // namespace pellor
