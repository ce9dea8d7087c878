#include "bench/WorkFolder.h"

#include <stdlib.h>

#include <string>
#include <system_error>

#include "pellor/runtime/Fatal.h"

namespace pellor::bench {

namespace fs = std::filesystem;

WorkFolder::WorkFolder() {
  const fs::path parent = lastingFolder("work");
  fs::create_directories(parent);
  std::string pattern = (parent / "XXXXXX").string();
  require(::mkdtemp(pattern.data()) != nullptr, "a folder in " PELLOR_BENCH_FOLDER);
  _path = pattern;
}

WorkFolder::~WorkFolder() {
  std::error_code ignored;
  fs::remove_all(_path, ignored);
}

UserFolders foldersOf(const fs::path& home) {
  return {.data = home / "data", .config = home / "config", .state = home / "state", .runtime = home / "run"};
}

fs::path lastingFolder(std::string_view name) { return fs::path(PELLOR_BENCH_FOLDER) / name; }

}  // namespace pellor::bench
