// Steps as they are stored.
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string_view>
#include <utility>

#include "pellor/list/internal/StepRecord.h"

namespace pellor {
namespace {

struct KindText {
  StepKind kind;
  std::string_view text;
};
constexpr std::array KindTexts{
    KindText{StepKind::added, "added"},
    KindText{StepKind::removed, "removed"},
    KindText{StepKind::moved, "moved"},
    KindText{StepKind::changedFriend, "changed friend"},
    KindText{StepKind::renamedPage, "renamed page"},
    KindText{StepKind::changedPages, "changed pages"},
    KindText{StepKind::several, "several"},
    KindText{StepKind::imported, "imported"},
    KindText{StepKind::relinked, "relinked"},
    KindText{StepKind::unlinked, "unlinked"},
    KindText{StepKind::deduplicated, "deduplicated"},
    KindText{StepKind::cleanedUp, "cleaned up"},
    KindText{StepKind::placedElsewhere, "placed elsewhere"},
    KindText{StepKind::notImported, "not imported"},
    KindText{StepKind::notPushed, "not pushed"},
    KindText{StepKind::anotherProgram, "another program"},
};

// Pages and slots of a list are counted in 32 bits.
constexpr std::int64_t LargestIndex = std::numeric_limits<std::int32_t>::max();

// --- As values -----------------------------------------------------------------------------------------------------

void put(Dictionary& dictionary, std::string_view key, Value value) {
  dictionary.insert_or_assign(std::string(key), std::move(value));
}

void putText(Dictionary& dictionary, std::string_view key, const std::string& text) {
  if (!text.empty()) put(dictionary, key, text);
}

void putCount(Dictionary& dictionary, std::string_view key, std::uint64_t count) {
  if (count > 0) put(dictionary, key, static_cast<std::int64_t>(count));
}

Value valueOf(Place place) { return Array{Value(place.page), Value(place.slot)}; }

Value valueOf(const FriendRecord& person) {
  Dictionary entries;
  if (person.from) put(entries, "from", valueOf(*person.from));
  if (person.to) put(entries, "to", valueOf(*person.to));
  putCount(entries, "lookalikes", person.lookalikes);
  if (!person.from || !person.to || person.before == person.after) {
    put(entries, "form", person.to ? person.after : person.before);
  } else {
    put(entries, "before", person.before);
    put(entries, "after", person.after);
  }
  return entries;
}

Value valueOf(const PageRecord& page) {
  Dictionary entries;
  if (page.from) put(entries, "from", *page.from);
  if (page.to) put(entries, "to", *page.to);
  if (page.isMoved) put(entries, "moved", true);
  if (page.titleBefore == page.titleAfter) {
    putText(entries, "title", page.titleAfter);
  } else {
    putText(entries, "titleBefore", page.titleBefore);
    putText(entries, "titleAfter", page.titleAfter);
  }
  Array fingerprints;
  for (const std::uint32_t fingerprint : page.fingerprints) fingerprints.emplace_back(fingerprint);
  if (!fingerprints.empty()) put(entries, "friends", std::move(fingerprints));
  return entries;
}

Value valueOf(const StepSummary& summary) {
  Dictionary entries;
  putCount(entries, "added", summary.added);
  putCount(entries, "removed", summary.removed);
  putCount(entries, "moved", summary.moved);
  putCount(entries, "changed", summary.changed);
  putCount(entries, "pages", summary.pages);
  if (!summary.names.empty()) put(entries, "names", Array(summary.names.begin(), summary.names.end()));
  return entries;
}

template <class Record>
void putAll(Dictionary& dictionary, std::string_view key, const std::vector<Record>& records) {
  Array values;
  for (const Record& record : records) values.push_back(valueOf(record));
  if (!values.empty()) put(dictionary, key, std::move(values));
}

// --- From values ---------------------------------------------------------------------------------------------------

/// Reads a dictionary. What is there and of a wrong type or range counts as damage.
class Entries {
 public:
  Entries(const Dictionary& entries, bool& isDamaged) : _entries(entries), _isDamaged(isDamaged) {}

