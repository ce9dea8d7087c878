#include "pellor/friends/internal/PLPersonBatch.h"

#include <array>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLPersonKeyTable.h"
#include "pellor/friends/internal/PLPersonPlaces.h"

namespace pellor {
namespace {

constexpr unsigned StretchBits = 9;

// Fewer fit into the nearest memory in any order.
constexpr std::size_t FewPersons = 512;

std::size_t stretchOf(const PLHashedPerson& person) { return person.hash >> (32 - StretchBits); }

}  // namespace

std::vector<PLHashedPerson> inTableOrder(std::vector<PLHashedPerson> persons) {
  if (persons.size() < FewPersons) return persons;
  std::array<std::size_t, (1U << StretchBits) + 1> next{};
  for (const PLHashedPerson& person : persons) ++next[stretchOf(person) + 1];
  for (std::size_t stretch = 1; stretch < next.size(); ++stretch) next[stretch] += next[stretch - 1];
  std::vector<PLHashedPerson> ordered(persons.size());
  for (const PLHashedPerson& person : persons) ordered[next[stretchOf(person)]++] = person;
  return ordered;
}

void PLPersonBatch::add(PLPerson& person, std::uint64_t place) {
  _places.push_back({&person, PLPersonPlaces::hashOf(person), PLPersonPlaces::numberOf(place)});
  const PLPersonRecord& record = person.record();
  if (const std::string_view guid = record.identifyingGUID(); !guid.empty()) {
    _guids.push_back({&person, identifierHash(guid), 0});
  }
  for (std::uint32_t number = 0; number < record.destinationCount(); ++number) {
    _destinations.push_back({&person, identifierHash(record.destination(number)), number});
  }
  if (record.destinationCount() == 0) ++_destinationlessCount;
}

}  // namespace pellor
