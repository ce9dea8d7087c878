#include "pellor/linux/EmbeddedReports.h"

#include <sqlite3.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "pellor/linux/Configuration.h"
#include "pellor/linux/LinuxPlatform.h"
#include "pellor/linux/contacts/internal/CardSurvey.h"
#include "pellor/linux/contacts/internal/ContactFile.h"
#include "pellor/linux/contacts/internal/RefreshMemory.h"
#include "pellor/linux/files/UserFolders.h"
#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/linux/preferences/StoreCopies.h"
#include "pellor/linux/preferences/StoreRegion.h"
#include "pellor/linux/preferences/internal/PreferencesDatabase.h"
#include "pellor/linux/preferences/internal/SQLitePreferences.h"
#include "pellor/runtime/WallClock.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

bool isThere(const fs::path& path) {
  std::error_code ignored;
  return fs::exists(path, ignored);
}

constexpr const char* RightToWrite = "give yourself the right to write it";

std::string mayNotBeWritten(const fs::path& path) { return path.string() + " may not be written"; }

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

/// What a look into the store says.
struct StoreLook {
  std::string error;                 ///< empty: it can be read
  std::vector<std::string> remarks;  ///< what else is to be known
  std::optional<std::string> region;
};

StoreLook lookInto(const UserFolders& folders) {
  SQLitePreferences store(folders.data, folders.config / "defaults.json", {"", "", nullptr},
                          SQLitePreferences::Access::readOnly);
  if (!store.copyOfStore(0)) return {store.lastError(), {}, {}};
  return {"", store.takeRemarks(), StoreRegion::stored(store)};
}

ServiceReport reportOnNewStore(const std::string& name, const std::optional<std::string>& region) {
  const RegionProposal proposal = proposedRegion(region);
  ServiceReport report = withRegion(ServiceReport::working(name + ", not made yet"), proposal.region);
  if (proposal.isAssumed) report.advice = "no locale names a country: name one (region), if it is another one";
  return report;
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

ServiceReport withRegion(ServiceReport report, const std::optional<std::string>& region) {
  if (report.state == ServiceReport::State::works && region)
    report.detail += "; national numbers are read as in " + *region;
  return report;
}

ServiceReport withCopies(ServiceReport report, const StoreCopies& copies) {
  const auto newest = copies.newest();
  if (!newest) return report;
  const std::string which = dateText(newest->date) + " with " + friendsText(newest->friends);
  if (report.state == ServiceReport::State::works) {
    report.detail += "; the newest copy is of " + which;
  } else {
    report.advice +=
        (report.advice.empty() ? "" : "; or ") + ("take a copy back, the newest is of " + which) + ": pellor backup";
  }
  return report;
}

ServiceReport reportOnContactsFolder(const fs::path& contacts, const fs::path& dataFolder) {
  const auto source = contactsAt(contacts);
  try {
    CardSurvey survey = surveyCards(*source);
    ServiceReport report = ServiceReport::working(source->name() + ": " + counted(survey.contacts, "card", "cards"));
    if (!survey.unusable.empty())
      report.detail += ", and " + counted(survey.unusable.size(), "that gives", "that give") + " no contact";
    report = withHeldRefresh(std::move(report), dataFolder, source->name(), survey.contacts);
    report.remarks = std::move(survey.unusable);
    return report;
  } catch (const CardSourceError& error) {
    return ServiceReport::failing(
        error.what(), error.remedy() == CardSourceError::Remedy::toldOf
                          ? "put vCard files there (pellor contacts import FILE), or name another folder (--contacts)"
                          : "give yourself the right to read the folder");
  } catch (const std::runtime_error& error) {
    return ServiceReport::failing(std::string("cards cannot be read: ") + error.what(), "install the vCard library");
  }
}

ServiceReport reportOnStoreFile(const UserFolders& folders, const std::optional<std::string>& region) {
  const fs::path file = PreferencesDatabase::fileIn(folders.data);
  const std::string name = file.string() + " (SQLite " + sqlite3_libversion() + ")";
  const StoreCopies copies(folders.data / StoreCopies::FolderName);
  if (!isThere(file)) {
    if (!mayWriteIn(folders.data)) return ServiceReport::failing(mayNotBeWritten(file), RightToWrite);
    return withCopies(reportOnNewStore(name, region), copies);
  }
  const StoreLook look = lookInto(folders);
  if (!look.error.empty()) {
    const std::string advice = "put a backup in its place, or name another folder (--data)";
    return withCopies(ServiceReport::failing(file.string() + ": " + look.error, advice), copies);
  }
  if (!mayWriteIn(folders.data) || !mayWrite(file)) return ServiceReport::failing(mayNotBeWritten(file), RightToWrite);
  ServiceReport report = withCopies(withRegion(ServiceReport::working(name), look.region), copies);
  for (const std::string& remark : look.remarks) report.detail += "; " + remark;
  return report;
}

ServiceReport reportOnNotifyFolder(const UserFolders& folders) {
  const std::string folder = folders.notify().string();
  if (!mayWriteIn(folders.notify())) return ServiceReport::failing(mayNotBeWritten(folder), RightToWrite);
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
  if (chosen == "sqlite") return reportOnStoreFile(folders, options.region);
  if (chosen == "folder") return reportOnNotifyFolder(folders);
  if (chosen != "none") return std::nullopt;
  if (part == "reachability") return ServiceReport::none("nobody is checked: every friend counts as reachable");
  if (part == "paired-device") return ServiceReport::none("changes stay on this machine");
  return ServiceReport::none("lines go nowhere");
}

}  // namespace pellor
