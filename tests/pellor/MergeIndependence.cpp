// Which edits of two sides conflict.
#include <algorithm>

#include "tests/pellor/MergeJudge.h"

namespace pellor::merging {
namespace {

// What an edit concerns: a field of a friend, a place, the title or the removal of a page.
struct Concerns {
  std::set<std::pair<Tag, std::string>> fields;
  std::set<Tag> removed;
  std::set<Place> places;
  std::set<PageName> titles;
  std::set<PageName> removedPages;
  std::set<PageName> pages;  // that anything is done on
};

// What is changed together, by its name.
std::map<std::string, std::vector<std::optional<Value>>> fieldsOf(const Friend& person) {
  std::map<std::string, std::vector<std::optional<Value>>> fields{{"block", blockOf(person.form)}};
  for (const std::string_view key : OwnFields) fields[std::string(key)] = {at(person.form, key)};
  for (const auto& [key, value] : metadataOf(person.form)) fields["metadata " + key] = {value};
  return fields;
}

std::set<std::string> changedFields(const Friend& before, const Friend& after) {
  std::set<std::string> changed;
  auto one = fieldsOf(before), other = fieldsOf(after);
  for (const auto* fields : {&one, &other}) {
    for (const auto& [name, value] : std::map(*fields)) {
      if (one[name] != other[name]) changed.insert(name);
    }
  }
  return changed;
}

Concerns concernsOf(const Triple& triple, const Side& side) {
  Concerns concerns;
  for (const Tag tag : triple.base.tags()) {
    const Place before = *triple.base.placeOf(tag);
    const auto after = side.placeOf(tag);
    auto changed = after ? changedFields(*triple.base.find(tag), *side.find(tag)) : std::set<std::string>();
    if (!after) concerns.removed.insert(tag);
    if (after && *after != before) changed.insert("place");
    for (const std::string& field : changed) concerns.fields.emplace(tag, field);
    if (!after || !changed.empty()) concerns.pages.insert(before.page);
  }
  for (const Tag tag : side.tags()) {
    const Place after = *side.placeOf(tag);
    if (triple.base.placeOf(tag) == after) continue;
    concerns.places.insert(after);
    concerns.pages.insert(after.page);
  }
  concerns.titles = side.titled;
  concerns.pages.insert(side.titled.begin(), side.titled.end());
  for (const Page& page : triple.base.pages) {
    if (!side.page(page.name)) concerns.removedPages.insert(page.name);
  }
  return concerns;
}

template <class Element>
bool meet(const std::set<Element>& one, const std::set<Element>& other) {
  return std::ranges::any_of(one, [&](const Element& element) { return other.contains(element); });
}

bool concernsRemoved(const Concerns& one, const Concerns& other) {
  return meet(one.removed, other.removed) ||
         std::ranges::any_of(other.fields, [&](const auto& field) { return one.removed.contains(field.first); });
}

bool insertsPages(const Side& side) {
  return std::ranges::any_of(side.pages, [](const Page& page) { return page.name < 0; });
}

}  // namespace

bool areIndependent(const Triple& triple) {
  const Concerns theirs = concernsOf(triple, triple.theirs);
  const Concerns ours = concernsOf(triple, triple.ours);
  if (meet(theirs.fields, ours.fields) || meet(theirs.places, ours.places) || meet(theirs.titles, ours.titles)) {
    return false;
  }
  if (concernsRemoved(theirs, ours) || concernsRemoved(ours, theirs)) return false;
  if (meet(theirs.removedPages, ours.pages) || meet(ours.removedPages, theirs.pages)) return false;
  if (meet(triple.theirs.added, triple.ours.added)) return false;
  // Where both put pages between the same ones, theirs come first.
  if (insertsPages(triple.theirs) && insertsPages(triple.ours)) return false;
  // The last room.
  const std::size_t base = triple.base.pages.size();
  const auto grown = [&](const Side& side) {
    return static_cast<std::size_t>(std::ranges::count_if(
        side.pages, [&](const Page& page) { return page.name < 0 || page.name >= static_cast<PageName>(base); }));
  };
  return base + grown(triple.theirs) + grown(triple.ours) <= triple.maxGroupCount;
}

}  // namespace pellor::merging
