#include "pellor/friends/internal/PLIdentifierMap.h"

#include <algorithm>

#include "pellor/friends/PLPerson.h"
#include "pellor/runtime/Fatal.h"

namespace pellor {
namespace {

void forEachKey(const PLPerson& person, const auto& visit) {
  forEachDestination(person, [&](std::string_view destination) {
    if (auto canonical = plMessageCanonicalRawAddress(destination)) visit(*canonical);
  });
  visitGUID(person, visit);
}

bool isCanonical(std::string_view destination) { return plMessageCanonicalRawAddress(destination) == destination; }

bool hasOtherForms(const PLPerson& person) {
  bool has = false;
  forEachDestination(person, [&](std::string_view destination) { has = has || !isCanonical(destination); });
  return has;
}

bool hasKey(const PLPerson& person, std::string_view key) {
  bool has = false;
  forEachKey(person, [&](std::string_view own) { has = has || own == key; });
  return has;
}

// Finds, among the persons that it is shown, the one in the highest place.
class Last {
 public:
  explicit Last(const PLPersonPlaces& places) : _places(places) {}
  void operator()(PLPerson& person) {
    if (!_last || _places.highest(_last) < _places.highest(&person)) _last = &person;
  }
  PLPerson* person() const { return _last; }

 private:
  const PLPersonPlaces& _places;
  PLPerson* _last = nullptr;
};

std::shared_ptr<PLPerson> shared(PLPerson* person) { return person ? person->shared_from_this() : nullptr; }

}  // namespace

PLIdentifierMap::PLIdentifierMap(PLPersonIndex& friends) : _friends(friends) { _friends.setObserver(this); }

PLIdentifierMap::~PLIdentifierMap() { _friends.setObserver(nullptr); }

void PLIdentifierMap::rebuild(const PLPersonSequence& sourced) {
  _isRebuilding = false;
  _exceptions.clear();
  enterFriendsWithOtherForms();
  sourced.forEach([this](const std::shared_ptr<PLPerson>& person) { add(person); });
}

void PLIdentifierMap::add(const std::shared_ptr<PLPerson>& person) {
  forEachKey(*person, [&](std::string_view key) { _exceptions.insert_or_assign(std::string(key), person); });
}

void PLIdentifierMap::remove(const PLPerson& person) {
  // The map may hold the last reference to the person whose keys are being read.
  std::vector<std::shared_ptr<PLPerson>> held;
  forEachKey(person, [&](std::string_view key) {
    const auto known = _exceptions.find(key);
    if (known != _exceptions.end()) held.push_back(std::move(known->second));
    // The index is not asked for the person: where many share the key, each that left would cost a look at all that
    // stay.
    if (_friends.containsIdentifier(key)) {
      _exceptions.insert_or_assign(std::string(key), nullptr);
    } else if (known != _exceptions.end()) {
      _exceptions.erase(known);
    }
  });
}

void PLIdentifierMap::answersWillChange(PLPerson& person) {
  if (_isRebuilding) return;
  const auto freeze = [this](std::string_view key) {
    if (_exceptions.find(key) == _exceptions.end()) _exceptions.emplace(key, shared(lastFriendUnder(key)));
  };
  forEachDestination(person, freeze);
  visitGUID(person, freeze);
  _mayHaveOtherForms.insert(person.weak_from_this());
}

PLPerson* PLIdentifierMap::lastFriendUnder(std::string_view identifier) const {
  Last last(_friends.places());
  _friends.forEachWithIdentifier(identifier, [&](PLPerson& person) { last(person); });
  return last.person();
}

// Under a destination that is not its own canonical form the index finds a person that the map does not name, and under
// the canonical form it does not find that person: both keys are written down.
void PLIdentifierMap::enterFriendsWithOtherForms() {
  std::erase_if(_mayHaveOtherForms, [this](const std::weak_ptr<PLPerson>& weak) {
    const auto person = weak.lock();
    return !person || !_friends.places().contains(person.get()) || !hasOtherForms(*person);
  });
  DestinationSet touched;
  for (const auto& weak : _mayHaveOtherForms) {
    const auto person = weak.lock();
    forEachDestination(*person, [&](std::string_view destination) { touched.emplace(destination); });
    forEachKey(*person, [&](std::string_view key) { touched.emplace(key); });
  }
  for (const std::string& key : touched) _exceptions.emplace(key, shared(lastFriendWithCanonical(key)));
}

PLPerson* PLIdentifierMap::lastFriendWithCanonical(const std::string& key) const {
  Last last(_friends.places());
  const auto visit = [&](PLPerson& person) { last(person); };
  _friends.forEachWithGUID(key, visit);
  if (isCanonical(key)) _friends.forEachWithDestination(key, visit);
  for (const auto& weak : _mayHaveOtherForms) {
    const auto person = weak.lock();
    if (hasKey(*person, key)) last(*person);
  }
  return last.person();
}

std::shared_ptr<PLPerson> PLIdentifierMap::personFor(std::string_view identifier) const {
  require(!_isRebuilding, "nobody looked up while the list is being loaded");
  if (!_exceptions.empty()) {
    const auto exception = _exceptions.find(identifier);
    if (exception != _exceptions.end()) return exception->second;
  }
  return shared(lastFriendUnder(identifier));
}

std::shared_ptr<PLPerson> PLIdentifierMap::firstPersonFor(const DestinationSet& identifiers) const {
  for (const std::string& identifier : identifiers) {
    if (auto person = personFor(identifier)) return person;
  }
  return nullptr;
}

std::vector<std::shared_ptr<PLPerson>> PLIdentifierMap::allPersons() const {
  std::vector<std::string_view> keys;
  const auto collect = [&](std::string_view key) { keys.push_back(key); };
  _friends.places().forEachPerson([&](const PLPerson& person) {
    forEachDestination(person, collect);
    visitGUID(person, collect);
  });
  for (const auto& [key, person] : _exceptions) keys.push_back(key);
  std::ranges::sort(keys);
  const auto repeated = std::ranges::unique(keys);
  keys.erase(repeated.begin(), repeated.end());
  std::vector<std::shared_ptr<PLPerson>> persons;
  for (const std::string_view key : keys) {
    if (auto person = personFor(key)) persons.push_back(std::move(person));
  }
  return persons;
}

}  // namespace pellor
