// Loading a list again: unchanged, changed in one place, and rearranged by another process.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "bench/Friends.h"
#include "bench/Kept.h"
#include "bench/Stopwatch.h"
#include "bench/StoredList.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/linux/sqlite/SQLiteDatabase.h"
#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/LongArray.h"

namespace pellor::bench {
namespace {

/// A process with a loaded list, whose store other processes write without telling it.
class SharedList {
 public:
  explicit SharedList(std::size_t size) : _stored(size), _elements(storedList(0, size)), _process(_stored.folders()) {
    const auto scope = _process.enter();
    _process.load();
    _process.settle();
  }

  const Array& elements() const { return _elements; }
  ListProcess& process() { return _process; }
  std::filesystem::path storeFile() const { return _stored.folders().data / "preferences.sqlite"; }

  /// Lets another process write a list.
  void write(const Array& elements) { _stored.write(PLFriendListKey, LongArray(elements)); }

  /// Lets another process change the friend in the middle of the list.
  void changeOneFriend() {
    editElsewhere([this](PLFriendsManager& manager) { change(manager, manager.friendGroups().size() / 2); });
  }

  /// Changes a friend further up in this process. That is not stored before it comes to rest.
  void changeOneFriendHere() {
    const auto scope = _process.enter();
    change(_process.manager(), _process.manager().friendGroups().size() / 3);
  }

  /// Lets another process remove the first page.
  void removeFirstPage() {
    editElsewhere([](PLFriendsManager& manager) {
      emptyFirstPage(manager);
      manager.purgeEmptyFriendGroups();
    });
  }

  /// Removes the first page in this process.
  void removeFirstPageHere() {
    const auto scope = _process.enter();
    emptyFirstPage(_process.manager());
    _process.manager().purgeEmptyFriendGroups();
  }

  /// Lets another process write a list and this one take it over: the state in which a benchmark begins.
  void become(const Array& elements) {
    const auto scope = _process.enter();
    write(elements);
    reload();
    _process.settle();
  }

  void timeReload(benchmark::State& state) {
    const auto scope = _process.enter();
    const std::uint64_t before = _process.notifications();
    time(state, [this] { reload(); });
    state.counters["notifications"] = static_cast<double>(_process.notifications() - before);
    _process.settle();
  }

  void reload() {
    _process.manager().reloadFriendList();
    _process.drain();
  }

 private:
  /// A process that posts its changes under a name that nobody listens to.
  struct Editor {
    explicit Editor(std::size_t, StoredList& stored) : process(stored.folders()) {
      const auto scope = process.enter();
      stored.write(PLFriendsChangedExternallyNotificationKey, "org.tapnote.bench.nobody");
      process.load();
      stored.write(PLFriendsChangedExternallyNotificationKey, std::string(PLFriendsChangedExternallyNotification));
      process.settle();
    }
    ListProcess process;
  };

  template <class Edit>
  void editElsewhere(const Edit& edit) {
    ListProcess& editor = kept<Editor>(_stored.size(), _stored).process;
    const auto scope = editor.enter();
    editor.manager().reloadFriendList();
    edit(editor.manager());
    editor.settle();
  }

  void change(PLFriendsManager& manager, std::size_t page) {
    manager.friendGroups()[page]->friendAtPosition(5)->setPreferredReplyAs("edition " + std::to_string(++_edition));
  }

  static void emptyFirstPage(PLFriendsManager& manager) {
    const auto page = manager.friendGroups().front();
    for (std::uint64_t position = 0; position < page->groupSize(); ++position) page->removeFriendAtPosition(position);
  }

  StoredList _stored;
  const Array _elements;
  ListProcess _process;
  std::uint64_t _edition = 0;
};

SharedList& listFor(const benchmark::State& state) {
  return kept<SharedList>(static_cast<std::size_t>(state.range(0)));
}

/// The store as another connection sees it.
class StoreWatch {
 public:
  explicit StoreWatch(const SharedList& list)
      : _database(list.storeFile(), SQLiteDatabase::Access::readOnly, 5),
        _query(_database.prepare("PRAGMA data_version")) {}

  /// Another number after each commit.
  std::int64_t dataVersion() {
    _query.step();
    const std::int64_t version = _query.integer(0);
    _query.reset();
    return version;
  }

