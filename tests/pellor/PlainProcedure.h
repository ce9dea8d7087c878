// The friend list by its written procedures: step by step, slot by slot, without an index, nothing kept from one time
// to the next and nothing skipped. What the manager does quickly has to come to the same.
#pragma once

#include <algorithm>
#include <cmath>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLChangeLog.h"
#include "pellor/friends/PLDestination.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Timer.h"
#include "tests/pellor/PlainIdentifierMap.h"

namespace pellor {

/// A list in a process of its own, with persons of its own. Call it as that process.
class PlainProcedure {
 public:
  using Slots = std::vector<Slot>;
  struct Group {
    std::ptrdiff_t count() const { return std::ssize(friends) - std::ranges::count(friends, EmptySlot); }
    Slots friends;
  };
  struct Settings {
    std::uint64_t groupSize, maxGroupCount;
    bool addsTrailingGroup, removesDuplicates, removesUnreachable, refreshes;
  };

  PlainProcedure(Process& process, const Settings& settings)
      : _process(process), _settings(settings), _refreshes(settings.refreshes) {
    addEmptyGroup();
  }

  Slots list;
  std::vector<std::shared_ptr<Group>> groups;
  Array stored;
  std::vector<PLChangeLog> notifications;
  std::size_t groupListChanges = 0, writes = 0, pushes = 0;
  std::int32_t sequenceNumber = 0;  // as it is stored

  // --- Loading and saving ---

  void reload() {
    log("a friend list reload was requested");
    load();
  }

  void load() {
    log("loaded friend list%@", _didLoad ? "" : " for the first time");
    merge();
    layOut();
    if (_didLoad) log("friend list has%@ changes", _changes.isEmpty() ? " no" : "");
    _didLoad = true;
    if (!refresh()) {
      cleanUp();
      postChanges();
    }
    // Who was looked up comes last, and so wins a key that it shares with a friend.
    _map.clear();
    _map.enter(list);
    _map.enter(_sourced);
  }

  void save() { _saveIsRequested = true; }

  /// What the save queue does, once the main queue has run.
  void rest() {
    const auto isUnsaved = [](const Slot& person) { return person && person->needsSave(); };
    if (!std::exchange(_saveIsRequested, false)) return;
    const bool writesNumber = std::exchange(_numberIsDue, false);
    const bool writesList = _needsSync || std::ranges::any_of(list, isUnsaved);
    if (writesNumber || writesList) ++writes;
    if (!writesList) return;
    stored.clear();
    for (const Slot& person : list) {
      stored.emplace_back(person ? person->dictionaryRepresentation() : Dictionary());
      if (person) person->setNeedsSave(false);
    }
    if (std::exchange(_needsSync, false)) ++pushes;
    log("friend list saved");
  }

  // --- Contacts ---

  void addressBookChanged(const std::string& name) {
    log("received %@", name);
    _process.mainQueue().async([this] {
      _needsRefresh = true;
      if (_refreshTimer && _refreshTimer->isValid()) return;
      _refreshTimer = Timer::after(_process.mainQueue(), 0.2, [this] {
        refresh();
        lookUpAgain();
      });
    });
  }

  bool refresh() {
    bool didRefresh = false;
    platformOf(_process).addressBook->performWithAddressBook([&](AddressBook& addressBook) {
      const bool isDue = _needsRefresh || sequenceNumber != addressBook.sequenceNumber();
      if (!isDue || !_refreshes || !addressBook.isReadable()) return;
      log("refreshing friends against address book");
      for (const Slot& person : list) {
        if (person) person->refreshWithAddressBook(&addressBook);
      }
      _numberIsDue = _numberIsDue || sequenceNumber != addressBook.sequenceNumber();
      sequenceNumber = addressBook.sequenceNumber();
      didRefresh = true;
    });
    if (!didRefresh) return false;
    cleanUp();
    postChanges();
    _needsRefresh = false;
    return true;
  }

  void setRefreshes(bool refreshes) {
    const bool wereRefreshing = std::exchange(_refreshes, refreshes);
    if (refreshes && !wereRefreshing) refresh();
  }

