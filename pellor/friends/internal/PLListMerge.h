// Brings together what two devices made of one list, where all that is known of each is what it stored.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// Slots in the stored form, and the titles of their pages.
struct PLTitledList {
  LongArray list;
  Array titles;
  friend bool operator==(const PLTitledList&, const PLTitledList&) = default;
};

struct PLListMergeOptions {
  std::uint64_t groupSize = 1;      ///< slots of a page
  std::uint64_t maxGroupCount = 1;  ///< how many pages may be laid out
  /// The form in which the person made of a stored form would be written: bringing into canonical form is no edit.
  std::function<Dictionary(const Dictionary&)> writtenForm;
};

struct PLMergedList {
  PLTitledList merged;
  std::size_t leftOutCount = 0;  ///< friends that ours added and for which there was no room
};

/// The three-way merge of stored lists. Friends and pages of base are found in ours as they are in theirs, by likeness:
/// neither has objects. A base without friends is one that is not known: nobody counts as removed, and friends that are
/// alike on both, but for the numbers of their contacts, are one friend. Where theirs is base the result is ours, where
/// ours is base it is theirs. A pure function; any thread on which `writtenForm` may be called.
PLMergedList mergedLists(const PLTitledList& base, const PLTitledList& theirs, const PLTitledList& ours,
                         const PLListMergeOptions& options);

}  // namespace pellor
