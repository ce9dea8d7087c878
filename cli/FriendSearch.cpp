#include "cli/FriendSearch.h"

#include <algorithm>
#include <set>
#include <utility>

#include "cli/CommandError.h"
#include "cli/NameMatch.h"
#include "cli/Output.h"
#include "cli/ShownNumbers.h"
#include "cli/Suggestion.h"
#include "pellor/linux/text/TerminalText.h"
#include "pellor/list/Destination.h"
#include "pellor/platform/Platform.h"

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

// Whatever the settings have the friend called.
std::vector<std::string> namesOf(AddressBook& contacts, const Friend& person) {
  std::vector<std::string> names = {person.name};
  const RecordRef own = person.contactGUID ? contacts.copyPersonMatchingGUID(*person.contactGUID) : nullptr;
  for (const RecordRef& card : own ? own->allLinkedPeople() : std::vector<RecordRef>()) {
    for (auto& name : {card->compositeName(), card->nickname()}) names.push_back(name.value_or(""));
    // Where names are written without blanks, each part may be typed.
    names.push_back(card->recordValue(RecordProperty::firstName).value_or("") + " " +
                    card->recordValue(RecordProperty::lastName).value_or(""));
  }
  return names;
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

struct FriendFinder::Tables {
  std::optional<Snapshot> list;
  std::optional<std::vector<FriendAt>> friends;
  std::optional<Table> guids;
  std::optional<Table> destinations;
  std::optional<Table> names;
  std::optional<SearchTable> words;
};

FriendFinder::FriendFinder(Session& session) : _session(session), _tables(std::make_unique<Tables>()) {}

FriendFinder::FriendFinder(Session& session, const Snapshot& list) : FriendFinder(session) { _tables->list = list; }

FriendFinder::~FriendFinder() = default;

const Snapshot& FriendFinder::list() {
  if (!_tables->list) _tables->list = _session.list().snapshot();
  return *_tables->list;
}

const std::vector<FriendAt>& FriendFinder::friends() {
  if (!_tables->friends) _tables->friends = allFriends(list());
  return *_tables->friends;
}

std::vector<FriendAt> FriendFinder::friendsOf(const Numbers& numbers) {
  std::vector<FriendAt> found;
  found.reserve(numbers.size());
  for (const std::size_t number : numbers) found.push_back(friends()[number]);
  return found;
}

std::vector<FriendAt> FriendFinder::friendsIn(std::optional<Table>& table, const std::string& key,
                                              void (FriendFinder::*fill)(Table&)) {
  if (!table) (this->*fill)(table.emplace());
  const auto found = table->find(key);
  return found == table->end() ? std::vector<FriendAt>() : friendsOf(found->second);
}

void FriendFinder::fillGuids(Table& table) {
  for (std::size_t number = 0; number < friends().size(); ++number) {
    if (const auto& guid = friends()[number].person->contactGUID) table[*guid].push_back(number);
  }
}

// Two spellings of one number are one key of a friend, which finds the friend once.
void FriendFinder::fillDestinations(Table& table) {
  for (std::size_t number = 0; number < friends().size(); ++number) {
    for (const std::string& value : friends()[number].person->destinations) {
      const auto key = destinationKey(value);
      if (!key) continue;
      Numbers& numbers = table[*key];
      if (numbers.empty() || numbers.back() != number) numbers.push_back(number);
    }
  }
}

void FriendFinder::fillNames(Table& table) {
  for (std::size_t number = 0; number < friends().size(); ++number) {
    if (const auto& name = friends()[number].person->name; !name.empty()) table[wholeNameKey(name)].push_back(number);
  }
}

std::vector<FriendAt> FriendFinder::withGuid(const std::string& guid) {
  return friendsIn(_tables->guids, guid, &FriendFinder::fillGuids);
}

std::vector<FriendAt> FriendFinder::withDestination(const std::string& destination) {
  const auto key = destinationKey(destination);
  if (!key) return {};
  return friendsIn(_tables->destinations, *key, &FriendFinder::fillDestinations);
}

std::vector<FriendAt> FriendFinder::withName(const std::string& who) {
  auto found = friendsIn(_tables->names, wholeNameKey(who), &FriendFinder::fillNames);
  if (found.size() < 2) return found;
  const WrittenName written(who, _session.platform().locale());
  keepThoseWho(found, [&](const FriendAt& each) { return written.is(each.person->name); });
  return found;
}

SearchTable& FriendFinder::searchTable() {
  if (_tables->words) return *_tables->words;
  const Platform& platform = platformOf(_session.process());
  SearchTable& table = _tables->words.emplace(platform.text, platform.reachability, platform.phoneNumbers);
  std::vector<std::string_view> guids;
  for (const FriendAt& each : friends())
    if (each.person->contactGUID) guids.emplace_back(*each.person->contactGUID);
  _session.withAddressBook([&](AddressBook& contacts) {
    contacts.withPeopleMatchingGUIDs(guids, [&] {
      for (std::size_t number = 0; number < friends().size(); ++number) {
        const Friend& person = *friends()[number].person;
        table.add(number, {namesOf(contacts, person), "", person.destinations});
      }
    });
  });
  return table;
}

// Those whom it fits best.
std::vector<FriendAt> FriendFinder::withWords(const std::string& who) {
  Numbers found;
  std::optional<ContactFit> best;
  searchTable().find(who, [&](std::size_t number, ContactFit fit) {
    if (best.value_or(fit) != fit || fit > worstFitFor(who)) return false;
    best = fit;
    found.push_back(number);
    return true;
  });
  return friendsOf(found);
}

std::string FriendFinder::nearestName(const std::string& who) {
  std::string name;
  searchTable().findSimilar(who, [&](std::size_t number, ContactFit) {
    name = nameOf(*friends()[number].person);
    return false;
  });
  return name;
}

// The first search that finds anybody decides.
std::vector<FriendAt> FriendFinder::fitting(const std::string& who) {
  using Search = std::vector<FriendAt> (FriendFinder::*)(const std::string&);
  for (const Search search :
       {&FriendFinder::withGuid, &FriendFinder::withDestination, &FriendFinder::withName, &FriendFinder::withWords}) {
    if (const auto found = (this->*search)(who); !found.empty()) return found;
  }
  return {};
}

// Of numbers and names the sign and what follows may mean nothing.
bool FriendFinder::isCalled(const std::string& who, const NumberedWho& numbered) {
  if (!withGuid(who).empty()) return true;
  if (destinationKey(who) != destinationKey(numbered.who) && !withDestination(who).empty()) return true;
  const std::string_view ending = std::string_view(who).substr(numbered.who.size());
  return std::ranges::any_of(withName(who), [&](const FriendAt& each) { return each.person->name.ends_with(ending); });
}

FriendAt FriendFinder::named(const std::string& who) {
  if (who.empty()) throw UsageError("WHO is empty");
  if (const auto place = placeIn(who)) return friendAt(list(), *place);
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
