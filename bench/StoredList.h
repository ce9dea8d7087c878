// A user's list on the disk, and processes that use it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "bench/WorkFolder.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/linux/LinuxPlatform.h"
#include "pellor/linux/files/UserFolders.h"
#include "pellor/linux/preferences/internal/SQLitePreferences.h"
#include "pellor/runtime/Process.h"

namespace pellor::bench {

/// A process of the user with the Linux platform, but for the contacts, which are in memory and empty.
class ListProcess {
 public:
  /// Makes the process and opens the store.
  explicit ListProcess(const UserFolders& folders);
  ListProcess(const ListProcess&) = delete;
  ListProcess& operator=(const ListProcess&) = delete;
  ~ListProcess();

  Process& process() { return _process; }
  /// With several processes in one program the caller has to say for which it calls.
  Process::Scope enter() { return Process::Scope(_process); }

  /// Makes the manager of the default domain, loads the list and delivers what that posts.
  void load();
  PLFriendsManager& manager() { return *_manager; }
  const std::shared_ptr<PLFriendsManager>& shared() const { return _manager; }

  /// Runs what is queued until the main queue is empty.
  void drain();
  /// Returns when every change is on the disk.
  void settle();

  std::uint64_t numberOfFriends() const;
  /// How often the change notification was posted since the load began.
  std::uint64_t notifications() const { return _notifications; }

 private:
  Process _process;
  std::optional<LinuxPlatform> _platform;
  std::shared_ptr<PLFriendsManager> _manager;
  std::shared_ptr<Observation> _observation;
  std::uint64_t _notifications = 0;
};

/// The list of `size` friends as a program that has ended left it: pages of 12, room for one page more, refreshing
/// against contacts off.
class StoredList {
 public:
  explicit StoredList(std::size_t size);

  std::size_t size() const { return _size; }
  const std::filesystem::path& home() const { return _home.path(); }
  const UserFolders& folders() const { return _folders; }

  /// Writes a value, as another process of the user would, telling nobody.
  void write(std::string_view key, Value value);

 private:
  const std::size_t _size;
  const WorkFolder _home;
  const UserFolders _folders = foldersOf(_home.path());
  std::optional<SQLitePreferences> _writer;
};

}  // namespace pellor::bench
