// Files that are read and replaced as a whole, and values as bytes. For systems with POSIX files and flock.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <string_view>

#include "pellor/platform/PreferencesStore.h"

namespace port {

namespace fs = std::filesystem;
using pellor::Value;

/// A file descriptor, closed at the end.
class Descriptor {
 public:
  explicit Descriptor(int number) : _number(number) {}
  ~Descriptor() {
    if (_number >= 0) ::close(_number);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int number() const { return _number; }

 private:
  const int _number;
};

/// Keeps other threads and processes out while it lives; the system ends it with the process.
class FileLock {
 public:
  explicit FileLock(const fs::path& file) : _file(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    int result = -1;
    do result = ::flock(_file.number(), LOCK_EX);
    while (result != 0 && errno == EINTR);
    _isHeld = result == 0;
  }
  bool isHeld() const { return _isHeld; }

 private:
  const Descriptor _file;
  bool _isHeld = false;
};

namespace detail {

inline bool writeAll(int file, std::string_view bytes) {
  while (file >= 0 && !bytes.empty()) {
    const ssize_t written = ::write(file, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return file >= 0 && ::fsync(file) == 0;
}

inline void addNumber(std::string& bytes, char kind, std::int64_t number) {
  bytes += kind + std::to_string(number) + ':';
}

inline void addText(std::string& bytes, char kind, std::string_view text) {
  addNumber(bytes, kind, static_cast<std::int64_t>(text.size()));
  bytes += text;
}

inline bool add(std::string& bytes, const Value& value, std::size_t depth) {
  if (depth > pellor::DeepestPreference) return false;
  if (const auto boolean = value.boolean()) return addNumber(bytes, 'b', *boolean), true;
  if (const auto integer = value.integer()) return addNumber(bytes, 'i', *integer), true;
  if (const auto real = value.real()) return addNumber(bytes, 'r', std::bit_cast<std::int64_t>(*real)), true;
  if (const auto date = value.date()) return addNumber(bytes, 't', std::bit_cast<std::int64_t>(date->seconds)), true;
  if (const auto* string = value.string()) return addText(bytes, 's', *string), true;
  if (const auto* data = value.data()) return addText(bytes, 'd', std::string(data->begin(), data->end())), true;
  if (const auto* array = value.array()) {
    addNumber(bytes, 'a', static_cast<std::int64_t>(array->size()));
    for (const Value& element : *array)
      if (!add(bytes, element, depth + 1)) return false;
    return true;
  }
  addNumber(bytes, 'm', static_cast<std::int64_t>(value.dictionary()->size()));
  for (const auto& [key, element] : *value.dictionary()) {
    addText(bytes, 's', key);
    if (!add(bytes, element, depth + 1)) return false;
  }
  return true;
}

inline std::optional<Value> take(std::string_view& bytes, std::size_t depth) {
  std::int64_t number = 0;
  const char* const end = bytes.data() + bytes.size();
  if (bytes.size() < 3 || depth > pellor::DeepestPreference) return std::nullopt;
  const char kind = bytes.front();
  const auto [after, error] = std::from_chars(bytes.data() + 1, end, number);
  if (error != std::errc() || after == end || *after != ':') return std::nullopt;
  bytes = {after + 1, end};
  if (kind == 'b') return Value(number != 0);
  if (kind == 'i') return Value(number);
  if (kind == 'r') return Value(std::bit_cast<double>(number));
  if (kind == 't') return Value(pellor::Date{std::bit_cast<double>(number)});
  if (number < 0 || static_cast<std::size_t>(number) > bytes.size()) return std::nullopt;
  const std::string_view text = bytes.substr(0, static_cast<std::size_t>(number));
  if (kind == 's' || kind == 'd') bytes.remove_prefix(text.size());
  if (kind == 's') return Value(text);
  if (kind == 'd') return Value(pellor::Data(text.begin(), text.end()));
  pellor::Array array;
  pellor::Dictionary dictionary;
  for (; number > 0; --number) {
    const auto key = kind == 'm' ? take(bytes, depth + 1) : std::nullopt;
    auto element = take(bytes, depth + 1);
    if (!element || (kind == 'm' && !(key && key->string()))) return std::nullopt;
    kind == 'm' ? void(dictionary.emplace(*key->string(), *element)) : array.push_back(*std::move(element));
  }
  if (kind == 'a') return Value(std::move(array));
  if (kind == 'm') return Value(std::move(dictionary));
  return std::nullopt;
}

}  // namespace detail

/// None when there is no such file in its folder; unreadable when the folder is gone, too.
inline pellor::Answer<std::string> readFile(const fs::path& path) {
  using Bytes = pellor::Answer<std::string>;
  std::error_code ignored;
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.number() < 0)
    return errno == ENOENT && fs::is_directory(path.parent_path(), ignored) ? Bytes::none() : Bytes::unreadable();
  std::string bytes, part(1 << 16, 0);
  while (const ssize_t count = ::read(file.number(), part.data(), part.size())) {
    if (count < 0 && errno != EINTR) return Bytes::unreadable();
    if (count > 0) bytes.append(part, 0, static_cast<std::size_t>(count));
  }
  return Bytes::some(std::move(bytes));
}

enum class Replaced { yes, no, unknown };
/// Puts these bytes in place of the file's, all or none, and returns when they are on the disk. Unknown: they are
/// there, and may be gone after the next start of the system. The caller holds the lock that goes with the file.
inline Replaced replaceFile(const fs::path& file, std::string_view bytes) {
  const std::string draft = file.string() + ".draft";
  if (!detail::writeAll(Descriptor(::open(draft.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)).number(),
                        bytes) ||
      ::rename(draft.c_str(), file.c_str()) != 0)
    return Replaced::no;
  const Descriptor folder(::open(file.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return folder.number() >= 0 && ::fsync(folder.number()) == 0 ? Replaced::yes : Replaced::unknown;
}

/// Absent for a value that is nested too deep.
inline std::optional<std::string> encoded(const Value& value) {
  std::string bytes;
  return detail::add(bytes, value, 0) ? std::optional(std::move(bytes)) : std::nullopt;
}

/// Absent when these are not the bytes of a value.
inline std::optional<Value> decoded(std::string_view bytes) {
  auto value = detail::take(bytes, 0);
  return bytes.empty() ? value : std::nullopt;
}

/// Any text as a part of a file's name.
inline std::string hex(std::string_view text) {
  std::string digits;
  for (const char byte : text)
    for (const int half : {(byte >> 4) & 15, byte & 15}) digits += "0123456789abcdef"[half];
  return digits;
}

/// Not 0.
inline std::int64_t randomNumber() {
  std::random_device device;
  return static_cast<std::int64_t>(std::uint64_t{device()} << 31 | device() | 1);
}

}  // namespace port
