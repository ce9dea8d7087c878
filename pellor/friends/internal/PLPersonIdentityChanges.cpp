#include "pellor/friends/internal/PLPersonIdentityChanges.h"

namespace pellor {

void PLPersonIdentityChanges::addObserver(PLPersonIdentityObserver& observer) { _observers.push_back(&observer); }

void PLPersonIdentityChanges::removeObserver(PLPersonIdentityObserver& observer) { std::erase(_observers, &observer); }

void PLPersonIdentityChanges::announceWillChange(PLPerson& person) {
  for (PLPersonIdentityObserver* observer : _observers) observer->personIdentityWillChange(person);
}

void PLPersonIdentityChanges::announceDidChange(PLPerson& person) {
  for (PLPersonIdentityObserver* observer : _observers) observer->personIdentityDidChange(person);
}

}  // namespace pellor
