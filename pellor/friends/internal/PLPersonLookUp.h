// Friends, and persons looked up, under their destinations and GUIDs.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "pellor/friends/internal/PLIdentifierMap.h"
#include "pellor/friends/internal/PLLookUpQueue.h"
#include "pellor/friends/internal/PLPersonSequence.h"

namespace pellor {

/// Finds persons, and makes and keeps those that are not there: the sourced persons. Its invariant: a sourced person is
/// found under the keys that it came with until it becomes a friend, the map is made anew, or another person takes the
/// key. Main queue.
class PLPersonLookUp {
 public:
  /// Of friends in that index. Both outlive this object.
  PLPersonLookUp(AddressBookStore& contacts, PLPersonIndex& friends) : _contacts(contacts), _map(friends) {}

  /// As the manager's operations of these names.
  std::shared_ptr<PLPerson> personWithDestinations(const std::vector<std::string>& destinations);
  std::shared_ptr<PLPerson> personWithABRecordGUID(const std::string& guid);
  /// The person of every key, by key: a person with three keys is listed three times.
  std::vector<std::shared_ptr<PLPerson>> allPeople() const { return _map.allPersons(); }
  /// Brings the persons in step that were looked up while the contacts could not be read.
  void lookUpAgain() { _queue.lookUpAgain(_contacts); }

  /// From here to `_createAddressToPersonDictionary` the list is loaded, and nobody may ask.
  void beginRebuild() { _map.beginRebuild(); }
  /// Makes the map anew, of the friends and then the sourced persons, so that these win a key that they share.
  void _createAddressToPersonDictionary() { _map.rebuild(_sourcedPersons); }
  void _removePersonFromIdentifiersToPersonMap(const PLPerson& person) { _map.remove(person); }
  /// The person is a friend now, and sourced no more; its keys stay.
  void noteFriend(const PLPerson* person) { _sourcedPersons.remove(person); }
  /// The sourced persons, in the order in which they came.
  PLPersonSequence& sourcedPersons() { return _sourcedPersons; }

 private:
  void _storeSourcedPerson(const std::shared_ptr<PLPerson>& person);
  void _addPersonToIdentifiersToPersonMap(const std::shared_ptr<PLPerson>& person) { _map.add(person); }

  AddressBookStore& _contacts;
  PLPersonSequence _sourcedPersons;
  PLIdentifierMap _map;
  PLLookUpQueue _queue;
};

}  // namespace pellor
