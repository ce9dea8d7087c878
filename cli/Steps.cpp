#include "cli/Steps.h"

#include <memory>
#include <optional>
#include <utility>

#include "cli/CommandError.h"
#include "cli/Output.h"

namespace pellor::cli {

namespace {

/// What became of a step that is not stored yet. A command that gives up ends before its step does.
struct Outcome {
  std::shared_ptr<std::optional<Refusal>> refusal = std::make_shared<std::optional<Refusal>>();

  StoredHandler handler() const {
    return [known = refusal](const std::optional<Refusal>& told) { *known = told; };
  }
};

void tellIfTooLarge(const Session& session, bool isUndoable) {
  if (isUndoable) return;
  writeError(std::string(session.isDry() ? "this would be" : "this is") +
             " too large to be taken back by \"pellor undo\"");
}

// Where they are when other programs have edited the list at the same time.
void takePlaces(const Snapshot& list, std::vector<ImportAnswer::Placed>& friends) {
  for (auto& [person, place] : friends) {
    const auto now = list.placeOf(person->id);
    if (!now) continue;
    place = *now;
    person = list.friendWith(person->id);
  }
}

}  // namespace

DoneStep applyAndStore(Session& session, const std::vector<Edit>& edits, const RefusalText& text) {
  FriendList& list = session.list();
  if (edits.empty()) {
    if (!session.isDry()) session.commit();
    return {{}, list.snapshot()};
  }
  const Outcome outcome;
  StepAnswer answer = session.isDry() ? list.plan(edits) : list.apply(edits, outcome.handler());
  if (answer.refusal) throw CommandError(text(*answer.refusal, RefusedAt::call));
  tellIfTooLarge(session, answer.isUndoable);
  if (session.isDry()) return {std::move(answer.results), answer.after};
  session.commit();
  if (*outcome.refusal) throw CommandError(text(**outcome.refusal, RefusedAt::merge));
  return {std::move(answer.results), list.snapshot()};
}

ImportAnswer importAndStore(Session& session, const ExportedList& exported, ImportMode mode) {
  FriendList& list = session.list();
  const Outcome outcome;
  ImportAnswer answer =
      session.isDry() ? list.planImport(exported, mode) : list.import(exported, mode, outcome.handler());
  if (answer.refusal) return answer;
  tellIfTooLarge(session, answer.isUndoable);
  if (session.isDry()) return answer;
  session.commit();
  if (*outcome.refusal) throw CommandError(refusalText(**outcome.refusal, ""));
  takePlaces(list.snapshot(), answer.added);
  return answer;
}

std::string refusalText(const Refusal& refusal, const std::string& who) {
  return "nothing was changed: " + (who.empty() ? "" : who + ": ") + std::string(textOf(refusal.reason));
}

}  // namespace pellor::cli
