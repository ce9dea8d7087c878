// Arrays that are stored with the friend list, and told of in one write with it.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <string>

#include "pellor/friends/internal/PLBaseline.h"
#include "pellor/platform/PreferencesStore.h"
#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// What is to be kept of an array.
struct PLAttachedLimits {
  std::size_t mostElements = 0;
  /// The member, an integer, by which elements are older and newer, wherever they are; empty: by their places.
  std::string order;

  /// Whether it tells of edits, in the order of time.
  bool isHistory() const { return !order.empty(); }
};

/// Our edits of an array of dictionaries, each known by its "id", made on top of theirs: theirs in their order, less
/// what ours took out since base; an element that one side changed is that side's, by both ours; then what ours added,
/// in our order, newer than all of theirs; of that the newest. A pure function.
LongArray mergedArrays(const LongArray& base, const LongArray& theirs, const LongArray& ours,
                       const PLAttachedLimits& limits);
/// The newest elements, the oldest first; the array as it is where no more are there.
LongArray newestElements(const LongArray& array, const PLAttachedLimits& limits);

/// The arrays that a manager was asked to attach. Its invariant: what is not marked is what is stored, as far as this
/// process knows.
///
/// A history goes out in each write of list or titles, also where nothing is new in it: a list that is another one
/// beside the same version of the history was written by a program that keeps none.
class PLAttachedArrays {
 public:
  /// What goes out, with the stored versions in whose place.
  using Changes = PLAttachedVersions;

  // Main queue.
  /// Reads and writes this key from now on; nothing is known of it.
  void attach(const std::string& key, PLAttachedLimits limits);
  bool contains(const std::string& key) const { return _live.contains(key); }
  /// As this process has it; empty for a key that is not attached.
  const LongArray& at(const std::string& key) const;
  /// Marks it. Ignored for a key that is not attached.
  void set(const std::string& key, LongArray elements);
  /// What `edits` sets goes out with the next write that has something else, and asks for none.
  void setQuietlyDuring(const std::function<void()>& edits);
  /// Whether these are the versions that are known, or their keys are not attached.
  bool areKnown(const PLAttachedVersions& stored) const;
  /// Whether only programs without a history have written since the baseline. False where this one keeps none, or
  /// cannot tell.
  bool areHistoriesUntouched(const PLAttachedVersions& stored) const;
  /// A load found these: they are merged with what is marked, and what differs then is marked. `isOfBaseline`: the list
  /// beside them is the baseline from now on.
  void takeOver(const PLAttachedVersions& stored, bool isOfBaseline = true);
  /// After a write: has the store's own chunks in place of those that it made them of, so that it knows them again.
  void shareStoredChunks();

  // Any thread.
  bool isMarked() const { return _isMarked; }
  /// Whether something waits for a write that has something else.
  bool isWaiting() const;
  /// As they are stored, as far as this process knows.
  PLAttachedVersions known() const;
  /// The marked ones, marked no more.
  Changes take();
  /// Adds those that wait for such a write, and the histories to one of list or titles.
  void takeAlong(Changes& changes, bool changesList);
  /// Those are not stored: they are marked again, but where a later value is.
  void giveBack(const Changes& changes);
  /// Those are stored, as `written` has them.
  void noteWritten(const Changes& changes, const VersionedPreferences& written);

 private:
  struct Live {
    LongArray elements;
    PLAttachedLimits limits;
  };
  struct Mark {
    LongArray elements;
    bool waits = false;  // for a write that has something else
  };
  PLAttachedArray known(const std::string& key) const;
  void mark(const std::string& key, const LongArray& elements);
  void noteMarks() PELLOR_REQUIRES(_mutex);

  std::map<std::string, Live, std::less<>> _live;  // main queue
  bool _isSetQuietly = false;                      // main queue
  std::atomic<bool> _isMarked{false};              // written with the lock held
  mutable Mutex _mutex;                            // held for moments
  PLAttachedVersions _known PELLOR_GUARDED_BY(_mutex);
  std::map<std::string, Mark, std::less<>> _marked PELLOR_GUARDED_BY(_mutex);
  std::map<std::string, bool, std::less<>> _histories PELLOR_GUARDED_BY(_mutex);  // whether known beside the baseline
};

}  // namespace pellor
