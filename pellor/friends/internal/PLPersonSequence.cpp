#include "pellor/friends/internal/PLPersonSequence.h"

#include "pellor/friends/PLPerson.h"

namespace pellor {

void PLPersonSequence::append(std::shared_ptr<PLPerson> person) {
  const std::uint64_t place = _nextPlace++;
  _index.enter(*person, place);
  _inOrder.emplace_hint(_inOrder.end(), place, std::move(person));
}

bool PLPersonSequence::remove(const PLPerson* person) {
  const auto place = _index.places().lowest(person);
  if (!place) return false;
  const auto entry = _inOrder.extract(*place);
  _index.leave(*entry.mapped(), *place);
  return true;
}

}  // namespace pellor
