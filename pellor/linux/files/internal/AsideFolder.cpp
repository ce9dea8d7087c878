#include "pellor/linux/files/internal/AsideFolder.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <string>

#include "pellor/linux/files/internal/PrivatePlace.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

std::string utcTime() {
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm parts{};
  ::gmtime_r(&now, &parts);
  char text[sizeof "20010101T000000Z"];
  std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts);
  return text;
}

// The first, second and further names for what is put aside in one second.
std::string numbered(const std::string& name, int number) {
  return number == 1 ? name : name + "-" + std::to_string(number);
}

bool holdsExactly(const fs::path& file, const Data& bytes) {
  const auto content = PrivateFile(file).read(bytes.size()).text;
  return content && std::ranges::equal(bytes, *content, {}, {}, [](char read) { return std::uint8_t(read); });
}

bool isKeptAlready(const fs::path& folder, const std::string& prefix, const Data& bytes) {
  return std::ranges::any_of(namesIn(folder), [&](const std::string& name) {
    return name.starts_with(prefix) && holdsExactly(folder / name, bytes);
  });
}

}  // namespace

bool keepAside(const fs::path& folder, std::string_view key, std::string_view domain, const Data& bytes) {
  const std::string prefix = fileNameOf(key) + "-" + fileNameOf(domain) + "-";
  if (isKeptAlready(folder, prefix, bytes)) return true;
  if (PrivateFolder(folder).make()) return false;
  const std::string name = prefix + utcTime();
  constexpr int attempts = 1000;
  for (int attempt = 1; attempt <= attempts; ++attempt) {
    const FileCreation creation = PrivateFile(folder / (numbered(name, attempt) + ".cbor")).create(bytes);
    if (creation != FileCreation::exists) return creation == FileCreation::created;
  }
  return false;
}

std::optional<fs::path> moveDatabaseAside(const fs::path& database, const fs::path& place) {
  const std::string dated = place.string() + "-" + utcTime();
  fs::path free = dated;
  std::error_code error;
  for (int number = 2; fs::exists(fs::symlink_status(free, error)); ++number) free = numbered(dated, number);
  fs::rename(database, free, error);
  if (error) return std::nullopt;
  // A new database must not find them. Those of a database that was closed are not there.
  for (const char* suffix : {"-wal", "-shm"}) fs::rename(database.string() + suffix, free.string() + suffix, error);
  return free;
}

bool moveAside(const fs::path& folder, const fs::path& database) {
  if (PrivateFolder(folder).make()) return false;
  return moveDatabaseAside(database, folder / database.filename()).has_value();
}

}  // namespace pellor
