#include "pellor/linux/preferences/StoreCopies.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <xxhash.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <limits>

#include "pellor/linux/files/internal/PrivatePlace.h"
#include "pellor/linux/preferences/internal/EncodedChunk.h"
#include "pellor/runtime/CBOR.h"
#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/WallClock.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view Magic = "pellor copy 2\n";
constexpr std::size_t NumberSize = 8;
// Of the beginning of a file, in which all is that it tells without its values.
constexpr std::size_t LongestHead = 64 * 1024;
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
  static_cast<void>(::utimensat(AT_FDCWD, file.c_str(), times.data(), AT_SYMLINK_NOFOLLOW));
}

std::string bytesOfNumber(std::uint64_t number) {
  std::string bytes;
  for (std::size_t index = 0; index < NumberSize; ++index) {
    bytes += static_cast<char>(static_cast<unsigned char>(number >> (8 * index)));
  }
  return bytes;
}

std::uint64_t numberIn(std::string_view bytes) {
  std::uint64_t number = 0;
  for (std::size_t index = NumberSize; index-- > 0;) number = number << 8 | static_cast<unsigned char>(bytes[index]);
  return number;
}

/// A part of the file: its checksum, its length and itself.
std::string partOf(const Data& content) {
  const std::string length = bytesOfNumber(content.size());
  std::string checked = length;
  checked.append(content.begin(), content.end());
  return bytesOfNumber(XXH3_64bits(checked.data(), checked.size())) + checked;
}

/// Takes the next part from the text. Absent when that is not as it was written.
std::optional<Value> takePart(std::string_view& text) {
  if (text.size() < 2 * NumberSize) return std::nullopt;
  const std::uint64_t checksum = numberIn(text), length = numberIn(text.substr(NumberSize));
  text.remove_prefix(NumberSize);
  if (length > text.size() - NumberSize) return std::nullopt;
  const std::string_view checked = text.substr(0, NumberSize + length);
  if (XXH3_64bits(checked.data(), checked.size()) != checksum) return std::nullopt;
  text.remove_prefix(checked.size());
  const auto* content = reinterpret_cast<const std::uint8_t*>(checked.data()) + NumberSize;
  return decodeCBOR(std::span(content, length));
}

Value encodedForm(const StoreCopy::Content& content) {
  if (content.chunks.empty()) return content.bytes;
  Array chunks;
  for (const auto& chunk : content.chunks) {
    const auto bytes = bytesOf(*chunk);
    chunks.emplace_back(Data(bytes.begin(), bytes.end()));
  }
  return chunks;
}

Value wordOf(std::uint64_t number) { return static_cast<std::int64_t>(number); }

Dictionary formOf(const StoreCopyHead& head) {
  Array counts;
  for (const auto& [name, count] : head.counts) {
    counts.emplace_back(Dictionary{{"Domain", name.first}, {"Key", name.second}, {"Count", wordOf(count)}});
  }
  return {{"Store", wordOf(head.store)},
          {"Date", head.date},
          {"Friends", wordOf(head.friends)},
          {"Removed", wordOf(head.removed)},
          {"Counts", std::move(counts)}};
}

std::optional<std::string> fileContent(const StoreCopy& copy) {
  Array values;
  for (const auto& [name, content] : copy.values) {
    values.emplace_back(Dictionary{{"Domain", name.first}, {"Key", name.second}, {"Content", encodedForm(content)}});
  }
  const auto head = encodeCBOR(formOf(StoreCopyHead::of(copy))), content = encodeCBOR(std::move(values));
  if (!head || !content) return std::nullopt;
  const std::string begin = std::string(Magic) + partOf(*head);
  if (begin.size() > LongestHead) return std::nullopt;
  return begin + partOf(*content);
}

const Value* find(const Dictionary& dictionary, const char* key) {
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? nullptr : &found->second;
}

std::uint64_t wordIn(const Dictionary& dictionary, const char* key) {
  const Value* value = find(dictionary, key);
  return static_cast<std::uint64_t>(value ? value->integer().value_or(0) : 0);
}

