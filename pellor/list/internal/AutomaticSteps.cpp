#include "pellor/list/internal/AutomaticSteps.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLMergeFields.h"
#include "pellor/list/internal/FriendIdentity.h"
#include "pellor/list/internal/StepId.h"

namespace pellor {
namespace {

StepKind kindOf(PLDecisionKind kind) {
  switch (kind) {
    case PLDecisionKind::relinked:
      return StepKind::relinked;
    case PLDecisionKind::unlinked:
      return StepKind::unlinked;
    case PLDecisionKind::deduplicated:
      return StepKind::deduplicated;
    case PLDecisionKind::cleanedUp:
      return StepKind::cleanedUp;
  }
  return StepKind::unknown;
}

bool isRemoval(StepKind kind) { return kind == StepKind::deduplicated || kind == StepKind::cleanedUp; }

// Absent for somebody whom they do not have.
std::optional<Dictionary> formIn(const PLStoredPages& theirs, const std::shared_ptr<PLPerson>& person) {
  const auto found = std::ranges::find(theirs.contents, person, &PLStoredSlot::known);
  return found == theirs.contents.end() ? std::nullopt : std::optional(found->stored->dictionaryRepresentation());
}

}  // namespace

AutomaticSteps::AutomaticSteps(std::shared_ptr<PLFriendsManager> manager, ListMirror& mirror, ListFeed& feed,
                               ListHistory& history, std::function<void(StepRecord&)> sign)
    : _manager(std::move(manager)), _mirror(mirror), _feed(feed), _history(history), _sign(std::move(sign)) {}

// Until persons report their changes the feed shows them as they were.
void AutomaticSteps::note(const PLAutomaticDecision& decision) {
  if (_decisions.empty()) _before = _feed.noteRest();
  Dictionary form = decision.person->dictionaryRepresentation();
  Decision noted{kindOf(decision.kind), decision.person, form, form, decision.evidence, decision.slot, decision.step};
  if (!isRemoval(noted.kind)) {
    for (const auto& [key, value] : blockOfForm(form)) noted.formBefore.erase(key);
    noted.formBefore.insert(decision.cardBefore.begin(), decision.cardBefore.end());
  }
  _decisions.push_back(std::move(noted));
}

void AutomaticSteps::writeSteps(const FriendsSharing& sharing) {
  ListChange removals = changeBetween(_before, _mirror.last());
  for (Decision& decision : std::exchange(_decisions, {})) {
    StepRecord record;
    record.kind = decision.kind;
    record.evidence = decision.evidence;
    if (!describeDecision(decision, removals, sharing, record)) continue;
    _sign(record);
    record.id = idOf(record);
    _history.append(record);
    _unstored.push_back({decision.step, std::move(decision.person), std::move(decision.formBefore), std::move(record)});
  }
}

// A friend who is linked anew may leave the list by the same change: each step tells of its part. A page that a friend
// left as the last one goes with the friend's step. False for somebody whom the list does not show.
bool AutomaticSteps::describeDecision(const Decision& decision, ListChange& removals, const FriendsSharing& sharing,
                                      StepRecord& record) const {
  ListChange change;
  change.before = change.after = _before;
  if (isRemoval(decision.kind)) {
    const auto isIts = [&](const auto& each) { return _mirror.ids().personWith(each.id) == decision.person; };
    const auto removal = std::ranges::find_if(removals.removed, isIts);
    if (removal == removals.removed.end()) {
      describeRemoval(decision, record);
      return true;
    }
    change.after = removals.after;
    change.removed = {*removal};
    for (const auto& page : removals.pagesRemoved)
      if (page.index == removal->from.page) change.pagesRemoved.push_back(page);
    removals.removed.erase(removal);
  } else {
    const auto id = _mirror.ids().knownId(*decision.person);
    if (!id || !_before.placeOf(*id)) return false;
    change.changed = {{*id, {}}};
  }
  const auto formBefore = [&](FriendId) { return decision.formBefore; };
  describe(
      record, change, formBefore, [&](FriendId) { return decision.formAfter; }, sharing);
  return !record.friends.empty() || !record.isComplete;
}

// Of somebody who left before there was a version of the list.
void AutomaticSteps::describeRemoval(const Decision& decision, StepRecord& record) const {
  const Place from{decision.slot / _manager->groupSize(), decision.slot % _manager->groupSize()};
  FriendRecord gone{.before = decision.formBefore, .from = from};
  const FriendIdentity identity = identityOf(decision.formBefore);
  for (const auto& other : _manager->friendsWithIdentifier(identity.guid))
    if (areAddedAlike(identity, identityOf(other->dictionaryRepresentation()))) ++gone.lookalikes;
  record.friends.push_back(std::move(gone));
  PageRecord page{.from = from.page};
  if (from.page < _before.pageCount()) {
    page.to = from.page;
    page.titleBefore = page.titleAfter = _before.page(from.page).title;
  }
  record.pages.push_back(std::move(page));
}

// A decision that was taken back may be made again before anything is stored.
std::string AutomaticSteps::idOf(const StepRecord& record) {
  Array who{Value(std::int64_t{0})};
  for (const FriendRecord& person : record.friends) {
    if (person.from) who = {Value(person.from->page), Value(person.from->slot), Value(person.before)};
    if (!person.from && !person.to) who.emplace_back(person.before);
  }
  Array decided{Value(_manager->listVersion()), Value(static_cast<std::int64_t>(record.kind)), Value(who),
                Value(record.evidence)};
  std::string id = stepIdFrom(Value(decided));
  while (_history.find(id)) id = stepIdFrom(Value(id));
  return id;
}

void AutomaticSteps::writePlaces(const ListChange& change, std::uint64_t number) {
  StepRecord record;
  record.kind = StepKind::placedElsewhere;
  const auto form = [this](FriendId id) {
    const auto person = _mirror.ids().personWith(id);
    return person ? person->dictionaryRepresentation() : Dictionary();
  };
  describe(record, change, form, form);
  // Nobody takes it back: by whom the pages are known need not be kept, and would outlast that one of them is
  // forgotten.
  for (PageRecord& page : record.pages) page.fingerprints.clear();
  _sign(record);
  record.id = idOf(record);
  _history.append(record);
  _unstored.push_back({number, nullptr, {}, std::move(record)});
}

// With their forms, by which they are found when they are to be forgotten.
void AutomaticSteps::writeLeftOut(const std::vector<std::shared_ptr<PLPerson>>& persons) {
  StepRecord record;
  record.kind = StepKind::notImported;
  for (const auto& person : persons) {
    if (record.friends.size() == StepSummary::MostNames) break;
    record.friends.push_back({.before = person->dictionaryRepresentation()});
  }
  _sign(record);
  record.id = idOf(record);
  _history.append(record);
}

void AutomaticSteps::noteStored(std::uint64_t last) {
  std::erase_if(_unstored, [last](const Unstored& step) { return step.number <= last; });
}

std::vector<const StepRecord*> AutomaticSteps::unstored() const {
  std::vector<const StepRecord*> steps;
  for (const Unstored& step : _unstored) steps.push_back(&step.record);
  return steps;
}

void AutomaticSteps::judge(const PLStoredPages& theirs) {
  noteStored(theirs.storedStep);
  for (Unstored& step : std::exchange(_unstored, {})) {
    const bool isLink = step.person && !isRemoval(step.record.kind);
    const auto form = isLink ? formIn(theirs, step.person) : std::nullopt;
    if (form && haveSameBlock(*form, step.formBefore)) {
      _unstored.push_back(std::move(step));
      continue;
    }
    _history.restore(step.record.id, std::nullopt);
  }
}

}  // namespace pellor
