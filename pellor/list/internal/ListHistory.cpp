#include "pellor/list/internal/ListHistory.h"

#include <algorithm>
#include <utility>

#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLListEditor.h"
#include "pellor/list/internal/ForgottenPerson.h"

namespace pellor {

ListHistory::ListHistory(std::shared_ptr<PLFriendsManager> manager) : _manager(std::move(manager)) {
  _manager->editor().attach(Key, MostSteps, HistoryEntry::MomentKey);
}

// --- What there is -------------------------------------------------------------------------------------------------

const LongArray& ListHistory::stored() const { return _manager->editor().attached(Key); }

const DecodedHistory& ListHistory::read() {
  _decoded.read(stored());
  return _decoded;
}

const std::vector<DecodedHistory::Entry>& ListHistory::entries() { return read().entries(); }

std::optional<std::size_t> ListHistory::elementWith(const std::string& id) {
  const DecodedHistory& decoded = read();
  for (std::size_t index = 0; index < decoded.size(); ++index)
    if (const auto& entry = decoded.at(index).entry; entry && entry->step.id == id) return index;
  return std::nullopt;
}

const ListHistory::Entry* ListHistory::find(const std::string& id) {
  const auto& all = entries();
  const auto found = std::ranges::find(all, id, [](const auto& entry) { return entry->step.id; });
  return found == all.end() ? nullptr : found->get();
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
  for (const auto& entry : entries()) summaries.push_back(summaryOf(*entry));
  return summaries;
}

const ListHistory::Entry* ListHistory::lastToUndo() {
  const Entry* last = nullptr;
  for (const auto& entry : entries())
    if (!isAutomatic(entry->step.kind) && !entry->undone) last = entry.get();
  return last;
}

const ListHistory::Entry* ListHistory::lastToRedo() {
  const Entry* last = nullptr;
  std::int64_t made = 0;
  for (const auto& entry : entries()) {
    if (!entry->undone && !isAutomatic(entry->step.kind)) made = std::max(made, entry->moment);
    if (entry->undone && (!last || entry->undoneMoment >= last->undoneMoment)) last = entry.get();
  }
  return last && last->undoneMoment > made ? last : nullptr;
}

// --- What becomes of it --------------------------------------------------------------------------------------------

std::vector<StepRecord> ListHistory::records() {
  std::vector<StepRecord> records;
  for (const auto& entry : entries()) addRecords(records, *entry);
  return records;
}

std::vector<StepRecord> ListHistory::recordsOf(const Entry& entry) {
  std::vector<StepRecord> records;
  addRecords(records, entry);
  return records;
}

std::vector<StepRecord> ListHistory::recordsIn(const LongArray& stored) {
  std::vector<StepRecord> records;
  for (const Value& element : stored.elements())
    if (const auto entry = historyEntryOf(element)) addRecords(records, *entry);
  return records;
}

std::int64_t ListHistory::nextMoment() {
  std::int64_t last = 0;
  for (const auto& entry : entries()) last = std::max({last, entry->moment, entry->undoneMoment});
  return last + 1;
}

std::size_t ListHistory::oldestElement() {
  const DecodedHistory& decoded = read();
  std::size_t oldest = 0;
  for (std::size_t index = 1; index < decoded.size(); ++index)
    if (decoded.at(index).moment < decoded.at(oldest).moment) oldest = index;
  return oldest;
}

// A full history has the step in the place of the oldest, so that one of its chunks is written and not all of them.
void ListHistory::append(const StepRecord& step) {
  Entry entry{step, nextMoment()};
  const bool isFull = stored().size() >= MostSteps;
  Value element(elementOf(entry));
  setOwn(
      isFull ? withElement(stored(), oldestElement(), std::move(element)) : withAppended(stored(), std::move(element)),
      std::move(entry));
}

// It is read before it is stored: what is stored then is known to be the same.
void ListHistory::setOwn(LongArray elements, Entry entry) {
  _manager->editor().setAttached(Key, std::move(elements));
  _decoded.noteOwn(std::move(entry));
  read();
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
  setOwn(withElement(stored(), *index, Value(elementOf(entry))), entry);
}

void ListHistory::restore(const std::string& id, const std::optional<Entry>& entry) {
  if (entry) return replace(*entry);
  const auto index = elementWith(id);
  if (!index) return;
  LongArrayElements all = elementsFrom(stored(), 0);
  all.erase(all.begin() + static_cast<std::ptrdiff_t>(*index));
  _manager->editor().setAttached(Key, arrayOf(std::move(all)));
}

// Absent where all of it stays. What this version cannot read of a step tells of anybody.
std::optional<LongArrayElements> ListHistory::elementsWithout(const LongArray& stored, const ForgottenPerson& person,
                                                              const std::string& id) {
  LongArrayElements elements;
  bool isChanged = false;
  for (std::size_t index = 0; index < stored.size(); ++index) {
    const Value element = stored.at(index);
    const auto entry = historyEntryOf(element);
    if (!id.empty() && (!entry || entry->step.id != id)) {
      elements.push_back(elementAt(stored, index));
      continue;
    }
    const auto rest = entry ? without(*entry, person) : std::nullopt;
    const bool isSame = rest && rest->changes == entry->changes && Value(elementOf(*rest)) == element;
    isChanged = isChanged || !isSame;
    if (!rest) continue;
    elements.push_back(isSame ? elementAt(stored, index) : ArrayChunk::Element(Value(elementOf(*rest))));
  }
  return isChanged ? std::optional(std::move(elements)) : std::nullopt;
}

bool ListHistory::tellsOf(const ForgottenPerson& person) { return elementsWithout(stored(), person, {}).has_value(); }

void ListHistory::forget(const ForgottenPerson& person, const std::string& id) {
  if (auto elements = elementsWithout(stored(), person, id))
    _manager->editor().setAttached(Key, arrayOf(*std::move(elements)));
}

void ListHistory::clear() {
  _decoded.forgetOwn();
  _manager->editor().setAttached(Key, {});
}

}  // namespace pellor
