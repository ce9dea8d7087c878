// The steps that were made of a list, by all programs.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/list/History.h"
#include "pellor/list/internal/DecodedHistory.h"
#include "pellor/list/internal/StepRecord.h"
#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/LongArrayElements.h"

namespace pellor {

class ForgottenPerson;
class PLFriendsManager;

/// The newest steps, stored with the list that they tell of. That a step was taken back is kept with the step, so that
/// a hundred steps can be. Main queue.
class ListHistory {
 public:
  static inline const std::string Key = "PLFriendListHistory";
  static constexpr std::size_t MostSteps = 100;

  using Entry = HistoryEntry;

  explicit ListHistory(std::shared_ptr<PLFriendsManager> manager);

  // Within a step of the manager, or while steps are judged.
  void append(const StepRecord& step);
  /// The step was taken back, by doing that.
  void noteUndone(const std::string& id, const StepRecord& undone);
  /// The step was done again, which found and made what `step` tells.
  void noteRedone(const std::string& id, const StepRecord& step);
  /// What was noted last of the step did not happen; absent: there was no such step before.
  void restore(const std::string& id, const std::optional<Entry>& entry);

  /// Takes out all that tells of that person; with `id`, of that step alone.
  void forget(const ForgottenPerson& person, const std::string& id = {});
  bool tellsOf(const ForgottenPerson& person);
  /// What is left of a history, or of that step of it; absent where nothing in it tells of the person.
  static std::optional<LongArrayElements> elementsWithout(const LongArray& stored, const ForgottenPerson& person,
                                                          const std::string& id);
  void clear();

  /// The oldest first.
  const std::vector<DecodedHistory::Entry>& entries();
  /// All steps, and what taking them back did.
  std::vector<StepRecord> records();
  static std::vector<StepRecord> recordsOf(const Entry& entry);
  /// Likewise, of a history that is not this one.
  static std::vector<StepRecord> recordsIn(const LongArray& stored);
  std::vector<HistoryStep> summaries();
  /// Null for one that is not, or no longer, among them.
  const Entry* find(const std::string& id);
  static HistoryStep summaryOf(const Entry& entry);

  /// The last step that a person made and that is not taken back; null without one.
  const Entry* lastToUndo();
  /// The step that was taken back last, an automatic one too, as long as no person made another one since; null without
  /// one.
  const Entry* lastToRedo();

 private:
  const LongArray& stored() const;
  const DecodedHistory& read();
  std::optional<std::size_t> elementWith(const std::string& id);
  std::size_t oldestElement();
  void setOwn(LongArray elements, Entry entry);
  void replace(const Entry& entry);
  std::int64_t nextMoment();

  const std::shared_ptr<PLFriendsManager> _manager;
  DecodedHistory _decoded;
};

}  // namespace pellor
