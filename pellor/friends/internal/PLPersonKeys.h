// By which identifiers a person is indexed, seen in place.
#pragma once

#include <string_view>

#include "pellor/friends/PLPerson.h"

namespace pellor {

inline bool hasGUID(const PLPerson& person, std::string_view guid) { return person.record().identifyingGUID() == guid; }

inline bool hasDestination(const PLPerson& person, std::string_view destination) {
  return person.record().containsDestination(destination);
}

/// Calls `visit` with the GUID, unless it is absent or empty.
template <class Visit>
void visitGUID(const PLPerson& person, const Visit& visit) {
  if (const std::string_view guid = person.record().identifyingGUID(); !guid.empty()) visit(guid);
}

/// Calls `visit` with each destination, in their order.
template <class Visit>
void forEachDestination(const PLPerson& person, const Visit& visit) {
  const PLPersonRecord& record = person.record();
  for (std::size_t index = 0; index < record.destinationCount(); ++index) visit(record.destination(index));
}

}  // namespace pellor
