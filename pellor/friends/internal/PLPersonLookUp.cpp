#include "pellor/friends/internal/PLPersonLookUp.h"

#include <span>

#include "pellor/friends/PLDestination.h"
#include "pellor/friends/PLPerson.h"

namespace pellor {
namespace {

std::shared_ptr<PLPerson> personUnder(const std::string& destination, const PLIdentifierMap& map) {
  std::string room;
  const auto canonical = plSanitizedDestination(destination, room);
  return canonical ? map.personFor(*canonical) : nullptr;
}

}  // namespace

void PLPersonLookUp::_storeSourcedPerson(const std::shared_ptr<PLPerson>& person) {
  if (!_sourcedPersons.contains(person.get())) _sourcedPersons.append(person);
  _addPersonToIdentifiersToPersonMap(person);
}

std::shared_ptr<PLPerson> PLPersonLookUp::personWithDestinations(const std::vector<std::string>& destinations) {
  lookUpAgain();
  // For one destination, as most callers have, no sets are made.
  if (destinations.size() == 1) {
    if (auto known = personUnder(destinations.front(), _map)) return known;
  }
  const DestinationSet canonical = plSanitizedDestinationSet(std::span(destinations));
  if (auto known = _map.firstPersonFor(canonical)) return known;
  std::shared_ptr<PLPerson> person;
  _contacts.performWithAddressBook([&](AddressBook& addressBook) {
    person = PLPerson::initWithDestinationsAddressBook({canonical.begin(), canonical.end()}, &addressBook);
    _queue.note(person, addressBook);
  });
  if (person) _storeSourcedPerson(person);
  return person;
}

std::shared_ptr<PLPerson> PLPersonLookUp::personWithABRecordGUID(const std::string& guid) {
  lookUpAgain();
  if (auto known = _map.personFor(guid)) return known;
  std::shared_ptr<PLPerson> person;
  _contacts.performWithAddressBook([&](AddressBook& addressBook) {
    person = PLPerson::initWithABRecordGUIDAddressBook(guid, &addressBook);
    _queue.note(person, addressBook);
  });
  if (person) _storeSourcedPerson(person);
  return person;
}

}  // namespace pellor
