// One edit: a friend is put into an empty slot in the middle of the list.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <optional>
#include <sstream>
#include <string>

#include "bench/BusNames.h"
#include "bench/ChildProgram.h"
#include "bench/Friends.h"
#include "bench/Kept.h"
#include "bench/Stopwatch.h"
#include "bench/StoredList.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/linux/notify/NotifyFolder.h"
#include "pellor/linux/sqlite/SQLiteDatabase.h"
#include "pellor/list/FriendList.h"
#include "pellor/runtime/Fatal.h"

namespace pellor::bench {
namespace {

constexpr std::uint64_t Slot = 5;

/// A process that edits the list.
class EditedList {
 public:
  explicit EditedList(std::size_t size) : _stored(size), _process(_stored.folders()) {
    const auto scope = _process.enter();
    _process.load();
    _process.settle();
  }

  ListProcess& process() { return _process; }
  const StoredList& stored() const { return _stored; }

  /// Empties a slot of a page in the middle, and comes to rest.
  void makeRoom() {
    page().removeFriendAtPosition(Slot);
    _process.settle();
  }

  std::shared_ptr<PLPerson> newPerson() {
    const Person person = personAt(FirstNewPerson + _added++);
    return _process.manager().personWithDestinations({person.phones.front(), person.addresses.front()});
  }

  /// The slot in the middle.
  Place place() { return {_process.manager().friendGroups().size() / 2, Slot}; }
  void put(const std::shared_ptr<PLPerson>& person) {
    std::uint32_t error = 0;
    page().setFriendAtPosition(person, Slot, error);
    require(error == PLFriendGroupErrorNone, "a slot in the middle");
  }

 private:
  static constexpr std::size_t FirstNewPerson = 1'000'000;

  PLFriendGroup& page() {
    const auto& pages = _process.manager().friendGroups();
    return *pages[pages.size() / 2];
  }

