#include "pellor/list/internal/ForeignEdits.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>

#include "pellor/friends/internal/PLMergeFields.h"
#include "pellor/list/internal/FriendIdentity.h"
#include "pellor/list/internal/PageMatching.h"
#include "pellor/list/internal/SnapshotEdit.h"
#include "pellor/list/internal/StepId.h"

namespace pellor {
namespace {

// Of the evidence: between which versions of list and titles it was done.
const std::string SinceKey = "since", UntilKey = "until";

Array versionIn(const PLForeignEdit::Version& version) {
  Array numbers;
  for (const std::uint64_t number : {version.listVersion.store, version.listVersion.count, version.titlesVersion.count})
    numbers.emplace_back(static_cast<std::int64_t>(number));
  return numbers;
}

// Whether that version is the later one, or the same. False for versions of two stores, and for what is none.
bool isUpTo(const Value* earlier, const Value* later) {
  constexpr std::size_t count = 3;
  const Array* first = earlier ? earlier->array() : nullptr;
  const Array* last = later ? later->array() : nullptr;
  if (!first || !last || first->size() != count || last->size() != count || (*first)[0] != (*last)[0]) return false;
  return (*first)[1].integer() <= (*last)[1].integer() && (*first)[2].integer() <= (*last)[2].integer();
}

// Whether one tells of all that the other one does.
bool covers(const StepRecord& step, const StepRecord& other) {
  if (step.id == other.id) return true;
  const auto version = [](const StepRecord& of, const std::string& key) { return valueForKey(of.evidence, key); };
  return step.kind == StepKind::anotherProgram && isUpTo(version(step, SinceKey), version(other, SinceKey)) &&
         isUpTo(version(other, UntilKey), version(step, UntilKey));
}

std::vector<StepRecord> stepsIn(const std::map<std::string, LongArray, std::less<>>& arrays) {
  const auto history = arrays.find(ListHistory::Key);
  return history == arrays.end() ? std::vector<StepRecord>() : ListHistory::recordsIn(history->second);
}

/// The two versions of the list as snapshots. A friend has the slot before, counted from 1, for an id, a page its
/// index; who came and what came have higher ones.
class ComparedLists {
 public:
  explicit ComparedLists(const PLForeignEdit& edit) : _edit(edit) {
    Pages before = pagesOf(edit.before, [](std::size_t slot) { return slot; });
    const std::size_t count = edit.before.forms.size();
    Pages after = pagesOf(edit.after, [&](std::size_t slot) {
      return static_cast<std::size_t>(edit.origins[slot].value_or(count + slot));
    });
    const auto matches = matchedPages(matched(before), matched(after));
    for (std::size_t index = 0; index < after.size(); ++index)
      after[index]->id = {matches[index].value_or(before.size() + index) + 1};
    _usedBefore = usedPages(before);
    _usedAfter = usedPages(after);
    _before = snapshotOf(before);
    _after = snapshotOf(after);
  }

  ListChange change() const {
    ListChange change = changeBetween(_before, _after);
    change.changed.clear();
    for (const auto& [id, form] : _formsAfter)
      if (isFormer(id) && formBefore(id) != form) change.changed.push_back({id, {}});
    return change;
  }

  // What follows the card of a friend who has the same one is as it is now.
  Dictionary formBefore(FriendId id) const {
    Dictionary form = _edit.before.forms[id.number - 1];
    const auto after = _formsAfter.find(id);
    const std::string_view guid = identifyingGUID(form);
    if (after == _formsAfter.end() || guid.empty() || identifyingGUID(after->second) != guid) return form;
    for (const auto& [key, value] : blockOfForm(form)) form.erase(key);
    form.merge(blockOfForm(after->second));
    return form;
  }
  Dictionary formAfter(FriendId id) const { return _formsAfter.at(id); }

  // An empty page at the end that only one of them has is none.
  bool isEdit(const PageRecord& page) const {
    const bool isAtEnd = page.from ? !page.to && *page.from >= _usedBefore : *page.to >= _usedAfter;
    return StepPages::isTouched(page) && !isAtEnd;
  }

 private:
  using Pages = std::vector<std::shared_ptr<Page>>;

  bool isFormer(FriendId id) const { return id.number <= _edit.before.forms.size(); }

