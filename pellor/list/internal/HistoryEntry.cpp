#include "pellor/list/internal/HistoryEntry.h"

#include <utility>

#include "pellor/list/internal/ForgottenPerson.h"

namespace pellor {
namespace {

const std::string UndoneKey = "undone";
const std::string UndoneMomentKey = "undoneMoment";
const std::string ChangesKey = "changes";

std::int64_t numberUnder(const Dictionary& element, const std::string& key) {
  const auto found = element.find(key);
  return found == element.end() ? 0 : found->second.integer().value_or(0);
}

}  // namespace

Dictionary elementOf(const HistoryEntry& entry) {
  Dictionary element = dictionaryOf(entry.step);
  element.emplace(HistoryEntry::MomentKey, entry.moment);
  if (entry.changes != 0) element.emplace(ChangesKey, entry.changes);
  if (!entry.undone) return element;
  element.emplace(UndoneKey, dictionaryOf(*entry.undone));
  element.emplace(UndoneMomentKey, entry.undoneMoment);
  return element;
}

std::optional<HistoryEntry> historyEntryOf(const Value& element) {
  auto step = stepRecordOf(element);
  if (!step) return std::nullopt;
  const Dictionary& members = *element.dictionary();
  HistoryEntry entry{*std::move(step), numberUnder(members, HistoryEntry::MomentKey)};
  if (const auto undone = members.find(UndoneKey); undone != members.end()) entry.undone = stepRecordOf(undone->second);
  if (entry.undone) entry.undoneMoment = numberUnder(members, UndoneMomentKey);
  entry.changes = numberUnder(members, ChangesKey);
  return entry;
}

std::int64_t momentOf(const Value& element) {
  return element.dictionary() ? numberUnder(*element.dictionary(), HistoryEntry::MomentKey) : 0;
}

// Others who found what another program did would tell of it anew, if it were not said that it was told.
std::optional<HistoryEntry> without(const HistoryEntry& entry, const ForgottenPerson& person) {
  auto step = person.without(entry.step);
  if (!step && entry.step.kind == StepKind::anotherProgram)
    step = StepRecord{.id = entry.step.id, .time = entry.step.time, .kind = entry.step.kind, .isComplete = false};
  if (!step) return std::nullopt;
  HistoryEntry rest = entry;
  rest.step = *std::move(step);
  if (entry.undone) rest.undone = person.without(*entry.undone);
  if (entry.undone && !rest.undone) {
    rest.undone = StepRecord{.id = entry.undone->id, .time = entry.undone->time, .isComplete = false};
  }
  if (rest.step != entry.step || rest.undone != entry.undone) ++rest.changes;
  return rest;
}

void addRecords(std::vector<StepRecord>& records, const HistoryEntry& entry) {
  records.push_back(entry.step);
  if (entry.undone) records.push_back(*entry.undone);
}

}  // namespace pellor
