#include "pellor/list/ExportedList.h"

#include <algorithm>
#include <array>

#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/detail/PLPersonForm.h"

namespace pellor {
namespace {

static_assert(ExportedList::LargestPageSize == std::uint64_t{PLLargestGroupSize});

constexpr std::array OwnKeys = {
    PLPersonRecordIDKey,  PLPersonRecordGUIDKey, PLPersonDatabaseUIDKey,          PLPersonNameKey,
    PLPersonAllValuesKey, PLPersonReplyAsKey,    PLPersonPreferredDestinationKey, PLPersonMonogramKey,
    PLPersonMetadataKey,
};

}  // namespace

bool isOtherEntry(std::string_view key) { return std::ranges::find(OwnKeys, key) == OwnKeys.end(); }

}  // namespace pellor
