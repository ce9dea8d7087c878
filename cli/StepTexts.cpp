#include "cli/StepTexts.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <ctime>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "cli/FriendSearch.h"
#include "cli/JsonForms.h"
#include "cli/Output.h"
#include "pellor/runtime/WallClock.h"

namespace pellor::cli {
namespace {

// Enough to tell a hundred steps apart, and short enough to be typed.
constexpr std::size_t ShownIdLength = 6;

/// What the history says of a kind of step, in text and in JSON.
struct KindText {
  StepKind kind;
  std::string_view verb;
  std::string_view name;
};

constexpr std::array KindTexts = {
    KindText{StepKind::added, "added", "added"},
    KindText{StepKind::removed, "removed", "removed"},
    KindText{StepKind::moved, "moved", "moved"},
    KindText{StepKind::changedFriend, "changed", "changedFriend"},
    KindText{StepKind::renamedPage, "renamed a page", "renamedPage"},
    KindText{StepKind::changedPages, "changed pages", "changedPages"},
    KindText{StepKind::several, "changed", "several"},
    KindText{StepKind::imported, "imported", "imported"},
    KindText{StepKind::relinked, "linked with another contact:", "relinked"},
    KindText{StepKind::unlinked, "no longer linked with a contact:", "unlinked"},
    KindText{StepKind::deduplicated, "removed, being there twice:", "deduplicated"},
    KindText{StepKind::cleanedUp, "removed, without number and address:", "cleanedUp"},
    KindText{StepKind::placedElsewhere, "placed elsewhere:", "placedElsewhere"},
    KindText{StepKind::notImported, "not imported:", "notImported"},
    KindText{StepKind::notPushed, "not sent to the other device:", "notPushed"},
    KindText{StepKind::anotherProgram, "changed by another program:", "anotherProgram"},
    KindText{StepKind::unknown, "something that a later version did", "unknown"},
};

const KindText& textFor(StepKind kind) {
  for (const KindText& text : KindTexts)
    if (text.kind == kind) return text;
  return KindTexts.back();
}

// Who has no name is called by a number in the form in which it is kept.
std::string shownName(const std::string& name) {
  const bool isKeptNumber = name.starts_with('+') && name.find_first_not_of("0123456789", 1) == std::string::npos;
  return isKeptNumber ? shownDestination(name) : printable(name);
}

std::string namesIn(const StepSummary& summary) {
  constexpr std::size_t most = 3;
  const std::uint64_t count = summary.added + summary.removed + std::max(summary.moved, summary.changed);
  std::string text;
  for (std::size_t index = 0; index < std::min(most, summary.names.size()); ++index)
    text += (index == 0 ? "" : ", ") + shownName(summary.names[index]);
  if (count > most && summary.names.size() > most) text += " and " + std::to_string(count - most) + " more";
  return text;
}

std::string localTime(double seconds) {
  const auto time = static_cast<std::time_t>(std::floor(seconds));
  std::tm parts{};
  localtime_r(&time, &parts);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M", &parts);
  return text.data();
}

// With two digits behind the point, in every locale: "1", "0.5", "1.25".
std::string shownScore(double score) {
  constexpr double hundred = 100;
  std::array<char, 32> text{};
  const auto end = std::to_chars(text.data(), text.data() + text.size(), std::round(score * hundred) / hundred).ptr;
  return {text.data(), end};
}

std::string_view nameOf(StepEvidence::FoundBy foundBy) {
  return foundBy == StepEvidence::FoundBy::name ? "name" : "destinations";
}

Json jsonOf(const StepEvidence& evidence) {
  const bool isSearched = evidence.foundBy != StepEvidence::FoundBy::nothing;
  return {{"contactBefore", textOrNull(evidence.contactBefore)},
          {"contactAfter", textOrNull(evidence.contactAfter)},
          {"foundBy", isSearched ? Json(nameOf(evidence.foundBy)) : Json(nullptr)},
          {"score", isSearched ? Json(evidence.score) : Json(nullptr)},
          {"candidates", isSearched ? Json(evidence.candidates) : Json(nullptr)},
          {"stays", textOrNull(evidence.stays)}};
}

std::string whyNotUndoable(const HistoryStep& step) { return isOnlyTold(step.kind) ? "" : " (cannot be taken back)"; }

}  // namespace

std::string textOf(const HistoryStep& step) {
  const std::string names = namesIn(step.summary);
  std::string text(textFor(step.kind).verb);
  if (!names.empty()) {
    text += " " + names;
  } else if (text.ends_with(':')) {
    text.pop_back();
  }
  return text + (step.isTakenBack ? " (taken back)" : step.isUndoable ? "" : whyNotUndoable(step));
}

std::string evidenceText(const HistoryStep& step) {
  const StepEvidence& evidence = step.evidence;
  if (!evidence.stays.empty()) return printable(evidence.stays) + " has that contact and stays";
  if (evidence.foundBy != StepEvidence::FoundBy::nothing) {
    const bool isByName = evidence.foundBy == StepEvidence::FoundBy::name;
    const std::string count =
        evidence.candidates == 1 ? "the only one" : "the best of " + std::to_string(evidence.candidates);
    return "found by " + std::string(isByName ? "the name" : "a number or address") + ", " + count + ", score " +
           shownScore(evidence.score);
  }
  return step.kind == StepKind::unlinked ? "the contact is gone, and no other one fits" : "";
}

std::string shownId(const std::string& id) { return id.substr(0, ShownIdLength); }

std::string lineOf(const HistoryStep& step) {
  const std::string program = step.program.empty() ? "" : " " + printable(step.program) + ":";
  const std::string evidence = evidenceText(step);
  return shownId(step.id) + "  " + localTime(step.time) + " " + program + " " + textOf(step) +
         (evidence.empty() ? "" : " (" + evidence + ")") + "\n";
}

Json jsonOf(const HistoryStep& step) {
  const StepSummary& summary = step.summary;
  return {{"id", step.id},
          {"time", cli::jsonOf(Value(Date{step.time - SecondsFrom1970To2001}))},
          {"program", step.program.empty() ? Json(nullptr) : Json(step.program)},
          {"kind", textFor(step.kind).name},
          {"names", summary.names},
          {"added", summary.added},
          {"removed", summary.removed},
          {"moved", summary.moved},
          {"changed", summary.changed},
          {"pages", summary.pages},
          {"isTakenBack", step.isTakenBack},
          {"isUndoable", step.isUndoable},
          {"evidence", isAutomatic(step.kind) ? jsonOf(step.evidence) : Json(nullptr)}};
}

std::string nameOf(StepKind kind) { return std::string(textFor(kind).name); }

}  // namespace pellor::cli
