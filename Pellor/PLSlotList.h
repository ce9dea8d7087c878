// The flat list of slots, of which the save queue can read a version while the main queue edits the next.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "Pellor/PLPersonIndex.h"
#include "Pellor/PLSlot.h"

namespace pellor {

namespace detail {
struct SlotNode;
}

/// One version of the list: immutable, readable on any thread, and sharing all that later versions did not change.
class PLSlotSnapshot {
 public:
  std::uint64_t count() const { return _count; }
  /// Grows with every edit of the list.
  std::uint64_t version() const { return _version; }
  /// Calls `visit` with each slot, in order.
  void forEach(const std::function<void(const Slot&)>& visit) const;

 private:
  friend class PLSlotList;
  std::shared_ptr<const detail::SlotNode> _root;
  std::uint64_t _count = 0;
  std::uint64_t _version = 0;
  unsigned _height = 0;
};

/// A list of slots, each of which holds a person or `EmptySlot`. Reading and writing one slot, finding a person's slot
/// and finding the lowest empty slot cost next to nothing more in a longer list; taking a version costs nothing, and an
/// edit after that copies the few nodes on the way to its slot. Main queue.
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
  void clear() { remove(0, _count); }

  /// The lowest slot at or above `from` that holds this very person; absent when there is none.
  std::optional<std::uint64_t> indexOf(const PLPerson* person, std::uint64_t from = 0) const;
  /// The lowest empty slot; absent when there is none.
  std::optional<std::uint64_t> firstEmptyIndex() const;
  /// The friend in the lowest slot that is like `person`; null when none is.
  std::shared_ptr<PLPerson> firstLike(const PLPerson& person) const;
  /// The lowest slot at or above `from` whose friend the stored form describes; absent when there is none.
  std::optional<std::uint64_t> firstDescribedBy(const Dictionary& stored, std::uint64_t from) const;

  /// The list as it is now. Later edits do not show in it.
  PLSlotSnapshot snapshot();

 private:
  using Node = detail::SlotNode;

  void setInTree(std::uint64_t index, Slot slot);
  void truncate(std::uint64_t count);
  Node& writable(std::shared_ptr<Node>& node);
  void enter(const Slot& slot, std::uint64_t index);
  void leave(const Slot& slot, std::uint64_t index);

  std::shared_ptr<Node> _root;
  std::uint64_t _count = 0;
  std::uint64_t _version = 0;
  unsigned _height = 0;  // of the tree: a leaf has height 0
  // Nodes that carry the present edition are in no snapshot and are changed in place; others are copied first.
  std::uint64_t _edition = 0;
  std::unordered_map<const PLPerson*, std::vector<std::uint64_t>> _indexes;  // ascending
  PLPersonIndex _people;
};

}  // namespace pellor
