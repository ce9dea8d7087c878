#include "pellor/friends/internal/PLMergeFriends.h"

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "pellor/friends/internal/PLMergeFields.h"

namespace pellor {
namespace {

struct Side {
  const PLMergeSlots& list;
  const PLWrittenForm* writtenForm;  // null: forms are as written
};

// A friend of one side. Its form is made when it is first asked for.
class Candidate {
 public:
  Candidate(const Side& side, std::uint64_t slot) : _side(&side), _slot(slot) {}

  std::uint64_t slot() const { return _slot; }
  std::string_view guid() const { return _side->list.guid(_slot); }
  const Dictionary& form() const {
    if (!_form) {
      Dictionary form = _side->list.form(_slot);
      _form = std::make_unique<const Dictionary>(_side->writtenForm ? (*_side->writtenForm)(form) : std::move(form));
    }
    return *_form;
  }

  bool isPaired = false;
  Candidate* otherAtSamePlace = nullptr;  // of the other side
  Candidate* nextOfKey = nullptr;         // of its own side, in slot order

 private:
  const Side* _side;
  std::uint64_t _slot;
  mutable std::unique_ptr<const Dictionary> _form;
};

class Matcher {
 public:
  using Pairs = std::vector<PLFriendPairs::Pair>;

  Matcher(const Side& leftSide, const Side& rightSide) : _leftSide(leftSide), _rightSide(rightSide) {}
  Matcher(const Matcher&) = delete;
  Matcher& operator=(const Matcher&) = delete;

  // In slot order.
  void addLeft(std::uint64_t slot) { _left.emplace_back(_leftSide, slot); }
  void addRight(std::uint64_t slot) { _right.emplace_back(_rightSide, slot); }
  // Once all are added.
  void findSamePlaces(const PLSlotAtSamePlace& rightSlotAt) {
    auto next = _right.begin();
    for (Candidate& candidate : _left) {
      const auto slot = rightSlotAt(candidate.slot());
      if (!slot) continue;
      const bool isNext = next != _right.end() && next->slot() == *slot;
      if (!isNext) next = std::ranges::lower_bound(_right, *slot, {}, &Candidate::slot);
      if (next != _right.end() && next->slot() == *slot) candidate.otherAtSamePlace = &*next++;
    }
  }

  // Pairs candidates that have equal keys, unless these are empty, and fit: those in the same place, then the first
  // with the first.
  template <class KeyOf, class Fits>
  void pairByKey(const KeyOf& keyOf, const Fits& fits) {
    if (std::ranges::all_of(_left, &Candidate::isPaired)) return;
    using Key = decltype(keyOf(_left.front()));
    std::unordered_map<Key, Candidate*> firstOfKey;
    firstOfKey.reserve(static_cast<std::size_t>(std::ranges::count(_right, false, &Candidate::isPaired)));
    for (auto candidate = _right.rbegin(); candidate != _right.rend(); ++candidate) {
      if (candidate->isPaired) continue;
      Key key = keyOf(*candidate);
      if (key.empty()) continue;
      Candidate*& first = firstOfKey[std::move(key)];
      candidate->nextOfKey = std::exchange(first, &*candidate);
    }
    if (firstOfKey.empty()) return;
    pairAtSamePlace([&](const Candidate& one, const Candidate& other) {
      const Key key = keyOf(one);
      return !key.empty() && key == keyOf(other) && fits(one, other);
    });
    for (Candidate& candidate : _left) {
      if (candidate.isPaired) continue;
      const auto first = firstOfKey.find(keyOf(candidate));
      if (first != firstOfKey.end()) pairWithFirst(candidate, first->second, fits);
    }
  }

  template <class Fits>
  void pairAtSamePlace(const Fits& fits) {
    for (Candidate& candidate : _left) {
      Candidate* other = candidate.otherAtSamePlace;
      if (candidate.isPaired || !other || other->isPaired || !fits(candidate, *other)) continue;
      pair(candidate, *other);
    }
  }

  Pairs takePairs() { return std::move(_pairs); }
  std::vector<std::uint64_t> unpairedRight() const {
    std::vector<std::uint64_t> slots;
    for (const Candidate& candidate : _right) {
      if (!candidate.isPaired) slots.push_back(candidate.slot());
    }
    return slots;
  }

 private:
  // Those of the key before `first` are paired.
  template <class Fits>
  void pairWithFirst(Candidate& candidate, Candidate*& first, const Fits& fits) {
    while (first && first->isPaired) first = first->nextOfKey;
    for (Candidate* other = first; other; other = other->nextOfKey) {
      if (!other->isPaired && fits(candidate, *other)) return pair(candidate, *other);
    }
  }

