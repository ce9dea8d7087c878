// bench_listener WHAT HOME: a process of the user whose folders are in HOME, until its standard input ends.
//
//   changes  loads the list and prints, for each change notification, when it came (nanoseconds of the steady clock)
//            and how many friends there are
//   echo     answers each post of "ping" on the bus with one of "pong"
//   idle     loads the list with the whole Linux platform, contacts included
//
// Prints "ready" first.

#include <unistd.h>

#include <iostream>
#include <string>
#include <thread>

#include "bench/BusNames.h"
#include "bench/Stopwatch.h"
#include "bench/StoredList.h"
#include "pellor/linux/notify/NotifyFolder.h"
#include "pellor/runtime/Process.h"

namespace pellor::bench {
namespace {

/// Serves the main queue until the standard input ends.
void serve(Process& process) {
  std::cout << "ready" << std::endl;
  std::thread waiting([&process] {
    char ignored = 0;
    while (::read(STDIN_FILENO, &ignored, 1) > 0) {
    }
    process.mainQueue().stop();
  });
  process.mainQueue().run();
  waiting.join();
}

void reportChanges(const UserFolders& folders) {
  ListProcess list(folders);
  list.load();
  list.settle();
  const auto observation = list.process().notificationCenter().addObserver(
      std::string(PLFriendsManagerChangedNotification), [&list](const Notification&) {
        const auto now = Stopwatch::Clock::now().time_since_epoch().count();
        std::cout << now << ' ' << list.numberOfFriends() << std::endl;
      });
  serve(list.process());
}

void echo(const UserFolders& folders) {
  Process process;
  const auto bus = NotifyFolder::make(process, folders, LogHandle("bench", "bus", nullptr));
  bus->addObserver(
      &process, [&bus] { bus->post(Pong); }, Ping);
  serve(process);
}

void idle(const UserFolders& folders) {
  Process process;
  LinuxPlatformOptions options;
  options.folders = folders;
  const LinuxPlatform platform(process, options);
  const auto manager = PLFriendsManager::managerForDomain(std::string(TapnoteDomain));
  process.settle(60);
  serve(process);
}

}  // namespace
}  // namespace pellor::bench

int main(int count, char** arguments) {
  using namespace pellor::bench;
  if (count != 3) return 2;
  const std::string what = arguments[1];
  const auto folders = foldersOf(arguments[2]);
  if (what == "changes") {
    reportChanges(folders);
  } else if (what == "echo") {
    echo(folders);
  } else if (what == "idle") {
    idle(folders);
  } else {
    return 2;
  }
}
