#include "Pellor/PLTouchedLeaves.h"

#include <algorithm>
#include <utility>

#include "Pellor/PLPerson.h"
#include "Pellor/PLSkipChecks.h"

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
  const MutexLock lock(_mutex);
  _named.insert(_named.end(), leaves.begin(), leaves.end());
  _namedCount = count;
  _namesAll = _namesAll && areKnown;
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
