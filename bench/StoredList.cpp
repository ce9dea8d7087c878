#include "bench/StoredList.h"

#include <string>
#include <utility>

#include "bench/Friends.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/linux/contacts/internal/IndexedAddressBook.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/InMemoryAddressBook.h"

namespace pellor::bench {
namespace {

constexpr double SettleLimit = 600;
constexpr std::size_t GroupSize = 12;

const std::string Domain(TapnoteDomain);

// The Linux platform as it is, with other contacts.
void replaceContacts(Process& process) {
  static const auto contacts = std::make_shared<InMemoryAddressBook>();
  Platform platform = platformOf(process);
  platform.addressBook = contacts->storeFor(process);
  process.local<pellor::detail::InstalledPlatform>().platform = std::make_shared<const Platform>(std::move(platform));
}

}  // namespace

ListProcess::ListProcess(const UserFolders& folders) {
  const Process::Scope scope(_process);
  LinuxPlatformOptions options;
  options.folders = folders;
  options.region = "DE";
  _platform.emplace(_process, options);
  replaceContacts(_process);
}

ListProcess::~ListProcess() {
  const Process::Scope scope(_process);
  _observation.reset();
  _manager.reset();
  _platform.reset();
}

void ListProcess::load() {
  _observation = _process.notificationCenter().addObserver(std::string(PLFriendsManagerChangedNotification),
                                                           [this](const Notification&) { ++_notifications; });
  _manager = PLFriendsManager::managerForDomain(Domain);
  drain();
  require(_manager->isLoaded(), "a store that answers");
}

void ListProcess::drain() {
  while (_process.mainQueue().drain()) {
  }
}

void ListProcess::settle() { require(_process.settle(SettleLimit), "every change on the disk"); }

std::uint64_t ListProcess::numberOfFriends() const {
  std::uint64_t number = 0;
  for (const auto& page : _manager->friendGroups()) number += page->count();
  return number;
}

StoredList::StoredList(std::size_t size) : _size(size) {
  write(PLMaxGroupCountKey, size / GroupSize + 1);
  write(PLRefreshAgainstContactsOnInitEnabledKey, false);
  write(PLFriendListKey, LongArray(storedList(0, size)));
  _writer.reset();
  // What a first process adds to the store is there for the ones that are measured.
  ListProcess first(_folders);
  const auto scope = first.enter();
  first.load();
  first.settle();
}

void StoredList::write(std::string_view key, Value value) {
  if (!_writer) _writer.emplace(_folders.data, _folders.config / "defaults.json", LogHandle("bench", "store", nullptr));
  _writer->setValue(key, std::move(value), Domain);
  require(_writer->synchronize(Domain), "a store that can be written");
}

}  // namespace pellor::bench
