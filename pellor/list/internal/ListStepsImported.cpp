// Exported lists, and steps as they would be.
#include <set>
#include <utility>

#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/detail/PLPersonForm.h"
#include "pellor/friends/internal/PLMergeFields.h"
#include "pellor/list/internal/ExportedForm.h"
#include "pellor/list/internal/ImportMatching.h"
#include "pellor/list/internal/ImportPlan.h"
#include "pellor/list/internal/ListSteps.h"
#include "pellor/platform/Platform.h"

namespace pellor {
namespace {

void set(Dictionary& entries, std::string_view key, const std::optional<Value>& value) {
  entries.erase(std::string(key));
  if (value) entries.emplace(key, *value);
}

std::optional<Value> valueOf(const std::optional<std::string>& text) {
  return text ? std::optional(Value(*text)) : std::nullopt;
}

void setMetadata(Dictionary& form, const FieldEdit& field) {
  const Value* present = valueForKey(form, PLPersonMetadataKey);
  Dictionary metadata = present && present->dictionary() ? *present->dictionary() : Dictionary();
  for (const auto& [key, value] : field.metadata) set(metadata, key, value);
  set(form, PLPersonMetadataKey, metadata.empty() ? std::nullopt : std::optional(Value(std::move(metadata))));
}

void setFields(Dictionary& form, const FieldEdit& field) {
  if (field.chosenNumber) set(form, PLPersonPreferredDestinationKey, valueOf(*field.chosenNumber));
  if (field.replyAs) set(form, PLPersonReplyAsKey, valueOf(*field.replyAs));
  if (!field.metadata.empty()) setMetadata(form, field);
  for (const auto& [key, value] : field.others) set(form, key, value);
  if (!field.card) return;
  for (const auto& [key, value] : blockOfForm(form)) form.erase(key);
  form.insert(field.card->begin(), field.card->end());
}

bool isToBeExported(const Page& page) { return page.friendCount > 0 || !page.title.empty(); }

}  // namespace

// --- Steps as they would be ----------------------------------------------------------------------------------------

// Of those who come, and of those of whom a field is set.
ListSteps::Forms ListSteps::formsAfter(const ListStep& step) const {
  Forms forms;
  for (const auto& [id, person] : step.newcomers) forms.emplace(id, person->dictionaryRepresentation());
  for (const FieldEdit& field : step.fields)
    setFields(forms.contains(field.id) ? forms.at(field.id) : forms.emplace(field.id, formOf(field.id)).first->second,
              field);
  return forms;
}

Snapshot ListSteps::listAfter(const ListStep& step, const Forms& formsAfter) const {
  const Snapshot& before = step.draft.before();
  const auto shown = [&](FriendId id) -> std::shared_ptr<const Friend> {
    const auto form = formsAfter.find(id);
    if (form == formsAfter.end()) return before.friendWith(id);
    const auto person = PLPerson::initWithDictionaryRepresentationAddressBook(form->second, nullptr);
    auto after = std::make_shared<Friend>(_mirror.shown(person, id));
    if (const auto former = before.friendWith(id)) after->color = former->color;
    return after;
  };
  std::set<std::size_t> pages;
  for (const auto& [id, form] : formsAfter)
    if (const auto place = step.draft.placeOf(id)) pages.insert(place->page);
  SnapshotEdit edit(before);
  for (std::size_t index = 0; index < step.draft.pageCount(); ++index) {
    if (index < before.pageCount() && step.draft.isAsBefore(index) && !pages.contains(index)) continue;
    auto page = std::make_shared<Page>(Page{step.draft.pageId(index), step.draft.title(index), {}, 0});
    for (const FriendId id : step.draft.friendsOn(index)) {
      page->friends.push_back(id.number == 0 ? nullptr : shown(id));
      if (id.number != 0) ++page->friendCount;
    }
    edit.putPage(index, std::move(page));
  }
  edit.setPageCount(step.draft.pageCount());
  return edit.take();
}

// What is signed later takes as much room.
bool ListSteps::isStorable(const ListStep& step, StepKind kind, const Snapshot& after, const Forms& formsAfter) const {
  constexpr std::size_t idLength = 32;
  StepRecord record;
  record.id = std::string(idLength, '0');
  record.program = _program;
  record.kind = kind;
  const auto formAfter = [&](FriendId id) {
    const auto known = formsAfter.find(id);
    return known == formsAfter.end() ? formOf(id) : known->second;
  };
  describeStep(
      step, after, [this](FriendId id) { return formOf(id); }, formAfter, record);
  return storable(std::move(record)).isComplete;
}

// --- Export and import ---------------------------------------------------------------------------------------------

ExportedList ListSteps::exported() {
  const Snapshot& list = _feed.noteRest();
  ExportedList exported{_manager->groupSize()};
  std::size_t count = list.pageCount();
  while (count > 0 && !isToBeExported(list.page(count - 1))) --count;
  for (std::size_t index = 0; index < count; ++index) {
    ExportedPage& page = exported.pages.emplace_back(ExportedPage{list.page(index).title});
    for (const auto& person : list.page(index).friends)
      page.friends.push_back(person ? std::optional(exportedFriendOf(formOf(person->id))) : std::nullopt);
    while (!page.friends.empty() && !page.friends.back()) page.friends.pop_back();
  }
  return exported;
}

ListSteps::PlannedImport ListSteps::plannedImport(const ExportedList& list, ImportMode mode) {
  PlannedImport planned{ListStep{newDraft()}};
  planned.answer.refusal = refusalOfStore();
  if (planned.answer.refusal) return planned;
  const auto show = [this](const std::shared_ptr<PLPerson>& person) {
    return std::make_shared<const Friend>(_mirror.shown(person, {}));
  };
  const ImportMatching matching(list, planned.step.draft.before(), *platformOf(_process).addressBook, show);
  if (const auto& twice = matching.twice()) {
    planned.answer.refusal = Refusal{RefusalReason::isTwice};
    planned.answer.cause = twice->again;
    planned.answer.twin = twice->first;
    return planned;
  }
  const FormOfFriend formNow = [this](FriendId id) { return formOf(id); };
  const std::function<FriendId()> newFriendId = [this] { return _mirror.ids().newId(); };
  ImportPlan plan(list, matching, planned.step.draft, formNow, newFriendId);
  mode == ImportMode::add ? plan.add() : plan.replace();
  planned.answer = std::move(plan.answer());
  planned.step.newcomers = std::move(plan.newcomers());
  planned.step.fields = std::move(plan.fields());
  // Empty pages without a title are no content.
  if (planned.answer.changesNothing()) planned.step = ListStep{newDraft()};
  return planned;
}

ImportAnswer ListSteps::planImport(const ExportedList& list, ImportMode mode) {
  PlannedImport planned = plannedImport(list, mode);
  if (planned.answer.refusal) return planned.answer;
  const Forms forms = formsAfter(planned.step);
  planned.answer.isUndoable = isStorable(planned.step, StepKind::imported, listAfter(planned.step, forms), forms);
  return planned.answer;
}

ImportAnswer ListSteps::import(const ExportedList& list, ImportMode mode, StoredHandler stored) {
  PlannedImport planned = plannedImport(list, mode);
  if (planned.answer.refusal) return planned.answer;
  for (const auto& [id, person] : planned.step.newcomers) _mirror.ids().give(id, person);
  Unstored unstored;
  unstored.record.kind = StepKind::imported;
  unstored.stored = std::move(stored);
  unstored.isImport = true;
  planned.answer.isUndoable = commit(planned.step, std::move(unstored), Note::made);
  return planned.answer;
}

}  // namespace pellor
