#include "fuzz/WorkFolder.h"

#include <unistd.h>

#include <fstream>
#include <string>

#include "pellor/runtime/Fatal.h"

namespace pellor::fuzzing {

namespace fs = std::filesystem;

WorkFolder::WorkFolder() {
  std::string name = (fs::temp_directory_path() / "pellor-fuzz-XXXXXX").string();
  require(::mkdtemp(name.data()) != nullptr, "a folder for files");
  _path = name;
}

WorkFolder::~WorkFolder() {
  std::error_code ignored;
  fs::remove_all(_path, ignored);
}

WorkFolder& WorkFolder::ofProgram() {
  static WorkFolder folder;
  return folder;
}

fs::path WorkFolder::write(std::string_view name, Bytes content) const {
  const fs::path file = _path / name;
  std::ofstream stream(file, std::ios::binary | std::ios::trunc);
  stream.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
  stream.close();
  require(static_cast<bool>(stream), "a file that can be written");
  return file;
}

}  // namespace pellor::fuzzing
