#include "pellor/friends/internal/PLSlotList.h"

#include <algorithm>

#include "pellor/friends/PLPerson.h"
#include "pellor/runtime/LongArray.h"

namespace pellor {

// A chunk of the list becomes a chunk of the stored array.
static_assert(PLSlotSnapshot::ChunkSize == LongArray::ChunkSize);

namespace detail {

// A node of the tree. A chunk has slots, a branch has children; both are full but for the last ones of the list.
struct SlotNode {
  std::uint64_t edition = 0;
  std::uint64_t occupied = 0;
  std::vector<std::shared_ptr<SlotNode>> children;
  std::vector<Slot> content;
};

}  // namespace detail

namespace {

using Node = detail::SlotNode;

constexpr unsigned Bits = 5;
constexpr std::uint64_t FanOut = 1U << Bits;
static_assert(FanOut == PLSlotSnapshot::ChunkSize);
constexpr unsigned GreatestHeight = 64 / Bits;

// How many slots a full tree of that height has.
std::uint64_t extent(unsigned height) { return FanOut << (Bits * height); }

std::uint64_t childIndex(std::uint64_t index, unsigned height) { return (index >> (Bits * height)) & (FanOut - 1); }

void visitNode(const Node& node, unsigned height, const std::function<void(const Slot&)>& visit) {
  if (height == 0) {
    std::ranges::for_each(node.content, visit);
    return;
  }
  for (const auto& child : node.children) visitNode(*child, height - 1, visit);
}

const Node& leafOf(const Node& root, unsigned height, std::uint64_t index) {
  const Node* node = &root;
  for (; height > 0; --height) node = node->children[childIndex(index, height)].get();
  return *node;
}

std::uint64_t occupiedIn(const std::vector<Slot>& content) {
  return content.size() - static_cast<std::uint64_t>(std::ranges::count(content, EmptySlot));
}

// Two trees side by side. The lower one is taken for the first child of a tree as high as the other.
class Difference {
 public:
  explicit Difference(const std::function<void(std::uint64_t)>& visit) : _visit(visit) {}

  void visit(const Node& node, unsigned height, const Node* other, unsigned otherHeight,
             std::uint64_t firstChunk) const {
    for (; other && otherHeight > height; --otherHeight) {
      other = other->children.empty() ? nullptr : other->children.front().get();
    }
    if (&node == other) return;
    if (height == 0) return _visit(firstChunk);
    const std::uint64_t width = extent(height - 1) / FanOut;
    for (std::size_t index = 0; index < node.children.size(); ++index) {
      const Node* counterpart = counterpartOfChild(index, height, other, otherHeight);
      visit(*node.children[index], height - 1, counterpart, counterpart == other ? otherHeight : height - 1,
            firstChunk + index * width);
    }
  }

 private:
  static const Node* counterpartOfChild(std::size_t index, unsigned height, const Node* other, unsigned otherHeight) {
    if (!other) return nullptr;
    if (otherHeight < height) return index == 0 ? other : nullptr;
    return index < other->children.size() ? other->children[index].get() : nullptr;
  }

  const std::function<void(std::uint64_t)>& _visit;
};

}  // namespace

void PLSlotSnapshot::forEach(const std::function<void(const Slot&)>& visit) const {
  if (_root) visitNode(*_root, _height, visit);
}

std::span<const Slot> PLSlotSnapshot::chunk(std::uint64_t index) const {
  return leafOf(*_root, _height, index * ChunkSize).content;
}

void PLSlotSnapshot::forEachDifferingChunk(const PLSlotSnapshot& other,
                                           const std::function<void(std::uint64_t)>& visit) const {
  if (_count > 0) Difference(visit).visit(*_root, _height, other._root.get(), other._height, 0);
}

bool haveSameSlots(const PLSlotSnapshot& one, const PLSlotSnapshot& other) {
  if (one.count() != other.count()) return false;
  for (std::uint64_t chunk = 0; chunk < one.chunkCount(); ++chunk) {
    if (!std::ranges::equal(one.chunk(chunk), other.chunk(chunk))) return false;
  }
  return true;
}

// The nodes from the root to a chunk, all of them writable.
struct PLSlotList::Path {
  void count(bool was, bool is) const {
    if (was != is) addOccupied(is ? 1 : std::uint64_t(0) - 1);
  }
  // The number wraps where slots were emptied.
  void addOccupied(std::uint64_t number) const {
    for (unsigned level = 0; level < length; ++level) nodes[level]->occupied += number;
  }
  Node& chunk() const { return *nodes[length - 1]; }

