// Steps of the history, as the program says them.
#pragma once

#include <string>

#include "cli/Session.h"
#include "pellor/list/History.h"

namespace pellor::cli {

/// What was done to whom, with whether it is taken back: "moved Ann Lee (taken back)".
std::string textOf(const HistoryStep& step);
/// What an automatic decision rests on: "found by name, fits 1 of 2 best"; empty for any other step.
std::string evidenceText(const HistoryStep& step);
/// The line of a step: how it is named, when and by which program, what, and what it rests on.
std::string lineOf(const HistoryStep& step);
/// As many characters of an id as name a step.
std::string shownId(const std::string& id);
Json jsonOf(const HistoryStep& step);
/// The kind in JSON.
std::string nameOf(StepKind kind);

}  // namespace pellor::cli
