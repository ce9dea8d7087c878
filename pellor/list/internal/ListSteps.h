// The steps of a list: planned, done, and followed until they are stored.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "pellor/friends/PLStepClient.h"
#include "pellor/list/Edit.h"
#include "pellor/list/Explanation.h"
#include "pellor/list/ExportedList.h"
#include "pellor/list/History.h"
#include "pellor/list/ListImport.h"
#include "pellor/list/internal/AutomaticSteps.h"
#include "pellor/list/internal/ForeignEdits.h"
#include "pellor/list/internal/ForgottenPerson.h"
#include "pellor/list/internal/ListExceptions.h"
#include "pellor/list/internal/ListFeed.h"
#include "pellor/list/internal/ListHistory.h"
#include "pellor/list/internal/ListMirror.h"
#include "pellor/list/internal/ListStep.h"
#include "pellor/list/internal/RemovedFriends.h"
#include "pellor/list/internal/StepPlan.h"
#include "pellor/list/internal/StepRecord.h"
#include "pellor/list/internal/TakeBack.h"
#include "pellor/list/internal/ToldPeople.h"
#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/Process.h"

namespace pellor {

class PLFriendsManager;
class PLPerson;
class TheirList;

/// Its invariant: of each step that was done and is not stored it knows the edits, what they changed, and who is to be
/// told. Main queue.
class ListSteps final : public PLStepClient {
 public:
  /// `mirror` and `feed` outlive the steps. `keep` is called with whether there are steps that are not stored.
  ListSteps(Process& process, std::shared_ptr<PLFriendsManager> manager, ListMirror& mirror, ListFeed& feed,
            std::function<void(bool hasUnstored)> keep);

  /// What the history calls this program.
  void setProgram(std::string program) { _program = std::move(program); }

  StepAnswer plan(std::span<const Edit> edits);
  StepAnswer apply(std::span<const Edit> edits, StoredHandler stored);
  ExportedList exported();
  ImportAnswer planImport(const ExportedList& list, ImportMode mode);
  ImportAnswer import(const ExportedList& list, ImportMode mode, StoredHandler stored);
  /// Takes the step with that id back, or for an empty one the last that a person made.
  UndoAnswer undo(const std::string& id, StoredHandler stored);
  /// Does again what the last undo took back.
  UndoAnswer redo(StoredHandler stored);
  /// What `undo` and `redo` would answer.
  UndoAnswer planUndo(const std::string& id);
  UndoAnswer planRedo();
  /// The friend leaves the list, and all that tells of him goes.
  ForgetAnswer forget(FriendId id, ForgottenHandler forgotten);
  /// Forgets each person of list, history, memory and platform with this destination or GUID.
  ForgetAnswer forget(const std::string& who, ForgottenHandler forgotten);
  /// What `forget` would answer.
  ForgetAnswer planForget(FriendId id);
  ForgetAnswer planForget(const std::string& who);
  StepAnswer clearHistory(StoredHandler stored);
  ListHistory& history() { return _history; }
  /// What history and exceptions tell of a friend.
  Explanation explanation(FriendId id);
  /// The program ends: no step will be stored any more.
  void abandon();

  void stepsWereStored(std::uint64_t last) override;
  void judgeSteps(const PLStoredPages& theirs) override;
  void foreignEditWasFound(const PLForeignEdit& edit) override { _foreign.note(edit); }
  void decisionWasMade(const PLAutomaticDecision& decision) override { _automatic.note(decision); }
  void favoritesWereLeftOut(const std::vector<std::shared_ptr<PLPerson>>& persons) override {
    _automatic.writeLeftOut(persons);
  }
  void listChangedBy(PLChangeOrigin origin) override;

 private:
  /// A step that is being planned.
  struct Planned {
    ListStep step;
    std::vector<PlannedEdit> edits = {};
    StepAnswer answer = {};
  };
  struct Unstored {
    std::uint64_t number = 0;
    StepRecord record;                                   ///< in whole, however large it is
    std::string entry;                                   ///< of the history, which tells of it
    std::optional<ListHistory::Entry> entryBefore = {};  ///< absent: there was none
    Snapshot before;
    std::vector<PlannedEdit> edits;
    StoredHandler stored;
    RemovedFriends::Changes removed = {};
    std::optional<ForgottenPerson> forgotten = {};  ///< by a step of that kind
    ForgottenHandler tellForgotten = {};            ///< once nothing is left; `stored` tells of a refusal
    bool isImport = false;                          ///< of an exported list, without edits
    bool followsRejected = false;                   ///< whether a step before it may have brought somebody back
  };
  struct PlannedImport {
    ListStep step;
    ImportAnswer answer = {};
  };
  using Forms = std::map<FriendId, Dictionary>;
  /// A friend who left the list in another process.
  struct Gone {
    FriendId id;
    std::vector<FriendIdentity> knownAs;  ///< since the version that both processes have
  };
  /// A step that is to be taken back.
  struct TakingBack {
    std::optional<ListHistory::Entry> entry;  ///< absent: there is none
    ListStep step;
    std::vector<TakenBack::Restored> restored = {};
    UndoAnswer answer = {};
  };

