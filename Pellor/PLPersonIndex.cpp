#include "Pellor/PLPersonIndex.h"

#include <algorithm>

#include "Pellor/PLPerson.h"
#include "runtime/Process.h"

namespace pellor {
namespace {

void collect(const std::unordered_map<std::string, std::vector<PLPerson*>>& postings, const std::string& key,
             std::vector<PLPerson*>& found) {
  auto posting = postings.find(key);
  if (posting == postings.end()) return;
  for (PLPerson* person : posting->second) {
    if (std::ranges::find(found, person) == found.end()) found.push_back(person);
  }
}

void drop(std::unordered_map<std::string, std::vector<PLPerson*>>& postings, const std::string& key, PLPerson* person) {
  auto posting = postings.find(key);
  if (posting == postings.end()) return;
  std::erase(posting->second, person);
  if (posting->second.empty()) postings.erase(posting);
}

}  // namespace

PLPersonIndex::PLPersonIndex() : _changes(Process::current().local<PLPersonIdentityChanges>()) {
  _changes.addObserver(*this);
}

PLPersonIndex::~PLPersonIndex() { _changes.removeObserver(*this); }

void PLPersonIndex::add(PLPerson& person) {
  if (!_keys.contains(&person)) enter(person);
}

void PLPersonIndex::remove(PLPerson& person) {
  auto known = _keys.find(&person);
  if (known == _keys.end()) return;
  leave(person, known->second);
  _keys.erase(known);
}

void PLPersonIndex::personIdentityDidChange(PLPerson& person) {
  auto known = _keys.find(&person);
  if (known == _keys.end()) return;
  leave(person, known->second);
  enter(person);
}

void PLPersonIndex::enter(PLPerson& person) {
  Keys keys{person.abRecordGUID(), person.allValues()};
  if (keys.guid && !keys.guid->empty()) _byGUID[*keys.guid].push_back(&person);
  if (keys.destinations) {
    for (const std::string& destination : *keys.destinations) _byDestination[destination].push_back(&person);
  }
  _keys[&person] = std::move(keys);
}

void PLPersonIndex::leave(PLPerson& person, const Keys& keys) {
  if (keys.guid) drop(_byGUID, *keys.guid, &person);
  if (!keys.destinations) return;
  for (const std::string& destination : *keys.destinations) drop(_byDestination, destination, &person);
}

std::vector<PLPerson*> PLPersonIndex::candidatesLike(const PLPerson& person) const {
  std::vector<PLPerson*> found;
  if (person.abRecordGUID()) collect(_byGUID, *person.abRecordGUID(), found);
  if (auto destinations = person.allValues()) {
    for (const std::string& destination : *destinations) collect(_byDestination, destination, found);
  }
  return found;
}

std::vector<PLPerson*> PLPersonIndex::candidatesFor(const Dictionary& stored) const {
  std::vector<PLPerson*> found;
  auto guid = stringForKey(stored, "ABRecordGUID");
  if (guid && !guid->empty()) {
    collect(_byGUID, *guid, found);
    return found;
  }
  const Value* values = valueForKey(stored, "AllValues");
  if (!values || !values->array()) return found;
  for (const Value& value : *values->array()) {
    if (const std::string* destination = value.string()) collect(_byDestination, *destination, found);
  }
  return found;
}

}  // namespace pellor
