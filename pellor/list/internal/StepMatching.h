// Which friends and pages of a list are those that a step tells of.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "pellor/list/internal/ListDraft.h"
#include "pellor/list/internal/StepRecord.h"

namespace pellor {

/// Finds them in a draft in which nothing was changed yet: by their ids where the step has them and the list too, else
/// by what the step says of them; one to one. Costs what the step touched, and the size of the list where ids do not
/// tell.
class StepMatching {
 public:
  /// `formNow`: of the friends of the draft.
  StepMatching(const StepRecord& step, const StepPages& pages, const ListDraft& now, const FormOfFriend& formNow);

  /// The page of now that the page with that number in the step's `pages` is.
  std::optional<PageId> page(std::size_t number) const { return _pages[number]; }
  /// The friend of now that the one with that number in the step's `friends` is. Of one whom the step removed: who was
  /// added anew.
  std::optional<FriendId> friendNow(std::size_t number) const { return _friends[number]; }

 private:
  std::vector<std::optional<PageId>> _pages;
  std::vector<std::optional<FriendId>> _friends;
};

}  // namespace pellor
