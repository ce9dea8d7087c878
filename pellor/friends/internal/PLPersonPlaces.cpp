#include "pellor/friends/internal/PLPersonPlaces.h"

#include <algorithm>
#include <limits>

#include "pellor/runtime/Fatal.h"

namespace pellor {
namespace {

constexpr std::uint32_t Several = std::numeric_limits<std::uint32_t>::max();

}  // namespace

std::uint32_t PLPersonPlaces::numberOf(std::uint64_t place) {
  require(place < Several, "fewer than four thousand million places");
  return static_cast<std::uint32_t>(place);
}

bool PLPersonPlaces::enter(PLPerson& person, std::uint64_t place) {
  const std::uint32_t number = numberOf(place);
  const auto known = find(&person);
  if (!known) {
    _table.insert(reinterpret_cast<std::uintptr_t>(&person), number);
    return true;
  }
  auto& places = _several[&person];
  if (known.number() != Several) places.push_back(known.number());
  places.insert(std::ranges::lower_bound(places, number), number);
  known.assign(known.address(), Several);
  return false;
}

bool PLPersonPlaces::leave(const PLPerson& person, std::uint64_t place) {
  const auto known = find(&person);
  if (known.number() != Several) {
    _table.erase(known);
    return true;
  }
  const auto several = _several.find(&person);
  auto& places = several->second;
  places.erase(std::ranges::lower_bound(places, static_cast<std::uint32_t>(place)));
  if (places.size() > 1) return false;
  known.assign(known.address(), places.front());
  _several.erase(several);
  return false;
}

void PLPersonPlaces::move(const PLPerson& person, std::uint64_t from, std::uint64_t to) {
  const auto known = find(&person);
  if (known.number() != Several) return known.assign(known.address(), numberOf(to));
  auto& places = _several.at(&person);
  places.erase(std::ranges::lower_bound(places, numberOf(from)));
  places.insert(std::ranges::lower_bound(places, numberOf(to)), numberOf(to));
}

// The order of places stays.
template <class Moved>
void PLPersonPlaces::moveAll(const Moved& moved) {
  _table.forEach([&](const Table::Cursor& entry) {
    if (entry.number() != Several) entry.assign(entry.address(), moved(entry.number()));
  });
  for (auto& [person, places] : _several) std::ranges::transform(places, places.begin(), moved);
}

void PLPersonPlaces::moveDown(std::uint64_t first, std::uint64_t count) {
  moveAll([=](std::uint32_t place) { return place < first ? place : numberOf(place - count); });
}

void PLPersonPlaces::moveUp(std::uint64_t first, std::uint64_t count) {
  moveAll([=](std::uint32_t place) { return place < first ? place : numberOf(place + count); });
}

std::optional<std::uint64_t> PLPersonPlaces::lowest(const PLPerson* person, std::uint64_t from) const {
  const auto known = find(person);
  if (!known) return std::nullopt;
  if (known.number() != Several)
    return known.number() < from ? std::nullopt : std::optional(std::uint64_t{known.number()});
  const auto& places = _several.at(person);
  const auto place = std::ranges::lower_bound(places, from);
  return place == places.end() ? std::nullopt : std::optional(std::uint64_t{*place});
}

std::optional<std::uint64_t> PLPersonPlaces::highest(const PLPerson* person) const {
  const auto known = find(person);
  if (!known) return std::nullopt;
  return known.number() != Several ? known.number() : _several.at(person).back();
}

}  // namespace pellor