  // --- Edits ---

  bool addFriend(const Slot& person) {
    for (std::size_t group = 0; group < groups.size(); ++group) {
      const auto place = std::ranges::find(groups[group]->friends, EmptySlot) - groups[group]->friends.begin();
      if (place == std::ssize(groups[group]->friends)) continue;
      setFriend(person, group, static_cast<std::size_t>(place));
      return true;
    }
    return false;
  }

  void setFriend(const Slot& person, std::size_t group, std::size_t position) {
    if (person) log("setting [%@] in friend list at position %tu", person->displayName(), position);
    if (!person) log("setting empty slot in friend list at position %tu", position);
    groups[group]->friends[position] = list[group * _settings.groupSize + position] = person;
    _needsSync = true;
    save();
    if (!person) return;
    std::erase(_sourced, person);
    _changes.add(person, PLFriendsManagerPersonAdded);
    if (shouldAddEmptyGroup()) addEmptyGroup();
    postChanges();
  }

  void removeFriend(std::size_t group, std::size_t position) {
    const Slot person = std::exchange(groups[group]->friends[position], EmptySlot);
    if (!person) return log("Position %lu is already empty", position);
    log("Removing friend [%@] from position %lu in friend group", person->displayName(), position);
    list[group * _settings.groupSize + position] = EmptySlot;
    _needsSync = true;
    _changes.add(person, PLFriendsManagerPersonDeleted);
    _map.erase(*person);
    if (groups[group]->count() == 0 && _settings.maxGroupCount >= 2) removeGroup(group);
    postChanges();
    save();
  }

  void syncGroup(std::size_t group) {
    for (std::size_t position = 0; position < _settings.groupSize; ++position) {
      const Slot& person = groups[group]->friends[position];
      if (std::exchange(list[group * _settings.groupSize + position], person) == person) continue;
      _needsSync = true;
      if (person) log("%@ was moved to position %u in group %u", person->description(), position, group);
    }
    if (_needsSync) save();
    if (shouldAddEmptyGroup()) addEmptyGroup();
  }

  // No save: the next one writes the order.
  void moveFriends(std::size_t group, const Slots& moved) {
    _needsSync = true;
    std::ranges::copy(groups[group]->friends, firstOf(group));
    for (const Slot& person : moved) _changes.add(person, PLFriendsManagerPersonMoved);
    postChanges();
  }

  void purge() {
    const std::size_t count = groups.size();
    for (std::size_t next = count; next > 1; --next) {
      if (groups[next - 2]->count() == 0) removeGroup(next - 2);
    }
    if (groups.size() == count) return;
    _needsSync = true;
    save();
  }

  void personValuesChanged(const Slot& person) {
    _changes.add(person, PLFriendsManagerPersonUpdated);
    postChanges();
    if (std::ranges::count(list, person) > 0) save();
  }

  // --- Lookup ---

  void lookUpAgain() {
    platformOf(_process).addressBook->performWithAddressBook([this](AddressBook& addressBook) {
      if (!addressBook.isReadable()) return;
      for (const auto& weak : std::exchange(_unread, {})) {
        if (const Slot person = weak.lock()) person->refreshWithAddressBook(&addressBook);
      }
    });
  }

  Slot personWithDestinations(const std::vector<std::string>& destinations) {
    lookUpAgain();
    const DestinationSet wanted = plSanitizedDestinationSet(destinations);
    if (const Slot known = _map.firstOf([&](const std::string& key) { return wanted.contains(key); })) return known;
    return source([&](AddressBook& addressBook) {
      return PLPerson::initWithDestinationsAddressBook({wanted.begin(), wanted.end()}, &addressBook);
    });
  }

  Slot personWithABRecordGUID(const std::string& guid) {
    lookUpAgain();
    if (const Slot known = _map.firstOf([&](const std::string& key) { return key == guid; })) return known;
    return source(
        [&](AddressBook& addressBook) { return PLPerson::initWithABRecordGUIDAddressBook(guid, &addressBook); });
  }

  Slots allPeople() const { return _map.persons(); }

 private:
  // --- Layout ---

