#include "cli/ImportReport.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "cli/FriendSearch.h"
#include "cli/JsonForms.h"
#include "cli/Output.h"
#include "cli/Place.h"

namespace pellor::cli {
namespace {

using Placed = ImportAnswer::Placed;

std::string placed(const Placed& each) { return nameOf(*each.person) + " (" + textOf(each.place) + ")\n"; }

std::string doneText(const ImportAnswer& answer, const std::string& would) {
  std::string text;
  for (const Placed& each : answer.removed) text += would + "removed " + placed(each);
  for (const Placed& each : answer.added) text += would + "added " + placed(each);
  for (const auto& [person, from, to] : answer.moved)
    text += would + "moved " + textOf(from) + " to " + textOf(to) + " " + nameOf(*person) + "\n";
  for (const auto& person : answer.updated) text += would + "updated " + nameOf(*person) + "\n";
  for (const auto& [page, title] : answer.titled)
    text +=
        would + "titled page " + std::to_string(page + 1) + ": " + (title.empty() ? "(none)" : printable(title)) + "\n";
  return text;
}

Json jsonOfEach(const std::vector<Placed>& friends) {
  Json list = Json::array();
  for (const auto& [person, place] : friends) list.push_back(jsonOf(FriendAt{place, person}));
  return list;
}

Json jsonOfEach(const std::vector<ImportAnswer::Person>& persons) {
  Json list = Json::array();
  for (const auto& person : persons) list.push_back(jsonOf(*person));
  return list;
}

}  // namespace

std::string textOf(const ImportAnswer& answer, ImportMode mode, bool isDry) {
  std::string text = doneText(answer, isDry ? "would have " : "");
  if (mode == ImportMode::add) {
    for (const Placed& each : answer.known) text += "is a friend already: " + placed(each);
  }
  for (const auto& person : answer.unreachable)
    text += "left out " + nameOf(*person) + ": there is neither a number nor an address\n";
  for (const auto& person : answer.repeated)
    text += "left out " + nameOf(*person) + ": a friend before in the file has the same contact\n";
  for (const auto& person : answer.withoutRoom) text += "no room for " + nameOf(*person) + "\n";
  if (answer.changesNothing() && answer.withoutRoom.empty()) text += "nothing is to be changed\n";
  return text;
}

Json jsonOf(const ImportAnswer& answer, bool isDry) {
  Json moved = Json::array();
  for (const auto& [person, from, to] : answer.moved) {
    Json object = jsonOf(FriendAt{to, person});
    object["from"] = jsonOf(from);
    moved.push_back(std::move(object));
  }
  Json titled = Json::array();
  for (const auto& [page, title] : answer.titled)
    titled.push_back({{"page", page}, {"title", title.empty() ? Json(nullptr) : Json(title)}});
  return {{"isDone", !isDry && answer.withoutRoom.empty()},
          {"added", jsonOfEach(answer.added)},
          {"known", jsonOfEach(answer.known)},
          {"removed", jsonOfEach(answer.removed)},
          {"moved", std::move(moved)},
          {"updated", jsonOfEach(answer.updated)},
          {"titled", std::move(titled)},
          {"unreachable", jsonOfEach(answer.unreachable)},
          {"repeated", jsonOfEach(answer.repeated)},
          {"withoutRoom", jsonOfEach(answer.withoutRoom)}};
}

}  // namespace pellor::cli
