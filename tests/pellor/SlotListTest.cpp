// The slot list, its versions, its index and the identifier map, checked against plain vectors and maps.
#include "pellor/friends/internal/PLSlotList.h"

#include <algorithm>
#include <map>
#include <random>
#include <utility>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/detail/PLPersonForm.h"
#include "pellor/friends/internal/PLIdentifierMap.h"
#include "tests/pellor/OneProcess.h"
#include "tests/pellor/PlainIdentifierMap.h"

namespace pellor {
namespace {

std::vector<Slot> contentOf(const PLSlotSnapshot& snapshot) {
  std::vector<Slot> content;
  snapshot.forEach([&](const Slot& slot) { content.push_back(slot); });
  EXPECT_EQ(content.size(), snapshot.count());
  return content;
}

using SlotListTest = OneProcess;

void expectSame(const PLSlotList& list, const std::vector<Slot>& model) {
  ASSERT_EQ(list.count(), model.size());
  ASSERT_EQ(list.occupiedCount(), model.size() - static_cast<std::size_t>(std::ranges::count(model, EmptySlot)));
  const auto firstEmpty = static_cast<std::uint64_t>(std::ranges::find(model, EmptySlot) - model.begin());
  ASSERT_EQ(list.firstEmptyIndex().value_or(model.size()), firstEmpty);
  for (std::uint64_t index = 0; index < model.size(); ++index) ASSERT_EQ(list.at(index), model[index]);
}

std::vector<std::uint64_t> differingChunks(const PLSlotSnapshot& later, const PLSlotSnapshot& earlier) {
  std::vector<std::uint64_t> chunks;
  later.forEachDifferingChunk(earlier, [&](std::uint64_t chunk) { chunks.push_back(chunk); });
  return chunks;
}

// The chunks that are not named are there in both, with the same slots.
void expectDifference(const PLSlotSnapshot& later, const PLSlotSnapshot& earlier) {
  const auto differing = differingChunks(later, earlier);
  ASSERT_TRUE(std::ranges::is_sorted(differing));
  for (std::uint64_t chunk = 0; chunk < later.chunkCount(); ++chunk) {
    if (std::ranges::binary_search(differing, chunk)) continue;
    ASSERT_LT(chunk, earlier.chunkCount());
    ASSERT_TRUE(std::ranges::equal(later.chunk(chunk), earlier.chunk(chunk)));
  }
}

TEST_F(SlotListTest, RandomEditsGiveWhatAVectorGivesAndVersionsStay) {
  std::mt19937 random(7);
  std::vector<std::shared_ptr<PLPerson>> people{EmptySlot, EmptySlot};
  while (people.size() < 22) people.push_back(PLPerson::init());
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
      case 1: {
        const std::uint64_t count = random() % 40;
        list.insert(index, count);
        model.insert(model.begin() + static_cast<std::ptrdiff_t>(index), count, EmptySlot);
        break;
      }
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
  for (std::size_t later = 1; later < versions.size(); ++later) {
    expectDifference(versions[later].first, versions[later - 1].first);
  }
}

using Keys = std::pair<std::size_t, std::size_t>;  // of persons, and identifiers of each kind

// The index and the identifier map have to answer what walking the slots gives.
class IndexTest : public OneProcess, public ::testing::WithParamInterface<Keys> {
 protected:
  IndexTest() {
    for (std::size_t number = 0; number < GetParam().first; ++number) {
      // Every eighth has destinations as somebody typed them.
      const std::vector<std::string> typed{"mailto:" + identifier("d"), "mailto:" + identifier("d")};
      people.push_back(number % 8 != 0 ? PLPerson::initWithDictionaryRepresentationAddressBook(form(), nullptr)
                                       : PLPerson::initWithDestinationsAddressBook(typed, nullptr));
    }
  }

  std::string identifier(const std::string& kind) {
    return kind + std::to_string(random() % GetParam().second) + "@example.org";
  }
  // GUIDs and destinations now and then have one text.
  Dictionary form() {
    Array values;
    for (auto count = random() % 4; count > 0; --count) values.emplace_back(identifier("d"));
    Dictionary form{{"AllValues", std::move(values)}};
    const auto kind = random() % 8;
    if (kind > 2) form.emplace("ABRecordGUID", kind == 3 ? "" : identifier(kind == 4 ? "d" : "g"));
    return form;
  }

