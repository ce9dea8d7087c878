// editing_process SEED EDITS: edits the list of its user at random, as an app would, while others do the same. On
// standard input it is told, one a line, to "edit": to do the edits and then say "edited"; and to "report": to come to
// rest and say the list on one line.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Pellor/PLFriendsManager.h"
#include "linux/LinuxPlatform.h"
#include "runtime/Process.h"

namespace pellor {
namespace {

constexpr double SettleLimit = 60;
constexpr std::uint64_t Contacts = 60;
constexpr std::uint64_t EditsPerPause = 8;  // on average

class EditingProcess {
 public:
  EditingProcess(std::uint64_t seed, int edits) : _random(seed), _editsLeft(edits) {}

  void run() {
    _manager = PLFriendsManager::managerForDomain("org.example.editing");
    if (!_process.settle(SettleLimit)) fail("the first list is not written");
    std::cout << "ready" << std::endl;
    std::thread reader([this] { readCommands(); });
    _process.mainQueue().run();
    reader.join();
  }

 private:
  [[noreturn]] static void fail(const std::string& what) {
    std::cout << "failed: " << what << std::endl;
    std::_Exit(1);
  }

  void readCommands() {
    std::string line;
    while (std::getline(std::cin, line)) {
      if (line == "edit") _process.mainQueue().async([this] { editNext(); });
      if (line == "report") _process.mainQueue().async([this] { report(); });
    }
    _process.mainQueue().stop();
  }

  std::uint64_t below(std::uint64_t end) { return std::uniform_int_distribution<std::uint64_t>(0, end - 1)(_random); }

  // One edit a task, so that what others did comes in between; now and then everything is written before the next.
  void editNext() {
    if (_editsLeft-- == 0) {
      std::cout << "edited" << std::endl;
      return;
    }
    edit();
    if (const auto violation = _manager->invariantViolation()) fail(*violation);
    if (below(EditsPerPause) == 0 && !_process.settle(SettleLimit)) fail("an edit is not written");
    _process.mainQueue().async([this] { editNext(); });
  }

  void edit() {
    const auto kind = below(10);
    if (kind < 4) return add();
    if (kind < 6) return remove();
    if (kind < 9) return rearrange();
    _manager->purgeEmptyFriendGroups();
  }

  void add() {
    const auto number = below(2 * Contacts);
    const auto person = number < Contacts
                            ? _manager->personWithABRecordGUID("contact-" + std::to_string(number))
                            : _manager->personWithDestinations({"+4930555" + std::to_string(1000 + number)});
    if (!_manager->personLikePerson(person)) _manager->addFriend(person);
  }

  std::shared_ptr<PLFriendGroup> anyPage() { return _manager->friendGroups()[below(_manager->friendGroups().size())]; }

  void remove() { anyPage()->removeFriendAtPosition(below(_manager->groupSize())); }

  void rearrange() {
    const auto page = anyPage();
    auto content = page->friends();
    std::ranges::reverse(content);
    page->setFriends(content);
    std::erase(content, EmptySlot);
    _manager->friendGroupDidMoveFriends(page, content);
    _manager->save();
  }

  void report() {
    if (!_process.settle(SettleLimit)) fail("the list does not come to rest");
    nlohmann::json list = nlohmann::json::array();
    for (const auto& page : _manager->friendGroups()) {
      for (const auto& person : page->friends()) list.push_back(person ? nameOf(*person) : "");
    }
    std::cout << list.dump() << std::endl;
  }

  // A contact by its GUID and name, everybody else by the number: what a torn element would lack.
  static std::string nameOf(const PLPerson& person) {
    return person.abRecordGUID().value_or("") + "|" + (person.hasName() ? *person.displayName() : "") + "|" +
           person.primaryDestination().value_or("");
  }

  Process _process;
  const LinuxPlatform _platform{_process};
  std::shared_ptr<PLFriendsManager> _manager;
  std::mt19937_64 _random;
  int _editsLeft;
};

}  // namespace
}  // namespace pellor

int main(int count, char** arguments) {
  if (count != 3) return 2;
  pellor::EditingProcess(std::strtoull(arguments[1], nullptr, 10), std::atoi(arguments[2])).run();
}
