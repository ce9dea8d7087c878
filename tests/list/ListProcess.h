// Processes with a list, what an app does in them, and what an observer of them heard.
#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "pellor/list/FriendList.h"
#include "tests/list/ListCopy.h"
#include "tests/list/ListTexts.h"
#include "tests/pellor/ManagerWorld.h"

namespace pellor {

/// A process with the list of its manager, and what an observer of it heard.
class ListProcess {
 public:
  explicit ListProcess(std::unique_ptr<ManagerProcess> process) : _process(std::move(process)) {
    _process->run([&] { _list = FriendList::open(_process->sharedManager(), "test"); });
    observe();
  }
  ~ListProcess() {
    _process->run([&] {
      _observation.reset();
      _list.reset();
    });
  }
  ListProcess(const ListProcess&) = delete;
  ListProcess& operator=(const ListProcess&) = delete;

  ManagerProcess& process() { return *_process; }
  FriendList& list() { return *_list; }
  template <class Work>
  auto run(Work&& work) {
    return _process->run(work);
  }
  /// Ends the process on the spot.
  void kill() {
    _observation.reset();
    _list.reset();
    _process->kill();
  }

  // What an app does, as this process

  /// `edits` makes the edits from the list of now.
  StepAnswer apply(const std::function<Edits(const Snapshot&)>& edits, StoredHandler stored = {}) {
    return run([&] { return _list->apply(edits(_list->snapshot()), std::move(stored)); });
  }
  StepAnswer apply(const Edits& edits, StoredHandler stored = {}) {
    return run([&] { return _list->apply(edits, std::move(stored)); });
  }
  /// Edits as text, of the list of now.
  StepAnswer apply(const std::string& edits, StoredHandler stored = {}) {
    return apply(EditReader(snapshot()).edits(edits), std::move(stored));
  }
  UndoAnswer undo(const std::string& step = {}, StoredHandler stored = {}) {
    return run([&] { return _list->undo(step, std::move(stored)); });
  }
  UndoAnswer redo() {
    return run([&] { return _list->redo(); });
  }
  ForgetAnswer forget(const std::string& who, ForgottenHandler forgotten = {}) {
    return run([&] { return _list->forget(who, std::move(forgotten)); });
  }
  ImportAnswer import(const ExportedList& list, ImportMode mode, StoredHandler stored = {}) {
    return run([&] { return _list->import(list, mode, std::move(stored)); });
  }
  void clearHistory() {
    run([&] { _list->clearHistory(); });
  }
  /// Reads the list anew, as after a notification.
  void reload() {
    run([&] { _process->manager().reloadFriendList(); });
  }

  // What there is

  Snapshot snapshot() {
    return run([&] { return _list->snapshot(); });
  }
  /// The list and the titles of its pages: "Ann,-|Bob,- Family|-".
  std::string shown() { return _process->list() + " " + _process->titles(); }
  std::vector<HistoryStep> history() {
    return run([&] { return _list->history(); });
  }
  /// The steps as text: kinds and names, with "(back)" where taken back.
  std::vector<std::string> told() {
    std::vector<std::string> texts;
    for (const HistoryStep& step : history()) texts.push_back(textOf(step));
    return texts;
  }
  ExportedList exported() {
    return run([&] { return _list->exported(); });
  }
  FriendId idAt(std::uint64_t page, std::uint64_t slot) { return snapshot().friendAt({page, slot})->id; }
  /// The friend whose contact has that name; null where there is none.
  std::shared_ptr<const Friend> friendNamed(const std::string& name) {
    const auto friends = snapshot().friends();
    const auto found =
        std::ranges::find_if(friends, [&](const auto& person) { return person->contactGUID == guidOf(name); });
    return found == friends.end() ? nullptr : *found;
  }
  FriendId idNamed(const std::string& name) { return friendNamed(name)->id; }

  void stopObserving() {
    run([&] { _observation.reset(); });
  }
  /// Called with each batch, as the app's code.
  std::function<void(const ListChange&)> onChange = [](const ListChange&) {};

  /// Whether the list of now is that of the manager, and has its friends where they are looked for.
  void expectLikeManager() {
    const Snapshot list = snapshot();
    std::string shown;
    for (std::size_t page = 0; page < list.pageCount(); ++page) {
      for (std::size_t slot = 0; slot < list.page(page).friends.size(); ++slot) {
        const auto person = list.friendAt({page, slot});
        const std::string name = person ? shownName(*person) : "-";
        shown += (slot > 0 ? "," : page > 0 ? "|" : "") + (name.empty() ? "?" : name);
        EXPECT_EQ(list.placeOf(person ? person->id : FriendId()),
                  person ? std::optional(Place{page, slot}) : std::nullopt);
      }
    }
    EXPECT_EQ(shown, _process->list());
  }
  /// What was heard since the last call: "loaded", and batches as "-Ann 1:1 -page 1 >Bob 2:1 to 1:1 ~Cy".
  std::vector<std::string> takeHeard() { return std::exchange(_heard, {}); }

 private:
  void observe() {
    run([&] {
      _observation = _list->observe({[this](const Snapshot& list) {
                                       _heard.emplace_back("loaded");
                                       _copy.emplace(list);
                                     },
                                     [this](const ListChange& change) {
                                       _heard.push_back(textOf(change));
                                       _copy->take(change);
                                       _copy->expectLike(change.after);
                                       onChange(change);
                                     }});
    });
  }

  const std::unique_ptr<ManagerProcess> _process;
  std::unique_ptr<FriendList> _list;
  std::shared_ptr<Observation> _observation;
  std::optional<ListCopy> _copy;
  std::vector<std::string> _heard;
};

/// Processes that have lists.
class ListTest : public ManagerTest {
 protected:
  /// One more process, at rest.
  std::unique_ptr<ListProcess> open() {
    auto process = std::make_unique<ListProcess>(launch());
    rest();
    return process;
  }
  /// The same from that stored list; what was heard until then is forgotten.
  std::unique_ptr<ListProcess> open(const std::string& list) {
    auto process = std::make_unique<ListProcess>(launchWith(list));
    rest();
    process->takeHeard();
    return process;
  }
  /// As if there had never been a list.
  void forgetList() {
    for (const std::string_view key : {PLFriendListKey, PLGroupTitlesKey, std::string_view(HistoryKey)})
      world.preferences().setValue(key, std::nullopt, TapnoteDomain);
  }
  /// A note of what becomes of a step: "stored", or why not, to `told`.
  static StoredHandler noteIn(std::vector<std::string>& told) {
    return [&told](const std::optional<Refusal>& refusal) {
      told.emplace_back(refusal ? textOf(refusal->reason) : "stored");
    };
  }

  static constexpr const char* HistoryKey = "PLFriendListHistory";
};

}  // namespace pellor
