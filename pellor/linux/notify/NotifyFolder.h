// Notifications between the user's processes: counter files in a folder, watched by inotify.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "pellor/linux/files/UserFolders.h"
#include "pellor/linux/files/internal/FileLock.h"
#include "pellor/linux/notify/NotifyObservers.h"
#include "pellor/platform/SystemNotifyBus.h"
#include "pellor/runtime/BackOff.h"
#include "pellor/runtime/Log.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Timer.h"

namespace pellor {

class FolderWatch;

/// Each name has a file that counts its posts. A post raises the counter under a file lock; a process sees that others
/// posted when a counter is not where it knows it to be. So a burst of posts may wake a listener once, and nothing is
/// lost by it. Own deliveries do not go through the folder.
///
/// A post that cannot be counted (no space, no permission, a lock that a stopped program holds) is delivered to this
/// process, kept for the others, logged once and tried again with a growing pause. A folder that vanishes is made
/// again; then each observed name gets a delivery.
///
/// A program that ends at once need not watch: it hears of posts while it settles. The system lets a process that
/// watched a folder wait for tens of milliseconds at its end.
///
/// Main queue. Destroyed on it too, at the latest with the process.
class NotifyFolder final : public SystemNotifyBus,
                           public SettleParticipant,
                           public std::enable_shared_from_this<NotifyFolder> {
  struct Passkey {};

 public:
  /// When posts of other processes are heard.
  enum class Hearing { always, whenSettling };

  /// A post is counted on the main queue, where nobody may be held up for long.
  static constexpr std::chrono::milliseconds LockLimit{1000};

  /// A bus of `process` in the given folder, which is made at the first use (0700). `lockLimit` is how long a post
  /// waits for those of others (see LockPatience).
  static std::shared_ptr<NotifyFolder> make(Process& process, std::filesystem::path folder, LogHandle log,
                                            Hearing hearing = Hearing::always,
                                            std::chrono::milliseconds lockLimit = LockLimit);
  /// In the user's notify folder; logs a warning when the user has no runtime folder, since processes that have one
  /// will not be heard then.
  static std::shared_ptr<NotifyFolder> make(Process& process, const UserFolders& folders, LogHandle log,
                                            Hearing hearing = Hearing::always);

  NotifyFolder(Passkey, Process& process, std::filesystem::path folder, LogHandle log, Hearing hearing,
               std::chrono::milliseconds lockLimit);
  ~NotifyFolder() override;

  /// A second registration of the same observer for the same name takes the place of the first.
  void addObserver(const void* observer, std::function<void()> callback, std::string_view name) override;
  void removeObserver(const void* observer, std::string_view name) override;
  void post(std::string_view name) override;

  Hearing hearing() const { return _hearing; }
  /// Whether the name has an observer.
  bool isObserved(std::string_view name) const { return _observers.isObserved(name); }
  /// Tells the observers of the name, as a post of another process does: for a bus that hears of posts in a further
  /// way.
  void othersMayHavePosted(std::string_view name);

  /// Whether no post of another process waits to be heard. Asks the folder when it is not watched.
  bool isSettled() const override;
  bool isWritten() const override { return true; }

 private:
  using Count = std::optional<std::uint64_t>;  ///< absent: no file, or a damaged one

  enum class Delivery { whenCounted, always };
  struct Direction {
    const char* operation;
    bool isFaulty = false;
  };

  void startWatching();
  void folderChanged(bool mayHaveMissed, const std::string& problem);
  bool isThere() const;
  void makeFolder();
  void check(Delivery delivery);
  void deliverSoon(const std::string& name);
  bool count(const std::string& name);
  void retry();
  void retryLater();
  void note(Direction& direction, const std::optional<std::string>& error);
  std::filesystem::path fileOf(const std::string& name) const;

  Process& _process;
  const std::filesystem::path _folder;
  const LogHandle _log;
  const Hearing _hearing;
  LockPatience _patience;
  NotifyObservers _observers;
  /// Of each observed name, up to which all posts were delivered or are queued for delivery.
  std::map<std::string, Count, std::less<>> _seen;
  std::set<std::string, std::less<>> _unposted;
  std::shared_ptr<Timer> _retryTimer;
  BackOff _retryPauses;
  Direction _sending{"sent"};
  Direction _receiving{"received"};
  std::unique_ptr<FolderWatch> _watch;
};

}  // namespace pellor
