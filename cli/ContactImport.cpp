#include "cli/ContactImport.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/Output.h"
#include "cli/StandardInput.h"
#include "pellor/linux/contacts/CardSource.h"
#include "pellor/linux/contacts/ContactImport.h"

namespace pellor::cli {
namespace {

struct Request {
  std::vector<std::string> files;
  bool replacesKnown = false;
};

const std::filesystem::path& folderOf(Session& session) {
  const auto& folder = session.platform().contactsFolder();
  if (folder) return *folder;
  const Configuration& configuration = session.options().configuration;
  const auto file = configuration.path("contacts");
  if (file && configuration.text("address-book") == "vdir")
    throw CommandError(printable(file->string()) + " is one file: contacts are imported into a folder");
  throw CommandError("the contacts do not come from a folder: import them with the program that keeps them");
}

/// How far reading what is there is, and how far importing.
struct Progress {
  ProgressLine reading{"reading contacts"}, taking{"importing contacts"};
};

ContactImportOptions optionsFor(Session& session, const Request& request, Progress& progress) {
  if (std::ranges::count(request.files, "-") > 1) throw UsageError("- stands for standard input, once");
  return {folderOf(session),
          !session.options().configuration.isSet("contacts"),
          request.replacesKnown,
          session.isDry(),
          [&](std::size_t done, std::size_t total) { progress.reading.show(done, total); },
          [&](std::size_t done, std::size_t total) { progress.taking.show(done, total); }};
}

ContactImportResult import(Session& session, const Request& request) {
  try {
    Progress progress;
    ContactImport work(optionsFor(session, request, progress));
    for (const std::string& path : request.files) {
      FileInput input = readInput(path, static_cast<std::size_t>(ContactFileSizeLimit));
      if (input.problem.empty())
        work.add(input.name, std::move(input.bytes));
      else
        work.leaveOut(input.name, input.problem);
    }
    return work.result();
  } catch (const ContactImportError& error) {
    throw CommandError(printable(error.what()));
  }
}

std::string counted(std::size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string textOf(const CardOrigin& origin) {
  std::string text = printable(origin.file);
  if (origin.number > 0) text += ", card " + std::to_string(origin.number);
  if (origin.line > 0) text += ", line " + std::to_string(origin.line);
  return origin.name.empty() ? text : text + " (" + printable(origin.name) + ")";
}

std::string textOf(const Session& session, const ContactImportResult& result) {
  const auto replaced = static_cast<std::size_t>(std::ranges::count_if(result.imported, &ImportedCard::isReplaced));
  const auto differing = static_cast<std::size_t>(std::ranges::count_if(result.known, &KnownCard::differs));
  std::string text = session.would() + "imported " + counted(result.imported.size(), "contact", "contacts");
  if (replaced > 0) text += " (" + std::to_string(replaced) + " of them in place of what was there)";
  text += "\n";
  if (!result.known.empty())
    text += counted(result.known.size(), "contact was there already\n", "contacts were there already\n");
  for (const KnownCard& card : result.known) {
    if (card.differs) text += "kept what is there: " + textOf(card.origin) + " differs\n";
  }
  if (differing > 0) text += "--replace takes the content of the files instead\n";
  for (const LeftOutCard& card : result.leftOut)
    text += "left out " + textOf(card.origin) + ": " + printable(card.reason) + "\n";
  return text;
}

Json numberOrNull(std::size_t number) { return number == 0 ? Json(nullptr) : Json(number); }
Json textOrNull(const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); }

Json jsonOf(const CardOrigin& origin) {
  return {{"file", origin.file},
          {"card", numberOrNull(origin.number)},
          {"line", numberOrNull(origin.line)},
          {"name", textOrNull(origin.name)}};
}

Json jsonOf(const ContactImportResult& result) {
  Json imported = Json::array();
  for (const ImportedCard& card : result.imported) {
    Json object = jsonOf(card.origin);
    object.update(Json{{"guid", card.guid}, {"contactFile", card.file}, {"isReplaced", card.isReplaced}});
    imported.push_back(std::move(object));
  }
  Json known = Json::array();
  for (const KnownCard& card : result.known) {
    Json object = jsonOf(card.origin);
    object.update(Json{{"guid", textOrNull(card.guid)}, {"differs", card.differs}});
    known.push_back(std::move(object));
  }
  Json leftOut = Json::array();
  for (const LeftOutCard& card : result.leftOut) {
    Json object = jsonOf(card.origin);
    object.update(Json{{"reason", card.reason}});
    leftOut.push_back(std::move(object));
  }
  return {{"imported", std::move(imported)}, {"known", std::move(known)}, {"leftOut", std::move(leftOut)}};
}

void importContacts(Session& session, const Request& request) {
  const ContactImportResult result = import(session, request);
  session.answer([&] { return textOf(session, result); }, [&] { return jsonOf(result); });
  if (!result.leftOut.empty())
    throw CommandError(counted(result.leftOut.size(), "file or card was left out", "files or cards were left out"));
}

}  // namespace

void addContactImport(CommandSyntax contacts, Command& chosen) {
  const auto command = contacts.command(
      "import",
      "Copy contacts of vCard files, or of tables with comma-separated values, into the contacts folder; "
      "nobody is doubled");
  const auto request = std::make_shared<Request>();
  command.offersDryRun();
  command.option("FILE", request->files, "Files; - for standard input").required().atLeast(1);
  command.flag("--replace", request->replacesKnown,
               "A contact that is there with other content gets that of the card with its UID");
  command.whenGiven(
      [&chosen, request] { chosen = [request](Session& session) { importContacts(session, *request); }; });
}

}  // namespace pellor::cli
