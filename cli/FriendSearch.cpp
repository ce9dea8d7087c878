#include "cli/FriendSearch.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "cli/CommandError.h"
#include "cli/NameMatch.h"
#include "cli/Output.h"
#include "cli/ShownNumbers.h"
#include "cli/Suggestion.h"
#include "pellor/friends/PLDestination.h"
#include "pellor/linux/text/TerminalText.h"
#include "pellor/list/ShownDestination.h"
#include "pellor/platform/Platform.h"

namespace pellor::cli {
namespace {

std::optional<std::string> ownName(const PLPerson& person) {
  return person.hasName() ? person.displayName() : std::nullopt;
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

// Whatever the settings have the friend called.
std::vector<std::string> namesOf(Session& session, const PLPerson& person) {
  std::vector<std::string> names = {ownName(person).value_or("")};
  const auto guid = person.abRecordGUID();
  if (!guid) return names;
  session.withAddressBook([&](AddressBook& addressBook) {
    const RecordRef own = addressBook.copyPersonMatchingGUID(*guid);
    for (const RecordRef& card : own ? own->allLinkedPeople() : std::vector<RecordRef>()) {
      for (auto& name : {card->compositeName(), card->nickname()}) names.push_back(name.value_or(""));
      // Where names are written without blanks, each part may be typed.
      names.push_back(card->recordValue(RecordProperty::firstName).value_or("") + " " +
                      card->recordValue(RecordProperty::lastName).value_or(""));
    }
  });
  return names;
}

Choice choiceAmong(const std::string& who, std::vector<FriendAt> found) {
  Choice choice{who, found.size(), {}};
  found.resize(std::min(found.size(), Choice::MostCandidates));
  for (const FriendAt& each : found) {
    choice.candidates.push_back({ownName(*each.person).value_or(""),
                                 std::string(withoutIsolation(shownDestination(*each.person))), "", "", each.place});
  }
  return choice;
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

struct FriendFinder::Tables {
  std::optional<std::vector<FriendAt>> friends;
  std::optional<Table> guids;
  std::optional<Table> destinations;
  std::optional<Table> names;
  std::optional<SearchTable> words;
};

FriendFinder::FriendFinder(Session& session) : _session(session), _tables(std::make_unique<Tables>()) {}

FriendFinder::~FriendFinder() = default;

const std::vector<FriendAt>& FriendFinder::friends() {
  if (!_tables->friends) _tables->friends = allFriends(_session.manager());
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
    if (auto guid = friends()[number].person->abRecordGUID()) table[*std::move(guid)].push_back(number);
  }
}

// Two spellings of one number are one key of a friend, which finds the friend once.
void FriendFinder::fillDestinations(Table& table) {
  for (std::size_t number = 0; number < friends().size(); ++number) {
    const auto values = friends()[number].person->allValues();
    if (!values) continue;
    for (const std::string& value : *values) {
      const auto key = destinationKey(value);
      if (!key) continue;
      Numbers& numbers = table[*key];
      if (numbers.empty() || numbers.back() != number) numbers.push_back(number);
    }
  }
}

void FriendFinder::fillNames(Table& table) {
  for (std::size_t number = 0; number < friends().size(); ++number) {
    if (const auto name = ownName(*friends()[number].person)) table[wholeNameKey(*name)].push_back(number);
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
  return friendsIn(_tables->names, wholeNameKey(who), &FriendFinder::fillNames);
}

SearchTable& FriendFinder::searchTable() {
  if (_tables->words) return *_tables->words;
  const Platform& platform = platformOf(_session.process());
  SearchTable& table = _tables->words.emplace(platform.text, platform.reachability, platform.phoneNumbers);
  std::vector<std::shared_ptr<PLPerson>> persons;
  for (const FriendAt& each : friends()) persons.push_back(each.person);
  withCardsOf(persons, [&] {
    for (std::size_t number = 0; number < persons.size(); ++number) {
      SearchedPerson known{namesOf(_session, *persons[number]), "", {}};
      if (const auto values = persons[number]->allValues()) known.destinations.assign(values->begin(), values->end());
      table.add(number, known);
    }
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
  return std::ranges::any_of(
      withName(who), [&](const FriendAt& each) { return ownName(*each.person).value_or("").ends_with(ending); });
}

FriendAt FriendFinder::named(const std::string& who) {
  if (who.empty()) throw UsageError("WHO is empty");
  if (const auto place = placeIn(who)) return friendAt(_session.manager(), *place);
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
  std::unordered_set<const PLPerson*> named;
  for (const std::string& name : who) {
    found.push_back(finder.named(name));
    const PLPerson& person = *found.back().person;
    if (!named.insert(&person).second) throw UsageError(nameOf(person) + " is named twice");
  }
  return found;
}

std::shared_ptr<PLFriendGroup> pageAt(const PLFriendsManager& manager, std::uint64_t index) {
  const auto& pages = manager.friendGroups();
  if (index < pages.size()) return pages[index];
  throw CommandError("there is no page " + std::to_string(index + 1) + ": the last one is page " +
                     std::to_string(pages.size()));
}

std::string nameOf(const PLPerson& person) {
  if (const auto name = ownName(person)) return printable(*name);
  const std::string destination = shownDestination(person);
  return destination.empty() ? "(no name)" : destination;
}

std::string shownDestination(const PLPerson& person) {
  return shownDestination(destinationShownOf(person).value_or(""));
}

std::string shownDestination(const std::string& destination) {
  const bool isNumber = plMessageDestinationType(destination) == PLMessageDestinationTypePhoneNumber;
  return printable(isNumber ? Process::current().local<ShownNumbers>().shown(destination) : destination);
}

}  // namespace pellor::cli
