#include "pellor/friends/internal/PLTitles.h"

#include <algorithm>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/internal/PLPageLayout.h"
#include "pellor/friends/internal/PLSkipChecks.h"

namespace pellor {
namespace {

const std::string* titleAt(const Array& titles, std::optional<std::uint64_t> page) {
  return page && *page < titles.size() ? titles[*page].string() : nullptr;
}

}  // namespace

std::string PLTitles::titleOf(std::uint64_t index) const {
  return _pages.friendGroups()[index]->title().value_or(std::string());
}

bool PLTitles::isSetHere(std::uint64_t index) const {
  const auto known = _stored.find(_pages.pageNumber(index));
  const std::string_view stored = known == _stored.end() ? std::string_view() : std::string_view(known->second);
  return titleOf(index) != stored;
}

void PLTitles::setStored(std::uint64_t index, std::optional<std::string> title) {
  if (title) {
    _stored[_pages.pageNumber(index)] = *std::move(title);
  } else if (!_stored.empty()) {
    _stored.erase(_pages.pageNumber(index));
  }
}

bool PLTitles::haveAny() const {
  return std::ranges::any_of(_pages.friendGroups(),
                             [](const auto& group) { return !group->title().value_or("").empty(); });
}

std::map<std::uint64_t, std::string> PLTitles::edits() const {
  std::map<std::uint64_t, std::string> edits;
  for (std::uint64_t index = 0; index < _pages.count(); ++index) {
    if (isSetHere(index)) edits.emplace(index, titleOf(index));
  }
  return edits;
}

bool PLTitles::haveNew(const PLBaseline* base) {
  const std::uint64_t assignments = _process.local<PLTitleAssignments>().count;
  if (std::exchange(_seenAssignments, assignments) == assignments) {
    checkSkip("titles that a settle does not look at to be stored",
              [this, base] { return !base || areAllStored(*base); });
    return false;
  }
  for (std::uint64_t index = 0; index < _pages.count(); ++index) {
    if (isSetHere(index)) return true;
  }
  return false;
}

// For the checks of skipped work: all titles beside those that are stored. An empty page is each process's own.
bool PLTitles::areAllStored(const PLBaseline& base) const {
  const PLPageOrigins pages = _pages.pagesInBase(base);
  for (std::uint64_t index = 0; index < _pages.count(); ++index) {
    const std::string* stored = titleAt(base.titles, pages.empty() ? index : pages[index]);
    const bool isStored = !isSetHere(index) || titleOf(index) == (stored ? *stored : "");
    if (!isStored && _pages.friendGroups()[index]->count() > 0) return false;
  }
  return true;
}

Array PLTitles::storedAfter(const PLBaseline& base) const {
  Array titles;
  for (std::uint64_t index = 0; index < _pages.count(); ++index) titles.emplace_back(titleOf(index));
  const std::size_t taken = base.pages ? base.pages->size() : 0;
  for (std::size_t page = taken; page < base.titles.size(); ++page) titles.push_back(base.titles[page]);
  return titles;
}

bool PLTitles::haveMoved(const PLBaseline& base) const { return !base.titles.empty() && _pages.havePagesMoved(base); }

// A load may come between a write and the news of it.
void PLTitles::noteStored(const PLBaseline& base) {
  if (!base.pages) return;
  std::unordered_map<std::uint64_t, const std::string*> titles;
  for (std::size_t page = 0; page < base.pages->size(); ++page) {
    titles.emplace((*base.pages)[page], titleAt(base.titles, page));
  }
  for (std::uint64_t index = 0; index < _pages.count(); ++index) {
    const auto title = titles.find(_pages.pageNumber(index));
    if (title == titles.end()) continue;
    if (title->second) {
      setStored(index, *title->second);
    } else if (titleOf(index).empty()) {
      // A group in the place of one that was removed is the page of before, whose title is stored no more.
      setStored(index, std::nullopt);
    }
  }
}

// A title that was set here and is not stored stays; else it is the stored one, where there is one.
void PLTitles::takeOverRenamed(const Array& titles, const PLBaseline& base) {
  const PLPageOrigins pages = _pages.pagesInBase(base);
  const auto groups = _pages.friendGroups();
  for (std::size_t index = 0; index < groups.size(); ++index) {
    const std::string* title = titleAt(titles, pages.empty() ? std::optional<std::uint64_t>(index) : pages[index]);
    if (!title) continue;
    const bool wasSetHere = isSetHere(index);
    setStored(index, *title);
    if (!wasSetHere) groups[index]->setTitle(*title);
  }
}

void PLTitles::takeOver(const PLStoredList& stored, const PLMergeResult* merged, const PLBaseline* known) {
  const Array& titles = merged ? merged->titles : stored.titles;
  if (known) dropTitlesFrom(titles.size(), *known);
  const auto groups = _pages.friendGroups();
  for (std::size_t index = 0; index < groups.size(); ++index) {
    const std::string* title = titleAt(titles, index);
    // All that a page of ours was called is among those of a merge: what a group had besides was of a page that has
    // gone, or stands elsewhere.
    if (title || merged) groups[index]->setTitle(title ? std::optional(*title) : std::nullopt);
    const std::string* storedTitle = titleAt(stored.titles, _pages.pageInTheirs(index, stored.list, merged));
    if (storedTitle) {
      setStored(index, *storedTitle);
    } else {
      setStored(index, title ? std::nullopt : groups[index]->title());
    }
  }
  forgetOtherPages();
}

void PLTitles::dropTitlesFrom(std::uint64_t index, const PLBaseline& known) {
  for (; index < std::min<std::uint64_t>(_pages.count(), known.titles.size()); ++index) {
    const std::string* title = known.titles[index].string();
    const auto group = _pages.friendGroups()[index];
    if (title && group->title() == *title) group->setTitle(std::nullopt);
  }
}

// A page that is gone does not come back under its number.
void PLTitles::forgetOtherPages() {
  if (_stored.size() <= _pages.count()) return;
  std::unordered_set<std::uint64_t> numbers;
  for (std::uint64_t index = 0; index < _pages.count(); ++index) numbers.insert(_pages.pageNumber(index));
  std::erase_if(_stored, [&](const auto& entry) { return !numbers.contains(entry.first); });
}

}  // namespace pellor