std::optional<StoreCopy::Name> nameIn(const Dictionary& entry) {
  const Value *domain = find(entry, "Domain"), *key = find(entry, "Key");
  if (!domain || !key || !domain->string() || !key->string()) return std::nullopt;
  return StoreCopy::Name(*domain->string(), *key->string());
}

std::optional<StoreCopy::Content> contentIn(const Value& value) {
  StoreCopy::Content content;
  if (const Data* bytes = value.data()) {
    content.bytes = *bytes;
    return content;
  }
  const Array* encoded = value.array();
  if (!encoded) return std::nullopt;
  for (const Value& each : *encoded) {
    const Data* bytes = each.data();
    auto chunk = bytes ? EncodedChunk::decode(*bytes) : nullptr;
    if (!chunk) return std::nullopt;
    content.chunks.push_back(std::move(chunk));
  }
  return content;
}

bool takeValue(const Value& value, const StoreCopyHead& head, StoreCopy& copy) {
  const Dictionary* entry = value.dictionary();
  const Value* content = entry ? find(*entry, "Content") : nullptr;
  auto taken = content ? contentIn(*content) : std::nullopt;
  const auto name = entry ? nameIn(*entry) : std::nullopt;
  if (!taken || !name || !head.counts.contains(*name)) return false;
  taken->count = head.counts.at(*name);
  copy.values.insert_or_assign(*name, *std::move(taken));
  return true;
}

// Takes it from the text of the file.
std::optional<StoreCopyHead> takeHead(std::string_view& text) {
  if (!text.starts_with(Magic)) return std::nullopt;
  text.remove_prefix(Magic.size());
  const auto form = takePart(text);
  const Dictionary* dictionary = form ? form->dictionary() : nullptr;
  if (!dictionary) return std::nullopt;
  const Value* date = find(*dictionary, "Date");
  StoreCopyHead head{wordIn(*dictionary, "Store"),
                     date ? date->real().value_or(0) : 0,
                     wordIn(*dictionary, "Friends"),
                     wordIn(*dictionary, "Removed"),
                     {}};
  const Value* counts = find(*dictionary, "Counts");
  const Array* all = counts ? counts->array() : nullptr;
  for (const Value& each : all ? *all : Array()) {
    const Dictionary* entry = each.dictionary();
    if (const auto name = entry ? nameIn(*entry) : std::nullopt) head.counts[*name] = wordIn(*entry, "Count");
  }
  return head;
}

