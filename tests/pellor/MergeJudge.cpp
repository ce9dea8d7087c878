#include "tests/pellor/MergeJudge.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <set>

#include "pellor/friends/internal/PLMergePages.h"

namespace pellor::merging {
namespace {

void set(Dictionary& form, std::string_view key, const std::optional<Value>& value) {
  form.erase(std::string(key));
  if (value) form.emplace(std::string(key), *value);
}

bool isOfBase(const Triple& triple, PageName name) {
  return name >= 0 && name < static_cast<PageName>(triple.base.pages.size());
}

std::optional<std::uint64_t> indexOf(const Side& side, PageName name) {
  const auto found = std::ranges::find(side.pages, name, &Page::name);
  if (found == side.pages.end()) return std::nullopt;
  return static_cast<std::uint64_t>(found - side.pages.begin());
}

std::optional<std::uint64_t> slotOf(const Triple& triple, const Side& side, Tag tag) {
  const auto place = side.placeOf(tag);
  if (!place) return std::nullopt;
  return *indexOf(side, place->page) * triple.groupSize + place->position;
}

std::string name(Tag tag) { return std::to_string(tag); }

bool bothChanged(const Triple& triple, Tag tag) {
  const Friend* base = triple.base.find(tag);
  const Friend* theirs = triple.theirs.find(tag);
  const Friend* ours = triple.ours.find(tag);
  if (!theirs || !ours) return false;
  const auto before = base ? blockOf(writtenForm(base->form)) : std::vector<std::optional<Value>>();
  const auto one = blockOf(writtenForm(theirs->form));
  const auto other = blockOf(writtenForm(ours->form));
  return one != before && other != before && one != other;
}

}  // namespace

bool areToldApart(const Triple& triple) {
  const PLMergeInput input = inputOf(triple, triple.theirs, triple.ours);
  const PLMergeSlots base(input.base, triple.groupSize);
  const PLMergeSlots theirs(input.theirs, triple.groupSize);
  const auto itself = [](std::uint64_t slot) { return std::optional(slot); };
  const PLFriendPairs friends(base, theirs, writtenForm, itself);
  const PLPageMatch pages(base, input.baseTitles, theirs, input.theirTitles, friends);
  for (std::uint64_t page = 0; page < triple.base.pages.size(); ++page) {
    if (pages.theirs(page) != indexOf(triple.theirs, static_cast<PageName>(page))) return false;
  }
  for (std::uint64_t page = 0; page < triple.theirs.pages.size(); ++page) {
    const PageName known = triple.theirs.pages[page].name;
    if (pages.base(page) != (known < 0 ? std::nullopt : std::optional(static_cast<std::uint64_t>(known)))) return false;
  }
  const PLFriendPairs again(base, theirs, writtenForm, [&](std::uint64_t slot) -> std::optional<std::uint64_t> {
    const auto page = pages.theirs(slot / triple.groupSize);
    return page ? std::optional(*page * triple.groupSize + slot % triple.groupSize) : std::nullopt;
  });
  for (const Tag tag : triple.base.tags()) {
    const auto found = again.theirs(*slotOf(triple, triple.base, tag));
    const auto isThere = [&](Tag same) { return slotOf(triple, triple.theirs, same) == found; };
    if (!triple.alike.contains(tag) ? !isThere(tag) : found && std::ranges::none_of(triple.alike, isThere))
      return false;
  }
  return true;
}

namespace {

// What each side did, and what came out of it.
class Judge {
 public:
  Judge(const Triple& triple, const PLMergeInput& input, const PLMergeResult& result)
      : _triple(triple),
        _input(input),
        _result(result),
        _isTheirsBase(input.theirs.chunks() == input.base.chunks() && input.theirTitles == input.baseTitles),
        _pageCount((result.list.size() + triple.groupSize - 1) / triple.groupSize) {
    for (std::uint64_t slot = 0; slot < _pageCount * triple.groupSize; ++slot) {
      const Value element = slot < result.list.size() ? result.list.at(slot) : Value(Dictionary());
      _forms.push_back(*element.dictionary());
      const auto tag = at(_forms.back(), TagKey);
      _tags.push_back(tag ? tag->integer() : std::nullopt);
      if (_tags.back()) _slots[*_tags.back()].push_back(slot);
    }
    for (std::uint64_t page = 0; page < _pageCount; ++page) {
      const auto theirs = result.theirPages.empty() ? std::optional(page) : result.theirPages[page];
      const bool isTheirs = theirs && *theirs < triple.theirs.pages.size();
      _pages.push_back(isTheirs ? std::optional(triple.theirs.pages[*theirs].name) : std::nullopt);
    }
    for (std::uint64_t page = 0; page < _pageCount; ++page) {
      if (!_pages[page]) _pages[page] = nameOfOurPage(page);
    }
    for (const std::uint64_t slot : result.leftOut)
      _leftOut.insert(*at(*input.ours.at(slot).dictionary(), TagKey)->integer());
  }

