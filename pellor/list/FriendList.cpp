#include "pellor/list/FriendList.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "pellor/friends/PLChangeLog.h"
#include "pellor/friends/PLDestination.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/PLUtility.h"
#include "pellor/list/internal/ListMirror.h"
#include "pellor/platform/Platform.h"
#include "pellor/platform/SearchTable.h"
#include "pellor/platform/WalkingContactSearch.h"
#include "pellor/runtime/NotificationCenter.h"
#include "pellor/runtime/Process.h"

namespace pellor {
namespace {

/// An observer and what it was told last.
struct Listener {
  ListObserver observer;
  Snapshot told;
  bool knowsOfLoad = false;
};

/// Ends a registration with its last handle, on the main queue's thread.
class Registration final : public Observation {
 public:
  explicit Registration(std::shared_ptr<Listener> listener) : _listener(std::move(listener)) {}

 private:
  const std::shared_ptr<Listener> _listener;
};

}  // namespace

class FriendList::Core : public std::enable_shared_from_this<Core> {
 public:
  explicit Core(std::shared_ptr<PLFriendsManager> manager)
      : _process(Process::current()), _manager(std::move(manager)), _mirror(_manager) {}

  void start() {
    _mirror.update();
    listen(PLFriendsManagerChangedNotification, &Core::listChanged);
    listen(PLFriendsManagerGroupListChanged, &Core::pagesChanged);
    listen(PLFriendGroupTitleChangedNotification, &Core::titleChanged);
    listen(PLPersonValuesChangedNotification, &Core::personChanged);
    listen(PLFriendsManagerDestinationStatusUpdatedNotification, &Core::statusesChanged);
    listen(platformOf(_process).addressBook->addressBookChangedNotification(), &Core::contactsChanged);
  }

  /// An observer may end the list while others are still to be told.
  void end() { _listeners.clear(); }

  bool isLoaded() const { return _manager->isLoaded(); }
  Process& process() const { return _process; }
  const Snapshot& current() { return _mirror.update(); }
  std::shared_ptr<PLPerson> personWith(FriendId id) const { return _mirror.ids().personWith(id); }

  std::shared_ptr<Observation> observe(ListObserver observer) {
    const auto listener = std::make_shared<Listener>(Listener{std::move(observer), current(), false});
    _listeners.push_back(listener);
    tellSoon();
    return std::make_shared<Registration>(listener);
  }

  std::vector<FriendId> find(std::string_view text, std::size_t limit) {
    if (limit == 0) return {};
    const Snapshot now = current();
    const Platform& platform = platformOf(_process);
    if (!_table || _tableOf != now) {
      _table.emplace(platform.text, platform.reachability, platform.phoneNumbers);
      fill(*_table, now);
      _tableOf = now;
    }
    std::vector<FriendId> found;
    _table->find(text, [&](std::size_t person, ContactFit) {
      found.push_back({person});
      return found.size() < limit;
    });
    return found;
  }

  std::vector<FoundContact> findContacts(std::string_view text, std::size_t limit) {
    const Platform& platform = platformOf(_process);
    if (platform.contactSearch) return platform.contactSearch->find(text, limit);
    if (!_contacts) _contacts = std::make_unique<WalkingContactSearch>(platform);
    return _contacts->find(text, limit);
  }

 private:
  void listen(std::string_view name, void (Core::*told)(const Notification&)) {
    _observations.push_back(_process.notificationCenter().addObserver(
        std::string(name), [this, told](const Notification& notification) { (this->*told)(notification); }));
  }

