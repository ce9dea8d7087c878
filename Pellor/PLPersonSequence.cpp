#include "Pellor/PLPersonSequence.h"

#include <algorithm>

#include "Pellor/PLPerson.h"

namespace pellor {

void PLPersonSequence::append(std::shared_ptr<PLPerson> person) {
  const std::uint64_t place = _nextPlace++;
  _places[person.get()].push_back(place);
  _index.add(*person);
  _inOrder.emplace(place, std::move(person));
}

bool PLPersonSequence::remove(const PLPerson* person) {
  auto places = _places.find(person);
  if (places == _places.end()) return false;
  auto entry = _inOrder.extract(places->second.front());
  places->second.erase(places->second.begin());
  if (places->second.empty()) {
    _index.remove(*entry.mapped());
    _places.erase(places);
  }
  return true;
}

std::shared_ptr<PLPerson> PLPersonSequence::earliest(const std::vector<PLPerson*>& candidates, const auto& fits) const {
  std::optional<std::uint64_t> best;
  for (const PLPerson* candidate : candidates) {
    const std::uint64_t place = _places.at(candidate).front();
    if ((!best || place < *best) && fits(*candidate)) best = place;
  }
  return best ? _inOrder.at(*best) : nullptr;
}

std::shared_ptr<PLPerson> PLPersonSequence::firstLike(const PLPerson& person) const {
  return earliest(_index.candidatesLike(person), [&](const PLPerson& candidate) { return person.isLike(candidate); });
}

std::shared_ptr<PLPerson> PLPersonSequence::firstDescribedBy(const Dictionary& stored) const {
  return earliest(_index.candidatesFor(stored),
                  [&](const PLPerson& candidate) { return candidate.isEqualToDictionaryRepresentation(stored); });
}

}  // namespace pellor
