// Adds each number or address of the command line to the user's friends and prints whom the list has then.
#include <iostream>

#include "pellor/app/UserFriendList.h"
#include "pellor/friends/PLFriendsManager.h"

int main(int count, char** arguments) {
  const auto friends = pellor::openFriendList();  // as the user's configuration says
  const auto observation = friends->list().observe({.changed = [](const pellor::ListChange& change) {
    for (const auto& added : change.added)
      std::cout << change.after.friendWith(added.id)->destination << " is a friend now\n";
  }});
  for (int index = 1; index < count; ++index) {
    const auto person = friends->manager().personWithDestinations({arguments[index]});
    if (!friends->manager().isPersonFriend(person) && !friends->manager().addFriend(person)) std::cerr << "no room\n";
  }
  const bool isStored = friends->settle(5);  // true once every change is on the disk
  std::cout << friends->list().snapshot().friendCount() << " friends\n";
  return isStored ? 0 : 1;
}