std::optional<StoreCopy> copyIn(std::string_view text) {
  const auto head = takeHead(text);
  if (!head) return std::nullopt;
  const auto values = takePart(text);
  const Array* all = values ? values->array() : nullptr;
  if (!all || !text.empty()) return std::nullopt;
  StoreCopy copy{head->store, head->date, head->friends, head->removed, {}};
  const bool isWhole = std::ranges::all_of(*all, [&](const Value& value) { return takeValue(value, *head, copy); });
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

std::optional<Value> StoreCopy::Content::value() const {
  if (!chunks.empty()) return LongArray(chunks);
  return decodeCBOR(bytes);
}

const StoreCopy::Content* StoreCopy::find(const Name& name) const {
  const auto found = values.find(name);
  return found == values.end() ? nullptr : &found->second;
}

StoreCopyHead StoreCopyHead::of(const StoreCopy& copy) {
  StoreCopyHead head{copy.store, copy.date, copy.friends, copy.removed, {}};
  for (const auto& [name, content] : copy.values) head.counts.emplace(name, content.count);
  return head;
}

bool StoreCopyHead::isLaterThan(const StoreCopyHead& other) const {
  if (store != other.store) return false;
  return std::ranges::any_of(counts, [&](const auto& entry) {
    const auto known = other.counts.find(entry.first);
    return entry.second > (known == other.counts.end() ? other.removed : known->second);
  });
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
  if (auto error = PrivateFolder(_folder).make()) return error;
  const auto content = fileContent(copy);
  if (!content) return "the store holds too much for a copy";
  const auto newest = headOfNewest();
  const bool isLater = newest && newest->isLaterThan(StoreCopyHead::of(copy));
  if (isLater && newest->date >= copy.date) return std::nullopt;
  // The store was put back to an earlier state, or another one is in its place.
  if (isLater || (newest && newest->store != copy.store)) {
    const std::string later = std::string(Replaced) + timeText(newest->date, "%Y%m%dT%H%M%S");
    [[maybe_unused]] const int linked = ::link(fileOf(Newest).c_str(), fileOf(later).c_str());
    prune(Replaced, ReplacedKept);
  }
  if (auto error = PrivateFile(fileOf(Newest)).replace(*content)) return error;
  setDate(fileOf(Newest), copy.date);
  const std::string hour = std::string(Hour) + timeText(copy.date, "%Y%m%dT%H");
  const std::string day = std::string(Day) + timeText(copy.date, "%Y%m%d");
  for (const std::string& name : {hour, day}) {
    // One that is there stays.
    [[maybe_unused]] const int linked = ::link(fileOf(Newest).c_str(), fileOf(name).c_str());
  }
  prune(Hour, HoursKept);
  prune(Day, DaysKept);
  return std::nullopt;
}

std::optional<std::string> StoreCopies::keepReplaced(const StoreCopy& copy) const {
  if (auto error = PrivateFolder(_folder).make()) return error;
  const auto content = fileContent(copy);
  if (!content) return "the store holds too much for a copy";
  const std::string name = std::string(Replaced) + timeText(copy.date, "%Y%m%dT%H%M%S");
  if (auto error = PrivateFile(fileOf(name)).replace(*content)) return error;
  prune(Replaced, ReplacedKept);
  return std::nullopt;
}

// The file of another name that leads to the same content stays.
std::optional<std::string> StoreCopies::replace(std::string_view name, const StoreCopy& copy) const {
  const auto content = fileContent(copy);
  if (!content) return "the store holds too much for a copy";
  if (auto error = PrivateFile(fileOf(name)).replace(*content)) return error;
  setDate(fileOf(name), copy.date);
  return std::nullopt;
}

std::optional<std::string> StoreCopies::remove(std::string_view name) const {
  return PrivateFile(fileOf(name)).remove();
}

// Names of one kind go by date.
void StoreCopies::prune(std::string_view prefix, std::size_t count) const {
  std::vector<std::string> kept;
  for (std::string& name : names()) {
    if (name.starts_with(prefix)) kept.push_back(std::move(name));
  }
  std::ranges::sort(kept, std::greater());
  for (std::size_t index = count; index < kept.size(); ++index) static_cast<void>(remove(kept[index]));
}

std::optional<StoreCopy> StoreCopies::read(std::string_view name) const {
  const std::vector<std::string> known = names();
  if (std::ranges::find(known, name) == known.end()) return std::nullopt;
  constexpr std::size_t longest = std::numeric_limits<std::int32_t>::max();
  const auto content = PrivateFile(fileOf(name)).read(longest);
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

std::optional<StoreCopyHead> StoreCopies::headOfNewest() const {
  const OpenedFile opened = PrivateFile(fileOf(Newest)).open(O_RDONLY);
  if (!opened.descriptor) return std::nullopt;
  std::string begin(LongestHead, '\0');
  const ssize_t length = ::pread(opened.descriptor.get(), begin.data(), begin.size(), 0);
  std::string_view text = std::string_view(begin).substr(0, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  return takeHead(text);
}

std::optional<double> StoreCopies::dateOfNewest() const {
  struct stat found {};
  if (::stat(fileOf(Newest).c_str(), &found) != 0) return std::nullopt;
  return static_cast<double>(found.st_mtim.tv_sec) + static_cast<double>(found.st_mtim.tv_nsec) / 1e9 -
         SecondsFrom1970To2001;
}

}  // namespace pellor
