#include "pellor/friends/PLChangeLog.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <optional>

#include "pellor/friends/internal/PLPersonPlaces.h"
#include "pellor/friends/internal/PLSkipChecks.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {
namespace {

constexpr std::array Kinds{PLFriendsManagerPersonAdded, PLFriendsManagerPersonDeleted, PLFriendsManagerPersonMoved,
                           PLFriendsManagerPersonUpdated};

struct Names {
  std::array<std::string_view, Kinds.size()> names;
  std::size_t count = 0;
};

// The names of every set of kinds, by its bits.
constexpr auto NamesOfSets = [] {
  std::array<Names, 1U << Kinds.size()> sets;
  for (std::size_t bits = 0; bits < sets.size(); ++bits) {
    for (std::size_t kind = 0; kind < Kinds.size(); ++kind) {
      if (bits >> kind & 1U) sets[bits].names[sets[bits].count++] = Kinds[kind];
    }
  }
  return sets;
}();

std::uint8_t bitOf(std::string_view changeType) {
  const auto kind = std::ranges::find(Kinds, changeType);
  return kind == Kinds.end() ? std::uint8_t{0} : static_cast<std::uint8_t>(1U << (kind - Kinds.begin()));
}

}  // namespace

void PLChangeTypes::insert(std::string_view changeType) { _kinds |= bitOf(changeType); }

bool PLChangeTypes::contains(std::string_view changeType) const { return (_kinds & bitOf(changeType)) != 0; }

const std::string_view* PLChangeTypes::begin() const { return NamesOfSets[_kinds].names.data(); }

const std::string_view* PLChangeTypes::end() const { return begin() + NamesOfSets[_kinds].count; }

struct PLChangeLog::Content {
  Content() = default;
  Content(const Content& other) : entries(other.entries) {}

  std::optional<std::uint64_t> placeOf(const PLPerson* person) {
    const MutexLock lock(mutex);
    if (placeCount == 0) places.reserve(entries.size());
    for (; placeCount < entries.size(); ++placeCount) places.enter(*entries[placeCount].first, placeCount);
    return places.lowest(person);
  }

  std::vector<Entry> entries;
  // The first search finds places for the entries that came since the last one: most logs are only read from front to
  // end. Logs that share their content may be searched at once.
  Mutex mutex;
  PLPersonPlaces places PELLOR_GUARDED_BY(mutex);
  std::size_t placeCount PELLOR_GUARDED_BY(mutex) = 0;
  /// Whether several logs may have it; then it is not changed any more. Set while others look at their log.
  std::atomic<bool> isShared{false};
};

PLChangeLog::PLChangeLog() = default;
PLChangeLog::PLChangeLog(PLChangeLog&& other) noexcept = default;
PLChangeLog& PLChangeLog::operator=(PLChangeLog&& other) noexcept = default;
PLChangeLog::~PLChangeLog() = default;

PLChangeLog::PLChangeLog(const PLChangeLog& other) : _content(other._content) {
  if (_content) _content->isShared = true;
}

PLChangeLog& PLChangeLog::operator=(const PLChangeLog& other) {
  if (this != &other) *this = PLChangeLog(other);
  return *this;
}

PLChangeLog::Content& PLChangeLog::ownContent() {
  if (!_content) {
    _content = std::make_shared<Content>();
  } else if (_content->isShared) {
    _content = std::make_shared<Content>(*_content);
  }
  return *_content;
}

PLChangeTypes& PLChangeLog::typesOf(const std::shared_ptr<PLPerson>& person) {
  Content& content = ownContent();
  if (const auto place = content.placeOf(person.get())) return content.entries[*place].second;
  return content.entries.emplace_back(person, PLChangeTypes{}).second;
}

void PLChangeLog::add(const std::shared_ptr<PLPerson>& person, std::string_view changeType) {
  typesOf(person).insert(changeType);
}

void PLChangeLog::addLast(const std::shared_ptr<PLPerson>& person, std::string_view changeType) {
  Content& content = ownContent();
  auto& entries = content.entries;
  checkSkip("the last entry of the change log, or none, to be the person's", [&] {
    const auto place = content.placeOf(person.get());
    return !place || *place == entries.size() - 1;
  });
  if (entries.empty() || entries.back().first != person) entries.emplace_back(person, PLChangeTypes{});
  entries.back().second.insert(changeType);
}

void PLChangeLog::add(PLChangeLog later) {
  if (isEmpty()) {
    *this = std::move(later);
    return;
  }
  for (const auto& [person, types] : later.entries()) typesOf(person).insert(types);
}

void PLChangeLog::set(const std::shared_ptr<PLPerson>& person, PLChangeTypes types) { typesOf(person) = types; }

const PLChangeTypes* PLChangeLog::typesFor(const PLPerson* person) const {
  const auto place = _content ? _content->placeOf(person) : std::nullopt;
  return place ? &_content->entries[*place].second : nullptr;
}

const std::vector<PLChangeLog::Entry>& PLChangeLog::entries() const {
  static const std::vector<Entry> none;
  return _content ? _content->entries : none;
}

bool PLChangeLog::containsAdditionsOrUpdates() const {
  return std::ranges::any_of(entries(), [](const Entry& entry) {
    return entry.second.contains(PLFriendsManagerPersonAdded) || entry.second.contains(PLFriendsManagerPersonUpdated);
  });
}

PLChangeLog mergedChangeLogs(const std::vector<PLChangeLog>& logs) {
  PLChangeLog merged;
  for (const PLChangeLog& log : logs) {
    for (const auto& [person, types] : log.entries()) {
      const PLChangeTypes* earlier = merged.typesFor(person.get());
      const bool wasDeleted = earlier && earlier->contains(PLFriendsManagerPersonDeleted);
      const bool wipesEarlier =
          wasDeleted ? types.contains(PLFriendsManagerPersonAdded) : types.contains(PLFriendsManagerPersonDeleted);
      PLChangeTypes result = types;
      if (earlier && !wipesEarlier) result.insert(*earlier);
      merged.set(person, result);
    }
  }
  return merged;
}

}  // namespace pellor
