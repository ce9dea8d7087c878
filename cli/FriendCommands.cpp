// number, reply-as, meta

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "cli/CommandLine.h"
#include "cli/FriendSearch.h"
#include "cli/JsonForms.h"
#include "cli/NameMatch.h"
#include "cli/Output.h"
#include "pellor/friends/PLDestination.h"
#include "pellor/linux/text/TextLimits.h"
#include "pellor/list/ShownDestination.h"

namespace pellor::cli {
namespace {

// The destination of the friend that the text spells; absent when there is none.
std::optional<std::string> destinationSpelled(const PLPerson& person, const std::string& text) {
  const auto canonical = plMessageCanonicalRawAddress(text);
  if (canonical && person.record().containsDestination(*canonical)) return canonical;
  const auto key = destinationKey(text);
  const auto values = person.allValues();
  if (!key || !values) return std::nullopt;
  const auto found = std::ranges::find_if(*values, [&](const auto& value) { return destinationKey(value) == key; });
  return found == values->end() ? std::nullopt : std::optional(*found);
}

struct NumberArguments {
  std::string who;
  std::optional<std::string> number;
  bool clears = false;
  bool hasPhotos = false;
};

std::string allShown(const PLPerson& person) {
  std::string text;
  const auto values = person.allValues();
  for (const std::string& value : values ? *values : DestinationSet()) {
    text += (text.empty() ? "" : ", ") + shownDestination(value);
  }
  return text.empty() ? "none" : text;
}

std::string destinationToPrefer(const PLPerson& person, const std::string& text) {
  if (auto destination = destinationSpelled(person, text)) return *std::move(destination);
  throw CommandError(nameOf(person) + " has no " + inQuotes(text) + ", but " + allShown(person));
}

std::string numberText(const PLPerson& person) {
  const auto shown = destinationShownOf(person);
  const auto chosen = person.preferredDestination();
  std::string text = shown ? shownDestination(*shown) : "(none)";
  const bool isInUse = !chosen || plMessageCanonicalRawAddress(*chosen) == shown;
  if (!isInUse) text += "\n(chosen, but not " + nameOf(person) + "'s at present: " + shownDestination(*chosen) + ")";
  return text + "\n";
}

void number(Session& session, const NumberArguments& arguments) {
  const bool changes = arguments.number || arguments.clears;
  if (changes) session.requireWritableStore();
  const FriendAt found = friendNamed(session, arguments.who);
  if (changes) {
    found.person->setPreferredDestination(
        arguments.number ? std::optional(destinationToPrefer(*found.person, *arguments.number)) : std::nullopt);
    session.commit();
  }
  session.answer([&] { return numberText(*found.person); },
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
  const FriendAt found = friendNamed(session, arguments.who);
  if (changes) {
    found.person->setPreferredReplyAs(arguments.address);
    session.commit();
  }
  const auto address = found.person->preferredReplyAs();
  session.answer([&] { return (address ? printable(*address) : std::string("(none)")) + "\n"; },
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

void changeMetadata(Session& session, PLPerson& person, const MetaArguments& arguments) {
  if (arguments.clears) person.removeAllMetadataValues();
  if (arguments.value) person.setMetadataValueForKey(Value(*arguments.value), *arguments.key);
  session.commit();
}

void answerMetadata(Session& session, const FriendAt& found, const MetaArguments& arguments) {
  const bool asksForOne = arguments.key && !arguments.value;
  const auto value = asksForOne ? found.person->metadataValueForKey(*arguments.key) : std::nullopt;
  if (asksForOne && !value) {
    throw CommandError(nameOf(*found.person) + " has no metadata under " + inQuotes(*arguments.key));
  }
  session.answer([&] { return value ? printable(value->description()) + "\n" : entriesText(found.person->metadata()); },
                 [&] { return jsonOf(found); });
}

void meta(Session& session, const MetaArguments& arguments) {
  if (arguments.clears && arguments.key) throw UsageError("--clear removes all metadata and takes no KEY");
  const bool changes = arguments.value || arguments.clears;
  if (changes) session.requireWritableStore();
  const FriendAt found = friendNamed(session, arguments.who);
  if (changes) changeMetadata(session, *found.person, arguments);
  answerMetadata(session, found, arguments);
}

void addNumber(CLI::App& program, Command& chosen) {
  auto* command =
      program.add_subcommand("number", "Show or choose the number or address under which a friend is shown");
  const auto arguments = std::make_shared<NumberArguments>();
  command->add_option("WHO", arguments->who, "The friend")->required();
  auto* choice = command->add_option("NUMBER", arguments->number, "One of the friend's, in any spelling");
  command->add_flag("--clear", arguments->clears, "Show the card's again")->excludes(choice);
  command->add_flag("--photos", arguments->hasPhotos, PhotosMeaning);
  command->callback([&chosen, arguments] { chosen = [arguments](Session& session) { number(session, *arguments); }; });
}

void addReplyAs(CLI::App& program, Command& chosen) {
  auto* command = program.add_subcommand("reply-as", "Show or set the address that replies to a friend come from");
  const auto arguments = std::make_shared<ReplyAsArguments>();
  command->add_option("WHO", arguments->who, "The friend")->required();
  auto* address = command->add_option("ADDRESS", arguments->address, "The address");
  command->add_flag("--clear", arguments->clears, "Take the address away")->excludes(address);
  command->callback([&chosen, arguments] { chosen = [arguments](Session& session) { replyAs(session, *arguments); }; });
}

void addMeta(CLI::App& program, Command& chosen) {
  auto* command = program.add_subcommand("meta", "Show or set a friend's metadata");
  const auto arguments = std::make_shared<MetaArguments>();
  command->add_option("WHO", arguments->who, "The friend")->required();
  command->add_option("KEY", arguments->key, "The key; without one all entries are shown");
  command->add_option("VALUE", arguments->value, "The value, a text");
  command->add_flag("--clear", arguments->clears, "Remove all entries");
  command->callback([&chosen, arguments] { chosen = [arguments](Session& session) { meta(session, *arguments); }; });
}

}  // namespace

void addFriendCommands(CLI::App& program, Command& chosen) {
  addNumber(program, chosen);
  addReplyAs(program, chosen);
  addMeta(program, chosen);
}

}  // namespace pellor::cli