  Slots::iterator firstOf(std::size_t group) {
    return list.begin() + static_cast<std::ptrdiff_t>(group * _settings.groupSize);
  }

  bool shouldAddEmptyGroup() const {
    if (groups.empty()) return true;
    return groups.size() < _settings.maxGroupCount && groups.back()->count() > 0 && _settings.addsTrailingGroup;
  }

  void addEmptyGroup() {
    const std::size_t index = groups.size();
    list.resize(std::max(list.size(), (index + 1) * _settings.groupSize));
    groups.push_back(std::make_shared<Group>(Slots(firstOf(index), firstOf(index + 1))));
    ++groupListChanges;
  }

  void layOut() {
    const std::size_t count = std::min(list.size() / _settings.groupSize, _settings.maxGroupCount);
    const bool removesGroups = groups.size() > count;
    groups.resize(count);
    for (std::size_t index = 0; index < count; ++index) {
      if (!groups[index]) groups[index] = std::make_shared<Group>();
      groups[index]->friends.assign(firstOf(index), firstOf(index + 1));
    }
    if (shouldAddEmptyGroup()) {
      addEmptyGroup();
    } else if (removesGroups) {
      ++groupListChanges;
    }
  }

  void removeGroup(std::size_t index) {
    groups.erase(groups.begin() + static_cast<std::ptrdiff_t>(index));
    list.erase(firstOf(index), firstOf(index + 1));
    ++groupListChanges;
  }

  // --- Merge ---

  void merge() {
    Slots displaced;
    for (std::size_t index = 0; index < stored.size(); ++index) {
      const Dictionary form = stored[index].dictionary() ? *stored[index].dictionary() : Dictionary();
      index < list.size() ? place(form, index, displaced) : append(form, index);
    }
    const float pages = std::ceil(static_cast<float>(stored.size()) / static_cast<float>(_settings.groupSize));
    const std::size_t kept = static_cast<std::size_t>(pages) * _settings.groupSize;
    for (std::size_t index = stored.size(); index < list.size(); ++index) {
      if (list[index]) displaced.push_back(std::exchange(list[index], EmptySlot));
    }
    list.resize(std::min(list.size(), kept));
    for (const Slot& person : displaced) {
      log("[%@] [ABGUID=%@] was displaced and removed", person->displayName(), person->abRecordGUID());
      _changes.add(person, PLFriendsManagerPersonDeleted);
    }
    save();
    if (_changes.containsAdditionsOrUpdates()) _needsRefresh = true;
  }

  // Only behind the end of the list a friend without destinations is left out.
  void append(const Dictionary& form, std::size_t index) {
    const Value* destinations = valueForKey(form, "AllValues");
    if (!destinations || !destinations->array() || destinations->array()->empty()) return;
    while (list.size() <= index) addEmptyGroup();
    list[index] = PLPerson::initWithDictionaryRepresentationAddressBook(form, nullptr);
    _changes.add(list[index], PLFriendsManagerPersonAdded);
  }

  void place(const Dictionary& form, std::size_t index, Slots& displaced) {
    const Slot current = list[index];
    Slot found = current && current->isEqualToDictionaryRepresentation(form) ? current : nullptr;
    if (!found) {
      if (!form.empty()) found = takeMoved(form, index, displaced);
      if (current) displaced.push_back(current);
      list[index] = found;
    }
    if (form.empty()) return;
    if (!found) {
      list[index] = newFriend(form);
      _changes.add(list[index], PLFriendsManagerPersonAdded);
    } else if (found->updateFromDictionaryRepresentation(form)) {
      _changes.add(found, PLFriendsManagerPersonUpdated);
    }
  }

  // From a later slot, else from among the displaced.
  Slot takeMoved(const Dictionary& form, std::size_t index, Slots& displaced) {
    const auto isMeant = [&](const Slot& person) { return person && person->isEqualToDictionaryRepresentation(form); };
    Slot moved;
    const auto later = std::find_if(list.begin() + static_cast<std::ptrdiff_t>(index + 1), list.end(), isMeant);
    const auto earlier = std::ranges::find_if(displaced, isMeant);
    if (later != list.end()) {
      moved = std::exchange(*later, EmptySlot);
    } else if (earlier != displaced.end()) {
      moved = *earlier;
      displaced.erase(earlier);
    }
    if (moved) _changes.add(moved, PLFriendsManagerPersonMoved);
    return moved;
  }

