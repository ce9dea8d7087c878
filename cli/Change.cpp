#include "cli/Change.h"

#include <cstdint>
#include <nlohmann/json.hpp>

#include "cli/FriendSearch.h"
#include "cli/JsonForms.h"

namespace pellor::cli {
namespace {

bool isTold(FriendFields fields, LinkChanges links) {
  FriendFields unseen;
  if (links == LinkChanges::untold) unseen.insert(FriendField::contact);
  unseen.insert(FriendField::reachability);
  return (fields.bits & ~unseen.bits) != 0;
}

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

std::vector<Change> changesOf(const ListChange& batch, LinkChanges links) {
  const Snapshot &before = batch.before, &after = batch.after;
  std::vector<Change> changes;
  for (const auto& [id, from] : batch.removed)
    changes.push_back({"deleted", before.friendWith(id), from, std::nullopt});
  for (const auto& [id, from, to] : batch.moved) changes.push_back({"moved", after.friendWith(id), to, from});
  for (const auto& [id, from, to] : batch.pagesMoved) {
    const auto& friends = after.page(to).friends;
    for (std::uint64_t slot = 0; slot < friends.size(); ++slot) {
      const bool hasMoved = friends[slot] && before.placeOf(friends[slot]->id) == Place{from, slot};
      if (hasMoved) changes.push_back({"moved", friends[slot], Place{to, slot}, Place{from, slot}});
    }
  }
  for (const auto& [id, to] : batch.added) changes.push_back({"added", after.friendWith(id), to, std::nullopt});
  for (const auto& [id, fields] : batch.changed)
    if (isTold(fields, links)) changes.push_back({"updated", after.friendWith(id), after.placeOf(id), std::nullopt});
  return changes;
}

}  // namespace pellor::cli
