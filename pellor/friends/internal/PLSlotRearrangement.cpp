#include "pellor/friends/internal/PLSlotRearrangement.h"

#include <algorithm>
#include <utility>

namespace pellor {

PLSlotRearrangement::PLSlotRearrangement(PLSlotList& list, std::uint64_t slotCount)
    : _list(list), _firstPlaceBehind(std::max(list.count(), slotCount)) {}

PLSlotRearrangement::~PLSlotRearrangement() {
  for (std::size_t number = 0; number < _displaced.size(); ++number) {
    if (_displaced[number] != EmptySlot) _list._people.leave(*_displaced[number], _firstPlaceBehind + number);
  }
  enterBatch();
}

void PLSlotRearrangement::displace(std::uint64_t index) {
  if (_list.at(index) == EmptySlot) return;
  if (!_batch.isEmpty() && index <= _batch.lastPlace()) enterBatch();
  Slot person = _list.setInTree(index, EmptySlot);
  _list._people.move(*person, index, _firstPlaceBehind + _displaced.size());
  _displaced.push_back(std::move(person));
}

PLSlotRearrangement::Arrival PLSlotRearrangement::bring(const PLPersonForm& form, std::uint64_t index) {
  // The friend that is displaced now is none that the form describes.
  const auto from = _list.firstDescribedBy(form, index + 1);
  displace(index);
  if (!from) return {EmptySlot, std::nullopt};
  const bool wasDisplaced = *from >= _firstPlaceBehind;
  Slot person = wasDisplaced ? std::exchange(_displaced[*from - _firstPlaceBehind], EmptySlot)
                             : _list.setInTree(*from, EmptySlot);
  _list._people.move(*person, *from, index);
  _list.setInTree(index, std::move(person));
  return {_list.at(index), wasDisplaced ? std::nullopt : from};
}

// Nobody asks for them before the end: only later slots are searched.
void PLSlotRearrangement::put(std::uint64_t index, const std::shared_ptr<PLPerson>& person) {
  _list.setInTree(index, person);
  _batch.add(*person, index);
}

void PLSlotRearrangement::enterBatch() {
  _list._people.enter(_batch);
  _batch = {};
}

}  // namespace pellor