  // A looked-up person becomes the friend, with the stored preferences that it has not; it is written if that is not
  // what is stored.
  Slot newFriend(const Dictionary& form) {
    Slot person = PLPerson::initWithDictionaryRepresentationAddressBook(form, nullptr);
    const auto sourced = std::ranges::find_if(_sourced, [&](const Slot& other) { return person->isLike(*other); });
    if (sourced == _sourced.end()) return person;
    person = *sourced;
    _sourced.erase(sourced);
    PLPersonForm shown(form);
    person->adoptPreferencesFromForm(shown);
    person->setNeedsSave(person->dictionaryRepresentation() != form);
    return person;
  }

  // --- Clean-up ---

  void cleanUp() {
    if (_settings.removesDuplicates) removeDuplicates();
    if (_settings.removesUnreachable) removeUnreachable();
    save();
  }

  void removeDuplicates() {
    std::set<std::string> seen;
    std::vector<std::size_t> repeated;
    for (std::size_t index = 0; index < list.size(); ++index) {
      const auto guid = list[index] ? list[index]->abRecordGUID() : std::nullopt;
      if (!guid || guid->empty() || seen.insert(*guid).second) continue;
      repeated.push_back(index);
      log("deduplicating friend [%@] [ABGUID=%@] at index %lu as it is already present in the set of friend ABGUIDs "
          "analyzed so far: %@",
          list[index]->displayName(), guid, index, seen);
    }
    removeFriendsAt(repeated);
  }

  void removeUnreachable() {
    std::vector<std::size_t> unreachable;
    for (std::size_t index = 0; index < list.size(); ++index) {
      if (!list[index] || list[index]->allValuesCount() > 0) continue;
      unreachable.push_back(index);
      log("culling friend [%@] [ABGUID=%@] since its destination set has become empty", list[index]->displayName(),
          list[index]->abRecordGUID());
    }
    removeFriendsAt(unreachable);
  }

  // The indexes name slots of the list as it is on entry: each later one moves down with every group that vanishes.
  void removeFriendsAt(const std::vector<std::size_t>& indexes) {
    const std::size_t countOnEntry = list.size();
    for (const std::size_t named : indexes) {
      const std::size_t index = named - (countOnEntry - list.size());
      _changes.add(list[index], PLFriendsManagerPersonDeleted);
      const std::size_t group = index / _settings.groupSize;
      if (group < groups.size()) removeFriend(group, index % _settings.groupSize);
    }
  }

  Slot source(const auto& make) {
    platformOf(_process).addressBook->performWithAddressBook([&](AddressBook& addressBook) {
      _sourced.push_back(make(addressBook));
      if (!addressBook.isReadable()) _unread.push_back(_sourced.back());
    });
    _map.enter({_sourced.back()});
    return _sourced.back();
  }

  // --- Reports ---

  void postChanges() {
    _process.mainQueue().async([this] {
      if (_changes.isEmpty()) return;
      log("posting %@ with %u changelog %@", PLFriendsManagerChangedNotification, _changes.count(),
          _changes.count() == 1 ? "entry" : "entries");
      notifications.push_back(std::exchange(_changes, {}));
    });
  }

  void log(const char* text, const auto&... arguments) const { _PLGetLogSystem().log(text, arguments...); }

  Process& _process;
  const Settings _settings;
  Slots _sourced;
  std::vector<std::weak_ptr<PLPerson>> _unread;  // looked up while the contacts could not be read
  PlainIdentifierMap _map;
  PLChangeLog _changes;
  std::shared_ptr<Timer> _refreshTimer;
  bool _refreshes, _didLoad = false, _needsSync = false, _needsRefresh = false, _saveIsRequested = false;
  bool _numberIsDue = false;  // it goes out with the next write
};

}  // namespace pellor