  /// Why the store takes no step; absent when it does, or is tried until it does.
  std::optional<Refusal> refusalOfStore() const;
  ListLimits limits() const;
  /// Of the list of now.
  ListDraft newDraft();
  Planned planned(std::span<const Edit> edits);
  std::optional<RefusalReason> prepare(PlannedEdit& planned, ListStep& step);
  std::optional<RefusalReason> findContact(const std::string& guid, Newcomer& newcomer) const;
  std::optional<FieldEdit> restoration(const Newcomer& newcomer, const PLPerson& person);
  PlannedImport plannedImport(const ExportedList& list, ImportMode mode);
  Forms formsAfter(const ListStep& step) const;
  Snapshot listAfter(const ListStep& step, const Forms& formsAfter) const;
  bool isStorable(const ListStep& step, StepKind kind, const Snapshot& after, const Forms& formsAfter) const;
  void describeStep(const ListStep& step, const Snapshot& after, const FormOfFriend& formBefore,
                    const FormOfFriend& formAfter, StepRecord& record) const;
  void perform(const ListStep& step);
  /// What the history is told of a step.
  enum class Note { made, undone, redone };
  /// Makes the step, notes it in the history and follows it until it is stored; whether it can be taken back.
  bool commit(const ListStep& step, Unstored unstored, Note note);
  RemovedFriends::Changes noteRemoved(const ListStep& step, const Forms& formsBefore);
  void sign(StepRecord& record);
  void record(const ListStep& step, const Forms& formsBefore, StepRecord& record);
  ListDraft judgeEach(const TheirList& list, std::uint64_t lastStored);
  std::optional<Refusal> judge(const Unstored& step, const TheirList& theirs, ListDraft& draft) const;
  void reject(Unstored step, const Refusal& refusal);
  std::multimap<FriendId, Dictionary> unstoredFormsBefore(std::uint64_t lastStored) const;
  ToldPeople toldBefore(std::uint64_t lastStored);
  std::optional<ForgottenPerson> forgottenIn(const TheirList& list, const LongArray& history,
                                             const std::vector<Gone>& gone, std::uint64_t lastStored);
  void leaveOut(const ForgottenPerson& persons, std::uint64_t lastStored);
  TakingBack takingBack(const StepRecord* record);
  void noteInHistory(const std::string& entry, const StepRecord& record, Note note);
  void notePlacedElsewhere(const Snapshot& before, std::uint64_t lastStored);
  void noteException(const Unstored& step, Note note);
  TakingBack undoing(const std::string& id);
  TakingBack redoing();
  UndoAnswer takeBack(TakingBack step, Note note, StoredHandler stored);
  std::vector<FriendIdentity> identitiesOf(const std::string& who);
  ForgottenPerson personKnownBy(const std::vector<FriendIdentity>& known);
  ForgetAnswer answerAbout(const ForgottenPerson& person);
  ForgetAnswer forget(const std::vector<FriendIdentity>& known, ForgottenHandler forgotten);
  ForgetAnswer planForget(const std::vector<FriendIdentity>& known);
  static std::vector<FriendId> friendsWhoAre(const ForgottenPerson& person, const Snapshot& list);
  bool isOfAnother(const FriendIdentity& identity, const std::vector<FriendIdentity>& known) const;
  bool isRemembered(const ForgottenPerson& person);
  void commitForgetting(const std::vector<FriendId>& leaving, ForgottenPerson person, ForgottenHandler forgotten);
  bool forgetAgain(Unstored& step);
  void eraseTraces(const ForgottenPerson& person, ForgottenHandler forgotten);
  void bringBack(TakingBack& back);
  Dictionary formOf(FriendId id) const;
  std::vector<FriendId> friendsSharing(const Friend& gone) const;

  Process& _process;
  const std::shared_ptr<PLFriendsManager> _manager;
  ListMirror& _mirror;
  ListFeed& _feed;
  const std::function<void(bool hasUnstored)> _keep;
  ListHistory _history;
  RemovedFriends _removed;
  ListExceptions _exceptions;
  AutomaticSteps _automatic;
  ForeignEdits _foreign;
  std::string _program;
  std::vector<Unstored> _unstored;            // by number
  std::optional<std::uint64_t> _judgedAbove;  // in the load that goes on: steps up to this number are stored
};

}  // namespace pellor
