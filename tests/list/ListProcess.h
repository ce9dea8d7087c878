// A process with a list, and what an observer of it heard.
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
#include "tests/pellor/ManagerWorld.h"

namespace pellor {

/// A process with the list of its manager, and what an observer of it heard.
class ListProcess {
 public:
  explicit ListProcess(std::unique_ptr<ManagerProcess> process) : _process(std::move(process)) {
    _process->run([&] { _list = FriendList::open(_process->sharedManager()); });
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
  /// Edits, as this process: `edits` makes them from the list of now.
  StepAnswer apply(const std::function<std::vector<Edit>(const Snapshot&)>& edits, StoredHandler stored = {}) {
    return _process->run([&] { return _list->apply(edits(_list->snapshot()), std::move(stored)); });
  }
  /// Ends the process on the spot.
  void kill() {
    _observation.reset();
    _list.reset();
    _process->kill();
  }
  Snapshot snapshot() {
    return _process->run([&] { return _list->snapshot(); });
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
    _process->run([&] { _observation.reset(); });
  }
  /// Called with each batch, as the app's code.
  std::function<void(const ListChange&)> onChange = [](const ListChange&) {};

  /// What was heard since the last call: "loaded", and batches as "-Ann 1:1 -page 1 >Bob 2:1 to 1:1 ~Cy".
  std::vector<std::string> takeHeard() { return std::exchange(_heard, {}); }

 private:
  void observe() {
    _process->run([&] {
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
  static std::string nameOf(const Snapshot& list, FriendId id) {
    const auto person = list.friendWith(id);
    return person->name.empty() ? person->destination : person->name;
  }
  static std::string textOf(Place place) {
    return std::to_string(place.page + 1) + ":" + std::to_string(place.slot + 1);
  }
  static std::string originText(ChangeOrigin origin) {
    switch (origin) {
      case ChangeOrigin::thisProgram:
        return "";
      case ChangeOrigin::undo:
        return "undo:";
      case ChangeOrigin::otherProgram:
        return "other:";
      case ChangeOrigin::device:
        return "device:";
      case ChangeOrigin::contacts:
        return "contacts:";
      case ChangeOrigin::load:
        return "load:";
    }
    return "?";
  }
  static std::string textOf(const ListChange& change) {
    std::string text = originText(change.origin);
    const auto say = [&](const std::string& what) { text += (text.empty() ? "" : " ") + what; };
    for (const auto& each : change.removed) say("-" + nameOf(change.before, each.id) + " " + textOf(each.from));
    for (const auto& each : change.pagesRemoved) say("-page " + std::to_string(each.index + 1));
    for (const auto& each : change.pagesMoved)
      say(">page " + std::to_string(each.from + 1) + " to " + std::to_string(each.to + 1));
    for (const auto& each : change.pagesInserted) say("+page " + std::to_string(each.index + 1));
    for (const auto& each : change.renamed)
      say("page " + std::to_string(each.index + 1) + " \"" + change.after.page(each.index).title + "\"");
    for (const auto& each : change.moved)
      say(">" + nameOf(change.after, each.id) + " " + textOf(each.from) + " to " + textOf(each.to));
    for (const auto& each : change.added) say("+" + nameOf(change.after, each.id) + " " + textOf(each.to));
    for (const auto& each : change.changed)
      say("~" + nameOf(change.after, each.id) + " " + std::to_string(each.fields.bits));
    return text;
  }

  const std::unique_ptr<ManagerProcess> _process;
  std::unique_ptr<FriendList> _list;
  std::shared_ptr<Observation> _observation;
  std::optional<ListCopy> _copy;
  std::vector<std::string> _heard;
};

}  // namespace pellor
