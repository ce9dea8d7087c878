// In which places persons stand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "pellor/friends/internal/PLBucketTable.h"

namespace pellor {

class PLPerson;

/// Finds the places, numbered from 0, of each of many persons: the very person counts, not what it is like. Nearly
/// every person stands in one place, which is kept in the table itself, at some 16 bytes a person. Holds no person: the
/// caller that enters one takes it out before it goes.
class PLPersonPlaces {
 public:
  /// True when the person has no other place. It must not be in this one yet. Places end below 4,294,967,295.
  bool enter(PLPerson& person, std::uint64_t place);
  /// Takes the person out of a place in which it is; true when it has no other.
  bool leave(const PLPerson& person, std::uint64_t place);
  /// Takes the person out of a place in which it is and puts it into one in which it is not.
  void move(const PLPerson& person, std::uint64_t from, std::uint64_t to);
  /// Moves the persons in the places from `first` on down by `count`; the `count` places before must be empty.
  void moveDown(std::uint64_t first, std::uint64_t count);
  /// Moves the persons in the places from `first` on up by `count`.
  void moveUp(std::uint64_t first, std::uint64_t count);
  void reserve(std::size_t personCount) { _table.reserve(personCount); }

  /// The number of a place.
  static std::uint32_t numberOf(std::uint64_t place);
  static std::uint32_t hashOf(const PLPerson& person) { return HashOf()(reinterpret_cast<std::uintptr_t>(&person), 0); }

  void prefetch(const PLPerson& person) const { _table.prefetch(hashOf(person)); }
  bool contains(const PLPerson* person) const { return static_cast<bool>(find(person)); }
  /// The person's lowest place that is not below `from`; absent when there is none.
  std::optional<std::uint64_t> lowest(const PLPerson* person, std::uint64_t from = 0) const;
  /// The person's highest place; absent when there is none.
  std::optional<std::uint64_t> highest(const PLPerson* person) const;
  /// How many persons are in any place.
  std::size_t personCount() const { return _table.size(); }
  /// How many persons are in several places.
  std::size_t repeatedPersonCount() const { return _several.size(); }
  /// Calls `visit` with each person once, in no order that means anything.
  template <class Visit>
  void forEachPerson(const Visit& visit) const {
    _table.forEach([&](const Table::Cursor& entry) { visit(*reinterpret_cast<PLPerson*>(entry.address())); });
  }

 private:
  struct HashOf {
    std::uint32_t operator()(std::uintptr_t address, std::uint32_t) const {
      return static_cast<std::uint32_t>((std::uint64_t{address} * 0x9E3779B97F4A7C15U) >> 32);
    }
  };
  using Table = PLBucketTable<HashOf>;  // an entry's number is the place, or Several

  template <class Moved>
  void moveAll(const Moved& moved);
  Table::Cursor find(const PLPerson* person) const {
    const auto address = reinterpret_cast<std::uintptr_t>(person);
    return _table.find(HashOf()(address, 0), [=](std::uintptr_t other, std::uint32_t) { return other == address; });
  }

  Table _table;
  std::unordered_map<const PLPerson*, std::vector<std::uint32_t>> _several;  // ascending
};

}  // namespace pellor
