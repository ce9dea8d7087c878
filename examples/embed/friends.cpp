// Adds each number or address of the command line to the user's friends and prints what changed.
#include <iostream>

#include "pellor/friends/PLChangeLog.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/linux/LinuxPlatform.h"

int main(int count, char** arguments) {
  pellor::Process process;
  pellor::LinuxPlatform platform(process);
  const auto observation = process.notificationCenter().addObserver(
      std::string(pellor::PLFriendsManagerChangedNotification), [](const pellor::Notification& notification) {
        for (const auto& [person, changes] : notification.userInfoAs<pellor::PLChangeLog>()->entries())
          std::cout << person->displayName().value_or("?") << ": " << *changes.begin() << '\n';
      });
  const auto manager = pellor::PLFriendsManager::managerForDomain(std::string(pellor::TapnoteDomain));
  for (int index = 1; index < count; ++index) {
    const auto person = manager->personWithDestinations({arguments[index]});
    if (!manager->isPersonFriend(person) && !manager->addFriend(person)) std::cerr << "no room\n";
  }
  return process.settle(5) ? 0 : 1;  // true once every change is on the disk
}
