// A friend list over plain files: preferences, bus, contacts and favorites; the other services are those in memory.
//
// What it leaves out, and a port for users does not: values, posts and changes of contacts cost as much as there are
// stored (each file is replaced as a whole); a file that is damaged as a whole is not recovered, only a damaged value,
// and the changes of contacts are trusted to be what this program wrote; files are looked at 50 times a second where a
// system could tell of changes; names of posts and changes of contacts are kept for ever; the fall of the contacts is
// not remembered over restarts; defaults of the process; phone numbers, texts and names of the whole world.
#include <cstdlib>
#include <iostream>

#include "FileBus.h"
#include "FileContacts.h"
#include "FilePreferences.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Timer.h"
#include "pellor/testing/SimulatedWorld.h"

namespace {

namespace fs = std::filesystem;

struct Program {
  explicit Program(const fs::path& folder) : contacts(process, world.addressBook(), folder / "contacts") {
    pellor::Platform platform = world.makePlatform(process);
    platform.preferences = std::make_shared<port::FilePreferences>(folder);
    platform.notifyBus = port::FileBus::make(process, folder / "bus");
    platform.favorites = std::make_shared<port::FileFavorites>(platform.addressBook, folder / "favorites");
    pellor::installPlatform(process, platform);
  }

  pellor::SimulatedWorld world;
  pellor::Process process;
  port::FileContacts contacts;
};

int friendCount(const pellor::PLFriendsManager& manager, bool prints) {
  int count = 0;
  for (const auto& group : manager.friendGroups()) {
    for (const auto& person : group->friends()) {
      if (!person) continue;
      ++count;
      if (prints)
        std::cout << person->displayName().value_or("?") << ' ' << person->primaryDestination().value_or("") << '\n';
    }
  }
  return count;
}

}  // namespace

int main(int count, char** arguments) {
  const std::string command = count > 2 ? arguments[2] : "";
  if (command == "contact" && count == 5) {
    const auto name = std::to_string(port::randomNumber());
    return port::FileContacts::put(std::filesystem::path(arguments[1]) / "contacts", name,
                                   {.first = arguments[3], .phones = {{"", arguments[4]}}})
               ? 0
               : 1;
  }
  if (command != "list" && !(count == 4 && (command == "add" || command == "wait"))) {
    std::cerr << "port FOLDER contact NAME NUMBER | add NUMBER | list | wait COUNT (for so many friends)\n";
    return 2;
  }
  Program program(arguments[1]);
  const auto manager = pellor::PLFriendsManager::managerForDomain(std::string(pellor::TapnoteDomain));
  if (command == "add" && !manager->addFriend(manager->personWithDestinations({arguments[3]}))) return 1;
  if (command == "wait") {
    const auto stop = [&] { program.process.mainQueue().stop(); };
    const auto limit = pellor::Timer::after(program.process.mainQueue(), 30, stop);
    const auto observation = program.process.notificationCenter().addObserver(
        std::string(pellor::PLFriendsManagerChangedNotification), [&](const pellor::Notification&) { stop(); });
    while (limit->isValid() && friendCount(*manager, false) < std::atoi(arguments[3]))
      program.process.mainQueue().run();
    if (!limit->isValid()) return 1;
  }
  if (command != "add") friendCount(*manager, true);
  return program.process.settle(5) ? 0 : 1;  // true once every change is on the disk
}
