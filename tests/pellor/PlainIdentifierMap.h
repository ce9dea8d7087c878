// The identifier map as it is described: a dictionary.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/PLSlot.h"

namespace pellor {

/// Persons by canonical destination and by GUID. Of several with one key the one that was entered last has it.
class PlainIdentifierMap {
 public:
  void enter(const std::vector<Slot>& persons) {
    for (const Slot& person : persons) {
      if (!person) continue;
      for (const std::string& key : keysOf(*person)) _persons[key] = person;
    }
  }
  /// Drops the person's keys, whomever they name.
  void erase(const PLPerson& person) {
    for (const std::string& key : keysOf(person)) _persons.erase(key);
  }
  void clear() { _persons.clear(); }

  /// Of the first key that is meant; null when there is none.
  Slot firstOf(const auto& isMeant) const {
    for (const auto& [key, person] : _persons) {
      if (isMeant(key)) return person;
    }
    return EmptySlot;
  }
  /// By key.
  std::vector<Slot> persons() const {
    std::vector<Slot> persons;
    for (const auto& [key, person] : _persons) persons.push_back(person);
    return persons;
  }

 private:
  static std::vector<std::string> keysOf(const PLPerson& person) {
    std::vector<std::string> keys;
    if (const auto values = person.allValues()) {
      for (const std::string& value : *values) keys.push_back(*plMessageCanonicalRawAddress(value));
    }
    if (const auto guid = person.abRecordGUID(); !guid.value_or("").empty()) keys.push_back(*guid);
    return keys;
  }

  std::map<std::string, Slot> _persons;
};

}  // namespace pellor
