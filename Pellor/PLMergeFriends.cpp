#include "Pellor/PLMergeFriends.h"

#include <algorithm>
#include <string>

#include "Pellor/PLMergeFields.h"

namespace pellor {
namespace {

// A friend that is not paired yet. Its form is made when it is first asked for.
class Candidate {
 public:
  Candidate(const PLMergeSlots& list, std::uint64_t slot, const PLWrittenForm* writtenForm)
      : _list(&list), _slot(slot), _writtenForm(writtenForm) {}

  std::uint64_t slot() const { return _slot; }
  std::string guid() const { return _list->guid(_slot); }
  const Dictionary& form() const {
    if (!_form) _form = _writtenForm ? (*_writtenForm)(_list->form(_slot)) : _list->form(_slot);
    return *_form;
  }

  bool isPaired = false;
  std::optional<std::uint64_t> otherAtSamePlace;  // the slot of the other list

 private:
  const PLMergeSlots* _list;
  std::uint64_t _slot;
  const PLWrittenForm* _writtenForm;  // null: the form is as written
  mutable std::optional<Dictionary> _form;
};

using Group = std::vector<Candidate*>;
using Fits = std::function<bool(const Candidate&, const Candidate&)>;
using KeyOf = std::function<std::string(const Candidate&)>;

class Matcher {
 public:
  using Pairs = std::vector<PLFriendPairs::Pair>;

  std::vector<Candidate> left;
  std::vector<Candidate> right;
  Pairs pairs;

  // Pairs candidates that have the same key, unless it is empty, and fit.
  void pairByKey(const KeyOf& keyOf, const Fits& fits) {
    std::unordered_map<std::string, Group> rights;
    for (Candidate& candidate : right) enter(candidate, keyOf, rights);
    if (rights.empty()) return;
    std::unordered_map<std::string, Group> lefts;
    for (Candidate& candidate : left) enter(candidate, keyOf, lefts);
    for (auto& [key, group] : lefts) {
      const auto found = rights.find(key);
      if (found != rights.end()) pairGroups(group, found->second, fits);
    }
  }

  void pairAtSamePlace(const Fits& fits) {
    Group rights;
    for (Candidate& candidate : right) rights.push_back(&candidate);
    for (Candidate& candidate : left) pairAtSamePlace(candidate, rights, fits);
  }

 private:
  static void enter(Candidate& candidate, const KeyOf& keyOf, std::unordered_map<std::string, Group>& groups) {
    if (candidate.isPaired) return;
    std::string key = keyOf(candidate);
    if (!key.empty()) groups[std::move(key)].push_back(&candidate);
  }

  // The groups are in slot order.
  void pairGroups(const Group& lefts, const Group& rights, const Fits& fits) {
    for (Candidate* candidate : lefts) pairAtSamePlace(*candidate, rights, fits);
    auto first = rights.begin();
    for (Candidate* candidate : lefts) {
      if (candidate->isPaired) continue;
      first = std::find_if(first, rights.end(), [](const Candidate* other) { return !other->isPaired; });
      const auto found = std::find_if(
          first, rights.end(), [&](const Candidate* other) { return !other->isPaired && fits(*candidate, *other); });
      if (found != rights.end()) pair(*candidate, **found);
    }
  }

  void pairAtSamePlace(Candidate& candidate, const Group& rights, const Fits& fits) {
    if (candidate.isPaired || !candidate.otherAtSamePlace) return;
    const auto found = std::ranges::lower_bound(rights, *candidate.otherAtSamePlace, {}, &Candidate::slot);
    if (found == rights.end() || (*found)->slot() != *candidate.otherAtSamePlace || (*found)->isPaired) return;
    if (fits(candidate, **found)) pair(candidate, **found);
  }

