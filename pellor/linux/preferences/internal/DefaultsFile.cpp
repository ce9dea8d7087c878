#include "pellor/linux/preferences/internal/DefaultsFile.h"

#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

#include "pellor/linux/files/internal/RegularFile.h"

namespace pellor {
namespace {

using Json = nlohmann::json;

std::optional<Value> valueOf(const Json& json);

Value arrayOf(const Json& json) {
  Array array;
  for (const Json& element : json) {
    if (auto value = valueOf(element)) array.push_back(*std::move(value));
  }
  return Value(std::move(array));
}

Value dictionaryOf(const Json& json) {
  Dictionary dictionary;
  for (const auto& [key, element] : json.items()) {
    if (auto value = valueOf(element)) dictionary.insert_or_assign(key, *std::move(value));
  }
  return Value(std::move(dictionary));
}

Value integerOf(std::uint64_t number) {
  const bool isTooLarge = number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  return isTooLarge ? Value(static_cast<double>(number)) : Value(static_cast<std::int64_t>(number));
}

std::optional<Value> valueOf(const Json& json) {
  switch (json.type()) {
    case Json::value_t::boolean:
      return Value(json.get<bool>());
    case Json::value_t::number_integer:
      return Value(json.get<std::int64_t>());
    case Json::value_t::number_unsigned:
      return integerOf(json.get<std::uint64_t>());
    case Json::value_t::number_float:
      return Value(json.get<double>());
    case Json::value_t::string:
      return Value(json.get<std::string>());
    case Json::value_t::array:
      return arrayOf(json);
    case Json::value_t::object:
      return dictionaryOf(json);
    default:
      return std::nullopt;
  }
}

}  // namespace

DefaultsFile::DefaultsFile(std::filesystem::path file, LogHandle log) : _file(std::move(file)), _log(std::move(log)) {}

std::optional<Value> DefaultsFile::value(std::string_view key, std::string_view domain) {
  const MutexLock lock(_mutex);
  readIfChanged();
  const Value* settings = valueForKey(_domains, domain);
  if (!settings || !settings->dictionary()) return std::nullopt;
  const Value* found = valueForKey(*settings->dictionary(), key);
  return found ? std::optional(*found) : std::nullopt;
}

std::optional<DefaultsFile::Stamp> DefaultsFile::stampOfFile() const {
  std::error_code error;
  Stamp stamp;
  stamp.changed = std::filesystem::last_write_time(_file, error);
  if (!error) stamp.size = std::filesystem::file_size(_file, error);
  // A folder in its place has a time but no size that counts; it is read and then reported.
  return stamp.changed == std::filesystem::file_time_type::min() ? std::nullopt : std::optional(stamp);
}

void DefaultsFile::readIfChanged() {
  const std::optional<Stamp> stamp = stampOfFile();
  if (stamp == _stamp) return;
  _stamp = stamp;
  _domains.clear();
  if (!stamp) return;
  const FileContent content = readRegularFile(_file);
  if (!content.text) return _log.log("nothing in the defaults file counts: %@", content.problem);
  const Json json = Json::parse(*content.text, nullptr, /* allow_exceptions */ false);
  if (!json.is_object()) {
    _log.log("the defaults file %@ is no JSON dictionary, nothing in it counts", _file.string());
    return;
  }
  _domains = *dictionaryOf(json).dictionary();
}

}  // namespace pellor
