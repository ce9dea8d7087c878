// What the Linux platform needs of the preferences beyond the interface.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/preferences/StoreCopies.h"
#include "pellor/platform/PersonalTraces.h"
#include "pellor/platform/PreferencesStore.h"

namespace pellor {

/// A store of the user's processes. Any thread.
class SharedPreferences : public PreferencesStore {
 public:
  /// Writes those values at once whose keys are not in the store yet, in one transaction, so that of several processes
  /// one decides. True when every key is stored afterwards.
  virtual bool insertIfAbsent(const Dictionary& values, std::string_view domain) = 0;

  /// Whether the store is open and may be written; if not, `lastError` says why. May wait.
  virtual bool isWritable() = 0;
  bool isReadOnly() override = 0;
  std::string lastError() const override = 0;
  /// What happened to the store that the user should know, each once.
  virtual std::vector<std::string> takeRemarks() = 0;

  /// How the writes of this object have ended so far; what changed nothing does not count.
  struct WriteCounts {
    std::uint64_t written = 0;
    std::uint64_t unknown = 0;  ///< nobody can tell whether they were
  };
  virtual WriteCounts writeCounts() const = 0;

  /// The copies of the store outside of it.
  virtual const StoreCopies& copies() const = 0;
  /// All that is stored now, with the date `date` (wall clock, in seconds since 2001); absent when it cannot be read.
  virtual std::optional<StoreCopy> copyOfStore(double date) = 0;
  /// `observer` (null: nobody) is called after each write of this object that changed the store, on any thread; it has
  /// to return at once. Before the first write.
  virtual void setWriteObserver(std::function<void()> observer) = 0;

  /// Overwrites what the store still has of values that are gone, and empties its log. What may be left of them;
  /// absent: nothing. May take seconds, and waits for other programs.
  virtual std::optional<KeptTrace> eraseUnusedSpace() = 0;

  /// Whether the store is the user's alone, who may have it made anew; by default it is an administrator's.
  virtual bool canStartAnew() const { return false; }
  /// Puts the store's file aside and makes another one of that copy (null: an empty one), for the next use. False when
  /// that failed, and `lastError` says why, or the store cannot do so.
  virtual bool startAnew(const StoreCopy* /*content*/) { return false; }
};

}  // namespace pellor
