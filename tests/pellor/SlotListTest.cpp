// The slot list and its versions, checked against a plain vector.
#include "Pellor/PLSlotList.h"

#include <algorithm>
#include <random>

#include "Pellor/PLPerson.h"
#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

std::vector<Slot> contentOf(const PLSlotSnapshot& snapshot) {
  std::vector<Slot> content;
  snapshot.forEach([&](const Slot& slot) { content.push_back(slot); });
  EXPECT_EQ(content.size(), snapshot.count());
  return content;
}

class SlotListTest : public ManagerTest {
 protected:
  SlotListTest() : process(makeProcess()), scope(process->process()) {}

  static std::shared_ptr<PLPerson> person(const std::string& name) {
    return PLPerson::initWithDictionaryRepresentationAddressBook(storedForm(name), nullptr);
  }

  std::unique_ptr<ManagerProcess> process;
  Process::Scope scope;
};

void expectSame(const PLSlotList& list, const std::vector<Slot>& model) {
  ASSERT_EQ(list.count(), model.size());
  ASSERT_EQ(list.occupiedCount(), model.size() - static_cast<std::size_t>(std::ranges::count(model, EmptySlot)));
  const auto firstEmpty = static_cast<std::uint64_t>(std::ranges::find(model, EmptySlot) - model.begin());
  ASSERT_EQ(list.firstEmptyIndex().value_or(model.size()), firstEmpty);
  for (std::uint64_t index = 0; index < model.size(); ++index) ASSERT_EQ(list.at(index), model[index]);
}

TEST_F(SlotListTest, RandomEditsGiveWhatAVectorGivesAndVersionsStay) {
  std::mt19937 random(7);
  std::vector<std::shared_ptr<PLPerson>> people{EmptySlot, EmptySlot};
  for (int number = 0; number < 20; ++number) people.push_back(person("P" + std::to_string(number)));
  PLSlotList list;
  std::vector<Slot> model;
  std::vector<std::pair<PLSlotSnapshot, std::vector<Slot>>> versions;
  for (int edit = 0; edit < 4000; ++edit) {
    const Slot slot = people[random() % people.size()];
    const std::uint64_t index = model.empty() ? 0 : random() % model.size();
    const std::uint64_t version = list.version();
    const auto before = model;
    switch (random() % 8) {
      case 0: {
        const std::uint64_t count = random() % 40;
        list.remove(index, count);
        const auto first = model.begin() + static_cast<std::ptrdiff_t>(index);
        model.erase(first, first + static_cast<std::ptrdiff_t>(std::min<std::uint64_t>(count, model.size() - index)));
        break;
      }
      case 1:
      case 2:
      case 3:
        for (std::uint64_t count = random() % 60; count > 0; --count) {
          list.append(slot);
          model.push_back(slot);
        }
        break;
      default:
        if (!model.empty()) list.set(index, model[index] = slot);
    }
    EXPECT_EQ(list.version() > version, model != before);
    if (edit % 16 == 0) {
      expectSame(list, model);
      const auto& sought = people[2 + random() % 20];
      const auto found = list.indexOf(sought.get(), index);
      const auto expected =
          std::find(model.begin() + static_cast<std::ptrdiff_t>(std::min(index, model.size())), model.end(), sought);
      EXPECT_EQ(found.value_or(model.size()), static_cast<std::uint64_t>(expected - model.begin()));
      versions.emplace_back(list.snapshot(), model);
    }
    if (edit % 500 == 499) list.clear(), model.clear();
  }
  for (const auto& [snapshot, content] : versions) EXPECT_EQ(contentOf(snapshot), content);
}

TEST_F(SlotListTest, FriendsAreFoundByWhatTheyAreNow) {
  PLSlotList list;
  const auto ann = person("Ann");
  for (const Slot& slot : {EmptySlot, person("Bob#"), ann, person("Ann"), ann}) list.append(slot);
  EXPECT_EQ(list.firstDescribedBy(storedForm("Ann"), 0), 2U);
  EXPECT_EQ(list.firstDescribedBy(storedForm("Ann"), 3), 3U);
  EXPECT_EQ(list.firstDescribedBy(storedForm("Ann"), 4), 4U);
  EXPECT_EQ(list.firstDescribedBy(storedForm("Ann"), 5), std::nullopt);
  EXPECT_EQ(list.firstDescribedBy(storedForm("Ann#"), 0), std::nullopt) << "a GUID on one side alone";
  EXPECT_EQ(list.firstDescribedBy(storedForm("Bob#"), 0), 1U);
  EXPECT_EQ(list.firstLike(*person("Ann#")), ann) << "who shares a destination";
  auto form = storedForm("Cy");
  form.insert_or_assign("ABRecordGUID", "");
  ann->updateFromDictionaryRepresentation(form);
  EXPECT_EQ(list.firstDescribedBy(storedForm("Ann"), 0), 3U);
  EXPECT_EQ(list.firstDescribedBy(storedForm("Cy"), 0), 2U) << "an empty GUID is none";
  list.set(2, EmptySlot);
  EXPECT_EQ(list.firstDescribedBy(storedForm("Cy"), 0), 4U);
  list.remove(3, 2);
  EXPECT_EQ(list.firstDescribedBy(storedForm("Cy"), 0), std::nullopt);
  EXPECT_EQ(list.firstLike(*ann), nullptr);
}

}  // namespace
}  // namespace pellor