  const StoredList _stored;
  ListProcess _process;
  std::size_t _added = 0;
};

EditedList& listFor(const benchmark::State& state) {
  return kept<EditedList>(static_cast<std::size_t>(state.range(0)));
}

void editToDisk(benchmark::State& state) {
  EditedList& list = listFor(state);
  const auto scope = list.process().enter();
  for (auto _ : state) {
    list.makeRoom();
    const auto person = list.newPerson();
    time(state, [&] {
      list.put(person);
      list.process().settle();
    });
  }
}
BENCHMARK(editToDisk)->Arg(240)->Iterations(50)->UseManualTime();
BENCHMARK(editToDisk)->Arg(24'000)->Iterations(5)->UseManualTime();
BENCHMARK(editToDisk)->Arg(240'000)->Iterations(2)->UseManualTime();

/// A list that an app shows: each version is made, and each batch of changes told.
class FollowedList : public EditedList {
 public:
  explicit FollowedList(std::size_t size) : EditedList(size) {
    const auto scope = process().enter();
    _list = FriendList::open(process().shared());
    _observation = _list->observe({.changed = [this](const ListChange& change) { _told += change.added.size(); }});
    process().settle();
  }
  ~FollowedList() {
    const auto scope = process().enter();
    _observation.reset();
    _list.reset();
  }

  std::size_t told() const { return _told; }
  FriendList& face() { return *_list; }

  /// Makes as many steps as the history holds, as it does of a list that is in use.
  void fillHistory() {
    for (std::size_t steps = _list->history().size(); steps < FullHistory; ++steps) {
      const PageId page = _list->snapshot().page(0).id;
      require(static_cast<bool>(_list->apply(RenamePage{page, std::to_string(steps)})), "a title");
      process().settle();
    }
  }

 private:
  static constexpr std::size_t FullHistory = 100;

  std::unique_ptr<FriendList> _list;
  std::shared_ptr<Observation> _observation;
  std::size_t _told = 0;
};

void editToDiskFollowed(benchmark::State& state) {
  auto& list = kept<FollowedList>(static_cast<std::size_t>(state.range(0)));
  const auto scope = list.process().enter();
  for (auto _ : state) {
    list.makeRoom();
    const auto person = list.newPerson();
    const std::size_t told = list.told();
    time(state, [&] {
      list.put(person);
      list.process().settle();
    });
    require(list.told() == told + 1, "an app that was told of the edit");
  }
}
BENCHMARK(editToDiskFollowed)->Arg(240)->Iterations(50)->UseManualTime();
BENCHMARK(editToDiskFollowed)->Arg(24'000)->Iterations(5)->UseManualTime();
BENCHMARK(editToDiskFollowed)->Arg(240'000)->Iterations(2)->UseManualTime();

// The edit of `editToDisk` as a step of the face, of which the history tells.
void editToDiskAsStep(benchmark::State& state) {
  auto& list = kept<FollowedList>(static_cast<std::size_t>(state.range(0)));
  const auto scope = list.process().enter();
  list.fillHistory();
  for (auto _ : state) {
    list.makeRoom();
    const auto person = list.newPerson();
    const AddFriend step{.destination = *person->primaryDestination(), .to = list.place()};
    time(state, [&] {
      require(static_cast<bool>(list.face().apply(step)), "a free slot");
      list.process().settle();
    });
  }
}
BENCHMARK(editToDiskAsStep)->Arg(240)->Iterations(50)->UseManualTime();
BENCHMARK(editToDiskAsStep)->Arg(24'000)->Iterations(5)->UseManualTime();
BENCHMARK(editToDiskAsStep)->Arg(240'000)->Iterations(2)->UseManualTime();

/// A list of its own, and another process of its user that reports what it is told of.
class NotifiedList {
 public:
  explicit NotifiedList(std::size_t size)
      : _list(size), _listener({benchProgram("bench_listener"), "changes", _list.stored().home().string()}) {
    require(_listener.readLine() == "ready", "a listener that is ready");
  }

  EditedList& list() { return _list; }

  /// Does the edit, and waits until the listener was told of a list with that many friends. Gives how long that took.
  template <class Edit>
  std::chrono::duration<double> timeUntilToldOf(std::uint64_t friends, Edit edit) {
    const auto begin = Stopwatch::Clock::now();
    edit();
    _list.process().settle();
    return whenToldOf(friends) - begin;
  }

 private:
  Stopwatch::Clock::time_point whenToldOf(std::uint64_t friends) {
    std::int64_t time = 0;
    std::uint64_t count = 0;
    while (count != friends) std::istringstream(_listener.readLine()) >> time >> count;
    return Stopwatch::Clock::time_point(Stopwatch::Clock::duration(time));
  }

  EditedList _list;
  ChildProgram _listener;
};

void editToNotification(benchmark::State& state) {
  auto& notified = kept<NotifiedList>(static_cast<std::size_t>(state.range(0)));
  EditedList& list = notified.list();
  const auto scope = list.process().enter();
  const std::uint64_t friends = list.process().numberOfFriends();
  for (auto _ : state) {
    notified.timeUntilToldOf(friends - 1, [&list] { list.makeRoom(); });
    const auto person = list.newPerson();
    state.SetIterationTime(notified.timeUntilToldOf(friends, [&] { list.put(person); }).count());
  }
}
BENCHMARK(editToNotification)->Arg(240)->Iterations(50)->UseManualTime();
BENCHMARK(editToNotification)->Arg(24'000)->Iterations(3)->UseManualTime();
BENCHMARK(editToNotification)->Arg(240'000)->Iterations(1)->UseManualTime();

// The yardstick of both: one row that reaches the disk.
void commitOneRow(benchmark::State& state) {
  const WorkFolder folder;
  const auto file = folder.path() / "row.sqlite";
  ::close(::creat(file.c_str(), 0600));
  const SQLiteDatabase database(file, SQLiteDatabase::Access::readWrite, 5);
  database.execute("PRAGMA synchronous = FULL");
  database.execute("PRAGMA journal_mode = WAL");
  database.execute("CREATE TABLE rows (key INTEGER PRIMARY KEY, value BLOB NOT NULL)");
  SQLiteStatement statement = database.prepare("REPLACE INTO rows VALUES (1, ?1)");
  std::string value(200, 'x');
  for (auto _ : state) {
    ++value.front();
    statement.bind(1, value).run();
    statement.reset();
  }
}
BENCHMARK(commitOneRow)->Iterations(100)->UseRealTime();

// And half of this, the way of a message to the other process.
void busRoundTrip(benchmark::State& state) {
  const WorkFolder home;
  Process process;
  const Process::Scope scope(process);
  ChildProgram other({benchProgram("bench_listener"), "echo", home.path().string()});
  require(other.readLine() == "ready", "a listener that is ready");
  const auto bus = NotifyFolder::make(process, foldersOf(home.path()), LogHandle("bench", "bus", nullptr));
  bus->addObserver(
      &process, [&process] { process.mainQueue().stop(); }, Pong);
  for (auto _ : state) {
    bus->post(Ping);
    process.mainQueue().run();
  }
}
BENCHMARK(busRoundTrip)->Iterations(200)->UseRealTime();

}  // namespace
}  // namespace pellor::bench
