// Values in files, which are read and replaced as a whole. For systems with POSIX files and flock.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <bit>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "pellor/platform/PreferencesStore.h"

namespace port {

namespace fs = std::filesystem;
using namespace pellor;
using Outcome = PreferenceWriteOutcome;

inline std::int64_t randomNumber() {
  std::random_device device;
  return std::uniform_int_distribution<std::int64_t>(1)(device);
}

/// The letter of the kind, a number (the value or its size), a colon, and the text or the elements: those of a
/// dictionary are keys and values in turn.
inline std::string encoded(const Value& value) {
  const auto head = [](char kind, auto number) { return kind + std::to_string(number) + ':'; };
  if (const auto boolean = value.boolean()) return head('b', int{*boolean});
  if (const auto integer = value.integer()) return head('i', *integer);
  if (const auto real = value.real()) return head('r', std::bit_cast<std::int64_t>(*real));
  if (const auto date = value.date()) return head('t', std::bit_cast<std::int64_t>(date->seconds));
  if (const auto* text = value.string()) return head('s', text->size()) + *text;
  if (const auto* data = value.data()) return head('d', data->size()) + std::string(data->begin(), data->end());
  Array elements = value.array() ? *value.array() : Array();
  for (const auto& [key, element] : value.dictionary() ? *value.dictionary() : Dictionary())
    elements.insert(elements.end(), {key, element});
  std::string bytes = head(value.array() ? 'a' : 'm', elements.size());
  for (const Value& element : elements) bytes += encoded(element);
  return bytes;
}

/// The next value; `bytes` fail when they are none.
inline Value decodeNext(std::istream& bytes) {
  char kind = 0, colon = 0;
  std::int64_t number = 0;
  bytes.get(kind) >> number >> colon;
  if (colon != ':' || std::string("birtsdam").find(kind) == std::string::npos) bytes.setstate(std::ios::failbit);
  if (kind == 'b') return number != 0;
  if (kind == 'i') return number;
  if (kind == 'r') return std::bit_cast<double>(number);
  if (kind == 't') return Date{std::bit_cast<double>(number)};
  std::string text;
  Array elements;
  for (; bytes && number > 0; --number)
    kind == 's' || kind == 'd' ? text.push_back(static_cast<char>(bytes.get())) : elements.push_back(decodeNext(bytes));
  if (kind == 's') return text;
  if (kind == 'd') return Data(text.begin(), text.end());
  if (kind == 'a') return elements;
  Dictionary dictionary;
  for (std::size_t at = 0; at + 1 < elements.size(); at += 2)
    if (elements[at].string()) dictionary.emplace(*elements[at].string(), elements[at + 1]);
  return dictionary;
}

/// Absent when these are not the bytes of one value.
inline std::optional<Value> decoded(std::istream&& bytes) {
  const Value value = decodeNext(bytes);
  return bytes && bytes.peek() == EOF ? std::optional(value) : std::nullopt;
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
    return decoded(std::ifstream(_path / file, std::ios::binary));
  }
  /// All or nothing, and on the disk when it is written.
  Outcome replace(const std::string& file, const Value& value) const {
    const fs::path draft = _path / (file + ".draft");
    const std::string bytes = encoded(value);
    const int output = ::open(draft.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const bool isFlushed = ::write(output, bytes.data(), bytes.size()) == std::ssize(bytes) && ::fsync(output) == 0;
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
