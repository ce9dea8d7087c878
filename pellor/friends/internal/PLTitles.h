// The titles of the pages, and which of them are stored.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>

#include "pellor/friends/internal/PLBaseline.h"
#include "pellor/friends/internal/PLMergeInput.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Value.h"

namespace pellor {

class PLPageLayout;

/// For each page the title that the store is known to have for it, beside the one that its group has. Its invariant: a
/// title that differs from the stored one was set by this process and is not stored yet, or its page has none in the
/// store. Main queue.
class PLTitles {
 public:
  /// `pages` outlives this object.
  PLTitles(Process& process, const PLPageLayout& pages) : _process(process), _pages(pages) {}

  /// Whether any group has a title.
  bool haveAny() const;
  /// By page: the titles that were set here and are not stored.
  std::map<std::uint64_t, std::string> edits() const;
  /// Whether a title was set since the last time that this was asked, and is not stored. `base` is the baseline; null
  /// when a write of titles is under way.
  bool haveNew(const PLBaseline* base);
  /// The titles as they are to be stored: those of the groups, and behind these those of `base` that no group has.
  Array storedAfter(const PLBaseline& base) const;
  /// Whether titles have to go out with the pages that came or went since `base`.
  bool haveMoved(const PLBaseline& base) const;

  /// The store has the titles of this baseline: what was written is set here no more.
  void noteStored(const PLBaseline& base);
  /// Takes over the titles that are stored for the pages of `base`, but for those that were set here.
  void takeOverRenamed(const Array& titles, const PLBaseline& base);
  /// Takes over the titles of a list that was loaded. Titles that were set here are among those of a merge, null when
  /// there was none. A group in the place of a page of `known`, the baseline before, that went elsewhere gives up the
  /// title that it had from there; null: no page did.
  void takeOver(const PLStoredList& stored, const PLMergeResult* merged, const PLBaseline* known);

  /// A group is about to be removed: the titles of the pages behind it move with them.
  void noteRemoval() { notePagesWillMove(); }
  /// Pages are about to be others, and titles move with them.
  void notePagesWillMove() { _haveMoved = _haveMoved || haveAny(); }
  /// Whether titles moved with groups that came or went since the last time that this was asked.
  bool takeMoved() { return std::exchange(_haveMoved, false); }

 private:
  std::string titleOf(std::uint64_t index) const;
  void setStored(std::uint64_t index, std::optional<std::string> title);
  bool isSetHere(std::uint64_t index) const;
  bool areAllStored(const PLBaseline& base) const;
  void dropTitlesFrom(std::uint64_t index, const PLBaseline& known);
  void forgetOtherPages();

  Process& _process;
  const PLPageLayout& _pages;
  std::unordered_map<std::uint64_t, std::string> _stored;  // by the number of the page
  std::uint64_t _seenAssignments = 0;                      // of titles: up to there it is known which were set here
  bool _haveMoved = false;
};

}  // namespace pellor
