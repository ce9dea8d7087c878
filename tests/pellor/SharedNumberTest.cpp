// Friends who share one number, as a family does its line: what an edit of each costs.
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLIdentifierMap.h"
#include "pellor/friends/internal/PLSlotList.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

class SharedNumberTest : public OneProcess {
 protected:
  static constexpr const char* Number = "+49301234567";

  static std::shared_ptr<PLPerson> person(std::size_t number) {
    const Dictionary form{{"ABRecordGUID", "guid" + std::to_string(number)}, {"AllValues", Array{Number}}};
    return PLPerson::initWithDictionaryRepresentationAddressBook(form, nullptr);
  }

  /// How many friends are looked at while all of them leave one after the other, as their pages are emptied.
  static std::size_t stepsOfRemoving(std::size_t count) {
    PLSlotList list;
    PLIdentifierMap map{list.people()};
    for (std::size_t number = 0; number < count; ++number) list.append(person(number));
    map.rebuild({});
    const std::size_t before = list.people().stepCount();
    for (std::size_t index = 0; index < count; ++index) {
      const Slot removed = list.at(index);
      list.set(index, EmptySlot);
      map.remove(*removed);
    }
    EXPECT_FALSE(list.people().containsIdentifier(Number));
    EXPECT_EQ(map.personFor(Number), nullptr);
    return list.people().stepCount() - before;
  }
};

TEST_F(SharedNumberTest, RemovingAllWhoShareOneLooksAtEachAFewTimes) {
  for (const std::size_t count : {100U, 2'000U, 4'000U}) EXPECT_LE(stepsOfRemoving(count), 4 * count);
}

}  // namespace
}  // namespace pellor
