#include "linux/StoreCopies.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <xxhash.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <limits>

#include "linux/CBORValue.h"
#include "linux/EncodedRun.h"
#include "linux/PrivateFiles.h"
#include "linux/RegularFile.h"
#include "runtime/LongArray.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view Magic = "pellor copy 1\n";
constexpr std::size_t ChecksumSize = 8;
constexpr std::string_view Suffix = ".copy", Newest = "newest", Hour = "hour-", Day = "day-", Replaced = "replaced-";
constexpr std::size_t HoursKept = 5, DaysKept = 7, ReplacedKept = 5;

std::string timeText(double date, const char* format) {
  const auto time = static_cast<std::time_t>(std::floor(date + SecondsFrom1970To2001));
  std::tm parts{};
  ::localtime_r(&time, &parts);
  std::array<char, 64> text{};
  std::strftime(text.data(), text.size(), format, &parts);
  return text.data();
}

// Of the file, so that nobody has to read a long list for it.
void setDate(const fs::path& file, double date) {
  const double time = date + SecondsFrom1970To2001;
  const double seconds = std::floor(time);
  const timespec changed{static_cast<std::time_t>(seconds), static_cast<long>((time - seconds) * 1e9)};
  const std::array<timespec, 2> times = {changed, changed};
  static_cast<void>(::utimensat(AT_FDCWD, file.c_str(), times.data(), 0));
}

std::string checksumOf(std::string_view content) {
  const std::uint64_t number = XXH3_64bits(content.data(), content.size());
  std::string checksum;
  for (std::size_t index = 0; index < ChecksumSize; ++index) {
    checksum += static_cast<char>(static_cast<unsigned char>(number >> (8 * index)));
  }
  return checksum;
}

Value encodedForm(const StoreCopy::Content& content) {
  if (content.runs.empty()) return content.bytes;
  Array runs;
  for (const auto& run : content.runs) {
    const auto bytes = bytesOf(*run);
    runs.emplace_back(Data(bytes.begin(), bytes.end()));
  }
  return runs;
}

std::optional<std::string> fileContent(const StoreCopy& copy) {
  Array values;
  for (const auto& [name, content] : copy.values) {
    values.emplace_back(Dictionary{{"Domain", name.first}, {"Key", name.second}, {"Content", encodedForm(content)}});
  }
  const auto bytes = encodeCBOR(Dictionary{{"Store", static_cast<std::int64_t>(copy.store)},
                                           {"Date", copy.date},
                                           {"Friends", static_cast<std::int64_t>(copy.friends)},
                                           {"Values", values}});
  if (!bytes) return std::nullopt;
  const std::string content(bytes->begin(), bytes->end());
  return std::string(Magic) + checksumOf(content) + content;
}

template <class T>
T numberIn(const Dictionary& dictionary, const char* key) {
  const auto found = dictionary.find(key);
  if (found == dictionary.end()) return 0;
  if (const auto real = found->second.real()) return static_cast<T>(*real);
  return static_cast<T>(found->second.integer().value_or(0));
}

std::optional<StoreCopy::Content> contentIn(const Value& value) {
  if (const Data* bytes = value.data()) return StoreCopy::Content{*bytes, {}};
  const Array* encoded = value.array();
  if (!encoded) return std::nullopt;
  StoreCopy::Content content;
  for (const Value& each : *encoded) {
    const Data* bytes = each.data();
    auto run = bytes ? EncodedRun::decode(*bytes) : nullptr;
    if (!run) return std::nullopt;
    content.runs.push_back(std::move(run));
  }
  return content;
}

bool takeValue(const Value& value, StoreCopy& copy) {
  const Dictionary* entry = value.dictionary();
  if (!entry) return false;
  const auto domain = entry->find("Domain"), key = entry->find("Key"), content = entry->find("Content");
  if (domain == entry->end() || key == entry->end() || content == entry->end()) return false;
  auto taken = contentIn(content->second);
  if (!taken || !domain->second.string() || !key->second.string()) return false;
  copy.values.insert_or_assign({*domain->second.string(), *key->second.string()}, *std::move(taken));
  return true;
}

std::optional<StoreCopy> copyIn(std::string_view text) {
  if (!text.starts_with(Magic) || text.size() < Magic.size() + ChecksumSize) return std::nullopt;
  const std::string_view checksum = text.substr(Magic.size(), ChecksumSize);
  const std::string_view content = text.substr(Magic.size() + ChecksumSize);
  if (checksum != checksumOf(content)) return std::nullopt;
  const auto form = decodeCBOR(std::span(reinterpret_cast<const std::uint8_t*>(content.data()), content.size()));
  const Dictionary* dictionary = form ? form->dictionary() : nullptr;
  if (!dictionary) return std::nullopt;
  StoreCopy copy{numberIn<std::uint64_t>(*dictionary, "Store"),
                 numberIn<double>(*dictionary, "Date"),
                 numberIn<std::uint64_t>(*dictionary, "Friends"),
                 {}};
  const auto values = dictionary->find("Values");
  const Array* all = values == dictionary->end() ? nullptr : values->second.array();
  if (!all) return std::nullopt;
  const bool isWhole = std::ranges::all_of(*all, [&](const Value& value) { return takeValue(value, copy); });
  return isWhole ? std::optional(std::move(copy)) : std::nullopt;
}

