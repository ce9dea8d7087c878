// The pages and places of a merged list.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

#include "pellor/friends/internal/PLMergePages.h"
#include "pellor/friends/internal/PLMergeSlots.h"

namespace pellor {

/// A list that begins as theirs: friends leave it, pages go and come back, friends are put into it. Pages are named by
/// numbers that stay: those of theirs, also behind their end, and others for pages that came back between them. A place
/// is such a page and a position.
class PLMergePlaces {
 public:
  struct Place {
    std::uint64_t page;
    std::uint64_t position;
    friend auto operator<=>(const Place&, const Place&) = default;
  };
  /// What a place holds: a friend of theirs or of ours, or nobody.
  struct Occupant {
    enum class Side { nobody, theirs, ours } side = Side::nobody;
    std::uint64_t slot = 0;  ///< of that side
    friend bool operator==(const Occupant&, const Occupant&) = default;
  };

  PLMergePlaces(const PLMergeSlots& theirs, std::uint64_t maxGroupCount)
      : _theirs(theirs), _maxGroupCount(maxGroupCount), _end(theirs.pageCount()) {}

  Place placeOf(std::uint64_t theirSlot) const { return {_theirs.pageOf(theirSlot), _theirs.positionOf(theirSlot)}; }
  Occupant at(Place place) const;
  bool isFree(Place place) const { return at(place).side == Occupant::Side::nobody; }
  std::uint64_t occupiedCount(std::uint64_t page) const;
  void put(Place place, Occupant occupant) { _changed[place] = occupant; }

  /// Takes a page of theirs out.
  void removePage(std::uint64_t theirPage) { _gone.insert(theirPage); }
  /// Puts an empty page behind the first `theirCount` pages of theirs and those put there before; absent when there may
  /// be no more pages.
  std::optional<std::uint64_t> insertPage(std::uint64_t theirCount);
  /// Lets the list reach to a page behind the end of theirs; false when there may not be as many pages.
  bool extendTo(std::uint64_t theirPage);
  /// An empty page behind the last one; absent when there may be no more pages.
  std::optional<std::uint64_t> appendPage();

  /// The first of the pages that were taken out comes back; absent when there is none.
  std::optional<std::uint64_t> restorePage();
  /// How many pages of theirs, with those behind their end that the list reaches to.
  std::uint64_t end() const { return _end; }

  std::uint64_t pageCount() const { return _end - _gone.size() + _inserted.size(); }
  /// Whether it is one of the pages that may be laid out as groups.
  bool isInGroups(std::uint64_t page) const;
  /// Whether it is a page of the list, and behind all others.
  bool isLast(std::uint64_t page) const;
  /// The free place of the page with the least distance, of two the later; absent when it is full.
  std::optional<Place> nearestFree(Place place) const;
  /// The first free place in a page that may be laid out; absent when all are full.
  std::optional<Place> firstFreeInGroups() const;
  /// The first free place of all.
  std::optional<Place> firstFree() const;

  /// How many places are free in pages that may be laid out, with those that may be appended; counting stops at
  /// `limit`.
  std::uint64_t freeCountInGroups(std::uint64_t limit) const;

  /// The number of the first page that is not the one of the same number in theirs; the number of pages if there is
  /// none.
  std::uint64_t firstOtherPage() const;
  /// The pages from that one on, in order.
  std::vector<std::uint64_t> otherPages() const;
  /// Which page of theirs it is, maybe behind their end; absent for a page that came back.
  std::optional<std::uint64_t> theirPage(std::uint64_t page) const;
  /// The number that a page has now.
  std::uint64_t indexOf(std::uint64_t page) const;
  /// What was put, in the order of pages by their lasting numbers.
  const std::map<Place, Occupant>& changed() const { return _changed; }

 private:
  static constexpr std::uint64_t FirstInserted = std::uint64_t{1} << 48;

  struct Insertion {
    std::uint64_t behind;  // so many pages of theirs
    std::uint64_t page;
  };

  template <class Visit>
  void forEachPageFrom(std::uint64_t theirPage, const Visit& visit) const;
  std::optional<Place> firstFreeIn(std::uint64_t page) const;

  const PLMergeSlots& _theirs;
  const std::uint64_t _maxGroupCount;
  std::uint64_t _end;                // pages of theirs, with those behind their end that are needed
  std::set<std::uint64_t> _gone;     // pages of theirs
  std::vector<Insertion> _inserted;  // in the order of the list
  std::map<Place, Occupant> _changed;
};

}  // namespace pellor
