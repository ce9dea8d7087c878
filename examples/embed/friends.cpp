// Adds each number or address of the command line to the user's friends and prints the list that comes of it.
#include <iostream>

#include "pellor/app/UserFriendList.h"
#include "pellor/friends/PLFriendsManager.h"

int main(int count, char** arguments) {
  const auto friends = pellor::openFriendList();  // as the user's configuration says
  for (int index = 1; index < count; ++index) {
    const auto person = friends->manager().personWithDestinations({arguments[index]});
    if (!friends->manager().isPersonFriend(person) && !friends->manager().addFriend(person)) std::cerr << "no room\n";
  }
  const bool isStored = friends->settle(5);  // true once every change is on the disk
  const pellor::Snapshot list = friends->list().snapshot();
  for (std::size_t page = 0; page < list.pageCount(); ++page)
    for (const auto& each : list.page(page).friends)
      if (each) std::cout << (each->name.empty() ? each->destination : each->name) << '\n';
  std::cout << list.friendCount() << " friends\n";
  return isStored ? 0 : 1;
}
