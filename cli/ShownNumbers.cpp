#include "cli/ShownNumbers.h"

#include <utility>

#include "pellor/list/FriendList.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/BundleIdentifier.h"
#include "pellor/runtime/Queue.h"

namespace pellor::cli {

// What is new is written together, when the main queue is done with the answer.
void ShownNumbers::keepIn(const std::filesystem::path& folder, const std::string& region) {
  Process& process = Process::current();
  auto later = [&process, queue = SerialQueue::make(std::string(BundleIdentifier) + ".shownNumbers")](Task task) {
    process.mainQueue().async([queue, task = std::move(task)] { queue->async(task); });
  };
  const LogHandle log(BundleIdentifier, "numbers", process.logSink());
  _known = CanonicalFormStore::open(region, CanonicalFormFolder{folder, log, std::move(later), "shown-numbers"});
}

std::string ShownNumbers::shown(const std::string& number) {
  // The user may have changed the region since.
  const bool isCurrent = _known && _known->region() == platformOf(Process::current()).phoneNumbers->homeCountryCode();
  if (!isCurrent) return FriendList::shownNumber(number);
  if (const auto known = _known->find(number)) return std::string(*known);
  std::string shown = FriendList::shownNumber(number);
  remember(number, shown);
  return shown;
}

// The store takes each form for the form of itself.
void ShownNumbers::remember(const std::string& number, const std::string& shown) {
  if (shown == number || FriendList::shownNumber(shown) == shown) _known->add(number, shown);
}

}  // namespace pellor::cli
