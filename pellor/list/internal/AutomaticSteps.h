// Steps of what a manager decides about its friends by itself.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "pellor/friends/PLStepClient.h"
#include "pellor/list/Snapshot.h"
#include "pellor/list/internal/ListFeed.h"
#include "pellor/list/internal/ListHistory.h"
#include "pellor/list/internal/ListMirror.h"
#include "pellor/list/internal/StepRecord.h"

namespace pellor {

class PLFriendsManager;

/// One step a decision, in the write of what was decided. Processes that decide the same about the same version of the
/// list make one step of it: its id follows from the decision. Its invariant: each decision of this process that is not
/// stored is a step of the history. Main queue.
class AutomaticSteps {
 public:
  /// `mirror`, `feed` and `history` outlive this object. `sign` writes time and program into a step.
  AutomaticSteps(std::shared_ptr<PLFriendsManager> manager, ListMirror& mirror, ListFeed& feed, ListHistory& history,
                 std::function<void(StepRecord&)> sign);

  void note(const PLAutomaticDecision& decision);
  /// All decisions that come of one change of the contacts were noted, and the feed knows what they made of the list.
  void writeSteps(const FriendsSharing& sharing);

  /// The friends of `change.moved` were put there by a merge, and elsewhere by the steps up to that number, with which
  /// this is stored.
  void writePlaces(const ListChange& change, std::uint64_t number);

  /// For these favorites there was no room.
  void writeLeftOut(const std::vector<std::shared_ptr<PLPerson>>& persons);

  void noteStored(std::uint64_t last);
  /// Those that are not stored.
  std::vector<const StepRecord*> unstored() const;
  /// Takes the steps out of the history that a merge with `theirs` leaves nothing of: what theirs has decided already
  /// is told by their step, and who was cleaned up comes back and is judged anew.
  void judge(const PLStoredPages& theirs);

 private:
  struct Decision {
    StepKind kind;
    std::shared_ptr<PLPerson> person;
    Dictionary formBefore;
    Dictionary formAfter;
    Dictionary evidence;
    std::uint64_t slot;
    std::uint64_t step;
  };
  struct Unstored {
    std::uint64_t number;
    std::shared_ptr<PLPerson> person;  ///< null for places, which each merge finds anew
    Dictionary formBefore;
    StepRecord record;
  };

  bool describeDecision(const Decision& decision, ListChange& removals, const FriendsSharing& sharing,
                        StepRecord& record) const;
  void describeRemoval(const Decision& decision, StepRecord& record) const;
  std::string idOf(const StepRecord& record);

  const std::shared_ptr<PLFriendsManager> _manager;
  ListMirror& _mirror;
  ListFeed& _feed;
  ListHistory& _history;
  const std::function<void(StepRecord&)> _sign;
  Snapshot _before;                  // the list before the first one of `_decisions`
  std::vector<Decision> _decisions;  // of which no step was made yet
  std::vector<Unstored> _unstored;   // by number
};

}  // namespace pellor