 private:
  SQLiteDatabase _database;
  SQLiteStatement _query;
};

void reloadUnchanged(benchmark::State& state) {
  SharedList& list = listFor(state);
  list.become(list.elements());
  StoreWatch watch(list);
  const auto scope = list.process().enter();
  const std::uint64_t notifications = list.process().notifications();
  const std::int64_t version = watch.dataVersion();
  for (auto _ : state) list.reload();
  list.process().settle();
  state.counters["notifications"] = static_cast<double>(list.process().notifications() - notifications);
  state.counters["writes"] = static_cast<double>(watch.dataVersion() - version);
}
BENCHMARK(reloadUnchanged)->Arg(240)->Iterations(200);
BENCHMARK(reloadUnchanged)->Arg(24'000)->Iterations(3);
BENCHMARK(reloadUnchanged)->Arg(240'000)->Iterations(3);

// The yardstick: the question that has to be asked.
void dataVersion(benchmark::State& state) {
  StoreWatch watch(listFor(state));
  for (auto _ : state) benchmark::DoNotOptimize(watch.dataVersion());
}
BENCHMARK(dataVersion)->Arg(240)->Iterations(20'000);
BENCHMARK(dataVersion)->Arg(24'000)->Iterations(20'000);
BENCHMARK(dataVersion)->Arg(240'000)->Iterations(20'000);

void reloadOneChanged(benchmark::State& state) {
  SharedList& list = listFor(state);
  list.become(list.elements());
  for (auto _ : state) {
    list.changeOneFriend();
    list.timeReload(state);
  }
}
BENCHMARK(reloadOneChanged)->Arg(240)->Iterations(20)->UseManualTime();
BENCHMARK(reloadOneChanged)->Arg(24'000)->Iterations(2)->UseManualTime();
BENCHMARK(reloadOneChanged)->Arg(240'000)->Iterations(1)->UseManualTime();

// Times the load of a list that another process has written since this one edited it: `edit` does both, each time on
// the list as it was.
void timeMerges(benchmark::State& state, void (*edit)(SharedList&)) {
  SharedList& list = listFor(state);
  for (auto _ : state) {
    list.become(list.elements());
    edit(list);
    StoreWatch watch(list);
    const std::int64_t version = watch.dataVersion();
    list.timeReload(state);
    require(watch.dataVersion() != version, "an edit that was not stored before");
  }
}

void mergeOneChanged(benchmark::State& state) {
  timeMerges(state, [](SharedList& list) {
    list.changeOneFriend();
    list.changeOneFriendHere();
  });
}
BENCHMARK(mergeOneChanged)->Arg(24'000)->Iterations(2)->UseManualTime();
BENCHMARK(mergeOneChanged)->Arg(240'000)->Iterations(1)->UseManualTime();

// All pages behind the first one are shifted.
void mergePageRemoved(benchmark::State& state) {
  timeMerges(state, [](SharedList& list) {
    list.removeFirstPage();
    list.changeOneFriendHere();
  });
}
BENCHMARK(mergePageRemoved)->Arg(24'000)->Iterations(1)->UseManualTime();
BENCHMARK(mergePageRemoved)->Arg(240'000)->Iterations(1)->UseManualTime();

void mergePageRemovedHere(benchmark::State& state) {
  timeMerges(state, [](SharedList& list) {
    list.changeOneFriend();
    list.removeFirstPageHere();
    // By then the save that this asks for was overtaken, and a load waits on the main queue.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  });
}
BENCHMARK(mergePageRemovedHere)->Arg(24'000)->Iterations(1)->UseManualTime();
BENCHMARK(mergePageRemovedHere)->Arg(240'000)->Iterations(1)->UseManualTime();

void reloadReversed(benchmark::State& state) {
  SharedList& list = listFor(state);
  list.become(list.elements());
  Array now = list.elements();
  Array next(now.rbegin(), now.rend());
  for (auto _ : state) {
    now.swap(next);
    list.write(now);
    list.timeReload(state);
  }
}
BENCHMARK(reloadReversed)->Arg(240)->Iterations(20)->UseManualTime();
BENCHMARK(reloadReversed)->Arg(24'000)->Iterations(1)->UseManualTime();
BENCHMARK(reloadReversed)->Arg(240'000)->Iterations(1)->UseManualTime();

// A tenth of the list goes, as many others come, and all are in another order.
Array shuffledWithNewPeople(const Array& elements) {
  std::vector<std::size_t> numbers(elements.size());
  std::iota(numbers.begin(), numbers.end(), elements.size() / 10);
  std::ranges::shuffle(numbers, std::mt19937_64(elements.size()));
  Array result;
  for (const std::size_t number : numbers) result.emplace_back(storedForm(personAt(number), number));
  return result;
}

void reloadShuffled(benchmark::State& state) {
  SharedList& list = listFor(state);
  list.become(list.elements());
  Array now = list.elements();
  Array next = shuffledWithNewPeople(now);
  for (auto _ : state) {
    now.swap(next);
    list.write(now);
    list.timeReload(state);
  }
}
BENCHMARK(reloadShuffled)->Arg(240)->Iterations(20)->UseManualTime();
BENCHMARK(reloadShuffled)->Arg(24'000)->Iterations(1)->UseManualTime();
BENCHMARK(reloadShuffled)->Arg(240'000)->Iterations(1)->UseManualTime();

}  // namespace
}  // namespace pellor::bench
