// Writes the friend list to the store, with all values that tell of its edits.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "pellor/friends/PLDelayedOperation.h"
#include "pellor/friends/internal/PLBaseline.h"
#include "pellor/friends/internal/PLDirtyChunks.h"
#include "pellor/friends/internal/PLListWrite.h"
#include "pellor/friends/internal/PLSlotList.h"
#include "pellor/friends/internal/PLStepCount.h"
#include "pellor/platform/PreferencesStore.h"
#include "pellor/runtime/BackOff.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Queue.h"
#include "pellor/runtime/ThreadSafety.h"
#include "pellor/runtime/Timer.h"

namespace pellor {

class PreferencesSyncService;

/// A write that the store has accepted.
struct PLAcceptedWrite {
  bool hasList = false;
  bool hasTitles = false;
  bool hasArrays = false;
  std::shared_ptr<const PLBaseline> base;  ///< the baseline since then; null when it had nothing of them
  std::uint64_t listVersion = 0;           ///< PLSlotSnapshot::version of the list that was published then
  std::optional<std::int32_t> sequenceNumber;
  std::uint64_t step = 0;  ///< the last step that is in it
};

/// Told by a list writer, on the main queue.
class PLListWriterClient {
 public:
  virtual ~PLListWriterClient() = default;
  /// A write was accepted.
  virtual void listWasWritten(const PLAcceptedWrite& write) = 0;
  /// Of the steps up to that number nothing was left to write.
  virtual void stepsNeededNoWrite(std::uint64_t /*last*/) {}
  /// A write was not accepted: what is stored is not the baseline. Nothing is written any more until it is loaded.
  virtual void listWasOvertaken() = 0;
  /// Writes begin to fail, or do not any more (`hasFailed`).
  virtual void writeTroubleChanged() {}
  /// What is stored has to be looked at: a write has ended for which a load waited, or the pause after one has ended of
  /// which nobody can tell what became.
  virtual void loadIsDue() = 0;
};

/// The save queue and all that it owns. Its invariant: what was published and is not marked is what the baseline has,
/// and nothing is written but in place of the very version that the baseline is.
///
/// The main queue publishes what is to be written and marks what changed, the data first and the mark second. A save
/// takes the marks, then what is published with the baseline that it was made on, and writes all of it at once, made
/// from the baseline's versions. When that was overtaken, or nobody can tell what became of it, the marks are set again
/// and no save writes until the main queue has loaded what is stored (`takeOver`). When it failed it is tried again,
/// with a growing pause and at the next request. Nothing here waits for another queue.
///
/// Steps go out whole: a save that comes in the middle of one takes nothing, and one that may have seen a part of one
/// gives back what it took and looks again later.
class PLListWriter : public std::enable_shared_from_this<PLListWriter> {
  struct Passkey {};

 public:
  /// A writer that writes nothing before the first `takeOver`. Main queue.
  static std::shared_ptr<PLListWriter> make(Process& process, std::string domain);
  PLListWriter(Passkey, Process& process, std::string domain);
  /// Before the first save; held weakly.
  void setClient(std::weak_ptr<PLListWriterClient> client) { _client = std::move(client); }

  const std::shared_ptr<SerialQueue>& saveQueue() const { return _saveQueue; }

  // --- What is to be written. Main queue ---

  /// Publishes the list as it is now.
  void publish(PLSlotList& list, const PLPageNumbers& pages);
  /// Marks that slots changed: the list goes out, and to the paired device. Titles that moved with their pages, if any,
  /// go out with it, and so does, in the same write, whether it is a first list that waits for favorites.
  void markLayout(std::optional<Array> titles = std::nullopt, std::optional<bool> awaitsFavorites = std::nullopt);
  /// Marks that a first list waits for favorites no longer, and did not change by it.
  void markFavoritesCame();
  /// Marks that titles changed: these go out, by page.
  void markTitles(Array titles);
  /// Marks that stored destinations are in canonical form.
  void markNormalized() { _needsNormalizationMark.store(true, std::memory_order_release); }
  /// Nothing is marked of slots and titles any more: a load found what was marked, or took it.
  void clearMarks();
  /// The sequence number of the contacts that the list was brought in step with: goes out with the list, or after it.
  void keepSequenceNumber(std::int32_t number);
  bool needsFriendListSync() const { return _needsFriendListSync; }
  bool needsTitlesSync() const { return _needsTitlesSync; }

