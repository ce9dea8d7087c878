// Looking friends up.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "bench/Friends.h"
#include "bench/Kept.h"
#include "bench/Memo.h"
#include "bench/StoredList.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLPerson.h"

namespace pellor::bench {
namespace {

/// A loaded list and what is asked of it, in an order that no cache foresees.
struct AskedList {
  explicit AskedList(std::size_t size) : stored(size), process(stored.folders()) {
    const auto scope = process.enter();
    process.load();
    process.settle();
    std::mt19937_64 random(size);
    for (const auto& page : process.manager().friendGroups()) {
      for (const auto& person : page->friends()) {
        if (!person) continue;
        persons.push_back(person);
        const auto values = person->allValues();
        for (const std::string& destination : *values) destinations.push_back({destination});
      }
    }
    std::ranges::shuffle(persons, random);
    std::ranges::shuffle(destinations, random);
    for (const auto& person : persons) guids.push_back(person->abRecordGUID());
    for (const auto& destination : destinations) {
      keys.push_back(destination.front());
      map.emplace(keys.back(), this);
    }
  }

  const StoredList stored;
  ListProcess process;
  std::vector<std::shared_ptr<PLPerson>> persons;
  std::vector<std::optional<std::string>> guids;
  std::vector<std::vector<std::string>> destinations;
  std::vector<std::string> keys;  ///< these destinations, side by side
  std::unordered_map<std::string, void*> map;
};

/// Times `look(list, question)` with the questions of the list in turn.
template <class Questions, class Look>
void ask(benchmark::State& state, Questions questions, Look look) {
  auto& list = kept<AskedList>(static_cast<std::size_t>(state.range(0)));
  const auto scope = list.process.enter();
  const auto& asked = list.*questions;
  std::size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(look(list, asked[next]));
    if (++next == asked.size()) next = 0;
  }
}

void personWithDestinations(benchmark::State& state) {
  ask(state, &AskedList::destinations, [](AskedList& list, const std::vector<std::string>& destinations) {
    return list.process.manager().personWithDestinations(destinations);
  });
}

void positionOfFriendInGroup(benchmark::State& state) {
  ask(state, &AskedList::persons, [](AskedList& list, const std::shared_ptr<PLPerson>& person) {
    return list.process.manager().positionOfFriendInGroup(person);
  });
}

void groupIndexContainingFriend(benchmark::State& state) {
  ask(state, &AskedList::persons, [](AskedList& list, const std::shared_ptr<PLPerson>& person) {
    return list.process.manager().groupIndexContainingFriend(person);
  });
}

void isPersonFriend(benchmark::State& state) {
  ask(state, &AskedList::persons, [](AskedList& list, const std::shared_ptr<PLPerson>& person) {
    return list.process.manager().isPersonFriend(person);
  });
}

void containsFriendWithABRecordGUID(benchmark::State& state) {
  ask(state, &AskedList::guids, [](AskedList& list, const std::optional<std::string>& guid) {
    return list.process.manager().containsFriendWithABRecordGUID(guid);
  });
}

// The yardsticks.
void mapHit(benchmark::State& state) {
  ask(state, &AskedList::keys, [](AskedList& list, const std::string& key) { return list.map.find(key)->second; });
}

BENCHMARK(memoHit)->MinTime(0.05);

void allSizes(benchmark::internal::Benchmark* benchmark) {
  for (const int size : {240, 24'000, 240'000}) benchmark->Arg(size);
  benchmark->MinTime(0.05);
}
BENCHMARK(personWithDestinations)->Apply(allSizes);
BENCHMARK(positionOfFriendInGroup)->Apply(allSizes);
BENCHMARK(groupIndexContainingFriend)->Apply(allSizes);
BENCHMARK(isPersonFriend)->Apply(allSizes);
BENCHMARK(containsFriendWithABRecordGUID)->Apply(allSizes);
BENCHMARK(mapHit)->Apply(allSizes);

}  // namespace
}  // namespace pellor::bench
