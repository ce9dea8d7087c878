#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/PLUtility.h"

namespace pellor {
namespace {

std::uint64_t cachedDestinationCount(std::int32_t recordID, AddressBook& addressBook, PersonValueCache& cache) {
  if (auto known = cache.find(recordID); known != cache.end()) return known->second;
  const auto values = PLPerson::allValuesForPerson(addressBook.personForRecordID(recordID));
  return cache[recordID] = values ? values->size() : 0;
}

bool isFriend(std::int32_t recordID, const PLFriendsManager& manager, AddressBook* addressBook) {
  const RecordRef record = addressBook ? addressBook->personForRecordID(recordID) : nullptr;
  return manager.containsFriendWithABRecordGUID(record ? std::optional(record->recordGUID()) : std::nullopt);
}

}  // namespace

bool PLUtility::shouldAllowAddingFriendWithRecordIDWithFriendListManagerAddressBookPersonValueCache(
    std::int32_t recordID, PLFriendsManager* manager, AddressBook* addressBook, PersonValueCache& cache) {
  if (manager && isFriend(recordID, *manager, addressBook)) return false;
  return !addressBook || cachedDestinationCount(recordID, *addressBook, cache) > 0;
}

}  // namespace pellor