  std::vector<std::string> faults() {
    everybodyIsThereOnce();
    alikeAreAsMany();
    refusedOnlyWhenFull();
    noMorePagesThanAllowed();
    fieldsHold();
    titlesStayWithTheirPages();
    untouchedStayWhereTheyAre();
    placesHold();
    pagesGoOnlyWhenNobodyNeedsThem();
    flagsAndOriginsAreRight();
    return _faults;
  }

 private:
  bool isAlike(Tag tag) const { return _triple.alike.contains(tag); }
  std::uint64_t slotOf(std::uint64_t page, std::size_t position) const { return page * _triple.groupSize + position; }

  // A page of ours that theirs lacks is known by friends that can only be there because they were there in ours. Where
  // there may be no more pages, they may be there because their own did not come back.
  std::optional<PageName> nameOfOurPage(std::uint64_t page) const {
    if (_pageCount >= _triple.maxGroupCount) return std::nullopt;
    std::set<PageName> names;
    for (std::size_t position = 0; position < _triple.groupSize; ++position) {
      const auto tag = _tags[slotOf(page, position)];
      const auto place = tag && !isAlike(*tag) ? _triple.ours.placeOf(*tag) : std::nullopt;
      if (place && !_triple.theirs.page(place->page)) names.insert(place->page);
    }
    return names.size() == 1 ? std::optional(*names.begin()) : std::nullopt;
  }

  void expect(bool holds, const std::string& fault) {
    if (!holds) _faults.push_back(fault);
  }

  // By both sides, or by a clean-up that counts.
  bool isRemoved(Tag tag) const {
    if (_triple.theirs.removed.contains(tag) || _triple.ours.removed.contains(tag)) return true;
    return _isTheirsBase && _triple.ours.removedAutomatically.contains(tag);
  }

  std::optional<std::uint64_t> resultPageOf(PageName known) const {
    const auto found = std::ranges::find(_pages, std::optional(known));
    if (found == _pages.end()) return std::nullopt;
    return static_cast<std::uint64_t>(found - _pages.begin());
  }

  bool isFull() const {
    if (_pageCount < _triple.maxGroupCount) return false;
    const std::uint64_t end = std::min<std::uint64_t>(_pageCount, _triple.maxGroupCount) * _triple.groupSize;
    return std::all_of(_tags.begin(), _tags.begin() + static_cast<std::ptrdiff_t>(end),
                       [](const auto& tag) { return tag.has_value(); });
  }

  void everybodyIsThereOnce() {
    std::set<Tag> all;
    for (const Side* side : {&_triple.base, &_triple.theirs, &_triple.ours}) {
      for (const Tag tag : side->tags()) all.insert(tag);
    }
    std::size_t gaveWay = 0;
    for (const Tag tag : all) {
      if (isAlike(tag)) continue;
      const std::size_t count = _slots.contains(tag) ? _slots[tag].size() : 0;
      if (isRemoved(tag)) {
        expect(count == 0, name(tag) + " is back");
      } else if (_triple.ours.removedAutomatically.contains(tag) && count == 0) {
        ++gaveWay;
      } else {
        const bool isRefused = _leftOut.contains(tag) && !_triple.theirs.added.contains(tag);
        expect(count == (isRefused ? 0 : 1), name(tag) + (count == 0 ? " is lost" : " is doubled"));
      }
    }
    expect(gaveWay == 0 || isFull(), "a friend whom only the clean-up removed gave way though there is room");
    expect(gaveWay <= _triple.ours.added.size(), "more friends gave way than were added");
    for (const auto& [tag, slots] : _slots) expect(all.contains(tag), name(tag) + " comes from nowhere");
  }

