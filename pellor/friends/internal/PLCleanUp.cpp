#include "pellor/friends/internal/PLCleanUp.h"

#include <map>
#include <set>
#include <string>

#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLExceptions.h"
#include "pellor/friends/internal/PLSkipChecks.h"
#include "pellor/friends/internal/PLSlotList.h"

namespace pellor {

std::vector<std::uint64_t> plRepeatedFriends(const PLSlotList& friends, const PLExceptions& exceptions) {
  const bool mayHaveRepeated =
      friends.people().sharedGUIDCount() != 0 || friends.people().places().repeatedPersonCount() != 0;
  if (!mayHaveRepeated && !areSkipsChecked()) return {};
  std::set<std::string> seen;
  std::map<std::string, std::uint64_t> times;
  std::vector<std::uint64_t> repeated;
  for (std::uint64_t index = 0; index < friends.count(); ++index) {
    const Slot& person = friends.at(index);
    const auto guid = person ? person->abRecordGUID() : std::nullopt;
    if (!guid || guid->empty()) continue;
    if (++times[*guid] <= exceptions.mostWithGUID(*guid)) {
      seen.insert(*guid);
      continue;
    }
    repeated.push_back(index);
    _PLGetLogSystem().log(
        LogFormat("deduplicating friend [%@] [ABGUID=%@] at index %lu as it is already present in the set of friend "
                  "ABGUIDs analyzed so far: %@")
            .as("_deduplicateFriendListIfNecessary"),
        redactable(person->displayName()), redactable(guid), index, redactable(seen));
  }
  require(mayHaveRepeated || repeated.empty(), "nobody twice in a list that is not deduplicated");
  return repeated;
}

std::vector<std::uint64_t> plDestinationlessFriends(const PLSlotList& friends, const PLExceptions& exceptions) {
  const bool mayHaveUnreachable = friends.people().destinationlessPersonCount() != 0;
  if (!mayHaveUnreachable && !areSkipsChecked()) return {};
  std::vector<std::uint64_t> unreachable;
  for (std::uint64_t index = 0; index < friends.count(); ++index) {
    const Slot& person = friends.at(index);
    if (!person || person->allValuesCount() != 0) continue;
    if (exceptions.keepWithoutDestinations(person->abRecordGUID().value_or(""),
                                           person->record().text(PLPersonRecord::_name).value_or("")))
      continue;
    unreachable.push_back(index);
    _PLGetLogSystem().log(LogFormat("culling friend [%@] [ABGUID=%@] since its destination set has become empty")
                              .as("_removeDestinationlessFriendsIfNecessary"),
                          redactable(person->displayName()), redactable(person->abRecordGUID()));
  }
  require(mayHaveUnreachable || unreachable.empty(), "destinations of everybody in a list that is not culled");
  return unreachable;
}

}  // namespace pellor