  void pair(Candidate& one, Candidate& other) {
    one.isPaired = other.isPaired = true;
    pairs.push_back({one.slot(), other.slot()});
  }
};

bool fitByKey(const Candidate& /*one*/, const Candidate& /*other*/) { return true; }

bool fitByBlock(const Candidate& one, const Candidate& other) { return haveSameBlock(one.form(), other.form()); }

bool fitByNameAndDestination(const Candidate& one, const Candidate& other) {
  return haveSameName(one.form(), other.form()) && haveCommonDestination(one.form(), other.form());
}

bool fitByNameOrDestinations(const Candidate& one, const Candidate& other) {
  return haveSameName(one.form(), other.form()) || haveSameDestinations(one.form(), other.form());
}

std::string guidOf(const Candidate& candidate) { return candidate.guid(); }

std::string blockOf(const Candidate& candidate) { return keyOfBlock(candidate.form()); }

std::string writtenNameOf(const Candidate& candidate) { return std::string(nameOf(candidate.form())); }

// Takes up the friends of a chunk; those with equal elements at the same place are paired at once.
void enterChunk(Matcher& matcher, std::uint64_t chunk, const PLMergeSlots& base, const PLMergeSlots& theirs,
                const PLWrittenForm& writtenForm) {
  const std::uint64_t first = firstSlotOfChunk(chunk);
  for (std::uint64_t slot = first; slot < first + LongArray::RunSize; ++slot) {
    if (!base.isEmpty(slot)) matcher.left.emplace_back(base, slot, &writtenForm);
    if (!theirs.isEmpty(slot)) matcher.right.emplace_back(theirs, slot, &writtenForm);
  }
}

void pairUnchanged(Matcher& matcher, const PLMergeSlots& base, const PLMergeSlots& theirs) {
  for (Candidate& candidate : matcher.left) {
    if (!candidate.otherAtSamePlace) continue;
    const auto found = std::ranges::lower_bound(matcher.right, *candidate.otherAtSamePlace, {}, &Candidate::slot);
    if (found == matcher.right.end() || found->slot() != *candidate.otherAtSamePlace) continue;
    if (!haveSameElement(base, candidate.slot(), theirs, found->slot())) continue;
    candidate.isPaired = found->isPaired = true;
    matcher.pairs.push_back({candidate.slot(), found->slot()});
  }
}

}  // namespace

PLFriendPairs::PLFriendPairs(const PLMergeSlots& base, const PLMergeSlots& theirs, const PLWrittenForm& writtenForm,
                             const PLSlotAtSamePlace& theirSlotAt)
    : _base(&base), _theirs(&theirs) {
  Matcher matcher;
  forEachDifferingChunk(base, theirs,
                        [&](std::uint64_t chunk) { enterChunk(matcher, chunk, base, theirs, writtenForm); });
  for (Candidate& candidate : matcher.left) candidate.otherAtSamePlace = theirSlotAt(candidate.slot());
  pairUnchanged(matcher, base, theirs);
  matcher.pairByKey(guidOf, fitByKey);
  matcher.pairByKey(blockOf, fitByBlock);
  matcher.pairByKey(writtenNameOf, fitByNameAndDestination);
  matcher.pairAtSamePlace(fitByNameOrDestinations);
  _pairs = std::move(matcher.pairs);
  for (const Pair& pair : _pairs) _theirSlots.emplace(pair.base, pair.theirs);
  for (const Candidate& candidate : matcher.right) {
    if (!candidate.isPaired) _additions.push_back(candidate.slot());
  }
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
  Matcher matcher;
  for (const std::uint64_t slot : ourAdditions) matcher.left.emplace_back(ours, slot, nullptr);
  for (const std::uint64_t slot : theirAdditions) matcher.right.emplace_back(theirs, slot, &writtenForm);
  for (Candidate& candidate : matcher.left) candidate.otherAtSamePlace = theirSlotAt(candidate.slot());
  const auto unlessIdentified = [](const KeyOf& keyOf) {
    return [keyOf](const Candidate& candidate) { return candidate.guid().empty() ? keyOf(candidate) : std::string(); };
  };
  matcher.pairByKey(guidOf, fitByKey);
  matcher.pairByKey(unlessIdentified(blockOf), fitByBlock);
  matcher.pairByKey(unlessIdentified(writtenNameOf), fitByNameAndDestination);
  std::unordered_map<std::uint64_t, std::uint64_t> same;
  for (const PLFriendPairs::Pair& pair : matcher.pairs) same.emplace(pair.base, pair.theirs);
  return same;
}

}  // namespace pellor