  void alikeAreAsMany() {
    std::array<std::size_t, 3> counts{};
    const std::array sides{&_triple.base, &_triple.theirs, &_triple.ours};
    for (std::size_t side = 0; side < sides.size(); ++side) {
      for (const Tag tag : sides[side]->tags()) counts[side] += isAlike(tag) ? 1U : 0U;
    }
    std::size_t count = 0;
    for (const auto& [tag, slots] : _slots) count += isAlike(tag) ? slots.size() : 0;
    for (const Tag tag : _leftOut) count += isAlike(tag) ? 1U : 0U;
    const auto [base, theirs, ours] = counts;
    expect(count + base >= theirs + ours, "one of several who are alike is lost");
    for (const Tag tag : _triple.ours.removedAutomatically) count -= std::min<std::size_t>(count, isAlike(tag) ? 1 : 0);
    expect(count <= std::max({base, theirs + ours - std::min(base, theirs + ours), theirs, ours}),
           "one of several who are alike is doubled");
  }

  void refusedOnlyWhenFull() {
    expect(_leftOut.empty() || isFull(), "somebody is refused though there is room");
    expect(std::ranges::is_sorted(_result.leftOut), "who is left out is not in order");
    for (const Tag tag : _leftOut) {
      expect(isAlike(tag) || _triple.ours.added.contains(tag), name(tag) + " is refused, who is no addition");
    }
    for (const Tag tag : _triple.ours.removedAutomatically) {
      const bool isThere = _slots.contains(tag) && _slots[tag].front() / _triple.groupSize < _triple.maxGroupCount;
      expect(_leftOut.empty() || isAlike(tag) || !isThere, name(tag) + " does not give way");
    }
  }

  void noMorePagesThanAllowed() {
    const std::size_t most = std::max({_triple.maxGroupCount, _triple.theirs.pages.size()});
    expect(_pageCount <= most || (_isTheirsBase && _pageCount <= _triple.ours.pages.size()), "too many pages");
  }

  std::optional<Dictionary> expectedForm(Tag tag) const {
    const Friend* base = _triple.base.find(tag);
    const Friend* theirs = _triple.theirs.find(tag);
    const Friend* ours = _triple.ours.find(tag);
    if (!theirs) return ours ? std::optional(writtenForm(formOf(*ours))) : std::nullopt;
    Dictionary expected = writtenForm(formOf(*theirs));
    if (!ours) return expected;
    const Dictionary before = base ? writtenForm(formOf(*base)) : Dictionary();
    const Dictionary after = writtenForm(formOf(*ours));
    if (blockOf(before) == blockOf(expected)) {
      for (const std::string_view key : Block) set(expected, key, at(after, key));
    }
    for (const std::string_view key : OwnFields) {
      if (at(before, key) != at(after, key)) set(expected, key, at(after, key));
    }
    Dictionary metadata = metadataOf(expected);
    for (const std::string key : {"k0", "k1", "k2", "k3"}) {
      if (at(metadataOf(before), key) != at(metadataOf(after), key)) set(metadata, key, at(metadataOf(after), key));
    }
    set(expected, PLPersonMetadataKey, metadata.empty() ? std::nullopt : std::optional(Value(metadata)));
    return expected;
  }

  void fieldsHold() {
    bool needsRefresh = false;
    for (const auto& [tag, slots] : _slots) {
      if (isAlike(tag)) continue;
      needsRefresh |= bothChanged(_triple, tag);
      const auto expected = expectedForm(tag);
      const Dictionary form = writtenForm(_forms[slots.front()]);
      expect(!expected || form == *expected, name(tag) + " is " + Value(form).description() + " in place of " +
                                                 (expected ? Value(*expected).description() : std::string()));
    }
    expect(needsRefresh == _result.needsRefresh || !_triple.alike.empty(), "the flag of a refresh is wrong");
  }

