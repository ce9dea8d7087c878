// Judges what a three-way merge gave by the edits that made both sides, not by another merge.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/pellor/MergeTriples.h"

namespace pellor::merging {

/// Whether pages and friends of base can be told in theirs, by the rules that say which is which. Where they cannot, as
/// nearly all friends moved or one took the place of another with the same number, what is to come out is not known.
bool areToldApart(const Triple& triple);

/// What each side did, and what came out of it.
class Judge {
 public:
  Judge(const Triple& triple, const PLMergeInput& input, const PLMergeResult& result);

  /// One line for each rule that does not hold; empty when all do.
  std::vector<std::string> faults();

 private:
  void everybodyIsThereOnce();
  void alikeAreAsMany();
  void refusedOnlyWhenFull();
  void noMorePagesThanAllowed();
  void fieldsHold();
  void titlesStayWithTheirPages();
  void untouchedStayWhereTheyAre();
  void placesHold();
  void pagesGoOnlyWhenNobodyNeedsThem();
  void flagsAndOriginsAreRight();

  void expect(bool holds, const std::string& fault);
  bool isAlike(Tag tag) const { return _triple.alike.contains(tag); }
  /// By both sides, or by a clean-up that counts.
  bool isRemoved(Tag tag) const;
  std::optional<Dictionary> expectedForm(Tag tag) const;
  std::optional<Place> ourPlaceOfNewcomer(Tag tag) const;
  std::optional<std::uint64_t> resultPageOf(PageName name) const;
  std::optional<PageName> nameOfOurPage(std::uint64_t page) const;
  bool isFull() const;
  std::uint64_t slotOf(std::uint64_t page, std::size_t position) const { return page * _triple.groupSize + position; }

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

}  // namespace pellor::merging
