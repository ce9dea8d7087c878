#include "pellor/friends/detail/PLPersonRecord.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <new>
#include <utility>

#include "pellor/friends/internal/PLPrefetch.h"
#include "pellor/runtime/Fatal.h"

namespace pellor {
namespace {

using End = std::uint32_t;

std::size_t byteCount(const PLPersonRecord::Content& content) {
  std::size_t count = 0;
  for (const auto& text : content.texts) count += text.value_or(std::string_view()).size();
  if (!content.destinations) return count;
  for (const std::string_view destination : *content.destinations) count += destination.size();
  return count;
}

}  // namespace

/// Of a record with unknown entries, which few have: it owns these beside the one piece.
struct PLPersonRecord::Memory {
  std::shared_ptr<const char[]> piece;
  std::shared_ptr<const Dictionary> unknownEntries;
};

void PLPersonRecord::prefetch() const {
  prefetchLine(_memory.get());
  prefetchLine(_memory.get() + CacheLine);
}

// All share one: every person begins with it.
PLPersonRecord::PLPersonRecord() {
  static const PLPersonRecord nothing{Content()};
  _memory = nothing._memory;
}

PLPersonRecord::PLPersonRecord(const Content& content) {
  static_assert(alignof(Header) == alignof(End) && sizeof(Header) % alignof(End) == 0);
  const std::size_t destinationCount = content.destinations ? content.destinations->size() : 0;
  const std::size_t front = sizeof(Header) + (TextCount + destinationCount) * sizeof(End);
  const std::size_t bytes = byteCount(content);
  require(bytes <= std::numeric_limits<End>::max(), "a person of less than four gigabytes");
  // The memory of an array of characters is aligned for every type of that size.
  const auto memory = std::make_shared_for_overwrite<char[]>(front + bytes);
  auto* header = new (memory.get())
      Header{content._abRecordID, static_cast<std::uint32_t>(destinationCount), {}, false, content.areCanonical, {}};
  char* const first = memory.get() + front;
  char* next = first;
  char* end = memory.get() + sizeof(Header);
  const auto put = [&](std::string_view text) {
    next = std::ranges::copy(text, next).out;
    new (end) End(static_cast<End>(next - first));
    end += sizeof(End);
  };
  for (std::size_t which = 0; which < TextCount; ++which) {
    header->hasText[which] = content.texts[which].has_value();
    put(content.texts[which].value_or(std::string_view()));
  }
  header->hasDestinations = content.destinations.has_value();
  if (content.destinations) std::ranges::for_each(*content.destinations, put);
  _memory = memory;
  if (!content.unknownEntries) return;
  const auto whole = std::make_shared<const Memory>(Memory{memory, content.unknownEntries});
  header->unknownEntries = std::bit_cast<std::array<char, sizeof(void*)>>(&whole->unknownEntries);
  _memory = std::shared_ptr<const char[]>(whole, memory.get());
}

const PLPersonRecord::Header& PLPersonRecord::header() const {
  return *std::launder(reinterpret_cast<const Header*>(_memory.get()));
}

std::string_view PLPersonRecord::part(std::size_t index) const {
  const auto* ends = std::launder(reinterpret_cast<const End*>(_memory.get() + sizeof(Header)));
  const char* const first = _memory.get() + sizeof(Header) + (TextCount + header().destinationCount) * sizeof(End);
  const End begin = index == 0 ? 0 : ends[index - 1];
  return {first + begin, ends[index] - begin};
}

std::optional<std::string_view> PLPersonRecord::text(Text which) const {
  return header().hasText[which] ? std::optional(part(which)) : std::nullopt;
}

bool PLPersonRecord::containsDestination(std::string_view destination) const {
  // Of the few that most persons have, the length tells most apart.
  constexpr std::size_t few = 4;
  std::size_t first = 0;
  std::size_t end = destinationCount();
  while (end - first > few) {
    const std::size_t middle = first + (end - first) / 2;
    (this->destination(middle) <= destination ? first : end) = middle;
  }
  for (; first < end; ++first) {
    if (this->destination(first) == destination) return true;
  }
  return false;
}

bool PLPersonRecord::sharesDestination(const PLPersonRecord& other) const {
  std::size_t mine = 0;
  std::size_t theirs = 0;
  while (mine < destinationCount() && theirs < other.destinationCount()) {
    const int order = destination(mine).compare(other.destination(theirs));
    if (order == 0) return true;
    order < 0 ? ++mine : ++theirs;
  }
  return false;
}

std::shared_ptr<const Dictionary> PLPersonRecord::unknownEntries() const {
  const auto* entries = std::bit_cast<const std::shared_ptr<const Dictionary>*>(header().unknownEntries);
  return entries ? *entries : nullptr;
}

std::shared_ptr<const DestinationSet> PLPersonRecord::destinations() const {
  if (!hasDestinations()) return nullptr;
  auto destinations = std::make_shared<DestinationSet>();
  for (std::size_t index = 0; index < destinationCount(); ++index) {
    destinations->emplace_hint(destinations->end(), destination(index));
  }
  return destinations;
}

bool PLPersonRecord::hasDestinations(std::span<const std::string_view> destinations) const {
  if (!hasDestinations() || destinationCount() != destinations.size()) return false;
  for (std::size_t index = 0; index < destinations.size(); ++index) {
    if (destination(index) != destinations[index]) return false;
  }
  return true;
}

bool PLPersonRecord::hasIdentityOf(const PLPersonRecord& other) const {
  if (text(_abRecordGUID) != other.text(_abRecordGUID) || hasDestinations() != other.hasDestinations() ||
      destinationCount() != other.destinationCount()) {
    return false;
  }
  for (std::size_t index = 0; index < destinationCount(); ++index) {
    if (destination(index) != other.destination(index)) return false;
  }
  return true;
}

bool operator==(const PLPersonRecord& left, const PLPersonRecord& right) {
  if (left._memory == right._memory) return true;
  if (left.recordID() != right.recordID() || !left.hasIdentityOf(right)) return false;
  for (std::size_t which = 0; which < PLPersonRecord::TextCount; ++which) {
    const auto text = static_cast<PLPersonRecord::Text>(which);
    if (left.text(text) != right.text(text)) return false;
  }
  const auto ofLeft = left.unknownEntries(), ofRight = right.unknownEntries();
  return ofLeft && ofRight ? *ofLeft == *ofRight : ofLeft == ofRight;
}

PLPersonRecord::Content PLPersonRecord::content(std::vector<std::string_view>& destinations) const {
  Content content;
  content._abRecordID = recordID();
  content.areCanonical = areCanonical();
  content.unknownEntries = unknownEntries();
  for (std::size_t which = 0; which < TextCount; ++which) content.texts[which] = text(static_cast<Text>(which));
  if (!hasDestinations()) return content;
  for (std::size_t index = 0; index < destinationCount(); ++index) destinations.push_back(destination(index));
  content.destinations = destinations;
  return content;
}

PLPersonRecord PLPersonRecord::withRecordID(std::int32_t recordID) const {
  std::vector<std::string_view> destinations;
  Content changed = content(destinations);
  changed._abRecordID = recordID;
  return PLPersonRecord(changed);
}

PLPersonRecord PLPersonRecord::with(Text which, std::optional<std::string_view> text) const {
  std::vector<std::string_view> destinations;
  Content changed = content(destinations);
  changed.texts[which] = text;
  return PLPersonRecord(changed);
}

PLPersonRecord PLPersonRecord::withDestinations(const DestinationSet& destinations) const {
  std::vector<std::string_view> ignored;
  const std::vector<std::string_view> taken(destinations.begin(), destinations.end());
  Content changed = content(ignored);
  changed.destinations = taken;
  changed.areCanonical = false;
  return PLPersonRecord(changed);
}

PLPersonRecord PLPersonRecord::withUnknownEntries(std::shared_ptr<const Dictionary> entries) const {
  std::vector<std::string_view> destinations;
  Content changed = content(destinations);
  changed.unknownEntries = std::move(entries);
  return PLPersonRecord(changed);
}

}  // namespace pellor