  std::array<Node*, GreatestHeight + 1> nodes;
  unsigned length = 0;
};

PLSlotList::PLSlotList() : _root(makeNode(0)) {}

std::uint64_t PLSlotList::occupiedCount() const { return _root->occupied; }

const Slot& PLSlotList::at(std::uint64_t index) const {
  return leafOf(*_root, _height, index).content[index & (FanOut - 1)];
}

void PLSlotList::set(std::uint64_t index, Slot slot) {
  const Slot& previous = at(index);
  if (previous == slot) return;
  if (previous != EmptySlot) _people.leave(*previous, index);
  if (slot != EmptySlot) _people.enter(*slot, index);
  setInTree(index, std::move(slot));
}

void PLSlotList::append(Slot slot) {
  if (_count == extent(_height)) {
    auto root = makeNode(_height + 1);
    root->occupied = _root->occupied;
    root->children.push_back(std::move(_root));
    _root = std::move(root);
    ++_height;
  }
  if (slot != EmptySlot) _people.enter(*slot, _count);
  setInTree(_count++, std::move(slot));
}

// Writes a slot or the one just behind the last. What the slot held before.
Slot PLSlotList::setInTree(std::uint64_t index, Slot slot) {
  ++_version;
  const Path path = writablePath(index);
  auto& content = path.chunk().content;
  const std::uint64_t place = index & (FanOut - 1);
  if (place == content.size()) content.push_back(EmptySlot);
  path.count(content[place] != EmptySlot, slot != EmptySlot);
  content[place].swap(slot);
  return slot;
}

// Makes the nodes on the way to the slot just behind the last as they are needed.
PLSlotList::Path PLSlotList::writablePath(std::uint64_t index) {
  Path path;
  path.nodes[path.length++] = &writable(_root);
  for (unsigned height = _height; height > 0; --height) {
    auto& children = path.chunk().children;
    const std::uint64_t child = childIndex(index, height);
    if (child == children.size()) children.push_back(makeNode(height - 1));
    path.nodes[path.length++] = &writable(children[child]);
  }
  return path;
}

std::shared_ptr<PLSlotList::Node> PLSlotList::makeNode(unsigned height) const {
  auto node = std::make_shared<Node>();
  node->edition = _edition;
  if (height == 0) node->content.reserve(FanOut);
  return node;
}

PLSlotList::Node& PLSlotList::writable(std::shared_ptr<Node>& node) {
  if (node->edition != _edition) {
    node = std::make_shared<Node>(*node);
    node->edition = _edition;
  }
  return *node;
}

void PLSlotList::remove(std::uint64_t first, std::uint64_t count) {
  if (first >= _count || count == 0) return;
  const std::uint64_t removed = std::min(count, _count - first);
  const std::uint64_t kept = _count - removed;
  ++_version;
  for (std::uint64_t index = first; index < first + removed; ++index) {
    if (const Slot& slot = at(index); slot != EmptySlot) _people.leave(*slot, index);
  }
  if (first < kept) {
    _people.moveDown(first + removed, removed);
    moveDownInTree(first, removed, kept);
  }
  _count = kept;
  if (kept == 0) {
    _root = makeNode(_height = 0);
  } else {
    cut(_root, _height, kept);
  }
}

void PLSlotList::insert(std::uint64_t first, std::uint64_t count) {
  const std::uint64_t before = _count;
  for (std::uint64_t added = 0; added < count; ++added) append(EmptySlot);
  if (first >= before) return;
  _people.moveUp(first, count);
  moveUpInTree(first, count, before);
  for (std::uint64_t index = first; index < std::min(first + count, before); ++index) setInTree(index, EmptySlot);
}

// Puts into each slot from `first` to `end` what is in the slot that is `by` further on, a chunk at a time.
void PLSlotList::moveDownInTree(std::uint64_t first, std::uint64_t by, std::uint64_t end) {
  for (std::uint64_t next = first; next < end;) {
    const std::uint64_t stop = std::min(end, (next | (FanOut - 1)) + 1);
    copyIntoChunk(next, stop, next + by);
    next = stop;
  }
}

// The other way, from the end on: puts what is in each slot from `first` to `end` into the slot that is `by` further
// on.
void PLSlotList::moveUpInTree(std::uint64_t first, std::uint64_t by, std::uint64_t end) {
  for (std::uint64_t stop = end + by; stop > first + by;) {
    const std::uint64_t next = std::max(first + by, (stop - 1) & ~(FanOut - 1));
    copyIntoChunk(next, stop, next - by);
    stop = next;
  }
}

// Puts what is in the slots from `from` on into those from `first` to `end`, which lie in one chunk. A chunk that stays
// as it is is not copied.
void PLSlotList::copyIntoChunk(std::uint64_t first, std::uint64_t end, std::uint64_t from) {
  std::vector<Slot> moved;
  moved.reserve(FanOut);
  for (std::uint64_t index = from; index < from + (end - first);) {
    const auto& source = leafOf(*_root, _height, index).content;
    const std::uint64_t place = index & (FanOut - 1);
    const std::uint64_t count = std::min(FanOut - place, from + (end - first) - index);
    moved.insert(moved.end(), source.begin() + static_cast<std::ptrdiff_t>(place),
                 source.begin() + static_cast<std::ptrdiff_t>(place + count));
    index += count;
  }
  const std::uint64_t place = first & (FanOut - 1);
  const auto& current = leafOf(*_root, _height, first).content;
  if (std::equal(moved.begin(), moved.end(), current.begin() + static_cast<std::ptrdiff_t>(place))) return;
  const Path path = writablePath(first);
  auto& content = path.chunk().content;
  const std::uint64_t before = occupiedIn(content);
  std::ranges::swap_ranges(moved, std::span(content).subspan(place, moved.size()));
  path.addOccupied(occupiedIn(content) - before);
}

// Keeps the first slots of a tree, at least one and at most as many as it has.
void PLSlotList::cut(std::shared_ptr<Node>& node, unsigned height, std::uint64_t count) {
  Node& kept = writable(node);
  if (height == 0) {
    kept.content.resize(count);
    kept.occupied = occupiedIn(kept.content);
    return;
  }
  const std::uint64_t width = extent(height - 1);
  const std::uint64_t childCount = (count + width - 1) / width;
  kept.children.resize(childCount);
  cut(kept.children.back(), height - 1, count - (childCount - 1) * width);
  kept.occupied = 0;
  for (const auto& child : kept.children) kept.occupied += child->occupied;
}

std::optional<std::uint64_t> PLSlotList::firstEmptyIndex() const {
  if (_root->occupied == _count) return std::nullopt;
  const Node* node = _root.get();
  std::uint64_t base = 0;
  for (unsigned height = _height; height > 0; --height) {
    const std::uint64_t width = extent(height - 1);
    auto hasRoom = [&](const auto& child) {
      const bool full = child->occupied == std::min(width, _count - base);
      if (full) base += width;
      return !full;
    };
    node = std::ranges::find_if(node->children, hasRoom)->get();
  }
  return base + static_cast<std::uint64_t>(std::ranges::find(node->content, EmptySlot) - node->content.begin());
}

std::shared_ptr<PLPerson> PLSlotList::firstLike(const PLPerson& person) const {
  const auto index = _people.firstLike(person);
  return index ? at(*index) : nullptr;
}

PLSlotSnapshot PLSlotList::snapshot() {
  PLSlotSnapshot snapshot;
  snapshot._root = _root;
  snapshot._count = _count;
  snapshot._version = _version;
  snapshot._height = _height;
  ++_edition;
  return snapshot;
}

}  // namespace pellor
