// Makes the pages of a list others, as one step.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLSlot.h"

namespace pellor::cli {

/// What a page is to be. It has all its slots.
struct PageContent {
  std::string title;  ///< empty for none
  std::vector<Slot> slots;

  bool isEmpty() const;
};

/// The pages as they are.
std::vector<PageContent> pagesOf(const PLFriendsManager& manager);

/// Makes the list these pages, in that order, and asks for a save. Where more pages are needed they are made; false,
/// with nothing changed, when the list cannot have so many. Pages behind them go, but for an empty one at the end.
///
/// All of it goes out in one write; only a list of one page that gets more may be written with the first one before.
bool rewritePages(PLFriendsManager& manager, const std::vector<PageContent>& pages);

}  // namespace pellor::cli
