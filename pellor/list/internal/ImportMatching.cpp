#include "pellor/list/internal/ImportMatching.h"

#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "pellor/friends/PLPerson.h"
#include "pellor/list/internal/ExportedForm.h"
#include "pellor/platform/AddressBookStore.h"

namespace pellor {

bool isLinked(const PLPerson& person) { return person.record().recordID() != InvalidRecordID; }

ImportMatching::ImportMatching(const ExportedList& exported, const Snapshot& list, AddressBookStore& contacts,
                               const Show& show) {
  read(exported);
  if (!_twice) link(contacts, show);
  if (_twice) {
    _twice->again.person = show(_persons.back().person);
    _persons.clear();
    return;
  }
  enter(list);
  for (const Match how : {Match::guid, Match::name, Match::destination}) matchBy(how);
  markRepeated();
}

// Two cards of one person may both be friends: they have GUIDs of their own.
void ImportMatching::read(const ExportedList& exported) {
  std::map<std::string, Place> guids;
  std::map<std::pair<std::string, DestinationSet>, std::vector<std::size_t>> alike;
  for (std::uint64_t page = 0; page < exported.pages.size(); ++page) {
    for (std::uint64_t slot = 0; slot < exported.pages[page].friends.size(); ++slot) {
      const auto& content = exported.pages[page].friends[slot];
      if (!content) continue;
      const Place place{page, slot};
      const auto person = PLPerson::initWithDictionaryRepresentationAddressBook(formOf(*content), nullptr);
      const std::string guid = person->abRecordGUID().value_or("");
      _persons.push_back({.place = place, .guid = guid, .person = person});
      const auto [known, isNew] = guids.try_emplace(guid, place);
      if (!guid.empty() && !isNew) return void(_twice = Twice{{nullptr, place}, known->second});
      auto& others = alike[{person->hasName() ? person->displayName().value_or("") : "",
                            person->allValues() ? *person->allValues() : DestinationSet()}];
      for (const std::size_t other : others) {
        if (guid.empty() || _persons[other].guid.empty())
          return void(_twice = Twice{{nullptr, place}, _persons[other].place});
      }
      others.push_back(_persons.size() - 1);
    }
  }
}

// While contacts cannot be read, or most of them are gone, the links stay as they were exported: a refresh follows
// later.
void ImportMatching::link(AddressBookStore& contacts, const Show& show) {
  std::vector<std::string_view> guids;
  for (const ImportedPerson& each : _persons)
    if (!each.guid.empty()) guids.emplace_back(each.guid);
  contacts.performWithAddressBook([&](AddressBook& addressBook) {
    const bool areAtHand = !contacts.contactsFall() && addressBook.isReadable();
    addressBook.withPeopleMatchingGUIDs(guids, [&] {
      for (ImportedPerson& each : _persons) {
        if (areAtHand) each.person->refreshWithAddressBook(&addressBook);
        each.shown = show(each.person);
        each.isUnreachable = each.shown->destinations.empty();
      }
    });
  });
}

void ImportMatching::enter(const Snapshot& list) {
  for (auto& person : list.friends()) _friends.push_back({std::move(person), _friends.size()});
  for (const Known& known : _friends) {
    const Friend& person = *known.person;
    if (person.contactGUID && !person.contactGUID->empty()) _byGUID.emplace(*person.contactGUID, &known);
    for (const std::string& destination : person.destinations) _byDestination.emplace(destination, &known);
  }
}

void ImportMatching::matchBy(Match how) {
  for (ImportedPerson& each : _persons) {
    if (each.known || each.isUnreachable) continue;
    const Known* known = friendFor(each, how);
    if (!known) continue;
    each.known = known->person;
    _taken.insert(known);
  }
}

const ImportMatching::Known* ImportMatching::firstIn(const Table& table, const std::string& key,
                                                     const ImportedPerson& person, Match how) const {
  const Known* found = nullptr;
  const auto [first, last] = table.equal_range(key);
  for (auto each = first; each != last; ++each) {
    const Known* known = each->second;
    const bool isEarlier = !found || known->order < found->order;
    if (isEarlier && !_taken.contains(known) && isSame(person, *known->person, how)) found = known;
  }
  return found;
}

const ImportMatching::Known* ImportMatching::friendFor(const ImportedPerson& person, Match how) const {
  const Known* found = nullptr;
  const auto look = [&](const Table& table, const std::string& key) {
    const Known* known = firstIn(table, key, person, how);
    if (known && (!found || known->order < found->order)) found = known;
  };
  if (how != Match::guid) {
    for (const std::string& destination : person.shown->destinations) look(_byDestination, destination);
    return found;
  }
  for (const std::string& guid : {person.shown->contactGUID.value_or(""), person.guid})
    if (!guid.empty()) look(_byGUID, guid);
  return found;
}

bool ImportMatching::isSame(const ImportedPerson& person, const Friend& known, Match how) {
  if (how == Match::guid) return true;
  const std::string knownGUID = known.contactGUID.value_or("");
  if (isLinked(*person.person) && !knownGUID.empty() && person.shown->contactGUID != knownGUID) return false;
  const std::string& name = person.shown->name;
  return how == Match::name ? name == known.name : name.empty() || known.name.empty();
}

void ImportMatching::markRepeated() {
  std::unordered_set<std::string> guids;
  for (ImportedPerson& each : _persons) {
    const std::string guid = each.shown->contactGUID.value_or("");
    each.isRepeated = !guid.empty() && !guids.insert(guid).second;
  }
}

}  // namespace pellor
