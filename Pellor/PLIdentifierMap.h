// Whom an identifier names: the map from canonical destinations and GUIDs to persons.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "Pellor/PLDestination.h"

namespace pellor {

class PLPerson;

/// A person is entered under the canonical form of each of its destinations and under its GUID, when that is not empty.
/// A key has one person: the later entry replaces the earlier one. Holds its persons strongly. Main queue.
class PLIdentifierMap {
 public:
  /// Enters the person, never null, under the keys that it has now.
  void add(const std::shared_ptr<PLPerson>& person);
  /// Drops the keys that the person has now, whomever they name.
  void remove(const PLPerson& person);
  void clear() { _persons.clear(); }

  /// The person under one key; null when there is none.
  std::shared_ptr<PLPerson> personFor(const std::string& identifier) const;
  /// The person under the first of these keys, by key, that the map has; null when it has none of them.
  std::shared_ptr<PLPerson> firstPersonFor(const DestinationSet& identifiers) const;
  /// The person of every key, by key: a person with three keys is listed three times.
  std::vector<std::shared_ptr<PLPerson>> allPersons() const;

 private:
  std::unordered_map<std::string, std::shared_ptr<PLPerson>> _persons;
};

}  // namespace pellor
