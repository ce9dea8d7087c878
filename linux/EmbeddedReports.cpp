#include "linux/EmbeddedReports.h"

#include <sqlite3.h>
#include <unistd.h>

#include <string>
#include <system_error>

#include "linux/ContactFolder.h"
#include "linux/LinuxPlatform.h"
#include "linux/PreferencesDatabase.h"
#include "linux/PrivateFiles.h"
#include "linux/RefreshMemory.h"
#include "linux/SQLitePreferences.h"
#include "runtime/WallClock.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

bool isThere(const fs::path& path) {
  std::error_code ignored;
  return fs::exists(path, ignored);
}

bool mayWrite(const fs::path& path) { return ::access(path.c_str(), W_OK) == 0; }

// Whether a folder can be used, or made where it is missing.
bool mayWriteIn(fs::path folder) {
  while (!isThere(folder) && folder.has_parent_path() && folder != folder.parent_path()) folder = folder.parent_path();
  std::error_code ignored;
  return fs::is_directory(folder, ignored) && mayWrite(folder);
}

std::string counted(std::size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

// Any key tells whether the store can be read.
std::string readErrorOf(const UserFolders& folders) {
  SQLitePreferences store(folders.data, folders.config / "defaults.json", {"", "", nullptr},
                          SQLitePreferences::Access::readOnly);
  return store.copyValue("Region", "org.tapnote.Pellor").isReadable() ? std::string() : store.lastError();
}

}  // namespace

ServiceReport withHeldRefresh(ServiceReport report, const std::filesystem::path& dataFolder, std::string_view source,
                              std::uint64_t cards) {
  RefreshHold hold(RefreshMemory(dataFolder, source, {"", "", nullptr}).read());
  const auto fall = hold.look(cards, wallClockNow());
  if (report.state != ServiceReport::State::works || !fall) return report;
  report.detail += "; only " + std::to_string(fall->now) + " of " + std::to_string(fall->before) +
                   " are there, so friends are not refreshed";
  report.advice = "bring the others back, or accept that they are gone: pellor refresh --accept";
  return report;
}

ServiceReport reportOnContactsFolder(const fs::path& contactsFolder, const fs::path& dataFolder) {
  ContactFolder folder(contactsFolder);
  try {
    const std::size_t count = folder.list().size();
    return withHeldRefresh(ServiceReport::working(folder.path().string() + ": " + counted(count, "card", "cards")),
                           dataFolder, folder.name(), count);
  } catch (const CardSourceError& error) {
    return ServiceReport::failing(error.what(), error.remedy() == CardSourceError::Remedy::toldOf
                                                    ? "put vCard files there, or name another folder (contacts)"
                                                    : "give yourself the right to read the folder");
  }
}

ServiceReport reportOnStoreFile(const UserFolders& folders) {
  const fs::path file = PreferencesDatabase::fileIn(folders.data);
  const std::string name = file.string() + " (SQLite " + sqlite3_libversion() + ")";
  const bool isMade = isThere(file);
  if (isMade) {
    if (const std::string error = readErrorOf(folders); !error.empty())
      return ServiceReport::failing(file.string() + ": " + error,
                                    "put a backup in its place, or name another folder (data)");
  }
  if (!mayWriteIn(folders.data) || (isMade && !mayWrite(file)))
    return ServiceReport::failing(file.string() + " may not be written", "give yourself the right to write it");
  return ServiceReport::working(isMade ? name : name + ", not made yet");
}

ServiceReport reportOnNotifyFolder(const UserFolders& folders) {
  const std::string folder = folders.notify().string();
  if (!mayWriteIn(folders.notify()))
    return ServiceReport::failing(folder + " may not be written", "give yourself the right to write it");
  ServiceReport report = ServiceReport::working(folder);
  if (!folders.runtime)
    report.advice =
        "programs of a login that has a runtime folder are not heard: set XDG_RUNTIME_DIR, or choose another bus";
  return report;
}

std::optional<ServiceReport> reportOnEmbedded(std::string_view part, const Configuration& configuration) {
  const std::string chosen = configuration.text(part).value_or("");
  const LinuxPlatformOptions options = embeddedOptions(configuration);
  const UserFolders& folders = options.folders;
  if (chosen == "vdir")
    return reportOnContactsFolder(options.contactsFolder.value_or(folders.data / "contacts"), folders.data);
  if (chosen == "sqlite") return reportOnStoreFile(folders);
  if (chosen == "folder") return reportOnNotifyFolder(folders);
  if (chosen != "none") return std::nullopt;
  if (part == "reachability") return ServiceReport::none("nobody is checked: every friend counts as reachable");
  if (part == "paired-device") return ServiceReport::none("changes stay on this machine");
  return ServiceReport::none("lines go nowhere");
}

}  // namespace pellor
