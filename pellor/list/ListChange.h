// What lies between two versions of a list.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "pellor/list/ListIds.h"
#include "pellor/list/Snapshot.h"

namespace pellor {

/// What is shown of a friend.
enum class FriendField : std::uint16_t {
  name = 1,
  monogram = 2,
  destination = 4,
  destinations = 8,
  chosenNumber = 16,
  replyAs = 32,
  metadata = 64,
  contact = 128,
  reachability = 256,  ///< or the age of what is known of it
};

/// A set of these.
struct FriendFields {
  std::uint16_t bits = 0;

  void insert(FriendField field) { bits = static_cast<std::uint16_t>(bits | static_cast<std::uint16_t>(field)); }
  bool contains(FriendField field) const { return (bits & static_cast<std::uint16_t>(field)) != 0; }
  bool isEmpty() const { return bits == 0; }
  friend bool operator==(const FriendFields&, const FriendFields&) = default;
};

/// Where changes come from.
enum class ChangeOrigin {
  thisProgram,
  undo,          ///< this program took a step back, or did it again
  otherProgram,  ///< what another program of the user stored
  device,        ///< what the paired device stored
  contacts,      ///< the contacts, which the list follows
  load,          ///< the list was read again
};

/// One batch of changes. Done in this order, to a list that looks like `before`, they make it look like `after`:
///
///   1  the friends of `removed` and of `moved` leave their slots;
///   2  the pages of `pagesRemoved`, on which nobody is any more, and those of `pagesMoved`, with all that is on them,
///      leave their indexes, the last one first;
///   3  the pages of `pagesInserted`, empty and without a title, and those of `pagesMoved` take theirs, the first one
///      first;
///   4  the pages of `renamed` get their new titles;
///   5  the friends of `moved` and of `added` take their slots, which are free;
///   6  the friends of `changed` are shown anew.
///
/// A friend who is where he was on his page has not moved, whatever became of the pages before it.
struct ListChange {
  struct Removal {
    FriendId id;
    Place from;  ///< in `before`
  };
  struct Move {
    FriendId id;
    Place from;  ///< in `before`
    Place to;    ///< in `after`
  };
  struct Addition {
    FriendId id;
    Place to;  ///< in `after`
  };
  struct PageChange {
    PageId id;
    std::size_t index = 0;  ///< of a removed page in `before`, else in `after`
  };
  struct PageMove {
    PageId id;
    std::size_t from = 0;  ///< in `before`
    std::size_t to = 0;    ///< in `after`
  };
  struct FriendChange {
    FriendId id;
    FriendFields fields;
  };

  ChangeOrigin origin = ChangeOrigin::thisProgram;
  Snapshot before;
  Snapshot after;
  std::vector<Removal> removed;           ///< by place
  std::vector<PageChange> pagesRemoved;   ///< by index
  std::vector<PageChange> pagesInserted;  ///< by index
  std::vector<PageMove> pagesMoved;       ///< by the index that they got; pages that only shifted are not among them
  std::vector<PageChange> renamed;        ///< by index; also inserted pages that have a title
  std::vector<Move> moved;                ///< by the place to which
  std::vector<Addition> added;            ///< by place
  std::vector<FriendChange> changed;      ///< by place; of those who were there before

  bool isEmpty() const;
};

/// What makes `after` out of `before`, two versions of one list. Costs as much as what is on the pages that differ. Any
/// thread.
ListChange changeBetween(const Snapshot& before, const Snapshot& after);

}  // namespace pellor