  bool has(std::string_view key) const { return valueForKey(_entries, key) != nullptr; }

  std::string text(std::string_view key) const {
    const Value* value = valueForKey(_entries, key);
    if (!value) return {};
    if (const std::string* text = value->string()) return *text;
    return damage<std::string>();
  }
  std::optional<std::int64_t> number(std::string_view key, std::int64_t largest) const {
    const Value* value = valueForKey(_entries, key);
    return value ? number(*value, largest) : std::nullopt;
  }
  std::uint64_t count(std::string_view key) const {
    return static_cast<std::uint64_t>(number(key, std::numeric_limits<std::int64_t>::max()).value_or(0));
  }
  bool flag(std::string_view key) const {
    const Value* value = valueForKey(_entries, key);
    if (!value) return false;
    return value->boolean() ? *value->boolean() : damage<bool>();
  }
  Dictionary dictionary(std::string_view key) const {
    const Value* value = valueForKey(_entries, key);
    if (!value) return {};
    return value->dictionary() ? *value->dictionary() : damage<Dictionary>();
  }
  std::optional<Place> place(std::string_view key) const {
    if (!has(key)) return std::nullopt;
    const Array parts = array(key);
    if (parts.size() != 2) return damage<std::optional<Place>>();
    const auto page = number(parts[0], LargestIndex), slot = number(parts[1], LargestIndex);
    if (!page || !slot) return std::nullopt;
    return Place{static_cast<std::uint64_t>(*page), static_cast<std::uint64_t>(*slot)};
  }
  Array array(std::string_view key) const {
    const Value* value = valueForKey(_entries, key);
    if (!value) return {};
    return value->array() ? *value->array() : damage<Array>();
  }
  template <class Record>
  std::vector<Record> records(std::string_view key, Record (*recordOf)(const Entries&)) const {
    std::vector<Record> records;
    for (const Value& value : array(key)) {
      if (const Dictionary* entries = value.dictionary()) {
        records.push_back(recordOf(Entries(*entries, _isDamaged)));
      } else {
        _isDamaged = true;
      }
    }
    return records;
  }
  std::optional<std::int64_t> number(const Value& value, std::int64_t largest) const {
    const auto number = value.integer();
    if (number && *number >= 0 && *number <= largest) return number;
    return damage<std::optional<std::int64_t>>();
  }
  template <class Absent>
  Absent damage() const {
    _isDamaged = true;
    return {};
  }

