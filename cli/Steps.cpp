#include "cli/Steps.h"

#include <memory>
#include <optional>
#include <utility>

#include "cli/CommandError.h"

namespace pellor::cli {

std::vector<EditResult> applyAndStore(Session& session, const std::vector<Edit>& edits, const RefusalText& text) {
  // A command that gives up ends before its step does.
  const auto refused = std::make_shared<std::optional<Refusal>>();
  if (edits.empty()) {
    session.commit();
    return {};
  }
  StepAnswer answer =
      session.list().apply(edits, [refused](const std::optional<Refusal>& refusal) { *refused = refusal; });
  if (answer.refusal) throw CommandError(text(*answer.refusal, RefusedAt::call));
  session.commit();
  if (*refused) throw CommandError(text(**refused, RefusedAt::merge));
  return std::move(answer.results);
}

std::string refusalText(const Refusal& refusal, const std::string& who) {
  return "nothing was changed: " + (who.empty() ? "" : who + ": ") + std::string(textOf(refusal.reason));
}

}  // namespace pellor::cli
