// Steps that are taken back, and done again.
#include <utility>

#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/list/internal/ListSteps.h"

namespace pellor {
namespace {

std::optional<std::string> textOf(const std::optional<Value>& value) {
  const std::string* text = value ? value->string() : nullptr;
  return text ? std::optional(*text) : std::nullopt;
}

FieldEdit fieldEditOf(const TakenBack::FieldChange& change) {
  FieldEdit edit{change.id};
  switch (change.field) {
    case KeptChange::Part::replyAs:
      edit.replyAs = textOf(change.value);
      break;
    case KeptChange::Part::chosenNumber:
      edit.chosenNumber = textOf(change.value);
      break;
    case KeptChange::Part::metadata:
      edit.metadata.emplace_back(change.key, change.value);
      break;
    case KeptChange::Part::other:
      edit.others.emplace_back(change.key, change.value);
      break;
    default:
      edit.card = change.value && change.value->dictionary() ? *change.value->dictionary() : Dictionary();
  }
  return edit;
}

}  // namespace

// A friend whom the process still has comes back as the very object. A plan leaves it as it is.
void ListSteps::bringBack(TakingBack& back) {
  for (const TakenBack::Restored& each : back.restored) {
    auto person = _mirror.ids().personWith(each.id);
    if (person) {
      person->updateFromDictionaryRepresentation(each.form);
    } else {
      person = PLPerson::initWithDictionaryRepresentationAddressBook(each.form, nullptr);
      _mirror.ids().give(each.id, person);
    }
    back.step.newcomers.emplace(each.id, std::move(person));
  }
}

ListSteps::TakingBack ListSteps::takingBack(const StepRecord* record) {
  TakingBack back{{}, ListStep{newDraft()}};
  back.answer.refusal = refusalOfStore();
  if (back.answer.refusal) return back;
  if (!record) return back;
  TakenBack taken = pellor::takeBack(
      *record, back.step.draft, [this](FriendId id) { return formOf(id); }, [this] { return _mirror.ids().newId(); });
  back.answer.kept = std::move(taken.kept);
  back.answer.refusal = taken.refusal;
  if (taken.refusal) return back;
  back.restored = std::move(taken.restored);
  for (const auto& change : taken.changes) back.step.fields.push_back(fieldEditOf(change));
  return back;
}

UndoAnswer ListSteps::takeBack(TakingBack back, Note note, StoredHandler stored) {
  if (!back.entry || back.answer.refusal) return back.answer;
  bringBack(back);
  Unstored unstored;
  unstored.record.kind = back.entry->step.kind;
  unstored.entry = back.entry->step.id;
  unstored.entryBefore = std::move(back.entry);
  unstored.stored = std::move(stored);
  commit(back.step, std::move(unstored), note);
  return back.answer;
}

UndoAnswer ListSteps::planUndo(const std::string& id) { return undoing(id).answer; }

UndoAnswer ListSteps::planRedo() { return redoing().answer; }

ListSteps::TakingBack ListSteps::undoing(const std::string& id) {
  const ListHistory::Entry* found = id.empty() ? _history.lastToUndo() : _history.find(id);
  const auto entry = found ? std::optional(*found) : std::nullopt;
  TakingBack back = takingBack(entry && !entry->undone ? &entry->step : nullptr);
  if (entry) back.answer.step = ListHistory::summaryOf(*entry);
  if (!back.answer.refusal && entry && entry->undone) back.answer.refusal = Refusal{RefusalReason::notUndoable};
  if (!back.answer.refusal && !entry && !id.empty()) back.answer.refusal = Refusal{RefusalReason::notFound};
  back.entry = entry;
  return back;
}

ListSteps::TakingBack ListSteps::redoing() {
  const ListHistory::Entry* found = _history.lastToRedo();
  const auto entry = found ? std::optional(*found) : std::nullopt;
  TakingBack back = takingBack(entry ? &*entry->undone : nullptr);
  if (entry) back.answer.step = ListHistory::summaryOf(*entry);
  back.entry = entry;
  return back;
}

UndoAnswer ListSteps::undo(const std::string& id, StoredHandler stored) {
  return takeBack(undoing(id), Note::undone, std::move(stored));
}

UndoAnswer ListSteps::redo(StoredHandler stored) { return takeBack(redoing(), Note::redone, std::move(stored)); }

}  // namespace pellor
