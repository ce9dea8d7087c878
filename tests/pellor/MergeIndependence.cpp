// Which edits of two sides conflict.
#include <algorithm>

#include "Pellor/PLPersonForm.h"
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

std::set<std::string> changedFields(const Dictionary& before, const Dictionary& after) {
  std::set<std::string> fields;
  const auto compare = [&](const Dictionary& one, const Dictionary& other, const std::string& prefix) {
    for (const auto& [key, value] : one) {
      const Value* same = valueForKey(other, key);
      if (same && *same == value) continue;
      const bool isOwn = !prefix.empty() || key == PLPersonReplyAsKey || key == "PreferredDestination";
      fields.insert(isOwn ? prefix + key : "block");
    }
  };
  const auto split = [](Dictionary form) {
    const Value* value = valueForKey(form, PLPersonMetadataKey);
    const Dictionary metadata = value ? *value->dictionary() : Dictionary();
    form.erase(std::string(PLPersonMetadataKey));
    return std::pair(form, metadata);
  };
  const auto [formBefore, metadataBefore] = split(before);
  const auto [formAfter, metadataAfter] = split(after);
  compare(formBefore, formAfter, "");
  compare(formAfter, formBefore, "");
  compare(metadataBefore, metadataAfter, "metadata ");
  compare(metadataAfter, metadataBefore, "metadata ");
  return fields;
}

Concerns concernsOf(const Triple& triple, const Side& side) {
  Concerns concerns;
  for (const Tag tag : triple.base.tags()) {
    const Place before = *triple.base.placeOf(tag);
    const auto after = side.placeOf(tag);
    if (!after) {
      concerns.removed.insert(tag);
    } else {
      for (const std::string& field : changedFields(triple.base.find(tag)->form, side.find(tag)->form)) {
        concerns.fields.emplace(tag, field);
      }
      if (*after != before) concerns.fields.emplace(tag, "place");
    }
    const bool isUntouched =
        after == before && changedFields(triple.base.find(tag)->form, side.find(tag)->form).empty();
    if (!isUntouched) concerns.pages.insert(before.page);
  }
  for (const Tag tag : side.tags()) {
    const Place after = *side.placeOf(tag);
    if (triple.base.placeOf(tag) == after) continue;
    concerns.places.insert(after);
    concerns.pages.insert(after.page);
  }
  for (const PageName page : side.titled) {
    concerns.titles.insert(page);
    concerns.pages.insert(page);
  }
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
