#include "pellor/linux/phone/CanonicalForms.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace pellor {
namespace {

constexpr std::size_t LeastTableSize = 64;
// Before every text: its length and that of its form.
constexpr std::uint32_t HeadSize = 2;
// No text is at place 0, which as an entry says "none".
constexpr std::uint32_t FirstPlace = 1;
constexpr std::uint32_t BlockSize = std::uint32_t{1} << 16;

std::uint64_t wordAt(const char* bytes) {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

std::uint64_t mixed(std::uint64_t hash, std::uint64_t word) {
  constexpr std::uint64_t odd = 0x9E3779B97F4A7C15;
  hash = (hash ^ word) * odd;
  return hash ^ (hash >> 32);
}

// Of one size; most texts are of two words.
bool areEqual(const char* one, const char* other, std::size_t size) {
  constexpr std::size_t wordSize = sizeof(std::uint64_t);
  if (size < wordSize) return std::memcmp(one, other, size) == 0;
  const std::size_t last = size - wordSize;
  for (std::size_t next = 0; next < last; next += wordSize) {
    if (wordAt(one + next) != wordAt(other + next)) return false;
  }
  return wordAt(one + last) == wordAt(other + last);
}

// Of the text behind a head.
std::size_t sizeAt(const char* head) { return static_cast<unsigned char>(head[0]); }
std::size_t formSizeAt(const char* head) { return static_cast<unsigned char>(head[1]); }
std::string_view textAt(const char* head) { return {head + HeadSize, sizeAt(head)}; }
std::string_view formAt(const char* head) {
  const std::size_t formSize = formSizeAt(head);
  return formSize == 0 ? textAt(head) : std::string_view(head + HeadSize + sizeAt(head), formSize);
}

}  // namespace

std::uint64_t hashOf(std::string_view text) {
  std::uint64_t hash = mixed(0, text.size());
  if (text.size() < sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    for (const char character : text) word = word << 8 | static_cast<unsigned char>(character);
    return mixed(hash, word);
  }
  // The last word may overlap the one before it.
  const char* const last = text.data() + text.size() - sizeof(std::uint64_t);
  for (const char* next = text.data(); next < last; next += sizeof(std::uint64_t)) hash = mixed(hash, wordAt(next));
  return mixed(hash, wordAt(last));
}

struct CanonicalForms::Table {
  explicit Table(std::size_t size) : mask(size - 1), entries(std::make_unique<Entry[]>(size)) {}

  Entry& at(std::uint64_t index) const { return entries[index & mask]; }
  std::size_t size() const { return mask + 1; }

  static std::uint32_t entryOf(std::uint32_t place, std::uint64_t hash) {
    return static_cast<std::uint32_t>(hash >> 32) >> PlaceBits << PlaceBits | place;
  }
  static std::uint32_t placeOf(std::uint32_t entry) { return entry & ((std::uint32_t{1} << PlaceBits) - 1); }

  void put(std::uint32_t place, std::uint64_t hash) const {
    std::uint64_t index = hash;
    while (at(index).load(std::memory_order_relaxed) != 0) ++index;
    at(index).store(entryOf(place, hash), std::memory_order_release);
  }

  const std::uint64_t mask;
  const std::unique_ptr<Entry[]> entries;
};

CanonicalForms::CanonicalForms() : _end(FirstPlace) {
  _tables.push_back(std::make_unique<Table>(LeastTableSize));
  _table = _tables.back().get();
}

CanonicalForms::~CanonicalForms() = default;

std::optional<std::string_view> CanonicalForms::find(std::string_view text) const {
  const char* const head = headOf(text, *_table.load(std::memory_order_acquire), hashOf(text));
  if (!head) return std::nullopt;
  return formAt(head);
}

bool CanonicalForms::isKept(std::string_view text, std::string_view form) {
  return !text.empty() && !form.empty() && std::max(text.size(), form.size()) <= LongestText;
}

bool CanonicalForms::add(std::string_view text, std::string_view form) {
  if (!isKept(text, form)) return false;
  const MutexLock lock(_mutex);
  makeRoomFor(2);
  if (!insert(text, form)) return false;
  if (form != text) insert(form, form);
  return true;
}

void CanonicalForms::add(std::span<const std::pair<std::string_view, std::string_view>> textsAndForms) {
  const MutexLock lock(_mutex);
  makeRoomFor(textsAndForms.size());
  for (const auto& [text, form] : textsAndForms) {
    if (!isKept(text, form)) continue;
    makeRoomFor(2);
    if (insert(text, form) && form != text) insert(form, form);
  }
}

std::size_t CanonicalForms::size() const {
  const MutexLock lock(_mutex);
  return _size;
}

const char* CanonicalForms::at(std::uint32_t place) const { return &_blocks[place / BlockSize][place % BlockSize]; }

const char* CanonicalForms::headOf(std::string_view text, const Table& table, std::uint64_t hash) const {
  for (std::uint64_t index = hash;; ++index) {
    const std::uint32_t entry = table.at(index).load(std::memory_order_acquire);
    if (entry == 0) return nullptr;
    const std::uint32_t place = Table::placeOf(entry);
    if (entry != Table::entryOf(place, hash)) continue;
    const char* const head = at(place);
    if (sizeAt(head) == text.size() && areEqual(head + HeadSize, text.data(), text.size())) return head;
  }
}

bool CanonicalForms::insert(std::string_view text, std::string_view form) {
  const std::uint64_t hash = hashOf(text);
  const Table& table = *_tables.back();
  if (headOf(text, table, hash)) return false;
  const std::uint32_t place = write(text, form);
  if (place == 0) return false;
  table.put(place, hash);
  ++_size;
  return true;
}

// A text does not go over the end of a block: what is left of the block begins with an empty text.
std::uint32_t CanonicalForms::write(std::string_view text, std::string_view form) {
  const std::string_view written = form == text ? std::string_view() : form;
  const auto size = static_cast<std::uint32_t>(HeadSize + text.size() + written.size());
  if (_end % BlockSize + size > BlockSize) {
    blockOf(_end)[_end % BlockSize] = 0;
    _end += BlockSize - _end % BlockSize;
  }
  if (_end >> PlaceBits != 0) return 0;
  char* const head = &blockOf(_end)[_end % BlockSize];
  head[0] = static_cast<char>(text.size());
  head[1] = static_cast<char>(written.size());
  std::ranges::copy(text, head + HeadSize);
  std::ranges::copy(written, head + HeadSize + text.size());
  return std::exchange(_end, _end + size);
}

char* CanonicalForms::blockOf(std::uint32_t place) {
  auto& block = _blocks[place / BlockSize];
  // Its pages cost nothing before they are written. The head of an empty text may go over the end.
  if (!block) block = std::make_unique_for_overwrite<char[]>(BlockSize + HeadSize);
  return block.get();
}

void CanonicalForms::makeRoomFor(std::size_t count) {
  const std::size_t least = (_size + count) * 3 / 2;
  if (least <= _tables.back()->size()) return;
  auto table = std::make_unique<Table>(std::bit_ceil(least));
  fill(*table);
  _table.store(table.get(), std::memory_order_release);
  _tables.push_back(std::move(table));
}

void CanonicalForms::fill(const Table& table) const {
  std::uint32_t place = FirstPlace;
  while (place < _end) {
    const char* const head = at(place);
    const std::string_view text = textAt(head);
    if (!text.empty()) table.put(place, hashOf(text));
    const std::size_t size = HeadSize + text.size() + formSizeAt(head);
    place += text.empty() ? BlockSize - place % BlockSize : static_cast<std::uint32_t>(size);
  }
}

}  // namespace pellor
