// Steps that other processes overtook, and what becomes of the list by others.
#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <string_view>
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

// Of whom nothing is to be kept is found out before our steps are merged with theirs. Who forgets somebody writes the
// history: where that is the one that is known nobody was forgotten.
void ListSteps::judgeSteps(const PLStoredPages& theirs) {
  const auto formsBefore = unstoredFormsBefore(theirs.storedStep);
  _automatic.judge(theirs);
  _foreign.judge(theirs);
  _judgedAbove = theirs.storedStep;
  if (_unstored.empty() && formsBefore.empty() && _foreign.unstored().empty()) return;
  const Snapshot now = _feed.noteRest();
  const TheirList list(theirs, _mirror, _unstored.empty() ? now : _unstored.front().before);
  const auto isUnstored = [&](const Unstored& step) { return step.number > theirs.storedStep; };
  const auto first = std::ranges::find_if(_unstored, isUnstored);
  const Snapshot ours = first == _unstored.end() ? now : first->before;
  const ListDraft held = judgeEach(list, theirs.storedStep);
  if (!theirs.hasNewHistory) return;
  std::vector<Gone> gone;
  for (const auto& person : ours.friends()) {
    if (list.snapshot().placeOf(person->id) || held.placeOf(person->id)) continue;
    gone.push_back({person->id, {identityOf(*person)}});
    const auto [before, end] = formsBefore.equal_range(person->id);
    for (auto each = before; each != end; ++each) gone.back().knownAs.push_back(identityOf(each->second));
  }
  const auto history = theirs.attached.find(ListHistory::Key);
  if (history == theirs.attached.end()) return;
  const auto forgotten = forgottenIn(list, history->second, gone, theirs.storedStep);
  if (forgotten) leaveOut(*forgotten, theirs.storedStep);
}

// Of friends whom steps changed that are not stored.
std::multimap<FriendId, Dictionary> ListSteps::unstoredFormsBefore(std::uint64_t lastStored) const {
  std::multimap<FriendId, Dictionary> forms;
  for (const StepRecord* step : _automatic.unstored())
    for (const FriendRecord& person : step->friends) forms.emplace(person.id, person.before);
  for (const Unstored& step : _unstored) {
    if (step.number <= lastStored) continue;
    for (const FriendRecord& person : step.record.friends) forms.emplace(person.id, person.before);
  }
  return forms;
}

// Each on theirs with the steps before it that hold there, which is the answer.
ListDraft ListSteps::judgeEach(const TheirList& list, std::uint64_t lastStored) {
  ListDraft held(list.snapshot(), limits(), [this] { return _mirror.newPageId(); });
  bool hasRejected = false;
  for (Unstored& step : std::exchange(_unstored, {})) {
    step.followsRejected = step.followsRejected || hasRejected;
    if (step.number <= lastStored) {
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
  return held;
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

// --- Who was forgotten there ---------------------------------------------------------------------------------------

// By the history without the steps that are not stored.
ToldPeople ListSteps::toldBefore(std::uint64_t lastStored) {
  std::map<std::string_view, const Unstored*> changedBy;  // by entry, the first of the steps
  for (const Unstored& step : _unstored)
    if (step.number > lastStored) changedBy.try_emplace(step.entry, &step);
  std::set<std::string_view> made(_foreign.unstored().begin(), _foreign.unstored().end());
  for (const StepRecord* step : _automatic.unstored()) made.insert(step->id);
  ToldPeople told;
  for (const auto& entry : _history.entries()) {
    const auto changed = changedBy.find(entry->step.id);
    const auto before = changed == changedBy.end() ? std::optional(*entry) : changed->second->entryBefore;
    if (before && !made.contains(entry->step.id)) told.add(ListHistory::recordsOf(*before));
  }
  return told;
}

// Of whom theirs tells nothing any more, neither the list nor the history: who only left the list there is told of by
// the step that did it. Absent for nobody.
std::optional<ForgottenPerson> ListSteps::forgottenIn(const TheirList& list, const LongArray& history,
                                                      const std::vector<Gone>& gone, std::uint64_t lastStored) {
  const ToldPeople before = toldBefore(lastStored);
  ToldPeople told;
  told.add(ListHistory::recordsIn(history));
  const auto isTold = [&](const auto& each) { return told.tellOf(each); };
  const auto isGone = [&](const Gone& each) { return std::ranges::none_of(each.knownAs, isTold); };
  if (std::ranges::all_of(before.identities(), isTold) && std::ranges::all_of(before.fingerprints(), isTold) &&
      std::ranges::none_of(gone, isGone))
    return std::nullopt;
  told.add(list.snapshot());
  std::set<FriendId> leaving;
  for (const Gone& each : gone) leaving.insert(each.id);
  for (const auto& person : _mirror.last().friends())
    if (!leaving.contains(person->id)) told.add(identityOf(*person));
  std::vector<FriendIdentity> forgotten;
  for (const Gone& each : gone)
    if (isGone(each)) forgotten.insert(forgotten.end(), each.knownAs.begin(), each.knownAs.end());
  std::ranges::remove_copy_if(before.identities(), std::back_inserter(forgotten), isTold);
  ForgottenPerson persons(
      [this, forgotten](const FriendIdentity& identity) { return isOfAnother(identity, forgotten); });
  for (const FriendIdentity& identity : forgotten) persons.add(identity);
  for (const std::uint32_t fingerprint : before.fingerprints())
    if (!isTold(fingerprint)) persons.addFingerprint(fingerprint);
  return persons;
}

// What is stored later is not to tell of them: neither our steps, nor those that only we changed.
void ListSteps::leaveOut(const ForgottenPerson& persons, std::uint64_t lastStored) {
  const auto isTheirs = [&](const std::optional<Value>& remembered) {
    const Value* form = remembered ? valueForKey(*remembered->dictionary(), "form") : nullptr;
    return form && persons.isTheirs(*form->dictionary());
  };
  _history.forget(persons);
  _exceptions.forget(persons);
  for (Unstored& step : _unstored) {
    if (step.number <= lastStored) continue;
    const auto others =
        std::ranges::partition(step.removed, [&](const auto& change) { return isTheirs(change.after); });
    _removed.takeBack({step.removed.begin(), others.begin()});
    step.removed.erase(step.removed.begin(), others.begin());
    auto rest = persons.without(step.record);
    if (!rest) step.record.friends.clear();
    if (rest) step.record = *std::move(rest);
  }
}

// --- What became of the list ---------------------------------------------------------------------------------------

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
