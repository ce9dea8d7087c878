#include "pellor/list/internal/ListHistory.h"

#include <algorithm>
#include <utility>

#include "pellor/friends/PLFriendsManager.h"
#include "pellor/list/internal/ForgottenPerson.h"

namespace pellor {
namespace {

const std::string MomentKey = "moment";
const std::string UndoneKey = "undone";
const std::string UndoneMomentKey = "undoneMoment";
const std::string ChangesKey = "changes";

std::int64_t numberUnder(const Dictionary& element, const std::string& key) {
  const auto found = element.find(key);
  return found == element.end() ? 0 : found->second.integer().value_or(0);
}

Dictionary elementOf(const ListHistory::Entry& entry) {
  Dictionary element = dictionaryOf(entry.step);
  element.emplace(MomentKey, entry.moment);
  if (entry.changes != 0) element.emplace(ChangesKey, entry.changes);
  if (!entry.undone) return element;
  element.emplace(UndoneKey, dictionaryOf(*entry.undone));
  element.emplace(UndoneMomentKey, entry.undoneMoment);
  return element;
}

std::optional<ListHistory::Entry> entryOf(const Value& element) {
  auto step = stepRecordOf(element);
  if (!step) return std::nullopt;
  const Dictionary& members = *element.dictionary();
  ListHistory::Entry entry{*std::move(step), numberUnder(members, MomentKey)};
  if (const auto undone = members.find(UndoneKey); undone != members.end()) entry.undone = stepRecordOf(undone->second);
  if (entry.undone) entry.undoneMoment = numberUnder(members, UndoneMomentKey);
  entry.changes = numberUnder(members, ChangesKey);
  return entry;
}

void addRecords(std::vector<StepRecord>& records, const ListHistory::Entry& entry) {
  records.push_back(entry.step);
  if (entry.undone) records.push_back(*entry.undone);
}

// The entry without all that tells of the person; absent where it told of nobody else.
std::optional<ListHistory::Entry> without(const ListHistory::Entry& entry, const ForgottenPerson& person) {
  auto step = person.without(entry.step);
  if (!step) return std::nullopt;
  ListHistory::Entry rest = entry;
  rest.step = *std::move(step);
  if (entry.undone) rest.undone = person.without(*entry.undone);
  if (entry.undone && !rest.undone) {
    rest.undone = StepRecord{.id = entry.undone->id, .time = entry.undone->time, .isComplete = false};
  }
  if (rest.step != entry.step || rest.undone != entry.undone) ++rest.changes;
  return rest;
}

}  // namespace

ListHistory::ListHistory(std::shared_ptr<PLFriendsManager> manager) : _manager(std::move(manager)) {
  _manager->attach(Key, MostSteps);
}

// --- What there is -------------------------------------------------------------------------------------------------

// Steps of this process name the friends whom it has, as long as no other one changed them.
const std::vector<ListHistory::Entry>& ListHistory::entries() {
  const LongArray& stored = _manager->attached(Key);
  if (stored.chunks() == _read.chunks()) return _entries;
  _read = stored;
  _entries.clear();
  for (const Value& element : stored.elements()) {
    auto entry = entryOf(element);
    if (!entry) continue;
    const auto own = _own.find(entry->step.id);
    const bool isOwn = own != _own.end() && own->second.changes == entry->changes;
    _entries.push_back(isOwn ? own->second : *std::move(entry));
  }
  std::erase_if(_own, [this](const auto& own) {
    return std::ranges::none_of(_entries, [&](const Entry& entry) { return entry.step.id == own.first; });
  });
  return _entries;
}

// An element that this version cannot read has its place too.
std::optional<std::size_t> ListHistory::elementWith(const std::string& id) const {
  const LongArray& stored = _manager->attached(Key);
  for (std::size_t index = 0; index < stored.size(); ++index) {
    const Value element = stored.at(index);
    if (element.dictionary() && stringForKey(*element.dictionary(), "id") == id) return index;
  }
  return std::nullopt;
}

const ListHistory::Entry* ListHistory::find(const std::string& id) {
  const auto& all = entries();
  const auto found = std::ranges::find(all, id, [](const Entry& entry) { return entry.step.id; });
  return found == all.end() ? nullptr : &*found;
}

HistoryStep ListHistory::summaryOf(const Entry& entry) {
  const StepRecord& step = entry.step;
  return {step.id,
          step.time,
          step.program,
          step.kind,
          pellor::summaryOf(step),
          entry.undone.has_value(),
          canBeTakenBack(step),
          evidenceOf(step)};
}

std::vector<HistoryStep> ListHistory::summaries() {
  std::vector<HistoryStep> summaries;
  for (const Entry& entry : entries()) summaries.push_back(summaryOf(entry));
  return summaries;
}

const ListHistory::Entry* ListHistory::lastToUndo() {
  const Entry* last = nullptr;
  for (const Entry& entry : entries())
    if (!isAutomatic(entry.step.kind) && !entry.undone) last = &entry;
  return last;
}

const ListHistory::Entry* ListHistory::lastToRedo() {
  const Entry* last = nullptr;
  std::int64_t made = 0;
  for (const Entry& entry : entries()) {
    if (!entry.undone && !isAutomatic(entry.step.kind)) made = std::max(made, entry.moment);
    if (entry.undone && (!last || entry.undoneMoment >= last->undoneMoment)) last = &entry;
  }
  return last && last->undoneMoment > made ? last : nullptr;
}

// --- What becomes of it --------------------------------------------------------------------------------------------

LongArrayElements ListHistory::elements() const { return elementsFrom(_manager->attached(Key), 0); }

void ListHistory::set(LongArrayElements elements) { _manager->setAttached(Key, arrayOf(std::move(elements))); }

std::vector<StepRecord> ListHistory::records() {
  std::vector<StepRecord> records;
  for (const Entry& entry : entries()) addRecords(records, entry);
  return records;
}

std::vector<StepRecord> ListHistory::recordsIn(const LongArray& stored) {
  std::vector<StepRecord> records;
  for (const Value& element : stored.elements())
    if (const auto entry = entryOf(element)) addRecords(records, *entry);
  return records;
}

std::int64_t ListHistory::nextMoment() {
  std::int64_t last = 0;
  for (const Entry& entry : entries()) last = std::max({last, entry.moment, entry.undoneMoment});
  return last + 1;
}

void ListHistory::append(const StepRecord& step) {
  Entry entry{step, nextMoment()};
  LongArrayElements all = elements();
  all.emplace_back(Value(elementOf(entry)));
  _own.insert_or_assign(step.id, std::move(entry));
  set(std::move(all));
}

void ListHistory::noteUndone(const std::string& id, const StepRecord& undone) {
  Entry entry = *find(id);
  entry.undone = undone;
  entry.undoneMoment = nextMoment();
  ++entry.changes;
  replace(entry);
}

void ListHistory::noteRedone(const std::string& id, const StepRecord& step) {
  Entry entry = *find(id);
  entry.step.friends = step.friends;
  entry.step.pages = step.pages;
  entry.step.isComplete = step.isComplete;
  entry.step.summary = step.summary;
  entry.undone.reset();
  entry.undoneMoment = 0;
  ++entry.changes;
  replace(entry);
}

void ListHistory::replace(const Entry& entry) {
  const auto index = elementWith(entry.step.id);
  if (!index) return;
  LongArrayElements all = elements();
  all[*index] = Value(elementOf(entry));
  _own.insert_or_assign(entry.step.id, entry);
  set(std::move(all));
}

void ListHistory::restore(const std::string& id, const std::optional<Entry>& entry) {
  if (entry) return replace(*entry);
  const auto index = elementWith(id);
  if (!index) return;
  LongArrayElements all = elements();
  all.erase(all.begin() + static_cast<std::ptrdiff_t>(*index));
  set(std::move(all));
}

// Absent where all of it stays. Steps that this version cannot read tell of anybody.
std::optional<LongArrayElements> ListHistory::elementsWithout(const LongArray& stored, const ForgottenPerson& person,
                                                              const std::string& id) {
  LongArrayElements elements;
  bool isChanged = false;
  for (std::size_t index = 0; index < stored.size(); ++index) {
    const auto entry = entryOf(stored.at(index));
    if (!id.empty() && (!entry || entry->step.id != id)) {
      elements.push_back(elementAt(stored, index));
      continue;
    }
    const auto rest = entry ? without(*entry, person) : std::nullopt;
    const bool isSame = rest && rest->changes == entry->changes;
    isChanged = isChanged || !isSame;
    if (!rest) continue;
    elements.push_back(isSame ? elementAt(stored, index) : ArrayChunk::Element(Value(elementOf(*rest))));
  }
  return isChanged ? std::optional(std::move(elements)) : std::nullopt;
}

bool ListHistory::tellsOf(const ForgottenPerson& person) {
  return elementsWithout(_manager->attached(Key), person, {}).has_value();
}

void ListHistory::forget(const ForgottenPerson& person, const std::string& id) {
  if (auto elements = elementsWithout(_manager->attached(Key), person, id)) set(*std::move(elements));
}

void ListHistory::clear() {
  _own.clear();
  set({});
}

}  // namespace pellor
