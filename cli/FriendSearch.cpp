#include "cli/FriendSearch.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

#include "cli/CommandError.h"
#include "cli/NameMatch.h"
#include "cli/Output.h"
#include "cli/ShownNumbers.h"
#include "cli/Suggestion.h"
#include "pellor/linux/text/TerminalText.h"
#include "pellor/list/Destination.h"

namespace pellor::cli {
namespace {

FriendAt friendAt(const Snapshot& list, const Place& place) {
  const std::size_t size = pageAt(list, place.page).friends.size();
  if (place.slot >= size)
    throw CommandError("there is no slot " + textOf(place) + ": a page has " + std::to_string(size));
  auto person = list.friendAt(place);
  if (!person) throw CommandError("slot " + textOf(place) + " is empty");
  return {place, std::move(person)};
}

Choice choiceAmong(const std::string& who, std::vector<FriendAt> found) {
  Choice choice{who, found.size(), {}};
  found.resize(std::min(found.size(), Choice::MostCandidates));
  for (const FriendAt& each : found) {
    choice.candidates.push_back(
        {each.person->name, std::string(withoutIsolation(shownDestination(*each.person))), "", "", each.place});
  }
  return choice;
}

}  // namespace

std::vector<FriendAt> allFriends(const Snapshot& list) {
  std::vector<FriendAt> found;
  found.reserve(list.friendCount());
  for (std::uint64_t page = 0; page < list.pageCount(); ++page) {
    const auto& friends = list.page(page).friends;
    for (std::uint64_t slot = 0; slot < friends.size(); ++slot)
      if (friends[slot]) found.push_back({{page, slot}, friends[slot]});
  }
  return found;
}

std::vector<FriendAt> placesOf(const Snapshot& list, const std::vector<FriendId>& friends) {
  std::vector<FriendAt> found;
  for (const FriendId id : friends)
    if (const auto place = list.placeOf(id)) found.push_back({*place, list.friendWith(id)});
  std::ranges::sort(found, {}, &FriendAt::place);
  return found;
}

FriendFinder::FriendFinder(Session& session) : _session(session) {}

FriendFinder::FriendFinder(Session& session, const Snapshot& list)
    : _session(session), _search(std::make_unique<FriendSearch>(list)) {}

FriendFinder::~FriendFinder() = default;

FriendSearch& FriendFinder::search() {
  if (!_search) _search = std::make_unique<FriendSearch>(_session.list().snapshot());
  return *_search;
}

std::vector<FriendAt> FriendFinder::friendsOf(const std::vector<FriendId>& friends) {
  const Snapshot& list = search().list();
  std::vector<FriendAt> found;
  for (const FriendId id : friends) found.push_back({*list.placeOf(id), list.friendWith(id)});
  return found;
}

std::vector<FriendAt> FriendFinder::withGuid(const std::string& guid) { return friendsOf(search().withContact(guid)); }

std::vector<FriendAt> FriendFinder::withDestination(const std::string& destination) {
  return friendsOf(search().withDestination(destination));
}

std::string FriendFinder::nearestName(const std::string& who) {
  const auto nearest = search().similar(who);
  return nearest ? nameOf(*search().list().friendWith(*nearest)) : "";
}

// Of Anna Gross and Anna Groß a whole name is the one that is written so.
std::vector<FriendAt> FriendFinder::fitting(const std::string& who) {
  auto found = friendsOf(search().named(who));
  if (found.size() < 2) return found;
  const WrittenName written(who, _session.platform().locale());
  keepThoseWho(found, [&](const FriendAt& each) { return written.is(each.person->name); });
  return found;
}

// Of numbers and names the sign and what follows may mean nothing.
bool FriendFinder::isCalled(const std::string& who, const NumberedWho& numbered) {
  if (!withGuid(who).empty()) return true;
  if (comparableDestination(who) != comparableDestination(numbered.who) && !withDestination(who).empty()) return true;
  const std::string_view ending = std::string_view(who).substr(numbered.who.size());
  return std::ranges::any_of(fitting(who), [&](const FriendAt& each) { return each.person->name.ends_with(ending); });
}

FriendAt FriendFinder::named(const std::string& who) {
  if (who.empty()) throw UsageError("WHO is empty");
  if (const auto place = placeIn(who)) return friendAt(search().list(), *place);
  if (const auto numbered = numberedWho(who); numbered && !isCalled(who, *numbered)) {
    const auto found = fitting(numbered->who);
    if (const auto index = indexOf(*numbered, found.size())) return found[*index];
  }
  const auto found = fitting(who);
  if (found.empty()) throw CommandError("no friend is called " + inQuotes(who) + didYouMean(nearestName(who)));
  if (found.size() == 1) return found.front();
  return found[chosenOf(choiceAmong(who, found), !_session.options().json)];
}

FriendAt friendNamed(Session& session, const std::string& who) { return FriendFinder(session).named(who); }

std::vector<FriendAt> friendsNamed(Session& session, const std::vector<std::string>& who) {
  FriendFinder finder(session);
  std::vector<FriendAt> found;
  std::set<FriendId> named;
  for (const std::string& name : who) {
    found.push_back(finder.named(name));
    const Friend& person = *found.back().person;
    if (!named.insert(person.id).second) throw UsageError(nameOf(person) + " is named twice");
  }
  return found;
}

Page pageAt(const Snapshot& list, std::uint64_t index) {
  if (index < list.pageCount()) return list.page(index);
  throw CommandError("there is no page " + std::to_string(index + 1) + ": the last one is page " +
                     std::to_string(list.pageCount()));
}

std::string nameOf(const Friend& person) {
  if (!person.name.empty()) return printable(person.name);
  const std::string destination = shownDestination(person);
  return destination.empty() ? "(no name)" : destination;
}

std::optional<std::string> primaryDestination(const Friend& person) {
  for (const DestinationKind kind : {DestinationKind::phoneNumber, DestinationKind::emailAddress}) {
    const auto found = std::ranges::find(person.destinations, kind, destinationKind);
    if (found != person.destinations.end()) return *found;
  }
  return std::nullopt;
}

std::string shownDestination(const Friend& person) { return shownDestination(person.destination); }

std::string shownDestination(const std::string& destination) {
  const bool isNumber = destinationKind(destination) == DestinationKind::phoneNumber;
  return printable(isNumber ? Process::current().local<ShownNumbers>().shown(destination) : destination);
}

}  // namespace pellor::cli
