#include "cli/ChangeReport.h"

#include <array>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "cli/FriendSearch.h"
#include "cli/JsonForms.h"

namespace pellor::cli {
namespace {

constexpr std::array<std::pair<std::string_view, const char*>, 4> Kinds = {{
    {PLFriendsManagerPersonAdded, "added"},
    {PLFriendsManagerPersonUpdated, "updated"},
    {PLFriendsManagerPersonDeleted, "deleted"},
    {PLFriendsManagerPersonMoved, "moved"},
}};

}  // namespace

std::string textOf(const Change& change) {
  std::string text = change.kind + " ";
  if (change.from) text += textOf(*change.from) + " to ";
  text += change.place ? textOf(*change.place) : "(in no slot)";
  return text + " " + nameOf(*change.person);
}

Json jsonOf(const Change& change) {
  Json result;
  result["change"] = change.kind;
  if (change.place) result.update(jsonOf(*change.place));
  if (change.from) result["from"] = jsonOf(*change.from);
  result["friend"] = jsonOf(*change.person);
  return result;
}

ChangeReport::ChangeReport(const PLFriendsManager& manager) : _manager(manager), _places(placesNow()) {}

ChangeReport::Places ChangeReport::placesNow() const {
  Places places;
  for (const FriendAt& found : allFriends(_manager)) places.emplace(found.person, found.place);
  return places;
}

std::vector<Change> ChangeReport::changesOf(const PLChangeLog& log) {
  Places now = placesNow();
  std::vector<Change> changes;
  for (const auto& [person, types] : log.entries()) {
    for (const auto& [type, kind] : Kinds) {
      if (types.contains(type)) changes.push_back(changeOf(kind, person, now));
    }
  }
  _places = std::move(now);
  return changes;
}

Change ChangeReport::changeOf(std::string kind, const std::shared_ptr<PLPerson>& person, const Places& now) const {
  const auto placeIn = [&](const Places& places) -> std::optional<Place> {
    const auto known = places.find(person);
    return known == places.end() ? std::nullopt : std::optional(known->second);
  };
  Change change{std::move(kind), person, placeIn(now), std::nullopt};
  if (change.kind == "moved") change.from = placeIn(_places);
  if (change.kind == "deleted") change.place = placeIn(_places);
  return change;
}

}  // namespace pellor::cli