  /// Asks for a save and returns at once. Where there is nothing to write no thread is woken, but what is marked behind
  /// this request, without one of its own, goes out with it.
  void save();
  /// The save that was requested last. Save queue.
  const std::shared_ptr<PLDelayedOperation>& saveOperation() const PELLOR_REQUIRES(*_saveQueue) {
    return _saveOperation;
  }
  void setSaveOperation(std::shared_ptr<PLDelayedOperation> operation) PELLOR_REQUIRES(*_saveQueue) {
    _saveOperation = std::move(operation);
  }

  // --- Steps. Main queue ---

  /// From here to `endStep` nothing is taken for a write, and requests for saves are not heard.
  void beginStep() { _steps.begin(); }
  /// The number of the step, from 1 on.
  std::uint64_t endStep() { return _steps.end(); }
  /// Ends it as well: it was none.
  void cancelStep() { _steps.cancel(); }
  const PLStepCount& steps() const { return _steps; }
  /// Asks for a save also where nothing seems to be left to write: the client is told of the steps.
  void saveSteps() {
    if (!_steps.isMaking()) _requestSave();
  }

  // --- What is known of it. Main queue ---

  /// Whether something may be marked that no save has seen.
  bool isMarked() const;
  /// Whether a save is looking or writing.
  bool isSaving() const { return _isSaving; }
  /// Whether a write failed, or nobody can tell what became of it, and it is still to be tried.
  bool hasFailed() const { return _hasFailed; }
  /// Whether nothing is written until the stored list has been loaded.
  bool awaitsLoad() const;
  /// Whether a write is under way of which the outcome is not known.
  bool isWriting() const;

  // --- The stored list. Main queue ---

  /// Null before the first `takeOver`.
  std::shared_ptr<const PLBaseline> base() const;
  /// The last step that is stored, also when nobody was told of it yet.
  std::uint64_t storedStep() const;
  /// When a load of the list that was read may go on.
  enum class Turn {
    now,         ///< at once; nothing is written before the `takeOver` at its end
    nothingNew,  ///< a write is under way and the baseline is still stored: there is nothing to take over
    later,       ///< a write is under way that may be what was read: `loadIsDue` follows it
  };
  Turn beginLoad(const PreferenceVersion& list, const PreferenceVersion& titles, const PLAttachedVersions& arrays = {});
  /// A write of which nobody could tell what became is the stored one if a version in `stored` names it: then that is
  /// accepted late, and the baseline.
  void acceptIfWritten(const PLStoredList& stored);
  /// Whether the list waits for favorites once a load has taken over `stored`: what other processes stored counts,
  /// unless this one has brought them and not written that yet.
  bool awaitsFavorites(const PLStoredList& stored);
  /// Ends a load: from now on saves build on `base`, with the list and the groups that belong to it.
  void takeOver(std::shared_ptr<const PLBaseline> base, PLSlotList& list, const PLPageNumbers& pages);
  /// Nothing is written until the next `takeOver`: the store cannot be read.
  void awaitLoad();
  /// The arrays that go out with the list.
  PLAttachedArrays& attachedArrays() { return _attachedArrays; }
  /// What persons changed since the baseline; brought up to date by `publish`.
  PLDirtyChunks& dirtyChunks() { return _dirtyChunks; }

 private:
  enum class Phase { ready, writing, awaitsLoad };