  void titlesStayWithTheirPages() {
    for (std::uint64_t page = 0; page < _pageCount; ++page) {
      if (!_pages[page]) continue;
      const Page* base = _triple.base.page(*_pages[page]);
      const Page* theirs = _triple.theirs.page(*_pages[page]);
      const Page* ours = _triple.ours.page(*_pages[page]);
      const bool isSetByUs = ours && _triple.ours.titled.contains(*_pages[page]);
      const Page* from = isSetByUs ? ours : theirs ? theirs : base;
      const std::string expected = from ? from->title.value_or("") : "";
      const std::string* title = titleOfPage(_result.titles, page);
      expect((title ? *title : "") == expected, "page " + std::to_string(page) + " is not called '" + expected + "'");
    }
  }

  // Also those that they moved and we did not.
  void untouchedStayWhereTheyAre() {
    for (const auto& [tag, slots] : _slots) {
      const auto theirs = _triple.theirs.placeOf(tag);
      if (isAlike(tag) || !theirs) continue;
      const auto base = _triple.base.placeOf(tag);
      const auto ours = _triple.ours.placeOf(tag);
      if (base && ours && base != ours) continue;
      const std::uint64_t slot = slots.front();
      expect(_pages[slot / _triple.groupSize] == theirs->page && slot % _triple.groupSize == theirs->position,
             name(tag) + " does not stand where theirs has it");
    }
  }

  std::optional<Place> ourPlaceOfNewcomer(Tag tag) const {
    if (isAlike(tag) || !_slots.contains(tag)) return std::nullopt;
    const auto ours = _triple.ours.placeOf(tag);
    const auto base = _triple.base.placeOf(tag);
    if (!ours || ours == base || _triple.theirs.added.contains(tag)) return std::nullopt;
    return ours;
  }

  // What is free in the end was free when a friend was put: so nobody stands further from its place than it needs to.
  void placesHold() {
    for (const auto& [tag, slots] : _slots) {
      const auto place = ourPlaceOfNewcomer(tag);
      if (!place) continue;
      const std::uint64_t slot = slots.front();
      const std::uint64_t page = slot / _triple.groupSize;
      const std::size_t position = slot % _triple.groupSize;
      const auto distanceOf = [&](std::size_t other) {
        return std::max(other, place->position) - std::min(other, place->position);
      };
      const auto wanted = resultPageOf(place->page);
      const bool mayStandThere = wanted && *wanted < _triple.maxGroupCount;
      const bool standsThere = wanted == page;
      for (std::size_t other = 0; mayStandThere && other < _triple.groupSize; ++other) {
        if (_tags[slotOf(*wanted, other)]) continue;
        const bool isNearer = !standsThere || distanceOf(other) < distanceOf(position) ||
                              (distanceOf(other) == distanceOf(position) && other > position);
        expect(!isNearer, name(tag) + " does not stand as near to its place as it could");
      }
      if (mayStandThere && position != place->position) {
        const auto other = _tags[slotOf(*wanted, place->position)];
        const Friend* theirs = _triple.theirs.at(*place);
        const bool gaveWay = theirs && _triple.ours.removedAutomatically.contains(theirs->tag);
        const bool wasThere = other && (gaveWay || (theirs && theirs->tag == *other) || isAlike(*other));
        const bool camePut = other && ourPlaceOfNewcomer(*other) == place;
        expect(wasThere || camePut, name(tag) + " does not stand at its place though it was free");
      }
      const bool isElsewhere = !standsThere && _pages[page];
      for (std::uint64_t before = 0; isElsewhere && before < page * _triple.groupSize; ++before) {
        if (before / _triple.groupSize < _triple.maxGroupCount)
          expect(_tags[before].has_value(), name(tag) + " is not on the first page with room");
      }
      // A page that may be laid out comes back for a friend.
      expect(wanted || _pageCount >= _triple.maxGroupCount, name(tag) + " has lost its page");
    }
  }

