#include "Pellor/PLPersonIdentityChanges.h"

#include <algorithm>

namespace pellor {

void PLPersonIdentityChanges::addObserver(PLPersonIdentityObserver& observer) { _observers.push_back(&observer); }

void PLPersonIdentityChanges::removeObserver(PLPersonIdentityObserver& observer) { std::erase(_observers, &observer); }

void PLPersonIdentityChanges::announceWillChange(PLPerson& person) {
  announce(person, &PLPersonIdentityObserver::personIdentityWillChange);
}

void PLPersonIdentityChanges::announceDidChange(PLPerson& person) {
  announce(person, &PLPersonIdentityObserver::personIdentityDidChange);
}

void PLPersonIdentityChanges::announce(PLPerson& person, void (PLPersonIdentityObserver::*change)(PLPerson&)) {
  // Observers may come and go meanwhile.
  const auto observers = _observers;
  for (PLPersonIdentityObserver* observer : observers) {
    if (std::ranges::find(_observers, observer) != _observers.end()) (observer->*change)(person);
  }
}

}  // namespace pellor