  void pair(Candidate& one, Candidate& other) {
    one.isPaired = other.isPaired = true;
    _pairs.push_back({one.slot(), other.slot()});
  }

  const Side _leftSide;
  const Side _rightSide;
  std::vector<Candidate> _left;
  std::vector<Candidate> _right;
  Pairs _pairs;
};

bool fitByKey(const Candidate& /*one*/, const Candidate& /*other*/) { return true; }

bool fitByBlock(const Candidate& one, const Candidate& other) { return haveSameBlock(one.form(), other.form()); }

bool fitByDestination(const Candidate& one, const Candidate& other) {
  return haveCommonDestination(one.form(), other.form());
}

bool fitByNameOrDestinations(const Candidate& one, const Candidate& other) {
  return haveSameName(one.form(), other.form()) || haveSameDestinations(one.form(), other.form());
}

std::string_view guidOf(const Candidate& candidate) { return candidate.guid(); }

std::string blockOf(const Candidate& candidate) { return keyOfBlock(candidate.form()); }

std::string_view writtenNameOf(const Candidate& candidate) { return nameOf(candidate.form()); }

}  // namespace

PLFriendPairs::PLFriendPairs(const PLMergeSlots& base, const PLMergeSlots& theirs, const PLWrittenForm& writtenForm,
                             const PLSlotAtSamePlace& theirSlotAt)
    : _base(&base), _theirs(&theirs) {
  Matcher matcher({base, &writtenForm}, {theirs, &writtenForm});
  forEachDifferingChunk(base, theirs, [&](std::uint64_t chunk) {
    const std::uint64_t first = firstSlotOfChunk(chunk);
    for (std::uint64_t slot = first; slot < first + LongArray::ChunkSize; ++slot) {
      if (!base.isEmpty(slot)) matcher.addLeft(slot);
      if (!theirs.isEmpty(slot)) matcher.addRight(slot);
    }
  });
  matcher.findSamePlaces(theirSlotAt);
  // Most have not changed, and equal elements in the same place would be paired by whatever they have.
  matcher.pairAtSamePlace([&](const Candidate& one, const Candidate& other) {
    return base.hasSameElement(one.slot(), theirs, other.slot());
  });
  matcher.pairByKey(guidOf, fitByKey);
  matcher.pairByKey(blockOf, fitByBlock);
  matcher.pairByKey(writtenNameOf, fitByDestination);
  matcher.pairAtSamePlace(fitByNameOrDestinations);
  _pairs = matcher.takePairs();
  _additions = matcher.unpairedRight();
  _theirSlots.reserve(_pairs.size());
  for (const Pair& pair : _pairs) _theirSlots.emplace(pair.base, pair.theirs);
}

std::optional<std::uint64_t> PLFriendPairs::theirs(std::uint64_t baseSlot) const {
  const std::uint64_t chunk = chunkOfSlot(baseSlot);
  if (_base->chunk(chunk) == _theirs->chunk(chunk)) return baseSlot;
  const auto found = _theirSlots.find(baseSlot);
  return found == _theirSlots.end() ? std::nullopt : std::optional(found->second);
}

std::unordered_map<std::uint64_t, std::uint64_t> addedByBoth(const PLMergeSlots& ours,
                                                             const std::vector<std::uint64_t>& ourAdditions,
                                                             const PLMergeSlots& theirs,
                                                             const std::vector<std::uint64_t>& theirAdditions,
                                                             const PLWrittenForm& writtenForm,
                                                             const PLSlotAtSamePlace& theirSlotAt) {
  if (ourAdditions.empty() || theirAdditions.empty()) return {};
  Matcher matcher({ours, nullptr}, {theirs, &writtenForm});
  for (const std::uint64_t slot : ourAdditions) matcher.addLeft(slot);
  for (const std::uint64_t slot : theirAdditions) matcher.addRight(slot);
  matcher.findSamePlaces(theirSlotAt);
  const auto unlessIdentified = [](const auto& keyOf) {
    return [&](const Candidate& candidate) {
      return candidate.guid().empty() ? keyOf(candidate) : decltype(keyOf(candidate))();
    };
  };
  matcher.pairByKey(guidOf, fitByKey);
  matcher.pairByKey(unlessIdentified(blockOf), fitByBlock);
  matcher.pairByKey(unlessIdentified(writtenNameOf), fitByDestination);
  std::unordered_map<std::uint64_t, std::uint64_t> same;
  for (const PLFriendPairs::Pair& pair : matcher.takePairs()) same.emplace(pair.base, pair.theirs);
  return same;
}

}  // namespace pellor
