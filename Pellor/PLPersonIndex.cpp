#include "Pellor/PLPersonIndex.h"

#include <cstring>
#include <random>

#include "Pellor/PLPerson.h"
#include "runtime/Process.h"

namespace pellor {
namespace {

std::uint64_t mixed(std::uint64_t hash, std::uint64_t word) {
  hash = (hash ^ word) * 0x9FB21C651E98DF25U;
  return hash ^ (hash >> 32);
}

}  // namespace

std::uint32_t identifierHash(std::string_view identifier) {
  static const std::uint64_t seed = (std::uint64_t{std::random_device()()} << 32) | std::random_device()();
  std::uint64_t hash = seed ^ identifier.size();
  std::uint64_t word = 0;
  for (; identifier.size() >= sizeof word; identifier.remove_prefix(sizeof word)) {
    std::memcpy(&word, identifier.data(), sizeof word);
    hash = mixed(hash, word);
  }
  word = 0;
  if (!identifier.empty()) std::memcpy(&word, identifier.data(), identifier.size());
  return static_cast<std::uint32_t>(mixed(mixed(hash, word), seed) >> 32);
}

PLPersonIndex::PLPersonIndex() : _changes(Process::current().local<PLPersonIdentityChanges>()) {
  _changes.addObserver(*this);
}

PLPersonIndex::~PLPersonIndex() { _changes.removeObserver(*this); }

void PLPersonIndex::reserve(std::size_t personCount) {
  _places.reserve(personCount);
  _byGUID.reserve(personCount);
  _byDestination.reserve(personCount * 2);
}

void PLPersonIndex::enter(PLPerson& person, std::uint64_t place) {
  tellObserver(person);
  if (_places.enter(person, place)) addIdentifiers(person);
}

void PLPersonIndex::leave(PLPerson& person, std::uint64_t place) {
  tellObserver(person);
  if (_places.leave(person, place)) removeIdentifiers(person);
}

void PLPersonIndex::personIdentityWillChange(PLPerson& person) {
  if (!_places.contains(&person)) return;
  tellObserver(person);
  removeIdentifiers(person);
}

void PLPersonIndex::personIdentityDidChange(PLPerson& person) {
  if (!_places.contains(&person)) return;
  tellObserver(person);
  addIdentifiers(person);
}

void PLPersonIndex::addIdentifiers(PLPerson& person) {
  visitGUID(person, [&](std::string_view guid) { _byGUID.add(guid, person); });
  forEachDestination(person, [&](std::string_view destination) { _byDestination.add(destination, person); });
  if (person.record().destinationCount() == 0) ++_destinationlessPersonCount;
}

void PLPersonIndex::removeIdentifiers(PLPerson& person) {
  visitGUID(person, [&](std::string_view guid) { _byGUID.remove(guid, person); });
  forEachDestination(person, [&](std::string_view destination) { _byDestination.remove(destination, person); });
  if (person.record().destinationCount() == 0) --_destinationlessPersonCount;
}

// The lowest place, not below a given one, among those of the persons that it is shown.
class PLPersonIndex::Lowest {
 public:
  Lowest(const PLPersonPlaces& places, std::uint64_t from) : _places(places), _from(from) {}
  void operator()(const PLPerson& person) {
    const auto candidate = _places.lowest(&person, _from);
    if (candidate && (!_place || *candidate < *_place)) _place = candidate;
  }
  std::optional<std::uint64_t> place() const { return _place; }

 private:
  const PLPersonPlaces& _places;
  const std::uint64_t _from;
  std::optional<std::uint64_t> _place;
};

std::optional<std::uint64_t> PLPersonIndex::firstLike(const PLPerson& person) const {
  Lowest lowest(_places, 0);
  const auto visit = [&](const PLPerson& candidate) { lowest(candidate); };
  visitGUID(person, [&](std::string_view guid) { forEachWithGUID(guid, visit); });
  forEachDestination(person, [&](std::string_view destination) { forEachWithDestination(destination, visit); });
  return lowest.place();
}

std::optional<std::uint64_t> PLPersonIndex::firstDescribedBy(const PLPersonForm& stored, std::uint64_t from) const {
  Lowest lowest(_places, from);
  if (const std::string_view guid = stored.identifyingGUID(); !guid.empty()) {
    forEachWithGUID(guid, [&](const PLPerson& candidate) { lowest(candidate); });
    return lowest.place();
  }
  // Who has a GUID is described by it alone.
  const auto visit = [&](const PLPerson& candidate) {
    if (candidate.record().identifyingGUID().empty()) lowest(candidate);
  };
  for (const std::string_view destination : stored.storedDestinations()) forEachWithDestination(destination, visit);
  return lowest.place();
}

}  // namespace pellor
