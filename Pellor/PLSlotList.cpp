#include "Pellor/PLSlotList.h"

#include <algorithm>

#include "Pellor/PLPerson.h"

namespace pellor {

namespace detail {

// A node of the tree. A leaf has slots, a branch has children; both are full but for the last ones of the list.
struct SlotNode {
  std::uint64_t edition = 0;
  std::uint64_t occupied = 0;
  std::vector<std::shared_ptr<SlotNode>> children;
  std::vector<Slot> content;
};

}  // namespace detail

namespace {

using Node = detail::SlotNode;

constexpr unsigned kBits = 5;
constexpr std::uint64_t kFanOut = 1U << kBits;

// How many slots a full tree of that height has.
std::uint64_t extent(unsigned height) { return kFanOut << (kBits * height); }

std::uint64_t childIndex(std::uint64_t index, unsigned height) { return (index >> (kBits * height)) & (kFanOut - 1); }

void visitNode(const Node& node, unsigned height, const std::function<void(const Slot&)>& visit) {
  if (height == 0) {
    std::ranges::for_each(node.content, visit);
    return;
  }
  for (const auto& child : node.children) visitNode(*child, height - 1, visit);
}

}  // namespace

void PLSlotSnapshot::forEach(const std::function<void(const Slot&)>& visit) const {
  if (_root) visitNode(*_root, _height, visit);
}

PLSlotList::PLSlotList() : _root(std::make_shared<Node>()) {}

std::uint64_t PLSlotList::occupiedCount() const { return _root->occupied; }

const Slot& PLSlotList::at(std::uint64_t index) const {
  const Node* node = _root.get();
  for (unsigned height = _height; height > 0; --height) node = node->children[childIndex(index, height)].get();
  return node->content[index & (kFanOut - 1)];
}

void PLSlotList::set(std::uint64_t index, Slot slot) {
  const Slot previous = at(index);
  if (previous == slot) return;
  leave(previous, index);
  enter(slot, index);
  setInTree(index, std::move(slot));
}

void PLSlotList::append(Slot slot) {
  if (_count == extent(_height)) {
    auto root = std::make_shared<Node>();
    root->edition = _edition;
    root->occupied = _root->occupied;
    root->children.push_back(std::move(_root));
    _root = std::move(root);
    ++_height;
  }
  enter(slot, _count);
  setInTree(_count++, std::move(slot));
}

// Writes a slot or the one just behind the last, making the nodes on the way to it as they are needed.
void PLSlotList::setInTree(std::uint64_t index, Slot slot) {
  ++_version;
  std::vector<Node*> path{&writable(_root)};
  for (unsigned height = _height; height > 0; --height) {
    auto& children = path.back()->children;
    const std::uint64_t child = childIndex(index, height);
    if (child == children.size()) {
      children.push_back(std::make_shared<Node>());
      children.back()->edition = _edition;
    }
    path.push_back(&writable(children[child]));
  }
  auto& content = path.back()->content;
  const std::uint64_t place = index & (kFanOut - 1);
  if (place == content.size()) content.push_back(EmptySlot);
  const bool was = content[place] != EmptySlot;
  const bool is = slot != EmptySlot;
  content[place] = std::move(slot);
  if (was == is) return;
  for (Node* node : path) is ? ++node->occupied : --node->occupied;
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
  for (std::uint64_t index = first; index + removed < _count; ++index) set(index, Slot(at(index + removed)));
  truncate(_count - removed);
}

void PLSlotList::truncate(std::uint64_t count) {
  while (_count > count) {
    const std::uint64_t last = _count - 1;
    set(last, EmptySlot);
    Node* node = &writable(_root);
    std::vector<Node*> path{node};
    for (unsigned height = _height; height > 0; --height) {
      node = &writable(node->children[childIndex(last, height)]);
      path.push_back(node);
    }
    path.back()->content.pop_back();
    // An emptied node goes with its last slot, so that the next append finds the place that it expects.
    for (std::size_t level = path.size() - 1; level > 0; --level) {
      if (!path[level]->content.empty() || !path[level]->children.empty()) break;
      path[level - 1]->children.pop_back();
    }
    --_count;
    ++_version;
  }
}

void PLSlotList::enter(const Slot& slot, std::uint64_t index) {
  if (slot == EmptySlot) return;
  auto& indexes = _indexes[slot.get()];
  if (indexes.empty()) _people.add(*slot);
  indexes.insert(std::ranges::lower_bound(indexes, index), index);
}

void PLSlotList::leave(const Slot& slot, std::uint64_t index) {
  if (slot == EmptySlot) return;
  auto known = _indexes.find(slot.get());
  std::erase(known->second, index);
  if (!known->second.empty()) return;
  _people.remove(*slot);
  _indexes.erase(known);
}

std::optional<std::uint64_t> PLSlotList::indexOf(const PLPerson* person, std::uint64_t from) const {
  auto known = _indexes.find(person);
  if (known == _indexes.end()) return std::nullopt;
  auto index = std::ranges::lower_bound(known->second, from);
  if (index == known->second.end()) return std::nullopt;
  return *index;
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
  std::optional<std::uint64_t> best;
  for (const PLPerson* candidate : _people.candidatesLike(person)) {
    auto index = indexOf(candidate);
    if (index && (!best || *index < *best) && candidate->isLike(person)) best = index;
  }
  return best ? at(*best) : nullptr;
}

std::optional<std::uint64_t> PLSlotList::firstDescribedBy(const Dictionary& stored, std::uint64_t from) const {
  std::optional<std::uint64_t> best;
  for (const PLPerson* candidate : _people.candidatesFor(stored)) {
    auto index = indexOf(candidate, from);
    if (index && (!best || *index < *best) && candidate->isEqualToDictionaryRepresentation(stored)) best = index;
  }
  return best;
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
