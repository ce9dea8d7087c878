// What a version of a list consists of.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "pellor/list/ListIds.h"
#include "pellor/list/internal/ChunkedVector.h"

namespace pellor {

struct Friend;
struct Page;

using PageRef = std::shared_ptr<const Page>;
using FriendRef = std::shared_ptr<const Friend>;

/// Where a friend stands.
struct Standing {
  FriendRef person;  ///< null for an id that nobody on the pages has
  PageId page;
  std::uint64_t slot = 0;
};

/// Immutable once a snapshot has it.
struct SnapshotContent {
  ChunkedVector<PageRef> pages;
  std::size_t pageCount = 0;
  ChunkedVector<std::size_t> indexes;  ///< of pages, counted from 1, by the numbers of their ids; 0: none
  ChunkedVector<Standing> friends;     ///< by the numbers of their ids
  std::size_t friendCount = 0;
  std::size_t firstPageWithRoom = 0;  ///< those before it have none
};

}  // namespace pellor