  void pagesGoOnlyWhenNobodyNeedsThem() {
    const bool mayGo = _triple.maxGroupCount > 1;
    std::optional<PageName> lastOfBase;
    for (std::uint64_t page = 0; page < _pageCount; ++page) {
      const auto known = _pages[page];
      if (!known || !isOfBase(_triple, *known)) continue;
      expect(!lastOfBase || *lastOfBase < *known, "pages are not in their order");
      lastOfBase = known;
      const auto first = _tags.begin() + static_cast<std::ptrdiff_t>(page * _triple.groupSize);
      const bool isEmpty = std::none_of(first, first + static_cast<std::ptrdiff_t>(_triple.groupSize),
                                        [](const auto& tag) { return tag.has_value(); });
      const Page* theirs = _triple.theirs.page(*known);
      const Page* ours = _triple.ours.page(*known);
      const bool stays = theirs && ours && (theirs->isEmpty() || ours->isEmpty());
      expect(!isEmpty || stays || !mayGo, "page " + std::to_string(page) + " should have gone");
    }
    for (const Page& theirs : _triple.theirs.pages) {
      if (!isOfBase(_triple, theirs.name) || resultPageOf(theirs.name)) continue;
      const Page* ours = _triple.ours.page(theirs.name);
      expect(mayGo && (!ours || (!theirs.isEmpty() && !ours->isEmpty())),
             "page " + std::to_string(theirs.name) + " should have stayed");
    }
  }

  void flagsAndOriginsAreRight() {
    std::vector<std::optional<Tag>> theirTags;
    for (const Value& element : _input.theirs.elements()) {
      const auto tag = at(*element.dictionary(), TagKey);
      theirTags.push_back(tag ? tag->integer() : std::nullopt);
    }
    std::vector<std::optional<Tag>> tags(_tags.begin(),
                                         _tags.begin() + static_cast<std::ptrdiff_t>(_result.list.size()));
    // Empty slots behind the end of theirs are each process's own.
    while (tags.size() > theirTags.size() && !tags.back()) tags.pop_back();
    const bool hasAlike = !_triple.alike.empty();
    expect(_result.differsInLayout == (tags != theirTags || !_result.theirPages.empty()) || hasAlike,
           "the flag of the layout is wrong");
    expect(_result.differsInTitles == (_result.titles != _input.theirTitles), "the flag of the titles is wrong");
    for (std::uint64_t slot = 0; slot < _result.list.size(); ++slot) {
      const auto chunk = _result.theirFriends.find(slot / LongArray::ChunkSize);
      std::optional<std::uint64_t> origin;
      if (chunk != _result.theirFriends.end()) {
        origin = chunk->second.at(slot % LongArray::ChunkSize);
      } else if (slot < theirTags.size() && theirTags[slot]) {
        origin = slot;
      }
      if (!_tags[slot] || isAlike(*_tags[slot])) continue;
      const auto found = std::ranges::find(theirTags, _tags[slot]);
      const auto expected = found == theirTags.end()
                                ? std::nullopt
                                : std::optional(static_cast<std::uint64_t>(found - theirTags.begin()));
      expect(origin == expected, name(*_tags[slot]) + " does not come from where it stood in theirs");
    }
    const auto& chunks = _result.list.chunks();
    for (std::size_t chunk = 0; chunk < std::min(chunks.size(), _input.theirs.chunks().size()); ++chunk) {
      const auto& theirs = _input.theirs.chunks()[chunk];
      const bool isEqual = LongArray({chunks[chunk]}) == LongArray({theirs});
      expect(!isEqual || chunks[chunk] == theirs || _isTheirsBase || hasAlike,
             "a chunk is as theirs, but another object");
    }
  }

  const Triple& _triple;
  const PLMergeInput& _input;
  const PLMergeResult& _result;
  const bool _isTheirsBase;
  std::uint64_t _pageCount;
  std::vector<std::optional<Tag>> _tags;             // by the slot of the result, in full pages
  std::vector<Dictionary> _forms;                    // by the slot of the result
  std::map<Tag, std::vector<std::uint64_t>> _slots;  // of the result
  std::vector<std::optional<PageName>> _pages;       // of the result
  std::multiset<Tag> _leftOut;
  std::vector<std::string> _faults;
};

}  // namespace

std::vector<std::string> faultsOf(const Triple& triple, const PLMergeInput& input, const PLMergeResult& result) {
  return Judge(triple, input, result).faults();
}

}  // namespace pellor::merging