  // One change of the list or of a person.
  void edit(bool isLoading) {
    // What a load brings in is in canonical form.
    auto number = random() % people.size();
    if (isLoading && number % 8 == 0) number = 1;
    const Slot person = random() % 4 == 0 ? EmptySlot : people[number];
    const std::uint64_t index = slots.empty() ? 0 : random() % slots.size();
    const auto kind = random() % 16;
    if (slots.size() < GetParam().first || kind < 2) {
      list.append(person);
      slots.push_back(person);
    } else if (kind == 2) {
      const auto count = static_cast<std::ptrdiff_t>(std::min<std::size_t>(random() % 12, slots.size() - index));
      list.remove(index, static_cast<std::uint64_t>(count));
      const auto first = slots.begin() + static_cast<std::ptrdiff_t>(index);
      slots.erase(first, first + count);
    } else if (kind < 6) {
      people[random() % people.size()]->updateFromDictionaryRepresentation(form());
    } else {
      list.set(index, slots[index] = person);
    }
  }

  void changeMap() {
    const auto& person = people[random() % people.size()];
    switch (random() % 3) {
      case 0:
        map.remove(*person);
        return plainMap.erase(*person);
      case 1:
        sourced.append(person);
        plainSourced.push_back(person);
        map.add(person);
        return plainMap.enter({person});
      default:
        map.beginRebuild();
        for (auto edits = random() % 20; edits > 0; --edits) edit(true);
        map.rebuild(sourced);
        plainMap.clear();
        plainMap.enter(slots);
        plainMap.enter(plainSourced);
    }
  }

  std::optional<std::uint64_t> first(std::uint64_t from, const auto& fits) const {
    for (; from < slots.size(); ++from) {
      if (slots[from] && fits(*slots[from])) return from;
    }
    return std::nullopt;
  }

  void check() {
    const Dictionary sought = form();
    const std::uint64_t from = random() % 3 == 0 ? random() % (slots.size() + 1) : 0;
    const auto described = first(from, [&](auto& who) { return who.isEqualToDictionaryRepresentation(sought); });
    ASSERT_EQ(list.firstDescribedBy(PLPersonForm(sought), from), described);
    const auto& person = people[random() % people.size()];
    const auto like = first(0, [&](const PLPerson& who) { return who.isLike(*person); });
    ASSERT_EQ(list.firstLike(*person), like ? slots[*like] : nullptr);
    const auto last = std::find(slots.rbegin(), slots.rend(), person);
    ASSERT_EQ(list.lastIndexOf(person.get()).value_or(-1), static_cast<std::uint64_t>(slots.rend() - last - 1));
    checkCounts();
    const std::string key = identifier(random() % 2 == 0 ? "d" : "g");
    ASSERT_EQ(map.personFor(key), plainMap.firstOf([&](const std::string& other) { return other == key; })) << key;
    ASSERT_EQ(map.allPersons(), plainMap.persons());
  }

  void checkCounts() {
    std::map<PLPerson*, std::size_t> places;
    std::map<std::string, std::size_t> guids;
    for (const Slot& slot : slots) {
      if (!slot || ++places[slot.get()] > 1) continue;
      if (const std::string guid = slot->abRecordGUID().value_or(""); !guid.empty()) ++guids[guid];
    }
    const auto isSeveral = [](const auto& entry) { return entry.second > 1; };
    const auto count = [](auto number) { return static_cast<std::size_t>(number); };
    ASSERT_EQ(list.people().sharedGUIDCount(), count(std::ranges::count_if(guids, isSeveral)));
    ASSERT_EQ(list.people().places().repeatedPersonCount(), count(std::ranges::count_if(places, isSeveral)));
    ASSERT_EQ(list.people().destinationlessPersonCount(),
              count(std::ranges::count_if(places, [](auto& entry) { return entry.first->allValuesCount() == 0; })));
  }

  std::mt19937 random{11};
  std::vector<std::shared_ptr<PLPerson>> people;
  PLSlotList list;
  PLPersonSequence sourced;
  PLIdentifierMap map{list.people()};
  std::vector<Slot> slots, plainSourced;
  PlainIdentifierMap plainMap;
};

TEST_P(IndexTest, AnswersWhatAWalkGives) {
  for (int round = 0; round < 3000 && !HasFatalFailure(); ++round) {
    random() % 8 == 0 ? changeMap() : edit(false);
    check();
    if (round % 1000 != 999) continue;
    list.clear();
    slots.clear();
  }
}

// Everybody shares them, few do, many share one, and tables that grow.
INSTANTIATE_TEST_SUITE_P(Sharing, IndexTest, ::testing::Values(Keys(6, 3), Keys(12, 24), Keys(150, 3), Keys(150, 600)));

// Friends who share one number, as a family does its line: what an edit of each costs.
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
