#include "pellor/friends/internal/PLListMerge.h"

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "pellor/friends/detail/PLPersonForm.h"
#include "pellor/friends/internal/PLMergeFriends.h"
#include "pellor/friends/internal/PLMergePages.h"
#include "pellor/friends/internal/PLMergeSlots.h"
#include "pellor/friends/internal/PLThreeWayMerge.h"

namespace pellor {
namespace {

bool haveEqualElements(const ArrayChunk& one, const ArrayChunk& other) {
  if (one.size() != other.size()) return false;
  for (std::size_t index = 0; index < one.size(); ++index) {
    if (one.at(index) != other.at(index)) return false;
  }
  return true;
}

// The list with base's own chunks where it has equal ones, so that nobody looks at them again.
LongArray sharingChunks(const LongArray& list, const LongArray& base) {
  auto chunks = list.chunks();
  for (std::size_t index = 0; index < std::min(chunks.size(), base.chunks().size()); ++index) {
    const auto& known = base.chunks()[index];
    if (chunks[index] != known && haveEqualElements(*chunks[index], *known)) chunks[index] = known;
  }
  return LongArray(std::move(chunks));
}

// The form without what only says where the contact is on that device.
Dictionary formAnywhere(const Value& element) {
  Dictionary form = element.dictionary() ? *element.dictionary() : Dictionary();
  form.erase(std::string(PLPersonRecordIDKey));
  form.erase(std::string(PLPersonDatabaseUIDKey));
  return form;
}

// The friends of theirs that are alike in ours, in the slots of theirs.
LongArray commonFriends(const LongArray& theirs, const LongArray& ours) {
  std::unordered_map<std::string, std::vector<Dictionary>> forms;
  const auto alike = [&](const Dictionary& form) -> std::vector<Dictionary>& {
    return forms[Value(form).description()];
  };
  for (const Value& element : ours.elements()) {
    const Dictionary form = formAnywhere(element);
    alike(form).push_back(form);
  }
  Array common = theirs.elements();
  for (Value& element : common) {
    const Dictionary form = formAnywhere(element);
    auto& others = alike(form);
    const auto same = std::ranges::find(others, form);
    if (same == others.end()) {
      element = Dictionary{};
    } else {
      others.erase(same);
    }
  }
  return LongArray(common);
}

bool hasFriends(const LongArray& list) {
  const PLMergeSlots slots(list, 1);
  return slots.occupiedPageCount() > 0;
}

// Where the friends and pages of ours are in base.
class OursInBase {
 public:
  OursInBase(const PLMergeInput& input, const Array& ourTitles)
      : _input(input),
        _ourTitles(ourTitles),
        _base(input.base, input.groupSize),
        _ours(input.ours, input.groupSize),
        _friends(_base, _ours, input.writtenForm, [](std::uint64_t slot) { return std::optional(slot); }),
        _pages(_base, input.baseTitles, _ours, ourTitles, _friends) {
    if (!_pages.isShifted()) return;
    _friends = PLFriendPairs(_base, _ours, input.writtenForm, [this](std::uint64_t slot) {
      const auto page = _pages.theirs(_base.pageOf(slot));
      return page ? std::optional(*page * _input.groupSize + _base.positionOf(slot)) : std::nullopt;
    });
  }

  PLFriendOrigins friends() const {
    PLFriendOrigins origins;
    forEachDifferingChunk(_base, _ours, [&](std::uint64_t chunk) {
      if (chunk < _ours.chunkCount()) origins[chunk].resize(_ours.chunk(chunk)->size());
    });
    for (const PLFriendPairs::Pair& pair : _friends.pairs()) {
      origins[chunkOfSlot(pair.theirs)][pair.theirs % LongArray::ChunkSize] = pair.base;
    }
    return origins;
  }

  std::uint64_t groupCount() const { return std::min(_ours.pageCount(), _input.maxGroupCount); }

  PLPageOrigins pages() const {
    PLPageOrigins origins;
    if (!_pages.isShifted()) return origins;
    for (std::uint64_t page = 0; page < groupCount(); ++page) origins.push_back(basePageOf(page));
    return origins;
  }

  std::map<std::uint64_t, std::string> titles() const {
    std::map<std::uint64_t, std::string> set;
    for (std::uint64_t page = 0; page < groupCount(); ++page) {
      const std::string* title = titleOfPage(_ourTitles, page);
      const auto basePage = basePageOf(page);
      const std::string* before = basePage ? titleOfPage(_input.baseTitles, *basePage) : nullptr;
      const bool isKept = before ? title && *title == *before : !title || title->empty();
      if (!isKept) set.emplace(page, title ? *title : "");
    }
    return set;
  }

 private:
  std::optional<std::uint64_t> basePageOf(std::uint64_t page) const {
    const auto found = _pages.base(page);
    return found && *found < _base.pageCount() ? found : std::nullopt;
  }

  const PLMergeInput& _input;
  const Array& _ourTitles;
  const PLMergeSlots _base;
  const PLMergeSlots _ours;
  PLFriendPairs _friends;
  const PLPageMatch _pages;
};

}  // namespace

PLMergedList mergedLists(const PLTitledList& base, const PLTitledList& theirs, const PLTitledList& ours,
                         const PLListMergeOptions& options) {
  if (theirs == base) return {ours, 0};
  if (ours == base || ours == theirs) return {theirs, 0};
  PLMergeInput input;
  input.base = hasFriends(base.list) ? base.list : commonFriends(theirs.list, ours.list);
  input.baseTitles = base.titles;
  input.theirs = sharingChunks(theirs.list, input.base);
  input.theirTitles = theirs.titles;
  input.ours = sharingChunks(ours.list, input.base);
  input.groupSize = options.groupSize;
  input.maxGroupCount = options.maxGroupCount;
  input.writtenForm = options.writtenForm;
  const OursInBase known(input, ours.titles);
  input.ourFriends = known.friends();
  input.ourPages = known.pages();
  input.ourPageCount = known.groupCount();
  input.ourTitles = known.titles();
  PLMergeResult result = threeWayMerge(input);
  return {{std::move(result.list), std::move(result.titles)}, result.leftOut.size()};
}

}  // namespace pellor