  void listChanged(const Notification& notification) {
    if (notification.object != _manager) return;
    if (const auto* log = notification.userInfoAs<PLChangeLog>())
      for (const auto& [person, types] : log->entries()) _mirror.noteChange(person);
    tellSoon();
  }
  void pagesChanged(const Notification&) { tellSoon(); }
  void titleChanged(const Notification&) {
    _mirror.noteChangeOfTitles();
    tellSoon();
  }
  void personChanged(const Notification& notification) {
    const auto person = notification.objectAs<PLPerson>();
    if (!person || !_mirror.ids().knownId(*person)) return;
    _mirror.noteChange(person);
    tellSoon();
  }
  void statusesChanged(const Notification&) {
    _mirror.noteChangeOfStatuses();
    tellSoon();
  }
  void contactsChanged(const Notification&) {
    _mirror.noteChangeOfContacts();
    tellSoon();
  }

  // One task for all that happens before it.
  void tellSoon() {
    if (std::exchange(_isTellingSoon, true)) return;
    _process.mainQueue().async([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->tell();
    });
  }

  void tell() {
    _isTellingSoon = false;
    const Snapshot now = current();
    // Observers may come and go while they are told.
    const auto listeners = _listeners;
    for (const auto& weak : listeners) {
      const auto listener = weak.lock();
      if (listener && !_listeners.empty()) tell(*listener, now);
    }
    std::erase_if(_listeners, [](const auto& listener) { return listener.expired(); });
  }

  void tell(Listener& listener, const Snapshot& now) {
    if (!isLoaded()) return;
    if (!std::exchange(listener.knowsOfLoad, true)) {
      listener.told = now;
      if (listener.observer.loaded) listener.observer.loaded(now);
      return;
    }
    const ListChange change = changeBetween(std::exchange(listener.told, now), now);
    if (!change.isEmpty() && listener.observer.changed) listener.observer.changed(change);
  }

  static void fill(SearchTable& table, const Snapshot& list) {
    for (std::size_t index = 0; index < list.pageCount(); ++index)
      for (const auto& person : list.page(index).friends)
        if (person) table.add(person->id.number, {{person->name}, {}, person->destinations});
  }

  Process& _process;
  const std::shared_ptr<PLFriendsManager> _manager;
  ListMirror _mirror;
  std::vector<std::shared_ptr<Observation>> _observations;
  std::vector<std::weak_ptr<Listener>> _listeners;
  bool _isTellingSoon = false;
  std::optional<SearchTable> _table;
  Snapshot _tableOf;
  std::unique_ptr<ContactSearch> _contacts;
};

std::unique_ptr<FriendList> FriendList::open(std::shared_ptr<PLFriendsManager> manager) {
  auto core = std::make_shared<Core>(std::move(manager));
  core->start();
  return std::unique_ptr<FriendList>(new FriendList(std::move(core)));
}

FriendList::FriendList(std::shared_ptr<Core> core) : _core(std::move(core)) {}

FriendList::~FriendList() { _core->end(); }

bool FriendList::isLoaded() const { return _core->isLoaded(); }

Snapshot FriendList::snapshot() { return _core->current(); }

std::shared_ptr<Observation> FriendList::observe(ListObserver observer) { return _core->observe(std::move(observer)); }

std::optional<ContactPhoto> FriendList::photo(FriendId id) {
  const auto person = _core->personWith(id);
  if (!person) return std::nullopt;
  std::optional<ContactPhoto> photo;
  platformOf(_core->process()).addressBook->performWithAddressBook([&](AddressBook& addressBook) {
    const RecordRef record = person->copyABPersonWithAddressBook(&addressBook);
    if (record) photo = record->photo();
  });
  return photo;
}

std::string FriendList::shownNumber(std::string_view destination) {
  const bool isNumber = plMessageDestinationType(destination) == PLMessageDestinationTypePhoneNumber;
  return isNumber ? PLUtility::compressPhoneNumberString(destination) : std::string(destination);
}

std::vector<FriendId> FriendList::find(std::string_view text, std::size_t limit) { return _core->find(text, limit); }

std::vector<FoundContact> FriendList::findContacts(std::string_view text, std::size_t limit) {
  return _core->findContacts(text, limit);
}

}  // namespace pellor
