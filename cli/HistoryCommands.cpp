// history, undo, redo

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/CommandError.h"
#include "cli/CommandLine.h"
#include "cli/CommandSyntax.h"
#include "cli/JsonForms.h"
#include "cli/Output.h"
#include "cli/Session.h"
#include "cli/StepTexts.h"
#include "cli/Steps.h"
#include "pellor/list/History.h"

namespace pellor::cli {
namespace {

using cli::jsonOf;
using cli::textOf;

void history(Session& session) {
  const std::vector<HistoryStep> steps = session.list().history();
  const auto text = [&] {
    std::string all;
    for (auto step = steps.rbegin(); step != steps.rend(); ++step) all += lineOf(*step);
    return all.empty() ? "nothing was done yet that could be taken back\n" : all;
  };
  session.answer(text, [&] {
    Json all = Json::array();
    for (auto step = steps.rbegin(); step != steps.rend(); ++step) all.push_back(jsonOf(*step));
    return Json{{"steps", std::move(all)}};
  });
}

void clearHistory(Session& session) {
  const bool isDry = session.isDry();
  if (!isDry) session.requireWritableStore();
  const std::size_t count = session.list().history().size();
  const auto refused = std::make_shared<std::optional<Refusal>>();
  if (!isDry) {
    session.list().clearHistory([refused](const std::optional<Refusal>& refusal) { *refused = refusal; });
    session.commit();
  }
  if (*refused) throw CommandError(refusalText(**refused, ""));
  const std::string steps = std::to_string(count) + (count == 1 ? " step" : " steps");
  const auto text = [&] { return (isDry ? "would clear " : "cleared ") + steps + "\n"; };
  session.answer(text, [&] { return Json{{"isDone", !isDry}, {"cleared", count}}; });
}

// --- Taking back ---

std::string idNamed(Session& session, const std::string& named) {
  if (named.empty()) return named;
  std::vector<std::string> found;
  for (const HistoryStep& step : session.list().history())
    if (step.id.starts_with(named)) found.push_back(step.id);
  if (found.size() == 1) return found.front();
  if (found.empty()) throw CommandError("there is no step " + inQuotes(named) + " (\"pellor history\" names them)");
  throw CommandError("several steps begin with " + inQuotes(named) + ": name more of it");
}

std::string_view textOf(KeptChange::Part part) {
  switch (part) {
    case KeptChange::Part::membership:
      return "whether it is in the list";
    case KeptChange::Part::place:
      return "the place";
    case KeptChange::Part::replyAs:
      return "the preference for replies";
    case KeptChange::Part::chosenNumber:
      return "the chosen number";
    case KeptChange::Part::metadata:
      return "an entry of an app";
    case KeptChange::Part::card:
      return "the contact";
    case KeptChange::Part::title:
      return "the title";
    case KeptChange::Part::page:
      return "the page";
    case KeptChange::Part::other:
      return "an entry of a later version";
  }
  return "";
}

std::string textOf(const KeptChange& kept) {
  const std::string name = kept.name.empty() ? "a page" : printable(kept.name);
  return "stays, as it was changed since: " + name + ", " + std::string(textOf(kept.part)) + "\n";
}

Json jsonOf(const KeptChange& kept) {
  return {{"name", kept.name.empty() ? Json(nullptr) : Json(kept.name)}, {"what", textOf(kept.part)}};
}

std::string whyNot(const UndoAnswer& answer) {
  if (answer.step && answer.step->isTakenBack) return "it was taken back already";
  const std::string reason(textOf(answer.refusal->reason));
  if (!answer.step || answer.refusal->reason != RefusalReason::notUndoable) return reason;
  return reason + ": " + shownId(answer.step->id) + " (\"pellor history\" names the others, for pellor undo STEP)";
}

void requireDone(const UndoAnswer& answer, std::string_view nothing) {
  if (answer.refusal) throw CommandError("nothing was changed: " + whyNot(answer));
  if (!answer.step) throw CommandError(std::string(nothing));
}

void answerTakenBack(Session& session, const UndoAnswer& answer, std::string_view done) {
  const bool isDry = session.isDry();
  const auto text = [&] {
    std::string all = (isDry ? "would be " : "") + std::string(done) + ": " + textOf(*answer.step) + "\n";
    for (const KeptChange& kept : answer.kept) all += textOf(kept);
    return all;
  };
  session.answer(text, [&] {
    Json kept = Json::array();
    for (const KeptChange& each : answer.kept) kept.push_back(jsonOf(each));
    return Json{{"isDone", !isDry}, {"step", jsonOf(*answer.step)}, {"kept", std::move(kept)}};
  });
}

void undo(Session& session, const std::string& named) {
  const bool isDry = session.isDry();
  const std::string id = idNamed(session, named);
  if (!isDry) session.requireWritableStore();
  const UndoAnswer answer = isDry ? session.list().planUndo(id) : session.list().undo(id);
  requireDone(answer, "there is nothing to take back");
  if (!isDry) session.commit();
  answerTakenBack(session, answer, "taken back");
}

void redo(Session& session) {
  const bool isDry = session.isDry();
  if (!isDry) session.requireWritableStore();
  UndoAnswer answer = isDry ? session.list().planRedo() : session.list().redo();
  requireDone(answer, "there is nothing to do again: nothing was taken back, or something else was done since");
  if (!isDry) session.commit();
  answer.step->isTakenBack = false;
  answerTakenBack(session, answer, "done again");
}

}  // namespace

void addHistoryCommands(CommandSyntax program, Command& chosen) {
  const auto clears = std::make_shared<bool>(false);
  const auto showing = program.command("history", "Show what was done to the list, the newest first");
  const auto clearing = showing.flag("--clear", *clears, "Remove all steps: none can be taken back any more");
  showing.offersDryRun().needs(clearing);
  showing.whenGiven([&chosen, clears] { chosen = *clears ? clearHistory : history; });
  const auto step = std::make_shared<std::string>();
  const auto undoing = program.command("undo", "Take the last step back, or the one named");
  undoing.option("STEP", *step, "The step, as \"history\" names it");
  undoing.offersDryRun();
  undoing.whenGiven([&chosen, step] { chosen = [step](Session& session) { undo(session, *step); }; });
  const auto redoing = program.command("redo", "Do again what was taken back last");
  redoing.offersDryRun();
  redoing.whenGiven([&chosen] { chosen = redo; });
}

}  // namespace pellor::cli
