// The flat list of slots, of which the save queue can read a version while the main queue edits the next.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "pellor/friends/PLSlot.h"
#include "pellor/friends/internal/PLPersonIndex.h"

namespace pellor {

namespace detail {
struct SlotNode;
}

/// One version of the list: immutable, readable on any thread, and sharing all that later versions did not change.
///
/// The slots lie in chunks of `ChunkSize`, of which the last may be shorter. A chunk that did not change from one
/// version to another is the same object in both.
class PLSlotSnapshot {
 public:
  static constexpr std::size_t ChunkSize = 32;

  std::uint64_t count() const { return _count; }
  /// Grows with every edit of the list.
  std::uint64_t version() const { return _version; }
  /// Calls `visit` with each slot, in order.
  void forEach(const std::function<void(const Slot&)>& visit) const;

  std::uint64_t chunkCount() const { return (_count + ChunkSize - 1) / ChunkSize; }
  /// The slots of a chunk below `chunkCount()`, which live as long as any snapshot that shares them.
  std::span<const Slot> chunk(std::uint64_t index) const;
  /// Calls `visit` with the index of each chunk of this version, in order, that is not the same object as the one at
  /// its place in `other`. Costs as much as there are such chunks, not as the list is long.
  void forEachDifferingChunk(const PLSlotSnapshot& other, const std::function<void(std::uint64_t)>& visit) const;

 private:
  friend class PLSlotList;
  std::shared_ptr<const detail::SlotNode> _root;
  std::uint64_t _count = 0;
  std::uint64_t _version = 0;
  unsigned _height = 0;
};

/// Whether both versions have the same persons in the same slots. Looks at all of them.
bool haveSameSlots(const PLSlotSnapshot& one, const PLSlotSnapshot& other);

/// A list of slots, each of which holds a person or `EmptySlot`. Reading and writing one slot, finding a person's slot
/// and finding the lowest empty slot cost next to nothing more in a longer list; taking a version costs nothing, and an
/// edit after that copies the few nodes on the way to its slot. Main queue.
///
/// It is a tree of nodes with up to 32 slots or children each, and an index over the persons in the slots.
class PLSlotList {
 public:
  PLSlotList();

  std::uint64_t count() const { return _count; }
  std::uint64_t version() const { return _version; }
  /// How many slots hold a person.
  std::uint64_t occupiedCount() const;

  /// The content of a slot below `count()`; the reference lives until the next edit.
  const Slot& at(std::uint64_t index) const;
  /// Puts a person or `EmptySlot` into a slot below `count()`.
  void set(std::uint64_t index, Slot slot);
  void append(Slot slot);
  /// Takes out `count` slots from `first` on, as far as there are any; later slots move down.
  void remove(std::uint64_t first, std::uint64_t count);
  /// Puts `count` empty slots before the slot `first`, or behind the last one; later slots move up.
  void insert(std::uint64_t first, std::uint64_t count);
  void clear() { remove(0, _count); }

  /// The persons in the slots, by what identifies them; their places are the slots.
  const PLPersonIndex& people() const { return _people; }
  PLPersonIndex& people() { return _people; }

  /// The lowest slot at or above `from` that holds this very person; absent when there is none.
  std::optional<std::uint64_t> indexOf(const PLPerson* person, std::uint64_t from = 0) const {
    return _people.places().lowest(person, from);
  }
  /// The highest slot that holds this very person; absent when there is none.
  std::optional<std::uint64_t> lastIndexOf(const PLPerson* person) const { return _people.places().highest(person); }
  /// The lowest empty slot; absent when there is none.
  std::optional<std::uint64_t> firstEmptyIndex() const;
  /// The friend in the lowest slot that is like `person`; null when none is.
  std::shared_ptr<PLPerson> firstLike(const PLPerson& person) const;
  /// The lowest slot at or above `from` whose friend the stored form describes; absent when there is none.
  std::optional<std::uint64_t> firstDescribedBy(const PLPersonForm& stored, std::uint64_t from) const {
    return _people.firstDescribedBy(stored, from);
  }

  /// The list as it is now. Later edits do not show in it.
  PLSlotSnapshot snapshot();

 private:
  friend class PLSlotRearrangement;
  using Node = detail::SlotNode;
  struct Path;

  Slot setInTree(std::uint64_t index, Slot slot);
  void moveDownInTree(std::uint64_t first, std::uint64_t by, std::uint64_t end);
  void moveUpInTree(std::uint64_t first, std::uint64_t by, std::uint64_t end);
  void copyIntoChunk(std::uint64_t first, std::uint64_t end, std::uint64_t from);
  void cut(std::shared_ptr<Node>& node, unsigned height, std::uint64_t count);
  Path writablePath(std::uint64_t index);
  std::shared_ptr<Node> makeNode(unsigned height) const;
  Node& writable(std::shared_ptr<Node>& node);

  // Nodes that carry the present edition are in no snapshot and are changed in place; others are copied first.
  std::uint64_t _edition = 0;
  std::shared_ptr<Node> _root;
  std::uint64_t _count = 0;
  std::uint64_t _version = 0;
  unsigned _height = 0;  // of the tree: a chunk has height 0
  PLPersonIndex _people;
};

}  // namespace pellor
