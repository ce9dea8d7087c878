// A friend list that lives in memory: a contact becomes a friend and is shown.
#include <iostream>

#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/SimulatedWorld.h"

int main() {
  pellor::SimulatedWorld world;
  const std::string ada = world.addressBook().add({.first = "Ada", .phones = {{"mobile", "+1 415 555 2671"}}});

  pellor::Process process;
  pellor::installPlatform(process, world.makePlatform(process));
  const auto manager = pellor::PLFriendsManager::managerForDomain(std::string(pellor::TapnoteDomain));
  if (!manager->addFriend(manager->personWithABRecordGUID(ada))) return 1;

  for (const auto& group : manager->friendGroups()) {
    for (const auto& person : group->friends()) {
      if (person)
        std::cout << person->displayName().value_or("?") << ' ' << person->primaryDestination().value_or("") << '\n';
    }
  }
  return process.settle(5) ? 0 : 1;
}
