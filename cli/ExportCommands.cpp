// export, import

#include <cstdint>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <variant>

#include "cli/CommandLine.h"
#include "cli/CommandSyntax.h"
#include "cli/FriendSearch.h"
#include "cli/ImportReport.h"
#include "cli/ListFile.h"
#include "cli/Output.h"
#include "cli/StandardInput.h"
#include "cli/Steps.h"
#include "pellor/linux/files/FileReplacement.h"
#include "pellor/list/Settings.h"

namespace pellor::cli {
namespace {

namespace fs = std::filesystem;

std::string counted(std::size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

// --- export ---

// What a link points to is written, not the link.
fs::path targetOf(const std::string& path) {
  std::error_code error;
  const fs::path target = fs::is_symlink(path, error) ? fs::canonical(path, error) : fs::path(path);
  const fs::file_status status = fs::status(target, error);
  if (fs::is_directory(status)) throw CommandError(printable(path) + " is a folder: name a file");
  if (fs::exists(status) && !fs::is_regular_file(status))
    throw CommandError(printable(path) + " is no file (without FILE the list is printed)");
  const fs::path folder = target.has_parent_path() ? target.parent_path() : ".";
  if (!fs::is_directory(folder, error)) throw CommandError("there is no folder " + printable(folder.string()));
  return target;
}

void writeFile(Session& session, const std::string& path, const std::string& text) {
  if (const auto error = replacePrivateFile(targetOf(path), text)) throw CommandError(printable(*error));
  const std::size_t friends = session.list().snapshot().friendCount();
  session.answer([&] { return "exported " + counted(friends, "friend", "friends") + " to " + printable(path) + "\n"; },
                 [&] {
                   return Json{{"file", path}, {"friends", friends}};
                 });
}

void exportList(Session& session, const std::string& path) {
  if (path.empty()) throw UsageError("FILE is empty");
  const ListFileText file = textOf(session.list().exported());
  if (file.isRepaired) writeError("texts that are no UTF-8 were exported with replacement characters");
  if (path != "-") return writeFile(session, path, file.text);
  session.answerText([&] { return file.text; });
}

// --- import ---

struct ImportRequest {
  std::string file;
  bool replaces = false;
};

ListFileReading readFile(const std::string& path) {
  if (path.empty()) throw UsageError("FILE is empty");
  const FileInput input = readInput(path, LongestListFile);
  const std::string where = "nothing was changed: " + printable(input.name) + ": ";
  if (!input.problem.empty()) throw CommandError(where + input.problem);
  try {
    return readListFile(input.bytes);
  } catch (const ListFileError& error) {
    throw CommandError(where + error.what());
  }
}

void nameLeftOut(const ListFileReading& reading) {
  for (const std::string& each : reading.leftOut) writeError("left out, as this version does not know it: " + each);
}

std::string placeText(const Place& place) {
  return "page " + std::to_string(place.page + 1) + ", slot " + std::to_string(place.slot + 1);
}

std::string tooManyPagesText(Session& session, std::size_t wanted) {
  const auto most = readSetting(MostPagesSetting, session.options().domain());
  const std::int64_t* count = most ? std::get_if<std::int64_t>(&most->value) : nullptr;
  return "the file has " + std::to_string(wanted) + " pages, and this list may have " +
         (count ? std::to_string(*count) : "fewer") + " (\"pellor settings max-pages " + std::to_string(wanted) +
         "\" allows them)";
}

// Why the list of the file has no place here, or is none.
std::string problemOf(Session& session, const ImportAnswer& answer, const ExportedList& list) {
  switch (answer.refusal->reason) {
    case RefusalReason::isTwice:
      return placeText(answer.cause->place) + ": " + nameOf(*answer.cause->person) + " is there twice, also on " +
             placeText(*answer.twin);
    case RefusalReason::pageTooSmall:
      return placeText(answer.cause->place) + ": a page of this list has " +
             std::to_string(session.list().snapshot().page(0).friends.size()) + " slots (\"pellor settings page-size " +
             std::to_string(list.pageSize) + "\" gives it those of the file)";
    case RefusalReason::tooManyPages:
      return tooManyPagesText(session, list.pages.size());
    case RefusalReason::addsNoPages:
      return "this list makes no pages by itself: \"pellor settings trailing-page on\" has it make them";
    case RefusalReason::noRoom:
      return "there is no room for " + counted(answer.withoutRoom.size(), "friend", "friends") +
             " (\"pellor settings max-pages\" tells how many pages there may be)";
    default:
      return std::string(textOf(answer.refusal->reason));
  }
}

void importList(Session& session, const ImportRequest& request) {
  const ListFileReading reading = readFile(request.file);
  session.requireWritableStore();
  const ImportMode mode = request.replaces ? ImportMode::replace : ImportMode::add;
  ImportAnswer answer = importAndStore(session, reading.list, mode);
  if (answer || !answer.withoutRoom.empty()) {
    nameLeftOut(reading);
    session.answer([&] { return textOf(answer, mode, session.isDry()); },
                   [&] { return jsonOf(answer, session.isDry()); });
  }
  if (answer.refusal) throw CommandError("nothing was changed: " + problemOf(session, answer, reading.list));
}

}  // namespace

void addExportCommands(CommandSyntax program, Command& chosen) {
  const auto writing = program.command("export", "Write the friend list to a file, for another machine or for later");
  const auto path = std::make_shared<std::string>("-");
  writing.option("FILE", *path, "The file, which may be there; without one, or for -, the list is printed");
  writing.whenGiven([&chosen, path] { chosen = [path](Session& session) { exportList(session, *path); }; });

  const auto reading = program.command(
      "import", "Add the friends of an exported list who are no friends yet, where they were; all or none");
  const auto request = std::make_shared<ImportRequest>();
  reading.option("FILE", request->file, "What pellor export wrote; - for standard input").required();
  reading.flag("--replace", request->replaces,
               "Make the list what the file says: pages, titles, places and what friends carry");
  reading.offersDryRun();
  reading.whenGiven([&chosen, request] { chosen = [request](Session& session) { importList(session, *request); }; });
}

}  // namespace pellor::cli