 private:
  const Dictionary& _entries;
  bool& _isDamaged;
};

std::optional<std::size_t> indexOf(const Entries& entries, std::string_view key) {
  const auto index = entries.number(key, LargestIndex);
  return index ? std::optional(static_cast<std::size_t>(*index)) : std::nullopt;
}

FriendRecord friendOf(const Entries& entries) {
  FriendRecord person;
  person.from = entries.place("from");
  person.to = entries.place("to");
  person.lookalikes = entries.count("lookalikes");
  const bool isSame = entries.has("form");
  if (person.from || !person.to) person.before = entries.dictionary(isSame ? "form" : "before");
  if (person.to) person.after = entries.dictionary(isSame ? "form" : "after");
  return person;
}

PageRecord pageOf(const Entries& entries) {
  PageRecord page;
  page.from = indexOf(entries, "from");
  page.to = indexOf(entries, "to");
  page.isMoved = entries.flag("moved");
  const bool isSame = entries.has("title");
  if (page.from) page.titleBefore = entries.text(isSame ? "title" : "titleBefore");
  if (page.to) page.titleAfter = entries.text(isSame ? "title" : "titleAfter");
  for (const Value& value : entries.array("friends")) {
    const auto fingerprint = entries.number(value, std::numeric_limits<std::uint32_t>::max());
    if (fingerprint) page.fingerprints.push_back(static_cast<std::uint32_t>(*fingerprint));
  }
  std::ranges::sort(page.fingerprints);
  return page;
}

StepSummary summaryIn(const Entries& entries) {
  StepSummary summary{entries.count("added"), entries.count("removed"), entries.count("moved"),
                      entries.count("changed"), entries.count("pages")};
  for (const Value& name : entries.array("names"))
    if (name.string() && summary.names.size() < StepSummary::MostNames) summary.names.push_back(*name.string());
  return summary;
}

template <class Element>
bool hasTwice(std::vector<Element> elements) {
  std::ranges::sort(elements);
  return std::ranges::adjacent_find(elements) != elements.end();
}

/// Whether the parts of a step fit together as `describe` makes them.
bool isConsistent(const StepRecord& step) {
  std::vector<std::uint64_t> pagesBefore, pagesAfter;
  std::vector<Place> places, placesAfter;
  for (const PageRecord& page : step.pages) {
    if (!page.from && !page.to) return false;
    if (page.from) pagesBefore.push_back(*page.from);
    if (page.to) pagesAfter.push_back(*page.to);
  }
  const StepPages pages(step);
  for (const FriendRecord& person : step.friends) {
    if (!person.from && !person.to) {
      if (!isOnlyTold(step.kind) || person.before.empty()) return false;
      continue;
    }
    if (person.from.has_value() == person.before.empty() || person.to.has_value() == person.after.empty()) return false;
    if (person.from && !pages.before(person.from->page)) return false;
    if (person.to && !pages.after(person.to->page)) return false;
    if (person.from) places.push_back(*person.from);
    if (person.to) placesAfter.push_back(*person.to);
  }
  return !hasTwice(pagesBefore) && !hasTwice(pagesAfter) && !hasTwice(places) && !hasTwice(placesAfter);
}

StepKind kindOf(const std::string& text) {
  const auto* const found = std::ranges::find(KindTexts, text, &KindText::text);
  return found == KindTexts.end() ? StepKind::unknown : found->kind;
}

}  // namespace

Dictionary dictionaryOf(const StepRecord& step) {
  Dictionary entries;
  put(entries, "id", step.id);
  put(entries, "time", step.time);
  putText(entries, "program", step.program);
  const auto* const kind = std::ranges::find(KindTexts, step.kind, &KindText::kind);
  if (kind != KindTexts.end()) put(entries, "kind", kind->text);
  if (!step.isComplete) {
    put(entries, "summary", valueOf(step.summary));
    return entries;
  }
  if (!step.evidence.empty()) put(entries, "evidence", step.evidence);
  putAll(entries, "friends", step.friends);
  putAll(entries, "pages", step.pages);
  return entries;
}

std::optional<StepRecord> stepRecordOf(const Value& value) {
  const Dictionary* dictionary = value.dictionary();
  const Value* time = dictionary ? valueForKey(*dictionary, "time") : nullptr;
  if (!time || !time->real() || !std::isfinite(*time->real())) return std::nullopt;
  bool isDamaged = false;
  const Entries entries(*dictionary, isDamaged);
  StepRecord step;
  step.id = entries.text("id");
  if (step.id.empty()) return std::nullopt;
  step.time = *time->real();
  step.program = entries.text("program");
  step.kind = kindOf(entries.text("kind"));
  if (entries.has("summary")) {
    step.isComplete = false;
    const Dictionary summary = entries.dictionary("summary");
    step.summary = summaryIn(Entries(summary, isDamaged));
    return step;
  }
  step.evidence = entries.dictionary("evidence");
  step.friends = entries.records("friends", friendOf);
  step.pages = entries.records("pages", pageOf);
  if (!isDamaged && isConsistent(step)) return step;
  return summaryAlone(std::move(step));
}

}  // namespace pellor
