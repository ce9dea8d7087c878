// race_writer COMMAND ARGUMENTS: a process that holds the list of its user, as an app does, and makes one edit when it
// is told to. Takes the arguments of `pellor`; ends with 0 once the edit is stored.

#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/linux/LinuxPlatform.h"
#include "pellor/linux/contacts/UserContacts.h"
#include "pellor/runtime/Process.h"

namespace pellor {
namespace {

constexpr double SettleLimit = 30;

class RaceWriter {
 public:
  explicit RaceWriter(std::vector<std::string> arguments) : _arguments(std::move(arguments)) {}

  int run() {
    _manager = PLFriendsManager::managerForDomain(std::string(TapnoteDomain));
    if (!_process.settle(SettleLimit)) throw std::runtime_error("the list does not come to rest");
    const auto contacts = _process.notificationCenter().addObserver(
        _platform.contacts().addressBookChangedNotification(), [this](const Notification&) {
          _hasNewContacts = true;
          beginWhenDue();
        });
    std::cout << "ready" << std::endl;
    std::thread reader([this] { waitForGo(); });
    // Until then it hears of what others do, as an app does.
    _process.mainQueue().run();
    reader.join();
    edit();
    if (_process.settle(SettleLimit)) return 0;
    std::cerr << "not saved\n";
    return 1;
  }

 private:
  using Persons = std::vector<std::shared_ptr<PLPerson>>;
  struct Place {
    std::shared_ptr<PLFriendGroup> page;
    std::uint64_t position = 0;
  };

  void waitForGo() {
    std::string go;
    std::getline(std::cin, go);
    _process.mainQueue().async([this] {
      _mayBegin = true;
      beginWhenDue();
    });
  }

  // A refresh is of contacts of which the process has heard.
  void beginWhenDue() {
    const bool isDue = _arguments.at(0) != "refresh" || _hasNewContacts;
    if (_mayBegin && isDue) _process.mainQueue().stop();
  }

  void edit() {
    const std::string_view command = _arguments.at(0);
    if (command == "add") return add();
    if (command == "remove") return remove();
    if (command == "move") return move();
    if (command == "title") return title();
    if (command == "reply-as") return setReply();
    if (command == "meta") return setMetadata();
    if (command == "purge") return _manager->purgeEmptyFriendGroups();
    if (command != "refresh") throw std::runtime_error("no such command");
    _manager->refreshAgainstAddressBook();
  }

  void add() {
    const std::string& who = _arguments.at(1);
    const bool isNumber = who.starts_with('+');
    const auto person = isNumber ? _manager->personWithDestinations({who}) : _manager->personWithABRecordGUID(who);
    if (_manager->personLikePerson(person)) throw std::runtime_error("a friend already");
    if (!_manager->addFriend(person)) throw std::runtime_error("no room");
  }

  void remove() {
    const Place place = placeOf(friendNamed(_arguments.at(1)));
    place.page->removeFriendAtPosition(place.position);
  }

  // A taken slot swaps.
  void move() {
    const auto person = friendNamed(_arguments.at(1));
    const Place from = placeOf(person), to = placeIn(_arguments.at(2));
    const auto displaced = to.page->friendAtPosition(to.position);
    if (displaced == person) return;
    putInto(from, displaced);
    putInto(to, person);
    if (from.page != to.page) _manager->friendGroupDidMoveFriends(from.page, {});
    _manager->friendGroupDidMoveFriends(to.page, displaced ? Persons{person, displaced} : Persons{person});
    _manager->syncFriendGroup(to.page);
    _manager->save();
  }

  static void putInto(const Place& place, const std::shared_ptr<PLPerson>& person) {
    Persons content = place.page->friends();
    content[place.position] = person;
    place.page->setFriends(std::move(content));
  }

  void title() {
    pageAt(_arguments.at(1))->setTitle(_arguments.at(2));
    _manager->saveFriendGroupTitles();
  }

  void setReply() {
    const std::string& address = _arguments.at(2);
    friendNamed(_arguments.at(1))->setPreferredReplyAs(address == "--clear" ? std::nullopt : std::optional(address));
  }

  void setMetadata() {
    const auto person = friendNamed(_arguments.at(1));
    if (_arguments.at(2) == "--clear") return person->removeAllMetadataValues();
    person->setMetadataValueForKey(Value(_arguments.at(3)), _arguments.at(2));
  }

  std::shared_ptr<PLPerson> friendNamed(const std::string& who) const {
    for (const auto& page : _manager->friendGroups()) {
      for (const auto& person : page->friends()) {
        if (person && (person->abRecordGUID() == who || person->primaryDestination() == who)) return person;
      }
    }
    throw std::runtime_error("no such friend");
  }

  Place placeOf(const std::shared_ptr<PLPerson>& person) const {
    return {_manager->friendGroups().at(_manager->groupIndexContainingFriend(person)),
            _manager->positionOfFriendInGroup(person)};
  }

  // Counted from 1.
  std::shared_ptr<PLFriendGroup> pageAt(const std::string& number) const {
    const std::size_t page = std::stoul(number);
    if (page > _manager->friendGroups().size()) throw std::runtime_error("no such page");
    return _manager->friendGroups().at(page - 1);
  }

  Place placeIn(const std::string& text) const {
    return {pageAt(text), std::stoul(text.substr(text.find(':') + 1)) - 1};
  }

  const std::vector<std::string> _arguments;
  Process _process;
  const LinuxPlatform _platform{_process};
  std::shared_ptr<PLFriendsManager> _manager;
  bool _mayBegin = false;
  bool _hasNewContacts = false;
};

}  // namespace
}  // namespace pellor

int main(int count, char** arguments) {
  try {
    return pellor::RaceWriter({arguments + 1, arguments + count}).run();
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
