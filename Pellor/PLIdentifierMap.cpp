#include "Pellor/PLIdentifierMap.h"

#include <algorithm>

#include "Pellor/PLPerson.h"

namespace pellor {
namespace {

void forEachKey(const PLPerson& person, const auto& visit) {
  if (auto destinations = person.allValues()) {
    for (const std::string& destination : *destinations) {
      if (auto canonical = plMessageCanonicalRawAddress(destination)) visit(*canonical);
    }
  }
  if (person.abRecordGUID() && !person.abRecordGUID()->empty()) visit(*person.abRecordGUID());
}

}  // namespace

void PLIdentifierMap::add(const std::shared_ptr<PLPerson>& person) {
  forEachKey(*person, [&](const std::string& key) { _persons[key] = person; });
}

void PLIdentifierMap::remove(const PLPerson& person) {
  // The map may hold the last reference to the person whose keys are being read.
  std::vector<std::shared_ptr<PLPerson>> held;
  forEachKey(person, [&](const std::string& key) {
    if (auto entry = _persons.extract(key)) held.push_back(std::move(entry.mapped()));
  });
}

std::shared_ptr<PLPerson> PLIdentifierMap::personFor(const std::string& identifier) const {
  auto entry = _persons.find(identifier);
  return entry == _persons.end() ? nullptr : entry->second;
}

std::shared_ptr<PLPerson> PLIdentifierMap::firstPersonFor(const DestinationSet& identifiers) const {
  for (const std::string& identifier : identifiers) {
    if (auto person = personFor(identifier)) return person;
  }
  return nullptr;
}

std::vector<std::shared_ptr<PLPerson>> PLIdentifierMap::allPersons() const {
  std::vector<std::pair<std::string, std::shared_ptr<PLPerson>>> byKey(_persons.begin(), _persons.end());
  std::ranges::sort(byKey, {}, [](const auto& entry) -> const std::string& { return entry.first; });
  std::vector<std::shared_ptr<PLPerson>> persons;
  persons.reserve(byKey.size());
  for (auto& [key, person] : byKey) persons.push_back(std::move(person));
  return persons;
}

}  // namespace pellor
