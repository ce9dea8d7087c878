// Adds each number or address of the command line to the user's friends and prints the list that comes of it.
#include <iostream>

#include "pellor/app/UserFriendList.h"

int main(int count, char** arguments) {
  const auto friends = pellor::openFriendList();  // as the user's configuration says
  for (int index = 1; index < count; ++index) {
    const auto answer = friends->list().apply(pellor::AddFriend{.destination = arguments[index]});
    if (!answer) std::cerr << arguments[index] << ": " << textOf(answer.refusal->reason) << '\n';
  }
  for (const auto& each : friends->list().snapshot().friends())
    std::cout << (each->name.empty() ? each->destination : each->name) << '\n';
  return friends->settle(5) ? 0 : 1;  // true once every change is on the disk
}
