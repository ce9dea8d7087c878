#include "pellor/list/internal/ListSteps.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

#include "pellor/friends/PLDestination.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLListEditor.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/detail/PLPersonForm.h"
#include "pellor/list/internal/FriendExplanation.h"
#include "pellor/list/internal/ListClock.h"
#include "pellor/list/internal/StepId.h"
#include "pellor/list/internal/StepPerformer.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Scheduler.h"

namespace pellor {
namespace {

using enum RefusalReason;

/// The friends of a manager, as they are.
class OwnFriends final : public FriendLookUp {
 public:
  OwnFriends(const PLFriendsManager& manager, const FriendIds& ids) : _manager(manager), _ids(ids) {}

  std::optional<FriendId> friendWithGUID(const std::string& guid) const override { return firstOf(guid); }
  std::optional<FriendId> friendWithDestination(const std::string& destination) const override {
    return firstOf(destination);
  }
  bool hasDestination(FriendId id, const std::string& destination) const override {
    const auto person = _ids.personWith(id);
    if (!person) return false;
    const auto values = person->allValues();
    const auto canonical = plMessageCanonicalRawAddress(destination);
    return values && canonical && values->contains(*canonical);
  }

 private:
  std::optional<FriendId> firstOf(const std::string& identifier) const {
    const auto friends = _manager.friendsWithIdentifier(identifier);
    return friends.empty() ? std::nullopt : _ids.knownId(*friends.front());
  }

