// Makes the next version of a list out of the last one.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <utility>

#include "pellor/list/Snapshot.h"
#include "pellor/list/internal/SnapshotContent.h"

namespace pellor {

/// Costs as much as what is put in and taken away. One thread.
class SnapshotEdit {
 public:
  /// Begins with all that `before` has.
  explicit SnapshotEdit(const Snapshot& before) : _before(before._content), _pageCount(_before->pageCount) {}

  /// Puts a page at an index that the next version is to have. A friend stands on one page of the next version, once.
  void putPage(std::size_t index, PageRef page) { _put[index] = std::move(page); }
  /// A page as the last version has it; null for one that it has not.
  PageRef formerPage(PageId id) const;
  /// How many pages the next version is to have.
  void setPageCount(std::size_t count) { _pageCount = count; }

  /// The next version: the last one where nothing was put in.
  Snapshot take() const;

 private:
  std::size_t firstPageWithRoom(const SnapshotContent& next) const;

  const std::shared_ptr<const SnapshotContent> _before;
  std::map<std::size_t, PageRef> _put;
  std::size_t _pageCount;
};

}  // namespace pellor
