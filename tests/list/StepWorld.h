// A list that is made of drafts alone, with the stored forms of its friends.
#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "pellor/list/internal/ListDraft.h"
#include "pellor/list/internal/SnapshotEdit.h"
#include "pellor/list/internal/StepRecord.h"
#include "pellor/list/internal/TakeBack.h"
#include "pellor/runtime/CBOR.h"

namespace pellor {

/// Does steps and takes them back.
class StepWorld {
 public:
  using Forms = std::map<FriendId, Dictionary>;

  explicit StepWorld(ListLimits limits) : _limits(limits) {}

  const Snapshot& list() const { return _list; }
  const Forms& forms() const { return _forms; }
  Dictionary formOf(FriendId id) const {
    const auto found = _forms.find(id);
    return found == _forms.end() ? Dictionary() : found->second;
  }
  FriendId newFriend() { return {++_lastFriend}; }
  PageId newPage() { return {++_lastPage}; }
  /// Whether an empty page follows the last friend where one is wanted and there may be one.
  bool isLastPageEmpty() const {
    const std::size_t count = _list.pageCount();
    return !_limits.addsEmptyPage || count >= _limits.mostPages || _list.page(count - 1).friendCount == 0;
  }
  /// Ids from this one on are given to those who come.
  void countFrom(std::uint64_t number) { _lastFriend = _lastPage = number - 1; }

  /// Does a step: `edits` changes the draft and the forms.
  StepRecord step(const std::function<void(ListDraft&, Forms&)>& edits) {
    const Forms before = _forms;
    const Snapshot former = _list;
    ListDraft draft = this->draft();
    edits(draft, _forms);
    takeOver(draft);
    return described(former, before);
  }

  /// Takes a step back, which is a step; where it cannot be taken back nothing changes.
  struct Answer {
    TakenBack taken;
    StepRecord step;
  };
  Answer takeBack(const StepRecord& step) {
    const Forms before = _forms;
    const Snapshot former = _list;
    ListDraft draft = this->draft();
    const auto form = [this](FriendId id) { return formOf(id); };
    Answer answer{pellor::takeBack(step, draft, form, [this] { return newFriend(); }), {}};
    if (answer.taken.refusal) return answer;
    for (const auto& restored : answer.taken.restored) _forms[restored.id] = restored.form;
    for (const auto& change : answer.taken.changes) take(change);
    takeOver(draft);
    answer.step = described(former, before);
    return answer;
  }

  /// The list as another process reads it: without the ids of this one.
  static StepRecord asStored(const StepRecord& step) {
    const auto bytes = encodeCBOR(Value(dictionaryOf(step)));
    return *stepRecordOf(*decodeCBOR(*bytes));
  }

  /// All that the list is, but for ids.
  std::string text() const {
    std::string text;
    for (std::size_t index = 0; index < _list.pageCount(); ++index) {
      text += "\"" + _list.page(index).title + "\"\n";
      for (const auto& person : _list.page(index).friends)
        text += "  " + (person ? Value(formOf(person->id)).description() : std::string("-")) + "\n";
    }
    return text;
  }

 private:
  ListDraft draft() {
    return ListDraft(_list, _limits, [this] { return newPage(); });
  }

  StepRecord described(const Snapshot& former, const Forms& before) const {
    StepRecord step;
    step.id = "1.1";
    step.kind = StepKind::several;
    ListChange change = changeBetween(former, _list);
    // What a snapshot does not show of a friend may have changed, too.
    for (const auto& person : _list.friends()) {
      const bool isTold =
          std::ranges::find(change.changed, person->id, &ListChange::FriendChange::id) != change.changed.end();
      if (former.placeOf(person->id) && !isTold) change.changed.push_back({person->id, {}});
    }
    describe(
        step, change, [&](FriendId id) { return before.at(id); }, [this](FriendId id) { return _forms.at(id); });
    return storable(std::move(step));
  }

  void take(const TakenBack::FieldChange& change) {
    using Part = TakenBack::Part;
    Dictionary& form = _forms.at(change.id);
    const auto set = [&](Dictionary& entries, const std::string& key) {
      entries.erase(key);
      if (change.value) entries.emplace(key, *change.value);
    };
    if (change.field == Part::replyAs) set(form, "ReplyAs");
    if (change.field == Part::chosenNumber) set(form, "PreferredDestination");
    if (change.field == Part::other) set(form, change.key);
    if (change.field == Part::metadata) {
      Dictionary metadata = form.contains("Metadata") ? *form.at("Metadata").dictionary() : Dictionary();
      set(metadata, change.key);
      form.erase("Metadata");
      if (!metadata.empty()) form.emplace("Metadata", metadata);
    }
    if (change.field != Part::card) return;
    for (const char* key : {"ABRecordID", "ABRecordGUID", "ABDatabaseUID", "Name", "AllValues", "Monogram"})
      form.erase(key);
    form.insert(change.value->dictionary()->begin(), change.value->dictionary()->end());
  }

  void takeOver(const ListDraft& draft) {
    SnapshotEdit edit{Snapshot()};
    std::set<FriendId> present;
    for (std::size_t index = 0; index < draft.pageCount(); ++index) {
      auto page = std::make_shared<Page>();
      page->id = draft.pageId(index);
      page->title = draft.title(index);
      for (const FriendId id : draft.friendsOn(index)) {
        page->friends.push_back(id.number == 0 ? nullptr : std::make_shared<const Friend>(shown(id)));
        if (id.number != 0) ++page->friendCount;
        present.insert(id);
      }
      edit.putPage(index, page);
    }
    edit.setPageCount(draft.pageCount());
    _list = edit.take();
    std::erase_if(_forms, [&](const auto& entry) { return !present.contains(entry.first); });
  }

  Friend shown(FriendId id) const {
    const Dictionary& form = _forms.at(id);
    Friend shown;
    shown.id = id;
    shown.name = stringForKey(form, "Name").value_or("");
    shown.monogram = stringForKey(form, "Monogram").value_or("");
    shown.contactGUID = stringForKey(form, "ABRecordGUID");
    shown.replyAs = stringForKey(form, "ReplyAs");
    shown.chosenNumber = stringForKey(form, "PreferredDestination");
    if (const Value* values = valueForKey(form, "AllValues"))
      for (const Value& value : *values->array()) shown.destinations.push_back(*value.string());
    if (const Value* metadata = valueForKey(form, "Metadata")) shown.metadata = *metadata->dictionary();
    return shown;
  }

  const ListLimits _limits;
  Snapshot _list;
  Forms _forms;
  std::uint64_t _lastFriend = 0;
  std::uint64_t _lastPage = 0;
};

}  // namespace pellor
