// Values in files, which are read and replaced as a whole. For systems with POSIX files and flock.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "pellor/platform/PreferencesStore.h"
#include "pellor/runtime/CBOR.h"

namespace port {

namespace fs = std::filesystem;
using namespace pellor;
using Outcome = PreferenceWriteOutcome;

inline std::int64_t randomNumber() {
  std::random_device device;
  return std::uniform_int_distribution<std::int64_t>(1)(device);
}

inline bool beginsWith(const Array& list, const Array& beginning) {
  return list.size() >= beginning.size() && std::equal(beginning.begin(), beginning.end(), list.begin());
}

/// A folder that no other thread or process has locked, for as long as this object and the process live.
class LockedFolder {
 public:
  explicit LockedFolder(fs::path path) : _path(std::move(path)), _folder(::open(_path.c_str(), O_RDONLY | O_CLOEXEC)) {}
  LockedFolder(const LockedFolder&) = delete;
  ~LockedFolder() { ::close(_folder); }

  /// What the file holds, which is made of `initial` when there is none; absent when it cannot be read.
  std::optional<Value> read(const std::string& file, const Value& initial) const {
    std::error_code ignored;
    if (!_isLocked) return std::nullopt;
    if (fs::status(_path / file, ignored).type() == fs::file_type::not_found) replace(file, initial);
    std::ifstream input(_path / file, std::ios::binary);
    return decodeCBOR(Data(std::istreambuf_iterator<char>(input), {}));
  }
  /// All or nothing, and on the disk when it is written.
  Outcome replace(const std::string& file, const Value& value) const {
    const fs::path draft = _path / (file + ".draft");
    const Data bytes = encodeCBOR(value).value_or(Data());
    const int output = ::open(draft.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const bool isWritten = !bytes.empty() && ::write(output, bytes.data(), bytes.size()) == std::ssize(bytes);
    const bool isFlushed = isWritten && ::fsync(output) == 0;
    ::close(output);
    if (!isFlushed || ::rename(draft.c_str(), (_path / file).c_str()) != 0) return Outcome::failed;
    return ::fsync(_folder) == 0 ? Outcome::written : Outcome::unknown;
  }

 private:
  const fs::path _path;
  const int _folder;
  const bool _isLocked = ::flock(_folder, LOCK_EX) == 0;
};

}  // namespace port
