// why

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "cli/CommandError.h"
#include "cli/CommandLine.h"
#include "cli/CommandSyntax.h"
#include "cli/FriendSearch.h"
#include "cli/JsonForms.h"
#include "cli/Output.h"
#include "cli/StatusText.h"
#include "cli/StepTexts.h"
#include "pellor/list/Explanation.h"

namespace pellor::cli {
namespace {

// A step that is taken back gave the friend its former link again.
std::string sinceText(const Explanation& why) {
  if (why.linkedSince.empty()) return "";
  const auto step = std::ranges::find(why.steps, why.linkedSince, &HistoryStep::id);
  const bool isTakenBack = step != why.steps.end() && step->isTakenBack;
  return ", since " + shownId(why.linkedSince) + (isTakenBack ? " was taken back" : "");
}

std::string linkText(const Explanation& why) {
  if (why.contactGUID.empty()) return "linked with no contact\n";
  std::string text = "linked with the contact " + printable(why.contactGUID);
  if (!why.isContactThere) text += ", which is not there";
  return text + sinceText(why) + "\n";
}

std::string_view reasonText(NumberReason reason) {
  switch (reason) {
    case NumberReason::none:
      return "there is no number and no address";
    case NumberReason::chosen:
      return "chosen";
    case NumberReason::card:
      return "the first one on the contact";
    case NumberReason::first:
      return "the first one, without a contact";
  }
  return "";
}

std::string_view nameOf(NumberReason reason) {
  switch (reason) {
    case NumberReason::none:
      return "none";
    case NumberReason::chosen:
      return "chosen";
    case NumberReason::card:
      return "card";
    case NumberReason::first:
      return "first";
  }
  return "";
}

std::string numberText(const Explanation& why) {
  std::string text = "shown: ";
  if (!why.number.empty()) text += shownDestination(why.number) + ", ";
  text += std::string(reasonText(why.numberReason));
  const bool isUnused = why.chosenNumber && why.numberReason != NumberReason::chosen;
  if (isUnused) text += " (" + shownDestination(*why.chosenNumber) + " was chosen, and is not there at present)";
  return text + "\n";
}

std::string exceptionText(const FriendException& exception) {
  const std::string contact = printable(exception.contact);
  switch (exception.kind) {
    case StepKind::relinked:
      return "is not linked with the contact " + contact;
    case StepKind::unlinked:
      return "stays linked with the contact " + contact + " although it is gone";
    case StepKind::deduplicated:
      return "stays, though another friend has the contact " + contact;
    default:
      return "stays without number and address";
  }
}

std::string textOf(const Explanation& why, const std::string& reachability) {
  std::string text = linkText(why) + numberText(why) + reachability;
  for (const FriendException& exception : why.exceptions)
    text += exceptionText(exception) + ", as " + shownId(exception.step) + " was taken back\n";
  for (const HistoryStep& step : why.steps) text += lineOf(step);
  return text;
}

std::string reachabilityText(const Explanation& why) {
  if (!why.isReachabilityChecked) return "counts as reachable: nobody is asked\n";
  std::string text = statusText(why.reachability.status);
  for (const std::string& destination : why.reachability.reachable) text += ", " + shownDestination(destination);
  return text + "\n";
}

Json exceptionsOf(const Explanation& why) {
  Json all = Json::array();
  for (const FriendException& exception : why.exceptions)
    all.push_back(
        {{"kind", cli::nameOf(exception.kind)}, {"step", exception.step}, {"contact", textOrNull(exception.contact)}});
  return all;
}

Json jsonOf(const FriendAt& found, const Explanation& why) {
  Json steps = Json::array();
  for (const HistoryStep& step : why.steps) steps.push_back(cli::jsonOf(step));
  Json answer = cli::jsonOf(found);
  answer["contact"] = textOrNull(why.contactGUID);
  answer["isContactThere"] = why.isContactThere;
  answer["linkedSince"] = textOrNull(why.linkedSince);
  answer["numberReason"] = nameOf(why.numberReason);
  answer["isReachabilityChecked"] = why.isReachabilityChecked;
  addStatus(answer, why.reachability);
  answer["reachableDestinations"] = why.reachability.reachable;
  answer["exceptions"] = exceptionsOf(why);
  answer["steps"] = std::move(steps);
  return answer;
}

void why(Session& session, const std::string& who) {
  const FriendAt found = friendNamed(session, who);
  const auto explanation = session.list().why(found.person->id);
  if (!explanation) throw CommandError(cli::nameOf(*found.person) + " is not in the list any more");
  session.answer([&] { return textOf(*explanation, reachabilityText(*explanation)); },
                 [&] { return jsonOf(found, *explanation); });
}

}  // namespace

void addWhyCommand(CommandSyntax program, Command& chosen) {
  const auto who = std::make_shared<std::string>();
  const auto command = program.command("why", "Tell why a friend is as he is: link, number, what was done");
  command.option("WHO", *who, "The friend").required();
  command.whenGiven([&chosen, who] { chosen = [who](Session& session) { why(session, *who); }; });
}

}  // namespace pellor::cli
