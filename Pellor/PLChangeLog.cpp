#include "Pellor/PLChangeLog.h"

#include <algorithm>

namespace pellor {

PLChangeLog::Entry& PLChangeLog::entryFor(const std::shared_ptr<PLPerson>& person) {
  auto [place, isNew] = _places.try_emplace(person.get(), _entries.size());
  if (isNew) _entries.emplace_back(person, ChangeTypes{});
  return _entries[place->second];
}

void PLChangeLog::add(const std::shared_ptr<PLPerson>& person, std::string_view changeType) {
  entryFor(person).second.emplace(changeType);
}

void PLChangeLog::set(const std::shared_ptr<PLPerson>& person, ChangeTypes types) {
  entryFor(person).second = std::move(types);
}

const PLChangeLog::ChangeTypes* PLChangeLog::typesFor(const PLPerson* person) const {
  auto place = _places.find(person);
  return place == _places.end() ? nullptr : &_entries[place->second].second;
}

bool PLChangeLog::containsAdditionsOrUpdates() const {
  return std::ranges::any_of(_entries, [](const Entry& entry) {
    return entry.second.contains(PLFriendsManagerPersonAdded) || entry.second.contains(PLFriendsManagerPersonUpdated);
  });
}

PLChangeLog mergedChangeLogs(const std::vector<PLChangeLog>& logs) {
  PLChangeLog merged;
  for (const PLChangeLog& log : logs) {
    for (const auto& [person, types] : log.entries()) {
      const PLChangeLog::ChangeTypes* earlier = merged.typesFor(person.get());
      const bool wasDeleted = earlier && earlier->contains(PLFriendsManagerPersonDeleted);
      const bool wipesEarlier =
          wasDeleted ? types.contains(PLFriendsManagerPersonAdded) : types.contains(PLFriendsManagerPersonDeleted);
      PLChangeLog::ChangeTypes result = types;
      if (earlier && !wipesEarlier) result.insert(earlier->begin(), earlier->end());
      merged.set(person, std::move(result));
    }
  }
  return merged;
}

}  // namespace pellor
