#include "pellor/list/FriendSearch.h"

#include <algorithm>
#include <set>
#include <span>
#include <unordered_map>
#include <utility>

#include "pellor/list/Destination.h"
#include "pellor/list/internal/TypedNames.h"
#include "pellor/platform/Platform.h"
#include "pellor/platform/SearchTable.h"
#include "pellor/runtime/Process.h"

namespace pellor {
namespace {

const Platform& platform() { return platformOf(Process::current()); }

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

FriendFit friendFit(ContactFit fit) {
  switch (fit) {
    case ContactFit::destination:
      return FriendFit::destination;
    case ContactFit::name:
      return FriendFit::cardName;
    case ContactFit::nameWords:
    case ContactFit::organizationWords:
      return FriendFit::nameWords;
    case ContactFit::addressWords:
      return FriendFit::addressWords;
    case ContactFit::numberBeginning:
      return FriendFit::numberBeginning;
    case ContactFit::numberEnding:
      return FriendFit::numberEnding;
  }
  return FriendFit::numberEnding;
}

// How many of the first ones may be meant.
std::size_t meantOf(const std::vector<FoundFriend>& found, std::string_view text) {
  if (found.empty()) return 0;
  const FriendFit best = found.front().fit;
  if (best >= FriendFit::numberBeginning && !mayBePartOfNumber(text)) return 0;
  return static_cast<std::size_t>(std::ranges::count(found, best, &FoundFriend::fit));
}

}  // namespace

struct FriendSearch::Tables {
  using Ids = std::vector<FriendId>;
  using Table = std::unordered_map<std::string, Ids>;

  explicit Tables(Snapshot version) : list(std::move(version)), friends(list.friends()) {}

  /// The friends under a key; `fill` adds one to the table as it is made.
  template <class Fill>
  Ids idsIn(std::optional<Table>& table, const std::string& key, const Fill& fill) {
    if (!table) {
      table.emplace();
      for (const auto& person : friends) fill(*table, *person);
    }
    const auto found = table->find(key);
    return found == table->end() ? Ids() : found->second;
  }
  Ids withContact(const std::string& guid) {
    return idsIn(guids, guid, [](Table& table, const Friend& person) {
      if (person.contactGUID) table[*person.contactGUID].push_back(person.id);
    });
  }
  // Two spellings of one number are one key of a friend, which finds the friend once.
  Ids withDestination(std::string_view destination) {
    const auto key = comparableDestination(destination);
    if (!key) return {};
    return idsIn(destinations, *key, [](Table& table, const Friend& person) {
      for (const std::string& value : person.destinations) {
        const auto known = comparableDestination(value);
        if (!known) continue;
        Ids& ids = table[*known];
        if (ids.empty() || ids.back() != person.id) ids.push_back(person.id);
      }
    });
  }
  Ids withName(std::string_view name) {
    return idsIn(names, wholeNameKey(name), [](Table& table, const Friend& person) {
      if (!person.name.empty()) table[wholeNameKey(person.name)].push_back(person.id);
    });
  }
  std::vector<FoundFriend> findWhole(std::string_view text) {
    std::vector<FoundFriend> found;
    const auto take = [&](const Ids& ids, FriendFit fit) {
      for (const FriendId id : ids)
        if (std::ranges::find(found, id, &FoundFriend::id) == found.end()) found.push_back({id, fit});
    };
    take(withContact(std::string(text)), FriendFit::contact);
    take(withDestination(text), FriendFit::destination);
    take(withName(text), FriendFit::name);
    return found;
  }
  void findParts(std::string_view text, std::vector<FoundFriend>& found) {
    std::set<FriendId> known;
    for (const FoundFriend& each : found) known.insert(each.id);
    searchTable().find(text, [&](std::size_t index, ContactFit fit) {
      const FriendId id = friends[index]->id;
      if (known.insert(id).second) found.push_back({id, friendFit(fit)});
      return true;
    });
    std::ranges::stable_sort(found, {}, &FoundFriend::fit);
  }
  SearchTable& searchTable() {
    if (words) return *words;
    SearchTable& table = words.emplace(platform().text, platform().reachability, platform().phoneNumbers);
    std::vector<std::string_view> linked;
    for (const auto& person : friends)
      if (person->contactGUID) linked.emplace_back(*person->contactGUID);
    platform().addressBook->performWithAddressBook([&](AddressBook& contacts) {
      contacts.withPeopleMatchingGUIDs(linked, [&] {
        for (std::size_t index = 0; index < friends.size(); ++index)
          table.add(index, {namesOf(contacts, *friends[index]), "", friends[index]->destinations});
      });
    });
    return table;
  }

  const Snapshot list;
  const std::vector<std::shared_ptr<const Friend>> friends;
  std::optional<Table> guids;
  std::optional<Table> destinations;
  std::optional<Table> names;
  std::optional<SearchTable> words;
};

FriendSearch::FriendSearch(Snapshot list) : _tables(std::make_unique<Tables>(std::move(list))) {}

FriendSearch::~FriendSearch() = default;

const Snapshot& FriendSearch::list() const { return _tables->list; }

FoundFriends FriendSearch::find(std::string_view text, std::size_t limit) {
  std::vector<FoundFriend> found = _tables->findWhole(text);
  _tables->findParts(text, found);
  if (found.size() > limit) found.resize(limit);
  const std::size_t meant = meantOf(found, text);
  return {std::move(found), meant};
}

// What friends are known by in whole is looked up without the cards of all.
std::vector<FriendId> FriendSearch::named(std::string_view text) {
  std::vector<FoundFriend> found = _tables->findWhole(text);
  if (found.empty()) _tables->findParts(text, found);
  std::vector<FriendId> named;
  for (const FoundFriend& each : std::span(found).first(meantOf(found, text))) named.push_back(each.id);
  return named;
}

std::optional<FriendId> FriendSearch::similar(std::string_view text) {
  std::optional<FriendId> nearest;
  _tables->searchTable().findSimilar(text, [&](std::size_t index, ContactFit) {
    nearest = _tables->friends[index]->id;
    return false;
  });
  return nearest;
}

std::vector<FriendId> FriendSearch::withContact(const std::string& guid) { return _tables->withContact(guid); }

std::vector<FriendId> FriendSearch::withDestination(std::string_view destination) {
  return _tables->withDestination(destination);
}

}  // namespace pellor
