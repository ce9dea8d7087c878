#include "tests/pellor/simulation/EditOrders.h"

#include <algorithm>
#include <utility>

namespace pellor {
namespace {

// A list after some of the edits. A friend whose place was taken stands somewhere, nobody says where.
struct State {
  PlainList list;
  std::set<std::string> titles;                // given to pages that nobody can tell
  std::map<FriendName, std::size_t> placedBy;  // the edit that put the friend where it stands

  std::string key() const {
    std::string key = list.text();
    for (const std::string& title : titles) key += " " + title;
    for (const auto& [name, known] : list.friends) {
      const auto edit = placedBy.find(name);
      key += " " + name + (edit == placedBy.end() ? "" : std::to_string(edit->second)) + known.text();
    }
    return key;
  }
};

class OrderSearch {
 public:
  explicit OrderSearch(const Round& round) : _round(round), _touched(round.touched()) {}

  bool succeeds() { return explains(State{_round.before, {}, {}}, std::vector<bool>(_round.edits.size())); }

 private:
  // `isDone` tells of each edit whether it was made or passed over.
  bool explains(const State& state, std::vector<bool> isDone) {
    if (!_visited.emplace(isDone, state.key()).second) return false;
    if (std::ranges::find(isDone, false) == isDone.end()) return isOutcome(state);
    for (std::size_t next = 0; next < isDone.size(); ++next) {
      if (isDone[next] || !isDue(next, isDone)) continue;
      isDone[next] = true;
      if (explains(stateAfter(state, next), isDone)) return true;
      if (!_round.edits[next].acknowledged && explains(state, isDone)) return true;
      isDone[next] = false;
    }
    return false;
  }

  bool isDue(std::size_t edit, const std::vector<bool>& isDone) const {
    for (std::size_t earlier = 0; earlier < edit; ++earlier) {
      if (!isDone[earlier] && _round.buildsOn(edit, earlier)) return false;
    }
    return true;
  }

  // --- Edits, each made alone ---

  State stateAfter(State state, std::size_t index) const {
    const Edit& edit = _round.edits[index];
    using Kind = Edit::Kind;
    switch (edit.kind) {
      case Kind::add:
      case Kind::remove:
      case Kind::clearSlot:
      case Kind::move:
        rearrange(state, index);
        break;
      case Kind::title:
        name(state, edit);
        break;
      case Kind::purge:
        purge(state);
        break;
      case Kind::replyAs:
      case Kind::metadata:
      case Kind::clearMetadata:
        if (const auto known = state.list.friends.find(edit.who); known != state.list.friends.end()) {
          tell(known->second, edit);
        }
        break;
      case Kind::refresh:
        break;
    }
    return state;
  }

  void name(State& state, const Edit& edit) const {
    const auto page = pageOf(state, edit.page);
    if (page) {
      state.list.pages[*page].title = edit.text;
    } else {
      state.titles.insert(edit.text);
    }
  }

  static void tell(PlainFriend& known, const Edit& edit) {
    if (edit.kind == Edit::Kind::replyAs) known.replyAs = edit.text;
    for (const auto& [key, value] : edit.told.metadata) {
      known.metadata.erase(key);
      if (edit.kind == Edit::Kind::metadata) known.metadata.emplace(key, value);
    }
  }

  void rearrange(State& state, std::size_t index) const {
    const Edit& edit = _round.edits[index];
    for (const FriendName& name : edit.removed) takeOut(state, name, edit.kind == Edit::Kind::remove);
    std::set<FriendName> lifted;
    for (const auto& [name, place] : edit.placed) {
      if (edit.kind == Edit::Kind::move && !state.list.contains(name)) continue;
      lift(state, name);
      lifted.insert(name);
    }
    for (const FriendName& name : lifted) {
      if (edit.kind == Edit::Kind::add) state.list.friends[name] = edit.told;
      place(state, name, index);
    }
  }

  void takeOut(State& state, const FriendName& name, bool takesEmptyPage) const {
    const auto place = state.list.placeOf(name);
    lift(state, name);
    state.list.friends.erase(name);
    const bool goes = place && takesEmptyPage && _round.maxGroupCount > 1 && state.list.pages[place->page].isEmpty();
    if (goes) state.list.pages.erase(state.list.pages.begin() + static_cast<std::ptrdiff_t>(place->page));
  }

  static void lift(State& state, const FriendName& name) {
    const auto place = state.list.placeOf(name);
    if (place) state.list.pages[place->page].slots[place->position].clear();
    state.placedBy.erase(name);
  }

  void place(State& state, const FriendName& name, std::size_t index) const {
    const SeenPlace& asked = _round.edits[index].placed.at(name);
    const auto page = pageOf(state, asked.page);
    if (!page) return;
    FriendName& slot = state.list.pages[*page].slots[asked.position];
    if (!slot.empty()) return;
    slot = name;
    state.placedBy[name] = index;
  }