  void _requestSave();
  void _save() PELLOR_REQUIRES(*_saveQueue);
  void writeUnsavedChanges() PELLOR_REQUIRES(*_saveQueue);
  bool takeUnsavedChanges(PLListWrite& write) PELLOR_REQUIRES(*_saveQueue);
  void takeUnsavedPersons(PLListWrite& write) PELLOR_REQUIRES(*_saveQueue);
  void finish(PLListWrite& write, const PreferenceWriteAnswer& answer) PELLOR_REQUIRES(*_saveQueue);
  void accept(PLListWrite& write, const VersionedPreferences& written) PELLOR_REQUIRES(*_saveQueue);
  void adopt(PLListWrite& write, const VersionedPreferences& written);
  void rememberUnknown(const PLListWrite& write);
  void push(const PLListWrite& write);
  void keepUnsavedChanges(const PLListWrite& write) PELLOR_REQUIRES(*_saveQueue);
  void giveBack(const PLListWrite& write) PELLOR_REQUIRES(*_saveQueue);
  void noteNothingToWrite(const PLListWrite& write) PELLOR_REQUIRES(*_saveQueue);
  bool noteStoredStep(std::uint64_t last);
  void leaveWriting(Phase phase) PELLOR_REQUIRES(*_saveQueue);
  void noteFailed(bool hasFailed);
  void tellClient(void (PLListWriterClient::*tell)());
  void askForLoadLater() PELLOR_REQUIRES(*_saveQueue);
  void retryLater() PELLOR_REQUIRES(*_saveQueue);
  void tellWritten(PLAcceptedWrite write);

  // Set when the writer is made.
  Process& _process;
  const std::string _domain;
  const std::shared_ptr<PreferencesSyncService> _preferencesSyncManager;
  const std::shared_ptr<SerialQueue> _saveQueue;
  const std::uint64_t _writer;  // names this writer's writes
  std::weak_ptr<PLListWriterClient> _client;

  // Main queue.
  std::uint64_t _publishedListVersion = 0;
  bool _saveIsDue = false;  // was asked for when there was nothing to write, and may find something yet

  // What is published and what it was made on belong together: a save takes both at once.
  mutable Mutex _mutex;
  PLPublishedList _published PELLOR_GUARDED_BY(_mutex);
  std::shared_ptr<const PLBaseline> _base PELLOR_GUARDED_BY(_mutex);
  Phase _phase PELLOR_GUARDED_BY(_mutex) = Phase::awaitsLoad;
  bool _loadIsDeferred PELLOR_GUARDED_BY(_mutex) = false;
  std::uint64_t _storedStep PELLOR_GUARDED_BY(_mutex) = 0;
  std::vector<std::shared_ptr<const PLListWrite>> _unknownWrites PELLOR_GUARDED_BY(_mutex);  // made from the baseline
  std::optional<std::int32_t> _sequenceNumber PELLOR_GUARDED_BY(_mutex);                     // that is not written
  std::optional<bool> _awaitsFavorites PELLOR_GUARDED_BY(_mutex);                            // that is not written

  // Marks: set on the main queue, taken by saves, set again by a save whose write was not accepted.
  std::atomic<bool> _needsFriendListSync{false};
  std::atomic<bool> _needsTitlesSync{false};
  std::atomic<bool> _needsNormalizationMark{false};
  PLDirtyChunks _dirtyChunks;
  PLStepCount _steps;
  PLAttachedArrays _attachedArrays;
  // Written by saves, read on the main queue: whether one looks or writes, how many marks of persons the last one knew
  // of, and whether its write failed.
  std::atomic<bool> _isSaving{false};
  std::atomic<std::uint64_t> _savedMarks{0};
  std::atomic<bool> _hasFailed{false};

  // Save queue.
  std::shared_ptr<PLDelayedOperation> _saveOperation PELLOR_GUARDED_BY(*_saveQueue);
  std::shared_ptr<Timer> _retryTimer PELLOR_GUARDED_BY(*_saveQueue);
  BackOff _retryPauses PELLOR_GUARDED_BY(*_saveQueue);
  std::shared_ptr<const PLSlotSnapshot> _savedList PELLOR_GUARDED_BY(*_saveQueue);  // that the last save looked at
  std::uint64_t _writeCount PELLOR_GUARDED_BY(*_saveQueue) = 0;
};

}  // namespace pellor
