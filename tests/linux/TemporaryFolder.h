// A folder of a test's own.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace pellor {

/// Removed with everything in it at the end.
class TemporaryFolder {
 public:
  TemporaryFolder() : TemporaryFolder(std::filesystem::temp_directory_path()) {}
  explicit TemporaryFolder(const std::filesystem::path& within) {
    std::string pattern = (within / "pellor-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) ADD_FAILURE() << "no temporary folder";
    _path = pattern;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  /// Where files are in memory, for tests that write very many; the usual place where there is no such folder.
  static std::filesystem::path memory() {
    const std::filesystem::path folder = "/dev/shm";
    return ::access(folder.c_str(), W_OK) == 0 ? folder : std::filesystem::temp_directory_path();
  }

  const std::filesystem::path& path() const { return _path; }
  std::filesystem::path operator/(std::string_view name) const { return _path / name; }

 private:
  std::filesystem::path _path;
};

inline std::string contentOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

inline void writeFile(const std::filesystem::path& file, std::string_view content) {
  std::ofstream(file, std::ios::binary | std::ios::trunc) << content;
}

/// The permission bits.
inline unsigned modeOf(const std::filesystem::path& path) {
  struct stat found {};
  return ::stat(path.c_str(), &found) == 0 ? found.st_mode & 07777u : 0;
}

}  // namespace pellor
