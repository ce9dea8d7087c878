// The steps of a friends manager: edits that are stored together.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "pellor/friends/PLStepClient.h"
#include "pellor/friends/internal/PLBaseline.h"

namespace pellor {

class PLListWriter;

/// Who wrote `stored`, which is about to be taken over; absent when it is the baseline, and without one.
std::optional<PLChangeOrigin> plOriginOf(const PLBaseline* base, const PLStoredList& stored);

/// Makes steps, asks the client about those that are not stored, and tells it of those that are. Its invariant: the
/// client is told of every step once, in their order, when nothing of it is left to write. Main queue.
class PLSteps {
 public:
  /// The writer outlives this object.
  explicit PLSteps(PLListWriter& writer) : _writer(writer) {}

  /// Tells it of the decisions that were made, and of the favorites that were left out, while there was none, and are
  /// not written yet.
  void setClient(std::weak_ptr<PLStepClient> client);

  // --- Making them ---

  /// Calls `edits`, and then `finish`, which publishes and marks what is left to, as the next step. The number of it.
  std::uint64_t perform(const std::function<void()>& edits, const std::function<void()>& finish);
  /// Calls `edits`, which tells the client of decisions and of a change by the contacts: what they changed and what the
  /// client sets goes out in one write. With a decision that is a step, where there is a client.
  void follow(const std::function<void()>& edits);
  /// Whether groups that lose their last friend stay.
  bool keepsEmptiedGroups() const { return _keepsEmptiedGroups; }
  /// Calls `edits`, in which no group goes because it lost its last friend.
  void keepGroupsDuring(const std::function<void()>& edits);

  // --- Whether they are stored ---

  /// Whether the client is still to be told of some.
  bool areUntold() const;
  /// What has them all up to this one was accepted, or was not needed. Tells the client, in the caller's task.
  void noteStored(std::uint64_t last);

  // --- The client ---

  /// Whether it has to be asked before `stored` is merged. `base` is the baseline.
  bool areToBeJudged(const PLBaseline& base, const PLStoredList& stored) const;
  void judge(const PLStoredPages& theirs);
  /// Whether the client is to be told what lies between both: somebody changed it who keeps no history.
  bool isForeign(const PLBaseline& base, const PLStoredList& stored) const;
  void tellForeignEdit(const PLForeignEdit& edit) const;
  void tellChange(PLChangeOrigin origin) const;
  /// Within `follow`.
  void tellDecision(PLAutomaticDecision decision);
  /// The list was written: nobody is told any more of what was decided before.
  void forgetDecisions();
  /// There was no room for these favorites: the client is to be told.
  void noteLeftOut(const std::vector<std::shared_ptr<PLPerson>>& persons);
  /// Tells the client, if there is one, of those that were noted, as a step. There is a list.
  void tellLeftOut();

 private:
  PLListWriter& _writer;
  std::weak_ptr<PLStepClient> _client;
  bool _keepsEmptiedGroups = false;
  std::vector<PLAutomaticDecision> _untoldDecisions;  // while there is no client
  std::vector<std::shared_ptr<PLPerson>> _leftOut;    // favorites of which the client is to be told
  bool _hasDecided = false;                           // since the last `follow` began
  std::uint64_t _told = 0;                            // the last step of which the client was told
};

}  // namespace pellor
