// Steps that other processes overtook, and what becomes of the list by others.
#include <algorithm>
#include <set>
#include <utility>

#include "pellor/friends/PLFriendsManager.h"
#include "pellor/list/internal/ImportAgain.h"
#include "pellor/list/internal/ListSteps.h"
#include "pellor/list/internal/TheirList.h"

namespace pellor {
namespace {

ChangeOrigin publicOrigin(PLChangeOrigin origin) {
  switch (origin) {
    case PLChangeOrigin::load:
      return ChangeOrigin::load;
    case PLChangeOrigin::otherProcess:
      return ChangeOrigin::otherProgram;
    case PLChangeOrigin::device:
      return ChangeOrigin::device;
    case PLChangeOrigin::contacts:
      return ChangeOrigin::contacts;
  }
  return ChangeOrigin::otherProgram;
}

}  // namespace

// Each is judged on theirs with the steps before it that hold there. Who left the list there left it by their step.
void ListSteps::judgeSteps(const PLStoredPages& theirs) {
  _automatic.judge(theirs);
  _judgedAbove = theirs.storedStep;
  if (_unstored.empty()) return;
  _feed.noteRest();
  const TheirList list(theirs, _mirror, _unstored.front().before);
  const auto isStored = [&](const Unstored& step) { return step.number <= theirs.storedStep; };
  const auto firstToJudge = std::ranges::find_if_not(_unstored, isStored);
  const Snapshot ours = firstToJudge == _unstored.end() ? Snapshot() : firstToJudge->before;
  ListDraft held(list.snapshot(), limits(), [this] { return _mirror.newPageId(); });
  bool hasRejected = false;
  for (Unstored& step : std::exchange(_unstored, {})) {
    step.followsRejected = step.followsRejected || hasRejected;
    if (isStored(step)) {
      _unstored.push_back(std::move(step));
      continue;
    }
    ListDraft draft = held;
    if (const auto refusal = judge(step, list, draft)) {
      reject(std::move(step), *refusal);
      hasRejected = true;
      continue;
    }
    held = std::move(draft);
    _unstored.push_back(std::move(step));
  }
  std::vector<FriendIdentity> gone;
  for (const auto& person : ours.friends())
    if (!list.snapshot().placeOf(person->id) && !held.placeOf(person->id)) gone.push_back(identityOf(*person));
  if (!gone.empty()) leaveOut(gone, theirs.storedStep);
}

std::optional<Refusal> ListSteps::judge(const Unstored& step, const TheirList& theirs, ListDraft& draft) const {
  if (step.isImport) return importAgain(step.record, step.before, draft);
  StepPlan plan(draft, theirs);
  for (std::size_t index = 0; index < step.edits.size(); ++index)
    if (const auto refused = plan.addAgain(step.edits[index])) return Refusal{*refused, index, plan.inTheWay()};
  plan.finish();
  return std::nullopt;
}

void ListSteps::reject(Unstored step, const Refusal& refusal) {
  TakingBack back = takingBack(&step.record);
  if (!back.answer.refusal) {
    bringBack(back);
    perform(back.step);
    _feed.note(ChangeOrigin::otherProgram, &back.step.draft);
  }
  _history.restore(step.entry, step.entryBefore);
  _removed.takeBack(step.removed);
  if (!step.stored) return;
  _process.mainQueue().async([stored = std::move(step.stored), refusal] { stored(refusal); });
}

void ListSteps::listChangedBy(PLChangeOrigin origin) {
  const Snapshot before = _mirror.last();
  const auto judgedAbove = std::exchange(_judgedAbove, std::nullopt);
  _feed.noteWithReports(publicOrigin(origin));
  if (origin == PLChangeOrigin::contacts)
    return _automatic.writeSteps([this](const Friend& gone) { return friendsSharing(gone); });
  if (judgedAbove) notePlacedElsewhere(before, *judgedAbove);
}

// Friends whom steps put somewhere, and whom the merge of those steps did not leave there.
void ListSteps::notePlacedElsewhere(const Snapshot& before, std::uint64_t lastStored) {
  std::set<FriendId> placed;
  for (const Unstored& step : _unstored) {
    if (step.number <= lastStored) continue;
    for (const FriendRecord& person : step.record.friends)
      if (person.to && person.from != person.to) placed.insert(person.id);
  }
  if (placed.empty()) return;
  ListChange change;
  change.before = before;
  change.after = _mirror.last();
  for (const auto& move : changeBetween(before, change.after).moved)
    if (placed.contains(move.id) && move.from != move.to) change.moved.push_back(move);
  if (!change.moved.empty()) _automatic.writePlaces(change, _unstored.back().number);
}

}  // namespace pellor