  const PLFriendsManager& _manager;
  const FriendIds& _ids;
};

std::optional<FieldEdit> fieldEditOf(const Edit& edit) {
  if (const auto* choice = std::get_if<ChooseNumber>(&edit)) return FieldEdit{choice->id, choice->number};
  if (const auto* reply = std::get_if<SetReplyAs>(&edit)) return FieldEdit{reply->id, {}, reply->replyAs};
  if (const auto* entry = std::get_if<SetMetadata>(&edit))
    return FieldEdit{entry->id, {}, {}, {{entry->key, entry->value}}};
  return std::nullopt;
}

StepKind kindOf(const Edit& edit) {
  if (std::holds_alternative<AddFriend>(edit)) return StepKind::added;
  if (std::holds_alternative<RemoveFriend>(edit)) return StepKind::removed;
  if (std::holds_alternative<MoveFriend>(edit) || std::holds_alternative<FillPage>(edit)) return StepKind::moved;
  if (std::holds_alternative<RenamePage>(edit)) return StepKind::renamedPage;
  return fieldEditOf(edit) ? StepKind::changedFriend : StepKind::changedPages;
}

StepKind kindOf(std::span<const Edit> edits) {
  const StepKind first = edits.empty() ? StepKind::several : kindOf(edits.front());
  const bool isOne = std::ranges::all_of(edits, [first](const Edit& edit) { return kindOf(edit) == first; });
  return isOne ? first : StepKind::several;
}

}  // namespace

ListSteps::ListSteps(Process& process, std::shared_ptr<PLFriendsManager> manager, ListMirror& mirror, ListFeed& feed,
                     std::function<void(bool hasUnstored)> keep)
    : _process(process),
      _manager(std::move(manager)),
      _mirror(mirror),
      _feed(feed),
      _keep(std::move(keep)),
      _history(_manager),
      _removed(_manager, [&process] { return process.local<ListClock>().now(); }),
      _exceptions(_manager),
      _automatic(_manager, _mirror, _feed, _history, [this](StepRecord& record) { sign(record); }),
      _foreign(_history, [this](StepRecord& record) { sign(record); }) {}

// --- Planning ------------------------------------------------------------------------------------------------------

std::optional<Refusal> ListSteps::refusalOfStore() const {
  if (!_manager->isLoaded()) return Refusal{storeNotReadable};
  if (platformOf(_process).preferences->isReadOnly()) return Refusal{storeNotWritable};
  return std::nullopt;
}

ListLimits ListSteps::limits() const {
  return {_manager->groupSize(), _manager->maxGroupCount(), _manager->isEmptyTrailingGroupEnabled()};
}

ListDraft ListSteps::newDraft() {
  return ListDraft(_feed.noteRest(), limits(), [this] { return _mirror.newPageId(); });
}

std::optional<RefusalReason> ListSteps::findContact(const std::string& guid, Newcomer& newcomer) const {
  std::optional<RefusalReason> refused;
  platformOf(_process).addressBook->performWithAddressBook([&](AddressBook& addressBook) {
    const RecordRef record = addressBook.copyPersonMatchingGUID(guid);
    if (!record) return void(refused = addressBook.isReadable() ? notFound : contactsNotReadable);
    for (const RecordRef& linked : record->allLinkedPeople()) newcomer.guids.push_back(linked->recordGUID());
  });
  return refused;
}

// Who is to be added is looked up; the manager keeps a person whom it looked up, whatever becomes of the step.
std::optional<RefusalReason> ListSteps::prepare(PlannedEdit& planned, ListStep& step) {
  const auto* addition = std::get_if<AddFriend>(&planned.edit);
  if (!addition) return std::nullopt;
  Newcomer newcomer;
  std::shared_ptr<PLPerson> person;
  if (!addition->contactGUID.empty()) {
    if (const auto refused = findContact(addition->contactGUID, newcomer)) return refused;
    person = _manager->personWithABRecordGUID(addition->contactGUID);
  } else {
    std::string room;
    const auto canonical = plSanitizedDestination(addition->destination, room);
    if (!canonical) return noDestination;
    newcomer.destination = std::string(*canonical);
    person = _manager->personWithDestinations({addition->destination});
    if (const auto guid = person->abRecordGUID()) newcomer.guids.push_back(*guid);
  }
  const auto values = person->allValues();
  newcomer.isReachable = values && !values->empty();
  newcomer.id = _mirror.ids().idOf(person, 0);
  step.newcomers.emplace(newcomer.id, person);
  planned.newcomer = std::move(newcomer);
  return std::nullopt;
}

ListSteps::Planned ListSteps::planned(std::span<const Edit> edits) {
  Planned planned{ListStep{newDraft()}};
  planned.answer.refusal = refusalOfStore();
  if (planned.answer.refusal) return planned;
  const OwnFriends friends(*_manager, _mirror.ids());
  StepPlan plan(planned.step.draft, friends);
  for (const Edit& edit : edits) {
    PlannedEdit& next = planned.edits.emplace_back(PlannedEdit{edit});
    auto refused = prepare(next, planned.step);
    if (!refused) refused = plan.add(next);
    if (refused) {
      planned.answer.refusal = Refusal{*refused, planned.edits.size() - 1, plan.inTheWay()};
      return planned;
    }
    auto field = fieldEditOf(edit);
    if (next.newcomer) field = restoration(*next.newcomer, *planned.step.newcomers.at(next.newcomer->id));
    next.restores = next.newcomer && field;
    if (field) planned.step.fields.push_back(*std::move(field));
  }
  plan.finish();
  for (const PlannedEdit& edit : planned.edits) planned.answer.results.push_back(plan.resultOf(edit));
  return planned;
}

std::optional<FieldEdit> ListSteps::restoration(const Newcomer& newcomer, const PLPerson& person) {
  const auto form = _removed.formOf(identityOf(person.dictionaryRepresentation()));
  if (!form) return std::nullopt;
  FieldEdit edit{newcomer.id};
  if (const auto replyAs = stringForKey(*form, PLPersonReplyAsKey)) edit.replyAs = replyAs;
  const auto number = stringForKey(*form, PLPersonPreferredDestinationKey);
  const auto canonical = number ? plMessageCanonicalRawAddress(*number) : std::nullopt;
  if (canonical && person.allValues()->contains(*canonical)) edit.chosenNumber = number;
  const Value* metadata = valueForKey(*form, PLPersonMetadataKey);
  if (metadata && metadata->dictionary())
    for (const auto& [key, value] : *metadata->dictionary()) edit.metadata.emplace_back(key, value);
  const bool isEmpty = !edit.replyAs && !edit.chosenNumber && edit.metadata.empty();
  return isEmpty ? std::nullopt : std::optional(std::move(edit));
}

StepAnswer ListSteps::plan(std::span<const Edit> edits) {
  Planned planned = this->planned(edits);
  if (planned.answer.refusal) return planned.answer;
  const Forms forms = formsAfter(planned.step);
  planned.answer.after = listAfter(planned.step, forms);
  planned.answer.isUndoable = isStorable(planned.step, kindOf(edits), planned.answer.after, forms);
  return planned.answer;
}

// --- Doing ---------------------------------------------------------------------------------------------------------

StepAnswer ListSteps::apply(std::span<const Edit> edits, StoredHandler stored) {
  Planned step = planned(edits);
  if (step.answer.refusal) return step.answer;
  Unstored unstored;
  unstored.record.kind = kindOf(edits);
  unstored.edits = std::move(step.edits);
  unstored.stored = std::move(stored);
  step.answer.isUndoable = commit(step.step, std::move(unstored), Note::made);
  step.answer.after = _mirror.last();
  return step.answer;
}

void ListSteps::perform(const ListStep& step) {
  StepPerformer(*_manager, _mirror.ids(), step).perform();
  const Snapshot& before = step.draft.before();
  const bool keepsFirstPage = before.pageCount() == 0 || step.draft.indexOf(before.page(0).id).has_value();
  if (!step.draft.renamedPages().empty() || !keepsFirstPage) _mirror.noteChangeOfTitles();
  for (const FieldEdit& field : step.fields) _mirror.noteChange(_mirror.ids().personWith(field.id));
}

// The history tells of the step in the very write that stores it. The draft says which pages go.
bool ListSteps::commit(const ListStep& step, Unstored unstored, Note note) {
  Forms formsBefore;
  for (const FriendId id : step.draft.touchedFriends()) formsBefore.emplace(id, formOf(id));
  for (const FieldEdit& field : step.fields) formsBefore.emplace(field.id, formOf(field.id));
  unstored.before = step.draft.before();
  bool isUndoable = true;
  const auto edit = [&] {
    perform(step);
    _feed.note(note == Note::made ? ChangeOrigin::thisProgram : ChangeOrigin::undo, &step.draft);
    record(step, formsBefore, unstored.record);
    const bool changesNothing = unstored.record.friends.empty() && unstored.record.pages.empty();
    const StepRecord kept = storable(unstored.record);
    isUndoable = kept.isComplete;
    if (note != Note::made || !changesNothing) noteInHistory(unstored.entry, kept, note);
    noteException(unstored, note);
    unstored.removed = noteRemoved(step, formsBefore);
  };
  unstored.number = _manager->editor().performStep(edit);
  if (note == Note::made) unstored.entry = unstored.record.id;
  _unstored.push_back(std::move(unstored));
  _keep(true);
  return isUndoable;
}

RemovedFriends::Changes ListSteps::noteRemoved(const ListStep& step, const Forms& formsBefore) {
  std::vector<Dictionary> left, came;
  for (const FriendId id : step.draft.touchedFriends()) {
    const bool was = step.draft.before().placeOf(id).has_value(), is = step.draft.placeOf(id).has_value();
    if (was && !is) left.push_back(formsBefore.at(id));
    if (is && !was) came.push_back(formOf(id));
  }
  return _removed.note(left, came);
}

void ListSteps::noteInHistory(const std::string& entry, const StepRecord& record, Note note) {
  switch (note) {
    case Note::made:
      return _history.append(record);
    case Note::undone:
      return _history.noteUndone(entry, record);
    case Note::redone:
      return _history.noteRedone(entry, record);
  }
}

// What a manager decided is not decided again, or may be.
void ListSteps::noteException(const Unstored& step, Note note) {
  if (note == Note::redone) _exceptions.remove(step.entry);
  if (note != Note::undone) return;
  if (const auto exception = exceptionFrom(step.entryBefore->step, step.record)) _exceptions.add(*exception);
}

void ListSteps::sign(StepRecord& record) {
  record.id = stepIdOf(_process.scheduler().randomNumber(), _process.scheduler().randomNumber());
  record.time = _process.local<ListClock>().now();
  record.program = _program;
}

void ListSteps::record(const ListStep& step, const Forms& formsBefore, StepRecord& record) {
  sign(record);
  const auto formBefore = [&](FriendId id) {
    const auto known = formsBefore.find(id);
    return known == formsBefore.end() ? formOf(id) : known->second;
  };
  describeStep(
      step, _mirror.last(), formBefore, [this](FriendId id) { return formOf(id); }, record);
}

// A field may be one that a snapshot does not show.
void ListSteps::describeStep(const ListStep& step, const Snapshot& after, const FormOfFriend& formBefore,
                             const FormOfFriend& formAfter, StepRecord& record) const {
  ListChange change = changeBetween(step.draft.before(), after);
  std::set<FriendId> told;
  for (const auto& each : change.changed) told.insert(each.id);
  for (const FieldEdit& field : step.fields) {
    const bool stays = step.draft.before().placeOf(field.id) && after.placeOf(field.id);
    if (stays && told.insert(field.id).second) change.changed.push_back({field.id, {}});
  }
  describe(record, change, formBefore, formAfter, [this](const Friend& gone) { return friendsSharing(gone); });
}

std::vector<FriendId> ListSteps::friendsSharing(const Friend& gone) const {
  std::vector<std::string> identifiers = gone.destinations;
  if (gone.contactGUID) identifiers.push_back(*gone.contactGUID);
  std::set<FriendId> ids;
  for (const std::string& identifier : identifiers)
    for (const auto& person : _manager->friendsWithIdentifier(identifier))
      if (const auto id = _mirror.ids().knownId(*person)) ids.insert(*id);
  return {ids.begin(), ids.end()};
}

Explanation ListSteps::explanation(FriendId id) {
  Explanation explanation{id};
  explainByHistory(explanation, formOf(id), _history.entries(), _exceptions.all());
  return explanation;
}

Dictionary ListSteps::formOf(FriendId id) const {
  const auto person = _mirror.ids().personWith(id);
  return person ? person->dictionaryRepresentation() : Dictionary();
}

void ListSteps::stepsWereStored(std::uint64_t last) {
  _automatic.noteStored(last);
  const auto end = std::ranges::find_if(_unstored, [last](const Unstored& step) { return step.number > last; });
  std::vector<Unstored> stored(std::make_move_iterator(_unstored.begin()), std::make_move_iterator(end));
  _unstored.erase(_unstored.begin(), end);
  _keep(!_unstored.empty());
  for (Unstored& step : stored) {
    if (step.forgotten) {
      if (!forgetAgain(step)) eraseTraces(*step.forgotten, std::move(step.tellForgotten));
    } else if (step.stored) {
      step.stored(std::nullopt);
    }
  }
}

void ListSteps::abandon() {
  for (const Unstored& step : std::exchange(_unstored, {}))
    if (step.stored) step.stored(Refusal{abandoned});
}

}  // namespace pellor
