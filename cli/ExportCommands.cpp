// export, import

#include <algorithm>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <system_error>
#include <unordered_map>

#include "cli/CommandLine.h"
#include "cli/CommandSyntax.h"
#include "cli/JsonForms.h"
#include "cli/ListFile.h"
#include "cli/ListImport.h"
#include "cli/Output.h"
#include "cli/StandardInput.h"
#include "pellor/linux/files/FileReplacement.h"

namespace pellor::cli {
namespace {

namespace fs = std::filesystem;

std::string counted(std::size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

// --- export ---

// Up to the last page that holds a friend or has a title.
ListFile listFileOf(const PLFriendsManager& manager) {
  ListFile file{manager.groupSize(), {}};
  std::size_t count = 0;
  for (const PageContent& content : pagesOf(manager)) {
    ListFilePage& page = file.pages.emplace_back();
    page.title = content.title;
    for (const Slot& slot : content.slots) {
      page.slots.push_back(slot ? std::optional(slot->dictionaryRepresentation()) : std::nullopt);
    }
    if (!content.isEmpty() || !content.title.empty()) count = file.pages.size();
  }
  file.pages.resize(count);
  return file;
}

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
  const ListFileText file = textOf(listFileOf(managerOf(session)));
  if (file.isRepaired) writeError("texts that are no UTF-8 were exported with replacement characters");
  if (path != "-") return writeFile(session, path, file.text);
  session.answerText([&] { return file.text; });
}

// --- import ---

struct ImportRequest {
  std::string file;
  bool replaces = false;
  bool isDry = false;
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

ImportPlan planFor(Session& session, const ListFile& file, bool replaces) {
  try {
    ListImport import(session, file);
    return replaces ? import.replacement() : import.addition();
  } catch (const CommandError& error) {
    throw CommandError(std::string("nothing was changed: ") + error.what());
  }
}

// What friends carry is only marked before the pages ask for a save: all of it goes out at once.
void perform(Session& session, const ImportPlan& plan) {
  if (plan.changesNothing()) return session.commit();
  for (const auto& [person, form] : plan.updated) {
    if (person->updateFromDictionaryRepresentation(form)) person->setNeedsSave(true);
  }
  if (!rewritePages(managerOf(session), plan.pages)) throw CommandError("nothing was changed: there is no room");
  session.commit();
}

// Where they are when other programs have edited the list at the same time.
void takePlaces(Session& session, std::vector<PersonAt>& friends) {
  std::unordered_map<const PLPerson*, PersonAt> places;
  for (const PersonAt& each : allPersons(managerOf(session))) places.emplace(each.person.get(), each);
  for (PersonAt& each : friends) {
    if (const auto now = places.find(each.person.get()); now != places.end()) each = now->second;
  }
}

std::string placed(const PersonAt& found) { return nameOf(*found.person) + " (" + textOf(found.place) + ")\n"; }

std::string planText(const ImportPlan& plan, const ImportRequest& request) {
  const std::string would = request.isDry ? "would have " : "";
  std::string text;
  for (const PersonAt& each : plan.removed) text += would + "removed " + placed(each);
  for (const PersonAt& each : plan.added) text += would + "added " + placed(each);
  for (const auto& [to, from] : plan.moved)
    text += would + "moved " + textOf(from) + " to " + textOf(to.place) + " " + nameOf(*to.person) + "\n";
  for (const auto& update : plan.updated) text += would + "updated " + nameOf(*update.person) + "\n";
  for (const std::uint64_t page : plan.titled) {
    const std::string& title = plan.pages[page].title;
    text +=
        would + "titled page " + std::to_string(page + 1) + ": " + (title.empty() ? "(none)" : printable(title)) + "\n";
  }
  if (!request.replaces) {
    for (const PersonAt& each : plan.known) text += "is a friend already: " + placed(each);
  }
  for (const auto& person : plan.unreachable)
    text += "left out " + nameOf(*person) + ": there is neither a number nor an address\n";
  for (const auto& person : plan.repeated)
    text += "left out " + nameOf(*person) + ": a friend before in the file has the same contact\n";
  for (const auto& person : plan.withoutRoom) text += "no room for " + nameOf(*person) + "\n";
  if (plan.changesNothing() && plan.withoutRoom.empty()) text += "nothing is to be changed\n";
  return text;
}

Json jsonOfEach(const std::vector<PersonAt>& friends) {
  Json list = Json::array();
  for (const PersonAt& each : friends) list.push_back(jsonOf(friendAt(each)));
  return list;
}

Json jsonOfEach(const std::vector<std::shared_ptr<PLPerson>>& persons) {
  Json list = Json::array();
  for (const auto& person : persons) list.push_back(jsonOf(friendOf(*person)));
  return list;
}

Json planJson(const ImportPlan& plan, const ImportRequest& request) {
  Json moved = Json::array();
  for (const auto& [to, from] : plan.moved) {
    Json object = jsonOf(friendAt(to));
    object["from"] = jsonOf(from);
    moved.push_back(std::move(object));
  }
  Json updated = Json::array();
  for (const auto& update : plan.updated) updated.push_back(jsonOf(friendOf(*update.person)));
  Json titled = Json::array();
  for (const std::uint64_t page : plan.titled) {
    const std::string& title = plan.pages[page].title;
    titled.push_back({{"page", page}, {"title", title.empty() ? Json(nullptr) : Json(title)}});
  }
  return {{"isDone", !request.isDry && plan.withoutRoom.empty()},
          {"added", jsonOfEach(plan.added)},
          {"known", jsonOfEach(plan.known)},
          {"removed", jsonOfEach(plan.removed)},
          {"moved", std::move(moved)},
          {"updated", std::move(updated)},
          {"titled", std::move(titled)},
          {"unreachable", jsonOfEach(plan.unreachable)},
          {"repeated", jsonOfEach(plan.repeated)},
          {"withoutRoom", jsonOfEach(plan.withoutRoom)}};
}

void nameLeftOut(const ListFileReading& reading) {
  for (const std::string& each : reading.leftOut) writeError("left out, as this version does not know it: " + each);
}

// All or none: where somebody finds no room nobody comes, and the answer names these alone.
void refuse(Session& session, ImportPlan plan, const ImportRequest& request) {
  plan.added.clear();
  plan.titled.clear();
  session.answer([&] { return planText(plan, request); }, [&] { return planJson(plan, request); });
  throw CommandError("nothing was changed: there is no room for " +
                     counted(plan.withoutRoom.size(), "friend", "friends") +
                     " (\"pellor settings max-pages\" tells how many pages there may be)");
}

void importList(Session& session, const ImportRequest& request) {
  const ListFileReading reading = readFile(request.file);
  if (!request.isDry) session.requireWritableStore();
  ImportPlan plan = planFor(session, reading.list, request.replaces);
  nameLeftOut(reading);
  if (!plan.withoutRoom.empty()) return refuse(session, std::move(plan), request);
  if (!request.isDry) {
    perform(session, plan);
    takePlaces(session, plan.added);
  }
  session.answer([&] { return planText(plan, request); }, [&] { return planJson(plan, request); });
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
  reading.flag("--dry-run", request->isDry, "Only tell what would be done");
  reading.whenGiven([&chosen, request] { chosen = [request](Session& session) { importList(session, *request); }; });
}

}  // namespace pellor::cli