  template <class Number>
  Pages pagesOf(const PLForeignEdit::Version& version, Number numberOf) {
    Pages pages;
    for (std::size_t first = 0; first < version.forms.size(); first += _edit.groupSize) {
      auto page = std::make_shared<Page>();
      page->id = {pages.size() + 1};
      if (pages.size() < version.titles.size()) page->title = version.titles[pages.size()];
      for (std::size_t slot = first; slot < first + _edit.groupSize; ++slot) {
        const bool isTaken = slot < version.forms.size() && !version.forms[slot].empty();
        page->friends.push_back(isTaken ? shown(version.forms[slot], {numberOf(slot) + 1}) : nullptr);
        if (isTaken) ++page->friendCount;
        if (isTaken && &version == &_edit.after) _formsAfter.emplace(page->friends.back()->id, version.forms[slot]);
      }
      pages.push_back(std::move(page));
    }
    return pages;
  }

  static std::shared_ptr<const Friend> shown(const Dictionary& form, FriendId id) {
    const FriendIdentity identity = identityOf(form);
    auto shown = std::make_shared<Friend>();
    shown->id = id;
    shown->name = identity.name;
    shown->destinations = identity.destinations;
    if (!identity.guid.empty()) shown->contactGUID = identity.guid;
    return shown;
  }

  std::vector<MatchedPage> matched(const Pages& pages) const {
    std::vector<MatchedPage> matched;
    for (const auto& page : pages) {
      MatchedPage known{{}, page->title, nullptr};
      for (const auto& person : page->friends)
        if (person && isFormer(person->id)) known.friends.push_back(&_edit.before.forms[person->id.number - 1]);
      matched.push_back(std::move(known));
    }
    return matched;
  }

  // Behind them is nothing.
  static std::size_t usedPages(const Pages& pages) {
    std::size_t count = pages.size();
    while (count > 0 && pages[count - 1]->friendCount == 0 && pages[count - 1]->title.empty()) --count;
    return count;
  }

  static Snapshot snapshotOf(const Pages& pages) {
    SnapshotEdit edit{Snapshot()};
    for (std::size_t index = 0; index < pages.size(); ++index) edit.putPage(index, pages[index]);
    edit.setPageCount(pages.size());
    return edit.take();
  }

  const PLForeignEdit& _edit;
  std::map<FriendId, Dictionary> _formsAfter;
  Snapshot _before, _after;
  std::size_t _usedBefore = 0, _usedAfter = 0;
};

}  // namespace

// The numbers of friends and pages here are no ids of the process: others find them by what they are.
std::optional<StepRecord> stepOf(const PLForeignEdit& edit) {
  const ComparedLists lists(edit);
  StepRecord step;
  step.kind = StepKind::anotherProgram;
  step.id = stepIdFrom(Value(versionIn(edit.after)));
  step.evidence = {{SinceKey, versionIn(edit.before)}, {UntilKey, versionIn(edit.after)}};
  describe(
      step, lists.change(), [&](FriendId id) { return lists.formBefore(id); },
      [&](FriendId id) { return lists.formAfter(id); });
  const auto isEdit = [&](const PageRecord& page) { return lists.isEdit(page); };
  if (step.friends.empty() && std::ranges::none_of(step.pages, isEdit)) return std::nullopt;
  for (FriendRecord& person : step.friends) person.id = {};
  for (PageRecord& page : step.pages) page.id = {};
  return step;
}

ForeignEdits::ForeignEdits(ListHistory& history, std::function<void(StepRecord&)> sign)
    : _history(history), _sign(std::move(sign)) {}

// Who did it is not known.
void ForeignEdits::note(const PLForeignEdit& edit) {
  auto step = stepOf(edit);
  if (!step || _history.find(step->id)) return;
  StepRecord signedStep;
  _sign(signedStep);
  step->time = signedStep.time;
  _unstored.push_back(step->id);
  _history.append(storable(*std::move(step)));
}

// One that was taken back here stays, with that: the merge keeps it in place of theirs.
void ForeignEdits::judge(const PLStoredPages& theirs) {
  if (_unstored.empty()) return;
  const auto stored = stepsIn(theirs.attachedBefore), told = stepsIn(theirs.attached);
  std::erase_if(_unstored, [&](const std::string& id) {
    const auto* entry = _history.find(id);
    if (!entry || std::ranges::find(stored, id, &StepRecord::id) != stored.end()) return true;
    const auto isTold = [&](const StepRecord& step) { return covers(step, entry->step); };
    if (entry->undone || std::ranges::none_of(told, isTold)) return false;
    _history.restore(id, std::nullopt);
    return true;
  });
}

}  // namespace pellor
