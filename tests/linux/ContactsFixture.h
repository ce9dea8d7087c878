// A contacts folder and a data folder of a test's own, and what looks into them.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/contacts/internal/ContactFolder.h"
#include "pellor/linux/contacts/internal/ContactIndex.h"
#include "pellor/linux/reachability/IdentityService.h"
#include "pellor/linux/sqlite/SQLiteDatabase.h"
#include "pellor/testing/LogCollector.h"
#include "tests/linux/TemporaryFolder.h"

namespace pellor {

struct ContactsFixture {
  TemporaryFolder folder;
  std::filesystem::path contacts = folder / "contacts";
  std::filesystem::path data = folder / "data";
  std::string region = "DE";
  std::shared_ptr<LogCollector> log = std::make_shared<LogCollector>();

  explicit ContactsFixture(const std::filesystem::path& within = std::filesystem::temp_directory_path())
      : folder(within) {
    std::filesystem::create_directory(contacts);
  }

  static std::string card(const std::string& uid, const std::string& name, const std::string& more = "") {
    const std::string identity = uid.empty() ? "" : "UID:" + uid + "\n";
    return "BEGIN:VCARD\nVERSION:4.0\n" + identity + "FN:" + name + "\n" + more + "END:VCARD\n";
  }

  /// Writes a file in one step, as synchronisers do.
  void put(const std::string& file, const std::string& text) const {
    const std::filesystem::path draft = folder / "draft";
    writeFile(draft, text);
    // The past, so that a look at it does not count as "changed just now".
    std::filesystem::last_write_time(draft, std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    std::filesystem::rename(draft, contacts / file);
  }
  void remove(const std::string& file) const { std::filesystem::remove(contacts / file); }

  ContactIndexOptions options() {
    ContactIndexOptions options;
    options.dataFolder = data;
    options.canonicalForm = [this] { return region; };
    options.canonicalDestination = [this](std::string_view destination) {
      IdentityService service([this]() -> const std::string& { return region; });
      if (destination.find('@') != std::string_view::npos) return std::string(destination);
      return service.rawAddressForDestination(service.identifierForPhoneNumber(destination).value_or(""));
    };
    return options;
  }
  /// What another program, or a fault, does to the index.
  void executeInIndex(const char* statement) const {
    SQLiteDatabase(data / "contacts-index.sqlite", SQLiteDatabase::Access::readWrite, 10).execute(statement);
  }
  std::shared_ptr<ContactFolder> source() const { return std::make_shared<ContactFolder>(contacts); }
  LogHandle handle() const { return {"org.tapnote.Pellor", "contacts", log}; }
  std::unique_ptr<ContactIndex> openIndex() {
    auto index = std::make_unique<ContactIndex>(options(), source(), handle());
    index->update(FolderChange::all());
    return index;
  }
};

/// "guid=id" of all contacts, by identifier.
inline std::vector<std::string> identitiesIn(ContactIndex& index) {
  std::vector<std::string> identities;
  for (const std::int32_t id : index.allRecordIDs())
    identities.push_back(index.contactWithID(id)->guid + "=" + std::to_string(id));
  return identities;
}

}  // namespace pellor
