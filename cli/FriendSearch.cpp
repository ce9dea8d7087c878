#include "cli/FriendSearch.h"

#include <algorithm>
#include <functional>
#include <set>

#include "Pellor/PLDestination.h"
#include "cli/CommandError.h"
#include "cli/NameMatch.h"
#include "cli/Output.h"
#include "cli/ShownNumbers.h"

namespace pellor::cli {
namespace {

std::optional<std::string> ownName(const PLPerson& person) {
  return person.hasName() ? person.displayName() : std::nullopt;
}

bool hasDestination(const PLPerson& person, const std::string& key) {
  const auto values = person.allValues();
  return values && std::ranges::any_of(*values, [&](const std::string& value) { return destinationKey(value) == key; });
}

FriendAt friendAt(const PLFriendsManager& manager, const Place& place) {
  const auto page = pageAt(manager, place.page);
  if (place.slot >= page->groupSize()) {
    throw CommandError("there is no slot " + textOf(place) + ": a page has " + std::to_string(page->groupSize()));
  }
  auto person = page->friendAtPosition(place.slot);
  if (!person) throw CommandError("slot " + textOf(place) + " is empty");
  return {place, page, std::move(person)};
}

FriendAt onlyOne(const std::string& who, const std::vector<FriendAt>& found) {
  if (found.size() == 1) return found.front();
  std::vector<std::string> candidates;
  candidates.reserve(found.size());
  for (const FriendAt& candidate : found) {
    candidates.push_back(nameOf(*candidate.person) + " (" + textOf(candidate.place) + ")");
  }
  throw AmbiguousError(who, candidates);
}

}  // namespace

std::vector<FriendAt> allFriends(const PLFriendsManager& manager) {
  std::vector<FriendAt> found;
  std::uint64_t pageIndex = 0;
  for (const auto& page : manager.friendGroups()) {
    for (std::uint64_t slot = 0; slot < page->groupSize(); ++slot) {
      if (auto person = page->friendAtPosition(slot)) found.push_back({{pageIndex, slot}, page, std::move(person)});
    }
    ++pageIndex;
  }
  return found;
}

std::vector<FriendAt> friendsWithDestination(const PLFriendsManager& manager, const std::string& destination) {
  const auto key = destinationKey(destination);
  if (!key) return {};
  return friendsThat(manager, [&](const PLPerson& person) { return hasDestination(person, *key); });
}

FriendAt friendNamed(const PLFriendsManager& manager, const std::string& who) {
  if (who.empty()) throw UsageError("WHO is empty");
  if (const auto place = placeIn(who)) return friendAt(manager, *place);
  const NameMatch name(who);
  const std::function<std::vector<FriendAt>()> searches[] = {
      [&] { return friendsThat(manager, [&](const PLPerson& person) { return person.abRecordGUID() == who; }); },
      [&] { return friendsWithDestination(manager, who); },
      [&] { return friendsThat(manager, [&](const PLPerson& person) { return name.isWhole(ownName(person)); }); },
      [&] { return friendsThat(manager, [&](const PLPerson& person) { return name.isBeginning(ownName(person)); }); },
  };
  for (const auto& search : searches) {
    if (const auto found = search(); !found.empty()) return onlyOne(who, found);
  }
  throw CommandError("no friend is called " + inQuotes(who));
}

std::vector<FriendAt> friendsNamed(const PLFriendsManager& manager, const std::vector<std::string>& who) {
  std::vector<FriendAt> found;
  for (const std::string& name : who) {
    found.push_back(friendNamed(manager, name));
    const auto isSame = [&](const FriendAt& other) { return other.place == found.back().place; };
    if (std::ranges::count_if(found, isSame) > 1) {
      throw UsageError(nameOf(*found.back().person) + " is named twice");
    }
  }
  return found;
}

std::shared_ptr<PLFriendGroup> pageAt(const PLFriendsManager& manager, std::uint64_t index) {
  const auto& pages = manager.friendGroups();
  if (index < pages.size()) return pages[index];
  throw CommandError("there is no page " + std::to_string(index + 1) + ": the last one is page " +
                     std::to_string(pages.size()));
}

std::string nameOf(const PLPerson& person) { return printable(person.displayName().value_or("(no name)")); }

std::string shownDestination(const PLPerson& person) {
  return shownDestination(person.primaryDestination().value_or(""));
}

std::string shownDestination(const std::string& destination) {
  const bool isNumber = plMessageDestinationType(destination) == PLMessageDestinationTypePhoneNumber;
  return printable(isNumber ? Process::current().local<ShownNumbers>().shown(destination) : destination);
}

}  // namespace pellor::cli
