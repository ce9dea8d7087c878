#include "pellor/list/internal/ImportPlan.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/detail/PLPersonForm.h"
#include "pellor/friends/internal/PLMergeFields.h"
#include "pellor/list/internal/ExportedForm.h"

namespace pellor {
namespace {

using enum RefusalReason;

constexpr FriendId Nobody{};

std::optional<std::string> textOf(const Dictionary& form, std::string_view key) { return stringForKey(form, key); }

Dictionary metadataOf(const Dictionary& form) {
  const Value* value = valueForKey(form, PLPersonMetadataKey);
  return value && value->dictionary() ? *value->dictionary() : Dictionary();
}

/// What makes `wanted` of `present`.
std::vector<std::pair<std::string, std::optional<Value>>> differences(const Dictionary& present,
                                                                      const Dictionary& wanted) {
  std::vector<std::pair<std::string, std::optional<Value>>> entries;
  for (const auto& [key, value] : wanted) {
    const Value* known = valueForKey(present, key);
    if (!known || *known != value) entries.emplace_back(key, value);
  }
  for (const auto& [key, value] : present)
    if (!valueForKey(wanted, key)) entries.emplace_back(key, std::nullopt);
  return entries;
}

// A link that is there stays where the exported one leads nowhere.
Dictionary formFor(const PLPerson& person, const Dictionary& present) {
  Dictionary form = person.dictionaryRepresentation();
  const auto guid = textOf(form, PLPersonRecordGUIDKey), presentGUID = textOf(present, PLPersonRecordGUIDKey);
  if (guid != presentGUID && (isLinked(person) || !presentGUID)) return form;
  for (const std::string_view key : {PLPersonRecordIDKey, PLPersonRecordGUIDKey, PLPersonDatabaseUIDKey}) {
    form.erase(std::string(key));
    if (const Value* value = valueForKey(present, key)) form.emplace(key, *value);
  }
  return form;
}

FieldEdit fieldEditFor(FriendId id, const Dictionary& present, const Dictionary& wanted) {
  FieldEdit edit{id};
  const auto setText = [&](std::string_view key, std::optional<std::optional<std::string>>& field) {
    if (const auto text = textOf(wanted, key); text != textOf(present, key)) field = text;
  };
  setText(PLPersonPreferredDestinationKey, edit.chosenNumber);
  setText(PLPersonReplyAsKey, edit.replyAs);
  edit.metadata = differences(metadataOf(present), metadataOf(wanted));
  edit.others = differences(otherEntriesOf(present), otherEntriesOf(wanted));
  if (Dictionary card = blockOfForm(wanted); card != blockOfForm(present)) edit.card = std::move(card);
  return edit;
}

std::shared_ptr<const Friend> withId(const Friend& shown, FriendId id) {
  auto person = std::make_shared<Friend>(shown);
  person->id = id;
  return person;
}

}  // namespace

ImportPlan::ImportPlan(const ExportedList& exported, const ImportMatching& matching, ListDraft& draft,
                       const FormOfFriend& formNow, const std::function<FriendId()>& newFriendId)
    : _exported(exported), _matching(matching), _draft(draft), _formNow(formNow), _newFriendId(newFriendId) {}

bool ImportPlan::refuse(RefusalReason reason) {
  _answer.refusal = Refusal{reason};
  return false;
}

bool ImportPlan::isLeftOut(const ImportedPerson& person) {
  if (person.isUnreachable) _answer.unreachable.push_back(person.shown);
  if (person.isRepeated && !person.isUnreachable) _answer.repeated.push_back(person.shown);
  return person.isUnreachable || person.isRepeated;
}

bool ImportPlan::isKnown(const ImportedPerson& person) {
  if (person.known) _answer.known.push_back({person.known, *_draft.before().placeOf(person.known->id)});
  return person.known != nullptr;
}

void ImportPlan::put(const ImportedPerson& person, Place place) {
  const FriendId id = _newFriendId();
  _newcomers.emplace(id, person.person);
  _draft.put(id, place);
  _answer.added.push_back({withId(*person.shown, id), place});
}

// --- Adding --------------------------------------------------------------------------------------------------------

void ImportPlan::add() {
  std::vector<const ImportedPerson*> others;
  for (const ImportedPerson& each : _matching.persons())
    if (!isKnown(each) && !isLeftOut(each) && !putWhereItWas(each)) others.push_back(&each);
  for (const ImportedPerson* each : others)
    if (!putWhereThereIsRoom(*each)) _answer.withoutRoom.push_back(each->shown);
  if (!_answer.withoutRoom.empty()) {
    _answer.added.clear();
    return void(refuse(noRoom));
  }
  addTitles();
  _draft.addEmptyPageIfDue();
}

// Pages are made up to that one.
bool ImportPlan::reach(std::uint64_t page) {
  if (page < _draft.pageCount()) return true;
  if (!_draft.limits().addsEmptyPage || page >= _draft.limits().mostPages) return false;
  while (_draft.pageCount() <= page) _draft.insertPage(_draft.pageCount(), "");
  return true;
}

bool ImportPlan::putWhereItWas(const ImportedPerson& person) {
  const auto [page, slot] = person.place;
  if (slot >= _draft.limits().pageSize || !reach(page) || _draft.at(person.place) != Nobody) return false;
  put(person, person.place);
  return true;
}

bool ImportPlan::putWhereThereIsRoom(const ImportedPerson& person) {
  auto place = _draft.firstFreeSlot();
  if (!place && reach(_draft.pageCount())) place = _draft.firstFreeSlot();
  if (!place) return false;
  put(person, *place);
  return true;
}

void ImportPlan::addTitles() {
  const Snapshot& before = _draft.before();
  for (std::uint64_t page = 0; page < _exported.pages.size(); ++page) {
    const ExportedPage& there = _exported.pages[page];
    if (there.title.empty() || !reach(page)) continue;
    const bool wasThere = page < before.pageCount();
    if (wasThere && (before.page(page).friendCount > 0 || !before.page(page).title.empty())) continue;
    const bool isEmptyThere = std::ranges::none_of(there.friends, [](const auto& each) { return each.has_value(); });
    if (_draft.isEmpty(page) != isEmptyThere) continue;
    _draft.rename(page, there.title);
    _answer.titled.push_back({page, there.title});
  }
}

// --- Replacing -----------------------------------------------------------------------------------------------------

void ImportPlan::replace() {
  if (!fits()) return;
  std::vector<const ImportedPerson*> coming;
  for (const ImportedPerson& each : _matching.persons())
    if (!isLeftOut(each)) coming.push_back(&each);
  liftOthers(coming);
  arrangePages(coming);
  for (const ImportedPerson* each : coming) putReplacing(*each);
  replaceTitles();
  std::ranges::sort(_answer.titled, {}, &ImportAnswer::Title::page);
  _draft.addEmptyPageIfDue();
}

bool ImportPlan::fits() {
  for (const ImportedPerson& each : _matching.persons()) {
    if (each.place.slot < _draft.limits().pageSize) continue;
    _answer.cause = ImportAnswer::Placed{each.shown, each.place};
    return refuse(pageTooSmall);
  }
  const std::uint64_t wanted = _exported.pages.size();
  if (wanted > _draft.limits().mostPages) return refuse(tooManyPages);
  return wanted <= _draft.pageCount() || _draft.limits().addsEmptyPage || refuse(addsNoPages);
}

// Those who leave, and those who change places with each other.
void ImportPlan::liftOthers(const std::vector<const ImportedPerson*>& coming) {
  std::unordered_set<std::uint64_t> staying;
  for (const ImportedPerson* each : coming) {
    if (!isKnown(*each)) continue;
    const Place from = _answer.known.back().place;
    staying.insert(each->known->id.number);
    if (from != each->place) _answer.moved.push_back({each->known, from, each->place});
  }
  for (const auto& person : _draft.before().friends())
    if (!staying.contains(person->id.number)) _answer.removed.push_back({person, *_draft.placeOf(person->id)});
  for (const auto& each : _answer.removed) _draft.lift(each.person->id);
  for (const auto& each : _answer.moved) _draft.lift(each.person->id);
}

// The empty page that follows the last friend is the next one that is there.
void ImportPlan::arrangePages(const std::vector<const ImportedPerson*>& coming) {
  const std::size_t wanted = std::max<std::size_t>(_exported.pages.size(), 1);
  while (_draft.pageCount() < wanted) _draft.insertPage(_draft.pageCount(), "");
  const bool isOneMoreDue = _draft.limits().addsEmptyPage && !coming.empty() && coming.back()->place.page + 1 == wanted;
  for (std::size_t index = _draft.pageCount(); index > wanted; --index) {
    const std::size_t last = index - 1;
    if (!_draft.title(last).empty()) _answer.titled.push_back({last, ""});
    isOneMoreDue&& last == wanted ? _draft.rename(last, "") : _draft.removePage(last);
  }
}

void ImportPlan::putReplacing(const ImportedPerson& person) {
  if (!person.known) return put(person, person.place);
  if (!_draft.placeOf(person.known->id)) _draft.put(person.known->id, person.place);
  const Dictionary present = _formNow(person.known->id);
  const Dictionary wanted = formFor(*person.person, present);
  if (wanted == present) return;
  _fields.push_back(fieldEditFor(person.known->id, present, wanted));
  _answer.updated.push_back(withId(*person.shown, person.known->id));
}

void ImportPlan::replaceTitles() {
  for (std::size_t page = 0; page < std::max<std::size_t>(_exported.pages.size(), 1); ++page) {
    const std::string title = page < _exported.pages.size() ? _exported.pages[page].title : std::string();
    if (title == _draft.title(page)) continue;
    _draft.rename(page, title);
    _answer.titled.push_back({page, title});
  }
}

}  // namespace pellor
