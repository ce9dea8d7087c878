// number, reply-as, meta

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/CommandSyntax.h"
#include "cli/FriendSearch.h"
#include "cli/JsonForms.h"
#include "cli/Output.h"
#include "cli/Steps.h"
#include "pellor/linux/text/TextLimits.h"
#include "pellor/list/Destination.h"

namespace pellor::cli {
namespace {

// The destination of the friend that the text spells; absent when there is none.
std::optional<std::string> destinationSpelled(const Friend& person, const std::string& text) {
  const auto& values = person.destinations;
  const auto canonical = canonicalDestination(text);
  if (canonical && std::ranges::find(values, *canonical) != values.end()) return canonical;
  const auto key = comparableDestination(text);
  if (!key) return std::nullopt;
  const auto found =
      std::ranges::find_if(values, [&](const auto& value) { return comparableDestination(value) == key; });
  return found == values.end() ? std::nullopt : std::optional(*found);
}

// The friend as it is then.
void change(Session& session, FriendAt& found, const std::vector<Edit>& edits) {
  const DoneStep done = applyAndStore(
      session, edits, [&](const Refusal& refusal, RefusedAt) { return refusalText(refusal, nameOf(*found.person)); });
  const auto now = placesOf(done.list, {found.person->id});
  if (!now.empty()) found = now.front();
}

struct NumberArguments {
  std::string who;
  std::optional<std::string> number;
  bool clears = false;
  bool hasPhotos = false;
};

std::string allShown(const Friend& person) {
  std::string text;
  for (const std::string& value : person.destinations) text += (text.empty() ? "" : ", ") + shownDestination(value);
  return text.empty() ? "none" : text;
}

std::string destinationToPrefer(const Friend& person, const std::string& text) {
  if (auto destination = destinationSpelled(person, text)) return *std::move(destination);
  throw CommandError(nameOf(person) + " has no " + inQuotes(text) + ", but " + allShown(person));
}

std::string numberText(const Friend& person) {
  const auto& chosen = person.chosenNumber;
  std::string text = person.destination.empty() ? "(none)" : shownDestination(person);
  const bool isInUse = !chosen || canonicalDestination(*chosen) == person.destination;
  if (!isInUse) text += "\n(chosen, but not " + nameOf(person) + "'s at present: " + shownDestination(*chosen) + ")";
  return text + "\n";
}

void number(Session& session, const NumberArguments& arguments) {
  const bool changes = arguments.number || arguments.clears;
  if (changes) session.requireWritableStore();
  FriendAt found = friendNamed(session, arguments.who);
  if (changes) {
    ChooseNumber choice{found.person->id};
    if (arguments.number) choice.number = destinationToPrefer(*found.person, *arguments.number);
    change(session, found, {choice});
  }
  session.answerNow(
      changes, [&] { return numberText(*found.person); },
      [&] { return withPhotos(session, jsonOf(found), arguments.hasPhotos); });
}

struct ReplyAsArguments {
  std::string who;
  std::optional<std::string> address;
  bool clears = false;
};

void replyAs(Session& session, const ReplyAsArguments& arguments) {
  const bool changes = arguments.address || arguments.clears;
  if (arguments.address && isTooLongForDestination(*arguments.address)) throw UsageError("ADDRESS is too long for one");
  if (changes) session.requireWritableStore();
  FriendAt found = friendNamed(session, arguments.who);
  if (changes) change(session, found, {SetReplyAs{found.person->id, arguments.address}});
  const auto& address = found.person->replyAs;
  session.answerNow(
      changes, [&] { return (address ? printable(*address) : std::string("(none)")) + "\n"; },
      [&] { return jsonOf(found); });
}

struct MetaArguments {
  std::string who;
  std::optional<std::string> key;
  std::optional<std::string> value;
  bool clears = false;
};

std::string entriesText(const Dictionary& entries) {
  std::string text;
  for (const auto& [key, value] : entries) text += printable(key + " = " + value.description()) + "\n";
  return text;
}

void changeMetadata(Session& session, FriendAt& found, const MetaArguments& arguments) {
  const FriendId id = found.person->id;
  std::vector<Edit> edits;
  if (arguments.clears) {
    for (const auto& [key, value] : found.person->metadata) edits.emplace_back(SetMetadata{id, key});
  }
  if (arguments.value) edits.emplace_back(SetMetadata{id, *arguments.key, Value(*arguments.value)});
  change(session, found, edits);
}

void answerMetadata(Session& session, const FriendAt& found, const MetaArguments& arguments) {
  const bool asksForOne = arguments.key && !arguments.value;
  const Dictionary& entries = found.person->metadata;
  const Value* value = asksForOne ? valueForKey(entries, *arguments.key) : nullptr;
  if (asksForOne && !value) {
    throw CommandError(nameOf(*found.person) + " has no metadata under " + inQuotes(*arguments.key));
  }
  session.answerNow(
      arguments.value || arguments.clears,
      [&] { return value ? printable(value->description()) + "\n" : entriesText(entries); },
      [&] { return jsonOf(found); });
}

void meta(Session& session, const MetaArguments& arguments) {
  if (arguments.clears && arguments.key) throw UsageError("--clear removes all metadata and takes no KEY");
  const bool changes = arguments.value || arguments.clears;
  if (changes) session.requireWritableStore();
  FriendAt found = friendNamed(session, arguments.who);
  if (changes) changeMetadata(session, found, arguments);
  answerMetadata(session, found, arguments);
}

void addNumber(CommandSyntax program, Command& chosen) {
  const auto command = program.command("number", "Show or choose the number or address under which a friend is shown");
  command.offersDryRun();
  const auto arguments = std::make_shared<NumberArguments>();
  command.option("WHO", arguments->who, "The friend").required();
  const auto choice = command.option("NUMBER", arguments->number, "One of the friend's, in any spelling");
  command.flag("--clear", arguments->clears, "Show the card's again").excludes(choice);
  command.flag("--photos", arguments->hasPhotos, PhotosMeaning);
  command.whenGiven([&chosen, arguments] { chosen = [arguments](Session& session) { number(session, *arguments); }; });
}

void addReplyAs(CommandSyntax program, Command& chosen) {
  const auto command = program.command("reply-as", "Show or set the address that replies to a friend come from");
  command.offersDryRun();
  const auto arguments = std::make_shared<ReplyAsArguments>();
  command.option("WHO", arguments->who, "The friend").required();
  const auto address = command.option("ADDRESS", arguments->address, "The address");
  command.flag("--clear", arguments->clears, "Take the address away").excludes(address);
  command.whenGiven([&chosen, arguments] { chosen = [arguments](Session& session) { replyAs(session, *arguments); }; });
}

void addMeta(CommandSyntax program, Command& chosen) {
  const auto command = program.command("meta", "Show or set a friend's metadata");
  command.offersDryRun();
  const auto arguments = std::make_shared<MetaArguments>();
  command.option("WHO", arguments->who, "The friend").required();
  command.option("KEY", arguments->key, "The key; without one all entries are shown");
  command.option("VALUE", arguments->value, "The value, a text");
  command.flag("--clear", arguments->clears, "Remove all entries");
  command.whenGiven([&chosen, arguments] { chosen = [arguments](Session& session) { meta(session, *arguments); }; });
}

}  // namespace

void addFriendCommands(CommandSyntax program, Command& chosen) {
  addNumber(program, chosen);
  addReplyAs(program, chosen);
  addMeta(program, chosen);
}

}  // namespace pellor::cli
