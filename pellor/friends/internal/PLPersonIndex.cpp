#include "pellor/friends/internal/PLPersonIndex.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <random>

#include "pellor/friends/PLPerson.h"
#include "pellor/runtime/Process.h"

namespace pellor {
namespace {

constexpr std::size_t Word = sizeof(std::uint64_t);

std::uint64_t wordAt(const char* text) {
  std::uint64_t word = 0;
  std::memcpy(&word, text, Word);
  return word;
}

// A text that is shorter than a word.
std::uint64_t shortWord(std::string_view text) {
  std::uint64_t word = 0;
  for (const char c : text) word = (word << 8U) | static_cast<unsigned char>(c);
  return word;
}

std::uint64_t mixed(std::uint64_t hash, std::uint64_t word) {
  hash = (hash ^ word) * 0x9FB21C651E98DF25U;
  return hash ^ (hash >> 32U);
}

}  // namespace

// Two words at a time, which do not wait for each other; the last ones overlap with those before.
std::uint32_t identifierHash(std::string_view identifier) {
  static const std::uint64_t seed = (std::uint64_t{std::random_device()()} << 32U) | std::random_device()();
  std::uint64_t even = seed ^ identifier.size();
  std::uint64_t odd = ~seed;
  const char* text = identifier.data();
  const char* const end = text + identifier.size();
  for (; end - text > std::ptrdiff_t{2 * Word}; text += 2 * Word) {
    even = mixed(even, wordAt(text));
    odd = mixed(odd, wordAt(text + Word));
  }
  if (identifier.size() < Word) {
    even = mixed(even, shortWord(identifier));
  } else {
    even = mixed(even, wordAt(end - text < std::ptrdiff_t{Word} ? end - 2 * Word : text));
    odd = mixed(odd, wordAt(end - Word));
  }
  return static_cast<std::uint32_t>(mixed(even, (odd << 32U) | (odd >> 32U)) >> 32U);
}

PLPersonIndex::PLPersonIndex() : _changes(Process::current().local<PLPersonIdentityChanges>()) {
  _changes.addObserver(*this);
}

PLPersonIndex::~PLPersonIndex() { _changes.removeObserver(*this); }

void PLPersonIndex::enter(PLPerson& person, std::uint64_t place) {
  _places.prefetch(person);
  tellObserver(person);
  if (_places.enter(person, place)) addIdentifiers(person);
}

void PLPersonIndex::enter(const PLPersonBatch& batch) {
  for (const PLHashedPerson& entry : batch._places) tellObserver(*entry.person);
  _destinationlessPersonCount += batch._destinationlessCount;
  _places.reserve(_places.personCount() + batch._places.size());
  for (const PLHashedPerson& entry : inTableOrder(batch._places)) _places.enter(*entry.person, entry.number);
  _byGUID.reserve(_byGUID.count() + batch._guids.size());
  for (const PLHashedPerson& entry : inTableOrder(batch._guids)) {
    _byGUID.add([&] { return entry.person->record().identifyingGUID(); }, entry.hash, *entry.person);
  }
  _byDestination.reserve(_byDestination.count() + batch._destinations.size());
  for (const PLHashedPerson& entry : inTableOrder(batch._destinations)) {
    _byDestination.add([&] { return entry.person->record().destination(entry.number); }, entry.hash, *entry.person);
  }
}

void PLPersonIndex::move(PLPerson& person, std::uint64_t from, std::uint64_t to) {
  tellObserver(person);
  _places.move(person, from, to);
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
  const PLPersonRecord& record = person.record();
  const std::string_view guid = record.identifyingGUID();
  const std::uint32_t guidHash = identifierHash(guid);
  _byGUID.prefetch(guidHash);
  std::array<std::uint32_t, 4> hashes{};
  const std::size_t count = record.destinationCount();
  for (std::size_t index = 0; index < std::min(count, hashes.size()); ++index) {
    hashes[index] = identifierHash(record.destination(index));
    _byDestination.prefetch(hashes[index]);
  }
  if (!guid.empty()) _byGUID.add(guid, guidHash, person);
  for (std::size_t index = 0; index < count; ++index) {
    const std::string_view destination = record.destination(index);
    _byDestination.add(destination, index < hashes.size() ? hashes[index] : identifierHash(destination), person);
  }
  if (count == 0) ++_destinationlessPersonCount;
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
  // A person with a GUID is described by the GUID alone.
  const auto visit = [&](const PLPerson& candidate) {
    if (candidate.record().identifyingGUID().empty()) lowest(candidate);
  };
  for (const std::string_view destination : stored.storedDestinations()) forEachWithDestination(destination, visit);
  return lowest.place();
}

// Each step needs what the one before it asked for.
void PLPersonIndex::prefetch(std::span<const std::string_view> guids) const {
  std::vector<std::uint32_t> hashes;
  hashes.reserve(guids.size());
  for (const std::string_view guid : guids) {
    hashes.push_back(identifierHash(guid));
    _byGUID.prefetch(hashes.back());
  }
  std::vector<const PLPerson*> persons;
  persons.reserve(guids.size());
  for (const std::uint32_t hash : hashes) {
    const PLPerson* const person = _byGUID.candidate(hash);
    if (!person) continue;
    persons.push_back(person);
    person->prefetch();
    _places.prefetch(*person);
  }
  for (const PLPerson* person : persons) person->record().prefetch();
}

}  // namespace pellor
