#include "pellor/list/internal/StepRecord.h"

#include <algorithm>

#include "pellor/friends/detail/PLPersonForm.h"
#include "pellor/list/internal/FriendIdentity.h"

namespace pellor {
namespace {

// At most so many bytes, and no part of a character.
std::string shortened(std::string text, std::size_t longest) {
  if (text.size() <= longest) return text;
  const auto isContinued = [&](std::size_t at) { return (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U; };
  while (longest > 0 && isContinued(longest)) --longest;
  text.resize(longest);
  return text;
}

}  // namespace

bool isAutomatic(StepKind kind) {
  switch (kind) {
    case StepKind::relinked:
    case StepKind::unlinked:
    case StepKind::deduplicated:
    case StepKind::cleanedUp:
    case StepKind::placedElsewhere:
    case StepKind::notImported:
    case StepKind::notPushed:
      return true;
    default:
      return false;
  }
}

bool isOnlyTold(StepKind kind) {
  return kind == StepKind::placedElsewhere || kind == StepKind::notImported || kind == StepKind::notPushed;
}

bool canBeTakenBack(const StepRecord& step) {
  // A later version may have done more than this one can read.
  return step.isComplete && step.kind != StepKind::unknown && !isOnlyTold(step.kind);
}

StepEvidence evidenceOf(const StepRecord& step) {
  const auto text = [&](std::string_view key) { return stringForKey(step.evidence, key).value_or(std::string()); };
  const auto number = [&](std::string_view key) { return valueForKey(step.evidence, key); };
  StepEvidence evidence{text("before"), text("after")};
  if (evidence.contactAfter.empty()) evidence.contactAfter = text("guid");
  if (text("foundBy") == "name") evidence.foundBy = StepEvidence::FoundBy::name;
  if (text("foundBy") == "destinations") evidence.foundBy = StepEvidence::FoundBy::destinations;
  if (const Value* score = number("score")) evidence.score = score->real().value_or(0);
  if (const Value* count = number("candidates"))
    evidence.candidates = static_cast<std::uint64_t>(std::max<std::int64_t>(count->integer().value_or(0), 0));
  evidence.stays = text("stays");
  return evidence;
}

std::string nameToSay(const Dictionary& form) {
  const FriendIdentity identity = identityOf(form);
  if (!identity.name.empty()) return identity.name;
  return identity.destinations.empty() ? std::string() : identity.destinations.front();
}

std::string summaryName(const Dictionary& form) { return shortened(nameToSay(form), StepSummary::LongestName); }

StepSummary summaryOf(const StepRecord& step) {
  if (!step.isComplete) return step.summary;
  const StepPages pages(step);
  StepSummary summary;
  for (const FriendRecord& person : step.friends) {
    if (!person.from && !person.to) {
      // Was not let in: nothing became of the list.
    } else if (!person.from) {
      ++summary.added;
    } else if (!person.to) {
      ++summary.removed;
    } else {
      if (pages.isMoved(person)) ++summary.moved;
      if (person.before != person.after) ++summary.changed;
    }
    if (summary.names.size() == StepSummary::MostNames) continue;
    std::string name = summaryName(person.to ? person.after : person.before);
    if (!name.empty()) summary.names.push_back(std::move(name));
  }
  summary.pages = static_cast<std::uint64_t>(std::ranges::count_if(step.pages, StepPages::isTouched));
  return summary;
}

StepRecord summaryAlone(StepRecord step) {
  step.summary = summaryOf(step);
  step.isComplete = false;
  step.evidence.clear();
  step.friends.clear();
  step.pages.clear();
  return step;
}

StepPages::StepPages(const StepRecord& step) {
  for (std::size_t number = 0; number < step.pages.size(); ++number) {
    if (const auto index = step.pages[number].from) _before.emplace_back(*index, number);
    if (const auto index = step.pages[number].to) _after.emplace_back(*index, number);
  }
  std::ranges::sort(_before);
  std::ranges::sort(_after);
}

std::optional<std::size_t> StepPages::find(const Numbers& numbers, std::uint64_t index) {
  const auto found = std::ranges::lower_bound(numbers, index, {}, &Numbers::value_type::first);
  if (found == numbers.end() || found->first != index) return std::nullopt;
  return found->second;
}

bool StepPages::isMoved(const FriendRecord& person) const {
  if (!person.from || !person.to) return false;
  return person.from->slot != person.to->slot || before(person.from->page) != after(person.to->page);
}

bool StepPages::isTouched(const PageRecord& page) {
  return !page.from || !page.to || page.isMoved || page.titleBefore != page.titleAfter;
}

}  // namespace pellor
