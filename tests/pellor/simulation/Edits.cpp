#include "tests/pellor/simulation/Edits.h"

#include <algorithm>
#include <array>

namespace pellor {
namespace {

std::string shortName(const FriendName& name) { return name.substr(0, name.find('@')); }

std::string textOf(const std::set<FriendName>& names) {
  std::string text;
  for (const FriendName& name : names) text += " " + shortName(name);
  return text;
}

std::string textOf(const std::map<FriendName, SeenPlace>& placed) {
  std::string text;
  for (const auto& [name, place] : placed) {
    text += " " + shortName(name) + " at " + std::to_string(place.page.index) + "/" + std::to_string(place.position);
  }
  return text;
}

std::string textOf(const PlainFriend& told) {
  std::string text = told.replyAs.empty() ? "" : " reply as " + told.replyAs;
  for (const auto& [key, value] : told.metadata) text += " " + key + "=" + value;
  return text;
}

std::string textOf(const StoredVersions& versions) {
  return std::to_string(versions.list) + "/" + std::to_string(versions.titles);
}

}  // namespace

std::string Edit::description() const {
  static constexpr std::array<const char*, 10> names = {"add",      "remove",   "clear slot",     "move",  "title",
                                                        "reply as", "metadata", "clear metadata", "purge", "refresh"};
  std::string result = "process " + std::to_string(author) + ": " + names[static_cast<std::size_t>(kind)];
  if (!who.empty()) result += " of " + shortName(who);
  result += textOf(placed);
  if (!removed.empty()) result += (placed.empty() ? "" : " in place of") + textOf(removed);
  if (kind == Kind::title) result += " of page " + std::to_string(page.index) + " with" + textOf(page.residents) + ":";
  if (!text.empty()) result += " " + text;
  result += textOf(told) + "  (made on " + textOf(known);
  return result + (acknowledged ? ", stored in " + textOf(*acknowledged) : ", not acknowledged") + ")";
}

bool Round::mayPagesGo() const {
  std::set<std::uint64_t> emptying;
  for (const Edit& edit : edits) {
    if (edit.kind == Edit::Kind::remove || edit.kind == Edit::Kind::purge) return true;
    if (edit.kind == Edit::Kind::move || !edit.removed.empty()) emptying.insert(edit.author);
  }
  return emptying.size() > 1;
}

bool Round::arePagesKnown() const {
  const bool isAnyoneOut = std::ranges::any_of(edits, [](const Edit& edit) { return !edit.removed.empty(); });
  if (!isAnyoneOut && !mayPagesGo()) return true;
  const auto others = unsettled();
  std::size_t pagesThatMayGo = 0, friendsBehind = 0;
  for (const PlainPage& page : before.pages) {
    const auto mayLeave = [&](const FriendName& name) { return name.empty() || others.contains(name); };
    const auto staying = page.slots.size() - static_cast<std::size_t>(std::ranges::count_if(page.slots, mayLeave));
    if (staying == 0) ++pagesThatMayGo;
    if (pagesThatMayGo > 0) friendsBehind += staying;
  }
  return pagesThatMayGo == 0 || friendsBehind >= pagesThatMayGo + 2;
}

bool Round::buildsOn(std::size_t later, std::size_t earlier) const {
  if (earlier >= later) return false;
  const Edit &first = edits[earlier], &second = edits[later];
  if (first.author == second.author && !hasUntoldWrites) return true;
  if (!first.acknowledged || first.firstLater > later) return false;
  return first.kind == Edit::Kind::title ? first.acknowledged->titles <= second.known.titles
                                         : first.acknowledged->list <= second.known.list;
}

std::set<FriendName> Round::touched() const {
  std::set<FriendName> names = after.doubled;
  for (const Edit& edit : edits) {
    for (const auto& [name, place] : edit.placed) names.insert(name);
    names.insert(edit.removed.begin(), edit.removed.end());
  }
  return names;
}

std::set<FriendName> Round::unsettled() const {
  std::set<FriendName> names = touched();
  names.insert(relinked.begin(), relinked.end());
  return names;
}

std::optional<std::size_t> Round::pageNow(const SeenPage& page) const {
  const auto others = unsettled();
  if (!arePagesKnown()) return std::nullopt;
  for (const FriendName& name : page.residents) {
    if (others.contains(name)) continue;
    if (const auto place = after.placeOf(name)) return place->page;
  }
  return std::nullopt;
}

bool Round::isContested(std::size_t edit, const FriendName& name) const {
  const SeenPlace& asked = edits[edit].placed.at(name);
  const auto page = pageNow(asked.page);
  const auto competes = [&](const auto& other) {
    const auto otherPage = pageNow(other.second.page);
    const bool mayBeSamePage = !page || !otherPage || *page == *otherPage;
    return other.first == name || (mayBeSamePage && other.second.position == asked.position);
  };
  for (std::size_t other = 0; other < edits.size(); ++other) {
    if (edits[other].author == edits[edit].author || buildsOn(edit, other)) continue;
    if (std::ranges::any_of(edits[other].placed, competes)) return true;
  }
  return false;
}

bool Round::mayHaveBeenTwo(const FriendName& name) const {
  std::set<std::uint64_t> authors;
  if (relinked.contains(name)) return true;
  for (const Edit& edit : edits) {
    if (edit.kind == Edit::Kind::add && edit.placed.contains(name)) authors.insert(edit.author);
  }
  return authors.size() > (hasUntoldWrites ? 0 : 1);
}

bool Round::canBeOrdered() const {
  const auto isRelinked = [&](const FriendName& name) { return relinked.contains(name); };
  const auto concernsRelinked = [&](const Edit& edit) {
    return isRelinked(edit.who) || std::ranges::any_of(edit.page.residents, isRelinked);
  };
  return !hasTakenOneOfTwo && !wasStoreReplaced && !hasPagesOfSeveralSizes &&
         std::ranges::none_of(touched(), isRelinked) && std::ranges::none_of(edits, concernsRelinked);
}

std::string Round::text() const {
  std::string text = "before: " + before.text() + "\n";
  for (const Edit& edit : edits) text += "  " + edit.description() + "\n";
  return text + "after:  " + after.text() + "\n";
}

}  // namespace pellor
