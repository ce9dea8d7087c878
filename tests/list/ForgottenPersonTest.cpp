// What is left of a step that told of somebody who is forgotten.
#include "pellor/list/internal/ForgottenPerson.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace pellor {
namespace {

Dictionary formOf(const std::string& name) {
  return {{"ABRecordGUID", "guid-" + name}, {"Name", name}, {"AllValues", Array{Value(name + "@example.org")}}};
}

// What is left, as names, pages and whether the step can be taken back.
TEST(ForgottenPersonTest, AStepKeepsWhatTellsOfOthers) {
  const FriendRecord ann{.after = formOf("Ann"), .to = Place{0, 0}}, bob{.after = formOf("Bob"), .to = Place{0, 1}};
  const PageRecord inserted{.to = 0, .titleAfter = "Club"}, plain{.from = 0, .to = 0},
      moved{.from = 1, .to = 0, .isMoved = true};
  const std::string longName(120, 'x');
  const auto summarized = [](std::uint64_t count, std::vector<std::string> names) {
    return StepRecord{.isComplete = false, .summary = {.removed = count, .names = std::move(names)}};
  };
  struct Case {
    std::string what;
    StepRecord step;
    std::string left;
  };
  const std::vector<Case> cases = {
      {"alone", {.kind = StepKind::added, .friends = {ann}, .pages = {plain}}, "nothing"},
      {"with another", {.kind = StepKind::added, .friends = {ann, bob}, .pages = {plain}}, "Bob, 0 pages"},
      {"with a page that has a title",
       {.kind = StepKind::added, .friends = {ann}, .pages = {inserted}},
       "1 pages, not undoable"},
      {"beside a page", {.kind = StepKind::several, .friends = {ann}, .pages = {moved}}, "1 pages"},
      {"another one alone", {.kind = StepKind::added, .friends = {bob}, .pages = {plain}}, "Bob, 0 pages"},
      {"on evidence that names the person",
       {.kind = StepKind::relinked, .evidence = {{"of", Array{Value("guid-Ann")}}}, .friends = {bob}, .pages = {plain}},
       "Bob, 0 pages, not undoable"},
      {"only a summary", summarized(2, {"Ann", "Bob"}), "Bob, 0 pages, not undoable"},
      {"only a summary, alone", summarized(1, {"Ann"}), "nothing"},
      {"only a summary, by the address", summarized(1, {"Ann@example.org"}), "nothing"},
      {"a name that was cut", summarized(2, {longName.substr(0, 100), "Bob"}), "Bob, 0 pages, not undoable"},
      {"a name that begins like it", summarized(2, {"An", "Bob"}), "An, Bob, 0 pages, not undoable"},
  };
  ForgottenPerson person([](const FriendIdentity&) { return false; });
  person.add(identityOf(formOf("Ann")));
  person.add({"guid-Ann", longName, {}});
  for (const Case& each : cases) {
    const auto rest = person.without(each.step);
    std::string left = rest ? "" : "nothing";
    const StepSummary summary = rest ? summaryOf(*rest) : StepSummary();
    for (const std::string& name : summary.names) left += name + ", ";
    if (rest) left += std::to_string(summary.pages) + " pages";
    if (rest && !rest->isComplete) left += ", not undoable";
    EXPECT_EQ(left, each.left) << each.what;
  }
}

}  // namespace
}  // namespace pellor
