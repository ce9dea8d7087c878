// The user's friend list, opened in one line.
//
//   const auto friends = pellor::openFriendList();
//   for each page of friends->list().snapshot() ...
//   return friends->settle(5) ? 0 : 1;
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "pellor/linux/Configuration.h"
#include "pellor/list/FriendList.h"
#include "pellor/runtime/Log.h"
#include "pellor/runtime/Process.h"

namespace pellor {

class PLFriendsManager;

struct FriendListOptions {
  /// Which services make the platform, where contacts and data lie, which domain and messaging service the list has.
  /// Absent: what the user's own file says, which all programs of the user follow.
  std::optional<Configuration> configuration = {};
  /// What the history calls this program; empty: the name of its file.
  std::string program = {};
  /// Takes the log where the configuration chooses none, and while what it chooses is not there. Null: nothing does.
  std::shared_ptr<LogSink> log = {};
  /// Called on the main queue while contacts are read for the first time, with how many of how many are done.
  std::function<void(std::size_t done, std::size_t total)> progress = {};
};

/// A process of the user's list with all that belongs to it. An app makes one, on the thread of its main queue, before
/// it starts threads of its own, and uses it there; calls from outside of the main queue's tasks are of its process as
/// long as the app has no other one (Process::Scope).
class UserFriendList {
 public:
  /// Stores what is not stored yet, as a process does at its end; only `settle` tells whether all was.
  ~UserFriendList();
  UserFriendList(const UserFriendList&) = delete;
  UserFriendList& operator=(const UserFriendList&) = delete;

  FriendList& list();
  /// The engine behind the list.
  PLFriendsManager& manager();
  /// Has the main queue, which the app's loop drives, or `run` serves.
  Process& process();

  /// Serves the main queue until `process().mainQueue().stop()`.
  void run() { process().mainQueue().run(); }
  /// Serves the main queue until all edits are on the disk, for at most so many seconds; whether they are. To be called
  /// before the program ends.
  bool settle(double seconds) { return process().settle(seconds); }

 private:
  friend std::unique_ptr<UserFriendList> openFriendList(const FriendListOptions& options);
  struct Parts;
  explicit UserFriendList(const FriendListOptions& options, const Configuration& configuration);

  const std::unique_ptr<Parts> _parts;
};

/// Opens the list. The store may be away: then the list has no page yet, and tells of its load later. Throws
/// ConfigurationError for a configuration that cannot be followed, in one line for the user.
std::unique_ptr<UserFriendList> openFriendList(const FriendListOptions& options = {});

}  // namespace pellor
