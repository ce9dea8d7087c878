// Pages of friends as grids of text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "pellor/list/Snapshot.h"

namespace pellor::cli {

/// A mark of one column for a friend.
using FriendMark = std::function<std::string(const Friend&)>;

/// A note below a friend; empty: none.
using FriendNote = std::function<std::string(const Friend&)>;

/// For each page the heading, then the slots in rows: number, mark, monogram and name, below it the first number or
/// address, and below that the note; empty slots as "(empty)". As many columns as fit into `width`, the same on all
/// pages; texts that are too long end in "…".
std::string pagesText(const Snapshot& list, const FriendMark& mark, std::size_t width, const FriendNote& note);

/// A page's number and title.
std::string pageHeading(const Page& page, std::uint64_t pageIndex);

}  // namespace pellor::cli
