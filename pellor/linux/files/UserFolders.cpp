#include "pellor/linux/files/UserFolders.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

#include "pellor/linux/files/internal/PrivatePlace.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

constexpr const char* Name = "pellor";

std::optional<fs::path> absolutePath(const Environment& environment, const char* variable) {
  const std::optional<std::string> value = environment(variable);
  if (!value || !value->starts_with('/')) return std::nullopt;
  return fs::path(*value);
}

fs::path homeOfUserDatabase() {
  std::array<char, 16384> buffer;
  passwd entry;
  passwd* found = nullptr;
  if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found) return "/";
  return found->pw_dir;
}

std::optional<fs::path> runtimeFolder(const Environment& environment) {
  const std::optional<fs::path> folder = absolutePath(environment, "XDG_RUNTIME_DIR");
  struct stat found {};
  if (!folder || ::stat(folder->c_str(), &found) != 0) return std::nullopt;
  const bool isPrivate = S_ISDIR(found.st_mode) && found.st_uid == ::getuid() && (found.st_mode & 077) == 0;
  if (!isPrivate) return std::nullopt;
  return *folder / Name;
}

}  // namespace

std::optional<std::string> processEnvironment(const char* name) {
  const char* value = std::getenv(name);
  if (!value) return std::nullopt;
  return value;
}

fs::path UserFolders::notify() const { return runtime.value_or(state) / "notify"; }

UserFolders UserFolders::behindLinks() const {
  UserFolders folders = *this;
  folders.data = placeBehindLinks(data);
  folders.state = placeBehindLinks(state);
  if (runtime) folders.runtime = placeBehindLinks(*runtime);
  return folders;
}

UserFolders UserFolders::find(const Environment& environment) {
  const std::optional<fs::path> variable = absolutePath(environment, "HOME");
  const fs::path home = variable ? *variable : homeOfUserDatabase();
  UserFolders folders;
  folders.data = absolutePath(environment, "XDG_DATA_HOME").value_or(home / ".local/share") / Name;
  folders.config = absolutePath(environment, "XDG_CONFIG_HOME").value_or(home / ".config") / Name;
  folders.state = absolutePath(environment, "XDG_STATE_HOME").value_or(home / ".local/state") / Name;
  folders.runtime = runtimeFolder(environment);
  return folders;
}

}  // namespace pellor