std::string purposeOf(std::string_view name) {
  if (name == Newest) return "the last change";
  if (name.starts_with(Hour)) return "the first change of its hour";
  if (name.starts_with(Day)) return "the first change of its day";
  return "what a copy took the place of";
}

}  // namespace

std::string dateText(double date) { return timeText(date, "%Y-%m-%d %H:%M"); }

std::string friendsText(std::uint64_t friends) {
  return std::to_string(friends) + (friends == 1 ? " friend" : " friends");
}

std::optional<Value> StoreCopy::valueOf(const Content& content) {
  if (!content.runs.empty()) return LongArray(content.runs);
  return decodeCBOR(content.bytes);
}

fs::path StoreCopies::fileOf(std::string_view name) const { return _folder / (std::string(name).append(Suffix)); }

std::vector<std::string> StoreCopies::names() const {
  std::vector<std::string> names;
  for (const std::string& file : namesIn(_folder)) {
    if (file.starts_with('.') || !file.ends_with(Suffix)) continue;
    names.push_back(file.substr(0, file.size() - Suffix.size()));
  }
  return names;
}

// The newest is replaced by renaming, so what the other name leads to stays as it is.
std::optional<std::string> StoreCopies::keep(const StoreCopy& copy) const {
  if (auto error = createPrivateFolder(_folder)) return error;
  const auto content = fileContent(copy);
  if (!content) return "the store holds too much for a copy";
  if (auto error = replacePrivateFile(fileOf(Newest), *content)) return error;
  setDate(fileOf(Newest), copy.date);
  const std::string hour = std::string(Hour) + timeText(copy.date, "%Y%m%dT%H");
  const std::string day = std::string(Day) + timeText(copy.date, "%Y%m%d");
  for (const std::string& name : {hour, day}) {
    // One that is there stays.
    static_cast<void>(::link(fileOf(Newest).c_str(), fileOf(name).c_str()));
  }
  prune(Hour, HoursKept);
  prune(Day, DaysKept);
  return std::nullopt;
}

std::optional<std::string> StoreCopies::keepReplaced(const StoreCopy& copy) const {
  if (auto error = createPrivateFolder(_folder)) return error;
  const auto content = fileContent(copy);
  if (!content) return "the store holds too much for a copy";
  const std::string name = std::string(Replaced) + timeText(copy.date, "%Y%m%dT%H%M%S");
  if (auto error = replacePrivateFile(fileOf(name), *content)) return error;
  prune(Replaced, ReplacedKept);
  return std::nullopt;
}

// Names of one kind go by date.
void StoreCopies::prune(std::string_view prefix, std::size_t count) const {
  std::vector<std::string> kept;
  for (std::string& name : names()) {
    if (name.starts_with(prefix)) kept.push_back(std::move(name));
  }
  std::ranges::sort(kept, std::greater());
  for (std::size_t index = count; index < kept.size(); ++index) ::unlink(fileOf(kept[index]).c_str());
}

std::optional<StoreCopy> StoreCopies::read(std::string_view name) const {
  const std::vector<std::string> known = names();
  if (std::ranges::find(known, name) == known.end()) return std::nullopt;
  constexpr std::size_t longest = std::numeric_limits<std::int32_t>::max();
  const auto content = readRegularFile(fileOf(name), longest);
  return content.text ? copyIn(*content.text) : std::nullopt;
}

std::vector<StoreCopies::Entry> StoreCopies::list() const {
  std::vector<Entry> entries;
  for (const std::string& name : names()) {
    const auto copy = read(name);
    entries.push_back({name, purposeOf(name), copy ? copy->date : 0, copy ? copy->friends : 0, copy.has_value()});
  }
  std::ranges::sort(entries, [](const Entry& one, const Entry& other) {
    return one.date != other.date ? one.date > other.date : one.name > other.name;
  });
  return entries;
}

std::optional<StoreCopy> StoreCopies::newest() const {
  if (auto copy = read(Newest)) return copy;
  std::optional<StoreCopy> newest;
  for (const std::string& name : names()) {
    if (name.starts_with(Replaced)) continue;
    auto copy = read(name);
    if (copy && (!newest || copy->date > newest->date)) newest = std::move(copy);
  }
  return newest;
}

std::optional<double> StoreCopies::dateOfNewest() const {
  struct stat found {};
  if (::stat(fileOf(Newest).c_str(), &found) != 0) return std::nullopt;
  return static_cast<double>(found.st_mtim.tv_sec) + static_cast<double>(found.st_mtim.tv_nsec) / 1e9 -
         SecondsFrom1970To2001;
}

}  // namespace pellor
