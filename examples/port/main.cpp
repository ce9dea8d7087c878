// A friend list over plain files.
//
// What it leaves out, and a port for users does not: a write costs as much as its file holds, and each file is looked
// at 50 times a second; the files of posts and contacts are trusted to be what this program wrote; changes of contacts
// are kept for ever; the fall of the contacts is not remembered over restarts; defaults of the process; phone numbers,
// texts and names of the whole world.
#include <iostream>

#include "FilePlatform.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"

namespace {

std::vector<std::shared_ptr<pellor::PLPerson>> friendsOf(const pellor::PLFriendsManager& manager) {
  std::vector<std::shared_ptr<pellor::PLPerson>> friends;
  for (const auto& group : manager.friendGroups())
    std::ranges::copy_if(group->friends(), std::back_inserter(friends), [](const auto& person) { return !!person; });
  return friends;
}

}  // namespace

int main(int count, char** arguments) {
  const std::vector<std::string> words(arguments + 1, arguments + count);
  const std::string command = words.size() > 1 ? words[1] + " " + std::to_string(words.size() - 2) : "";
  if (command == "contact 2") {
    const std::string guid = std::to_string(port::randomNumber());
    return port::FileContacts::append(words[0], {"put", guid, words[2], "", "", "phone", "", words[3]}) ? 0 : 1;
  }
  if (command != "add 1" && command != "list 0" && command != "wait 1") {
    std::cerr << "port FOLDER contact NAME NUMBER | add NUMBER | list | wait COUNT (for so many friends)\n";
    return 2;
  }
  pellor::Process process;
  port::FilePlatform files(process, words[0]);
  pellor::installPlatform(process, files.platform);
  const auto manager = pellor::PLFriendsManager::managerForDomain(std::string(pellor::TapnoteDomain));
  if (command == "add 1" && !manager->addFriend(manager->personWithDestinations({words[2]}))) return 1;
  const auto isMissing = [&] { return command == "wait 1" && friendsOf(*manager).size() < std::stoul(words[2]); };
  for (const double end = process.now() + 30; isMissing() && process.now() < end;) {
    process.mainQueue().asyncAfter(0.1, [&] { process.mainQueue().stop(); });
    process.mainQueue().run();
  }
  if (isMissing()) return 1;
  for (const auto& person : friendsOf(*manager))
    std::cout << person->displayName().value_or("?") << ' ' << person->primaryDestination().value_or("") << '\n';
  return process.settle(5) ? 0 : 1;  // true once every change is on the disk
}
