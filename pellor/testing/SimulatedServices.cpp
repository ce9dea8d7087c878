#include "pellor/testing/SimulatedServices.h"

#include <bit>
#include <utility>

#include "pellor/runtime/BundleIdentifier.h"
#include "pellor/runtime/Process.h"

namespace pellor {

namespace {

// These services are shared by all processes, so the caller's is the current one; a test without one may call too.
void requireMainQueue(std::string_view operation) {
  if (Process::hasCurrent()) Process::current().requireMainQueue(operation);
}

}  // namespace

// Favorites

void InMemoryFavorites::setEntries(std::vector<FavoriteEntry> entries) {
  const MutexLock lock(_mutex);
  _entries = std::move(entries);
}

void InMemoryFavorites::setReadable(bool isReadable) {
  const MutexLock lock(_mutex);
  _isReadable = isReadable;
}

Answer<std::vector<FavoriteEntry>> InMemoryFavorites::favoriteEntries() {
  using Entries = Answer<std::vector<FavoriteEntry>>;
  requireMainQueue("FavoritesSource::favoriteEntries");
  const MutexLock lock(_mutex);
  if (!_isReadable) return Entries::unreadable();
  return _entries.empty() ? Entries::none() : Entries::some(_entries);
}

// Counters

std::optional<std::int64_t> RecordingCounters::value(std::string_view key) const {
  const MutexLock lock(_mutex);
  const auto found = _values.find(key);
  if (found == _values.end()) return std::nullopt;
  return found->second;
}

std::map<std::string, std::int64_t, std::less<>> RecordingCounters::values() const {
  const MutexLock lock(_mutex);
  return _values;
}

void RecordingCounters::setValueForScalarKey(std::string_view key, std::int64_t value) {
  requireMainQueue("AnalyticsCounters::setValueForScalarKey");
  const MutexLock lock(_mutex);
  _values.insert_or_assign(std::string(key), value);
}

// Strings

class InMemoryStrings::Strings : public Bundle {
 public:
  std::string identifier() const override { return BundleIdentifier; }

  std::string localizedString(std::string_view key, std::string_view defaultValue) const override {
    const MutexLock lock(_mutex);
    const auto found = _texts.find(key);
    if (found != _texts.end()) return found->second;
    return std::string(defaultValue.empty() ? key : defaultValue);
  }

  void setText(const std::string& key, std::optional<std::string> text) {
    const MutexLock lock(_mutex);
    _texts.erase(key);
    if (text) _texts.emplace(key, *std::move(text));
  }

 private:
  mutable Mutex _mutex;
  std::map<std::string, std::string, std::less<>> _texts PELLOR_GUARDED_BY(_mutex) = {
      {"FAVORITES", "Favorites"}, {"NUMBERED_FAVORITES_FORMAT_STRING", "Favorites %u"}};
};

InMemoryStrings::InMemoryStrings() : _strings(std::make_shared<Strings>()) {}
InMemoryStrings::~InMemoryStrings() = default;

void InMemoryStrings::setText(const std::string& key, std::optional<std::string> text) {
  _strings->setText(key, std::move(text));
}

std::shared_ptr<const Bundle> InMemoryStrings::bundleWithIdentifier(std::string_view identifier) {
  return identifier == _strings->identifier() ? _strings : nullptr;
}

// Digests

namespace {

using Words = std::array<std::uint32_t, 5>;

// The message, a one bit, zeros up to eight bytes before the end of a block, and the length in bits.
std::vector<std::uint8_t> padded(std::span<const std::uint8_t> bytes) {
  std::vector<std::uint8_t> message(bytes.begin(), bytes.end());
  message.push_back(0x80);
  while (message.size() % 64 != 56) message.push_back(0);
  const std::uint64_t bits = std::uint64_t{bytes.size()} * 8;
  for (int shift = 56; shift >= 0; shift -= 8) message.push_back(static_cast<std::uint8_t>(bits >> shift));
  return message;
}

std::array<std::uint32_t, 80> schedule(const std::uint8_t* block) {
  std::array<std::uint32_t, 80> words{};
  for (std::size_t i = 0; i < 64; ++i) words[i / 4] = (words[i / 4] << 8) | block[i];
  for (std::size_t i = 16; i < 80; ++i) {
    words[i] = std::rotl(words[i - 3] ^ words[i - 8] ^ words[i - 14] ^ words[i - 16], 1);
  }
  return words;
}

std::uint32_t mixed(std::size_t round, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
  if (round < 20) return ((b & c) | (~b & d)) + 0x5A827999u;
  if (round < 40) return (b ^ c ^ d) + 0x6ED9EBA1u;
  if (round < 60) return ((b & c) | (b & d) | (c & d)) + 0x8F1BBCDCu;
  return (b ^ c ^ d) + 0xCA62C1D6u;
}

void addBlock(Words& state, const std::uint8_t* block) {
  auto [a, b, c, d, e] = state;
  const auto words = schedule(block);
  for (std::size_t round = 0; round < words.size(); ++round) {
    const std::uint32_t next = std::rotl(a, 5) + mixed(round, b, c, d) + e + words[round];
    e = std::exchange(d, std::exchange(c, std::rotl(std::exchange(b, std::exchange(a, next)), 30)));
  }
  const Words addends = {a, b, c, d, e};
  for (std::size_t i = 0; i < state.size(); ++i) state[i] += addends[i];
}

}  // namespace

std::array<std::uint8_t, 20> SimulatedDigests::sha1(std::span<const std::uint8_t> bytes) {
  Words state = {0x67452301u, 0xEFCDAB89u, 0x98BADCFEu, 0x10325476u, 0xC3D2E1F0u};
  const std::vector<std::uint8_t> message = padded(bytes);
  for (std::size_t place = 0; place < message.size(); place += 64) addBlock(state, message.data() + place);
  std::array<std::uint8_t, 20> digest{};
  for (std::size_t i = 0; i < digest.size(); ++i) {
    digest[i] = static_cast<std::uint8_t>(state[i / 4] >> (24 - 8 * (i % 4)));
  }
  return digest;
}

}  // namespace pellor
