#include "pellor/friends/PLBundle.h"

#include "pellor/platform/Platform.h"

namespace pellor {

// The library itself reads neither, so nothing else keeps them in the program.
[[gnu::used]] const char PellorVersionString[] = "@(#)PROGRAM:Pellor  PROJECT:Pellor-1\n";
[[gnu::used]] const double PellorVersionNumber = 1.0;

namespace {

struct LibraryBundle {
  const std::shared_ptr<const Bundle> bundle =
      platformOf(Process::current()).strings->bundleWithIdentifier(PLBundleIdentifier);
};

// A port without the library's strings still needs lines that name their origin.
std::string subsystem() {
  const auto bundle = PellorBundle();
  return bundle ? bundle->identifier() : std::string(PLBundleIdentifier);
}

struct LibraryLog {
  const LogHandle handle{subsystem(), "main", Process::current().logSink()};
};

}  // namespace

std::shared_ptr<const Bundle> PellorBundle() { return Process::current().local<LibraryBundle>().bundle; }

// NOLINTNEXTLINE(bugprone-reserved-identifier): see the declaration
const LogHandle& _PLGetLogSystem() { return Process::current().local<LibraryLog>().handle; }

}  // namespace pellor
