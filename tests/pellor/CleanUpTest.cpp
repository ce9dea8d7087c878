// Which friends a clean-up takes out, without a manager.
#include "pellor/friends/internal/PLCleanUp.h"

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLAttachedArrays.h"
#include "pellor/friends/internal/PLExceptions.h"
#include "pellor/friends/internal/PLSlotList.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class CleanUpTest : public OneProcess {
 protected:
  /// A friend with that record, absent for none, and those addresses.
  void append(const std::optional<std::string>& guid, const std::vector<std::string>& addresses) {
    Dictionary form{{"Name", "Ann"}, {"AllValues", Array(addresses.begin(), addresses.end())}};
    if (guid) form.emplace("ABRecordGUID", *guid);
    list.append(PLPerson::initWithDictionaryRepresentationAddressBook(form, nullptr));
  }

  PLSlotList list;
  PLAttachedArrays arrays;
  PLExceptions exceptions{list, arrays};
};

TEST_F(CleanUpTest, OfFriendsWithOneRecordTheFirstStays) {
  append("ann", {"1"});
  append(std::nullopt, {"1"});
  append("bob", {"1"});
  list.append(EmptySlot);
  append("ann", {"2"});
  append(std::nullopt, {"1"});
  append("", {"1"});
  append("", {"1"});
  append("ann", {});
  EXPECT_THAT(plRepeatedFriends(list, exceptions), ElementsAre(4, 8))
      << "an empty identifier is none, a number may be shared";
  EXPECT_EQ(log->count("deduplicating friend "), 2U);

  list.set(4, EmptySlot);
  list.set(8, list.at(2));
  EXPECT_THAT(plRepeatedFriends(list, exceptions), ElementsAre(8)) << "one person in two slots";
  list.set(8, list.at(1));
  EXPECT_THAT(plRepeatedFriends(list, exceptions), IsEmpty()) << "nothing tells it from another of that number";
}

TEST_F(CleanUpTest, FriendsWithoutADestinationAreFoundWhereverTheyAre) {
  append("ann", {});
  append("bob", {"1"});
  list.append(EmptySlot);
  append(std::nullopt, {});
  append("cid", {"2", "3"});
  EXPECT_THAT(plDestinationlessFriends(list, exceptions), ElementsAre(0, 3));
  EXPECT_EQ(log->count("culling friend "), 2U);
  list.set(0, EmptySlot);
  list.set(3, EmptySlot);
  EXPECT_THAT(plDestinationlessFriends(list, exceptions), IsEmpty());
}

}  // namespace
}  // namespace pellor