  // The page of those who stood there and whom nobody touched; else the one with most of those who stood there, or the
  // one at its place while no page may go, if these are one page.
  std::optional<std::size_t> pageOf(const State& state, const SeenPage& page) const {
    std::map<std::size_t, std::size_t> counts;
    for (const FriendName& name : page.residents) {
      const auto place = state.list.placeOf(name);
      if (place && !_touched.contains(name)) return place->page;
      if (place) ++counts[place->page];
    }
    const auto itsPlace =
        _mayPagesGo || page.index >= state.list.pages.size() ? std::nullopt : std::optional(page.index);
    if (counts.empty()) return itsPlace;
    const auto most = std::ranges::max_element(counts, {}, [](const auto& count) { return count.second; })->first;
    return itsPlace.value_or(most) == most ? std::optional(most) : std::nullopt;
  }

  static void purge(State& state) {
    auto& pages = state.list.pages;
    for (std::size_t next = pages.size(); next > 1; --next) {
      if (pages[next - 2].isEmpty()) pages.erase(pages.begin() + static_cast<std::ptrdiff_t>(next - 2));
    }
  }

  // --- Outcomes ---

  bool isOutcome(const State& state) const {
    const auto& friends = _round.after.friends;
    if (state.list.friends.size() != friends.size()) return false;
    for (const auto& [name, known] : state.list.friends) {
      const auto found = friends.find(name);
      if (found == friends.end()) return false;
      if (!_round.mayHaveBeenTwo(name) && found->second != known) return false;
    }
    return havePages(state, 0, 0);
  }

  // Whether the pages from these on can be matched: empty ones may be missing, and there may be others on which only
  // friends stand whom nobody placed, or that are empty and the last.
  bool havePages(const State& state, std::size_t page, std::size_t actual) const {
    const auto &pages = state.list.pages, &actuals = _round.after.pages;
    if (page == pages.size() && actual == actuals.size()) return true;
    const bool hasBoth = page < pages.size() && actual < actuals.size();
    if (hasBoth && isPage(state, page, actual) && havePages(state, page + 1, actual + 1)) return true;
    if (page < pages.size() && mayBeMissing(state, page) && havePages(state, page + 1, actual)) return true;
    return actual < actuals.size() && mayBeNew(actual) && havePages(state, page, actual + 1);
  }

  bool isPage(const State& state, std::size_t page, std::size_t actual) const {
    const PlainPage &expected = state.list.pages[page], &found = _round.after.pages[actual];
    const bool mayBeCalled = expected.title == found.title || state.titles.contains(found.title);
    if (_arePagesKnown && !mayBeCalled) return false;
    for (std::size_t position = 0; position < expected.slots.size(); ++position) {
      const FriendName &name = expected.slots[position], &other = found.slots[position];
      if (name == other) continue;
      const bool mayStandHere = other.empty() || _touched.contains(other);
      if (!mayStandHere || !mayStandElsewhere(state, name, other)) return false;
    }
    return true;
  }

  bool mayStandElsewhere(const State& state, const FriendName& name, const FriendName& holder) const {
    if (name.empty()) return true;
    const auto edit = state.placedBy.find(name);
    if (edit == state.placedBy.end()) return false;
    return !_arePagesKnown || !holder.empty() || _round.isContested(edit->second, name);
  }

  bool mayBeMissing(const State& state, std::size_t page) const {
    return std::ranges::all_of(state.list.pages[page].slots,
                               [&](const FriendName& name) { return mayStandElsewhere(state, name, {}); });
  }

  // A new page is empty, or holds friends whom an edit put there; where pages are known no other one follows an empty
  // one.
  bool mayBeNew(std::size_t actual) const {
    const auto first = _round.after.pages.begin() + static_cast<std::ptrdiff_t>(actual);
    const auto isTouched = [&](const FriendName& name) { return name.empty() || _touched.contains(name); };
    const auto holdsTouched = [&](const PlainPage& page) { return std::ranges::all_of(page.slots, isTouched); };
    const bool isAmongKnown = first->isEmpty() && _arePagesKnown;
    return isAmongKnown ? std::all_of(first, _round.after.pages.end(), holdsTouched) : holdsTouched(*first);
  }

  const Round& _round;
  const std::set<FriendName> _touched;
  const bool _mayPagesGo = _round.mayPagesGo();
  const bool _arePagesKnown = _round.arePagesKnown();
  std::set<std::pair<std::vector<bool>, std::string>> _visited;  // states that explain nothing
};

}  // namespace

bool isExplainedByAnOrder(const Round& round) { return OrderSearch(round).succeeds(); }

}  // namespace pellor
