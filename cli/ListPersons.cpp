#include "cli/ListPersons.h"

#include <cstdint>
#include <utility>

#include "pellor/list/ShownDestination.h"

namespace pellor::cli {

PLFriendsManager& managerOf(Session& session) {
  session.list();
  return *PLFriendsManager::managerForDomain(session.options().domain());
}

std::vector<PersonAt> allPersons(const PLFriendsManager& manager) {
  std::vector<PersonAt> found;
  std::uint64_t pageIndex = 0;
  for (const auto& page : manager.friendGroups()) {
    for (std::uint64_t slot = 0; slot < page->groupSize(); ++slot) {
      if (auto person = page->friendAtPosition(slot)) found.push_back({{pageIndex, slot}, std::move(person)});
    }
    ++pageIndex;
  }
  return found;
}

Friend friendOf(const PLPerson& person) {
  Friend shown;
  if (person.hasName()) shown.name = person.displayName().value_or("");
  shown.monogram = person.initials().value_or("");
  shown.destination = destinationShownOf(person).value_or("");
  if (const auto values = person.allValues()) shown.destinations.assign(values->begin(), values->end());
  shown.chosenNumber = person.preferredDestination();
  shown.replyAs = person.preferredReplyAs();
  shown.metadata = person.metadata();
  shown.contactGUID = person.abRecordGUID();
  return shown;
}

}  // namespace pellor::cli
