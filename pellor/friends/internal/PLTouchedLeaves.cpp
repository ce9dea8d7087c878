#include "pellor/friends/internal/PLTouchedLeaves.h"

#include <algorithm>
#include <utility>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLSkipChecks.h"

namespace pellor {
namespace {

bool isAnybodyMarked(const PLSlotSnapshot& list) {
  bool isMarked = false;
  list.forEach([&](const Slot& slot) { isMarked = isMarked || (slot != EmptySlot && slot->needsSave()); });
  return isMarked;
}

}  // namespace

void PLTouchedLeaves::name(const PLSlotList& list) {
  const std::uint64_t count = _changes.touches.count();
  if (count == _seen) return;
  std::vector<std::uint64_t> leaves;
  const bool areKnown = _changes.touches.visitSince(_seen, [&](const PLPerson* person) {
    for (auto slot = list.indexOf(person); slot; slot = list.indexOf(person, *slot + 1)) {
      leaves.push_back(*slot / PLSlotSnapshot::LeafSize);
    }
  });
  _seen = count;
  remember(leaves, areKnown);
  const MutexLock lock(_mutex);
  _named.insert(_named.end(), leaves.begin(), leaves.end());
  _namedCount = count;
  _namesAll = _namesAll && areKnown;
}

void PLTouchedLeaves::remember(const std::vector<std::uint64_t>& leaves, bool areKnown) {
  const std::uint64_t changes = _changes.changes.load(std::memory_order_acquire);
  if (!areKnown || _history.size() + leaves.size() > kLongHistory) {
    _history.clear();
    _historyBegin = changes;
    return;
  }
  for (const std::uint64_t leaf : leaves) _history.emplace_back(changes, leaf);
}

std::optional<std::vector<std::uint64_t>> PLTouchedLeaves::changedSince(std::uint64_t changes,
                                                                        std::uint64_t elsewhere) const {
  if (changes < _historyBegin || elsewhere != _changes.touches.countElsewhere()) return std::nullopt;
  std::vector<std::uint64_t> leaves;
  for (const auto& [count, leaf] : _history) {
    if (count > changes) leaves.push_back(leaf);
  }
  return leaves;
}

void PLTouchedLeaves::forgetUntil(std::uint64_t changes) {
  while (!_history.empty() && _history.front().first <= changes) _history.pop_front();
}

void PLTouchedLeaves::gather() {
  const MutexLock lock(_mutex);
  _leaves.insert(_leaves.end(), _named.begin(), _named.end());
  _named.clear();
  _gatheredCount = _namedCount;
  _hasAll = std::exchange(_namesAll, true) && _hasAll;
}

bool PLTouchedLeaves::isComplete() const {
  return _hasAll && _gatheredCount == _changes.touches.count() && _elsewhere == _changes.touches.countElsewhere();
}

void PLTouchedLeaves::visit(const PLSlotSnapshot& list, const PLSlotSnapshot& before,
                            const std::function<void(const Slot&)>& visit) const {
  const auto visitLeaf = [&](std::uint64_t index) {
    if (index < list.leafCount()) std::ranges::for_each(list.leaf(index), visit);
  };
  list.forEachDifferingLeaf(before, visitLeaf);
  std::ranges::for_each(_leaves, visitLeaf);
  checkSkip("nobody marked in the leaves that a save does not look at", [&] { return !isAnybodyMarked(list); });
}

void PLTouchedLeaves::beginAt(std::uint64_t changes, std::uint64_t elsewhere) {
  _leaves.clear();
  _since = changes;
  _elsewhere = elsewhere;
  _hasAll = true;
}

bool PLTouchedLeaves::isLong() const { return _leaves.size() > kLong; }

}  // namespace pellor
