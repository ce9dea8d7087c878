// The pages over the flat list, and which page each group is, without a manager.
#include "pellor/friends/internal/PLPageLayout.h"

#include <algorithm>
#include <string>

#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/friends/internal/PLListCounters.h"
#include "tests/pellor/OneList.h"

namespace pellor {
namespace {

class PageLayoutTest : public OneList {
 protected:
  /// Where the groups have their content: elsewhere after they were given it again.
  std::vector<const Slot*> contents() {
    std::vector<const Slot*> contents;
    for (const auto& group : pages->friendGroups()) contents.push_back(group->friends().data());
    return contents;
  }
};

TEST_F(PageLayoutTest, ThereAreAsManyGroupsAsTheListAndTheSettingsHaveRoomFor) {
  const struct {
    const char* what;
    std::uint64_t groupSize;
    std::int64_t maxGroupCount;
    bool addsEmptyGroup;
    const char *list, *pages;
  } rows[] = {
      {"there is always a group", 3, 20, false, "", "---"},
      {"even where none may be", 3, 0, true, "abcdef", "abc"},
      {"the last one has a friend", 3, 20, true, "abcd--", "abc|d--|---"},
      {"the last one is empty", 3, 20, true, "abc---", "abc|---"},
      {"no empty one is wanted", 3, 20, false, "abcdef", "abc|def"},
      {"the settings have no more", 3, 2, true, "abcdefghi", "abc|def"},
      {"what is no whole page comes to light in the empty one", 3, 20, true, "abcd", "abc|d--"},
      {"it stays hidden where that is not wanted", 3, 20, false, "abcd", "abc"},
      {"a limit beyond every list", 3, -1, true, "abcdef", "abc|def|---"},
      {"pages of one slot", 1, 3, true, "ab", "a|b|-"},
  };
  for (const auto& row : rows) {
    setLimits(row.groupSize, row.maxGroupCount, row.addsEmptyGroup);
    layOut(row.list);
    EXPECT_EQ(textOfPages(), row.pages) << row.what;
    EXPECT_EQ(pages->violation(), std::nullopt) << row.what;
  }
}

TEST_F(PageLayoutTest, AnAppendedGroupHasTheSlotsThatTheListHasThere) {
  setLimits(3, 1);
  layOut("abcde-f");
  EXPECT_EQ(announcements, 0) << "groups that a list is loaded with";
  pages->_addEmptyGroup();
  EXPECT_EQ(textOfPages(), "abc|de-");
  EXPECT_EQ(textOfList(), "abcde-f");
  pages->_addEmptyGroup();
  EXPECT_EQ(textOfPages(), "abc|de-|f--");
  EXPECT_EQ(textOfList(), "abcde-f--");
  EXPECT_EQ(pages->_indexForPositionInGroup(2, *group(2)), 8U);
  EXPECT_GT(pages->_indexForPositionInGroup(3, *group(2)), list.count()) << "no slot";
  EXPECT_EQ(announcements, 2);
  pages->_updateFriendGroups();
  EXPECT_EQ(textOfPages(), "abc");
  EXPECT_EQ(textOfList(), "abcde-f--");
  EXPECT_EQ(announcements, 3);
  setLimits(3, 2);
  pages->_updateFriendGroups();
  EXPECT_EQ(textOfPages(), "abc|de-") << "slots that were laid out before, without a group";
}

TEST_F(PageLayoutTest, TheGroupsOfAChangedChunkAreLaidOutAgainAndNoOthers) {
  constexpr std::uint64_t ChunkSize = PLSlotSnapshot::ChunkSize;
  for (const std::uint64_t groupSize : {1U, 3U, 32U, 40U, 100U}) {
    setLimits(groupSize, 1000, false);
    layOut(std::string(200, '-'));
    for (std::uint64_t slot = 0; slot < pages->count() * groupSize; ++slot) {
      const auto before = contents();
      list.set(slot, person('a'));
      pages->_updateFriendGroups();
      const auto after = contents();
      ASSERT_TRUE(group(slot / groupSize)->friendAtPosition(slot % groupSize)) << groupSize << " " << slot;
      for (std::uint64_t index = 0; index < after.size(); ++index) {
        const std::uint64_t first = index * groupSize / ChunkSize, last = ((index + 1) * groupSize - 1) / ChunkSize;
        const bool isOfChunk = first <= slot / ChunkSize && slot / ChunkSize <= last;
        ASSERT_TRUE(isOfChunk || after[index] == before[index]) << groupSize << " " << slot << " " << index;
      }
    }
  }
}

TEST_F(PageLayoutTest, AGroupThatWasGivenFriendsWithoutAReportIsLaidOutAgain) {
  setLimits(3, 2);
  layOut("abcdefghi");
  const auto first = group(0);
  first->setFriends(slots("xyz"));
  pages->_addEmptyGroup();
  EXPECT_EQ(textOfPages(), "xyz|def|ghi");
  setLimits(3, 3);
  pages->_updateFriendGroups();
  EXPECT_EQ(textOfPages(), "abc|def|ghi");
  EXPECT_EQ(group(0), first);
  pages->dropGroupsFrom(2);
  pages->_addEmptyGroup();
  const auto before = contents();
  pages->_updateFriendGroups();
  EXPECT_EQ(contents(), before) << "what the layout gave to a group is what the list has";
}

TEST_F(PageLayoutTest, TheFirstGroupWithRoomIsFoundWhereverRoomHasCome) {
  setLimits(3, 3);
  layOut("abcdefgh-");
  EXPECT_EQ(pages->firstGroupWithRoom(), group(2));
  pages->_removeGroupAtIndex(0);
  EXPECT_EQ(pages->firstGroupWithRoom(), group(1)) << "it moved down";
  fill("defghijkl");
  pages->_updateFriendGroups();
  EXPECT_EQ(pages->firstGroupWithRoom(), nullptr);
  for (const std::uint64_t emptied : {1U, 2U, 0U}) {
    group(emptied)->removeFriendAtPosition(1);
    pages->noteRoom(emptied);
    EXPECT_EQ(pages->firstGroupWithRoom(), group(emptied == 0 ? 0 : 1)) << "room further on does not hide it";
  }
  fill("defghijkl");
  pages->_updateFriendGroups();
  EXPECT_EQ(pages->firstGroupWithRoom(), nullptr);
  fill("defg-ijkl");
  pages->_updateFriendGroups();
  EXPECT_EQ(pages->firstGroupWithRoom(), group(1)) << "it has another content";
}

// --- Pages ---

using Origin = std::optional<std::uint64_t>;

class PageNumbersTest : public OneList {
 protected:
  /// Three pages.
  PageNumbersTest() {
    layOut("abcdef");
    base.pages = pages->pageNumbers();
  }

  /// "1 2 -": the pages of a baseline that the groups are.
  std::string origins(const PLBaseline& of) const {
    const PLPageOrigins found = pages->pagesInBase(of);
    std::string text;
    for (const Origin& page : found) text += (text.empty() ? "" : " ") + (page ? std::to_string(*page) : "-");
    return text;
  }
  /// "1" takes that group out, "+" appends one.
  void edit(std::string_view edits) {
    for (const char edit : edits) {
      edit == '+' ? pages->_addEmptyGroup() : pages->_removeGroupAtIndex(static_cast<std::uint64_t>(edit - '0'));
    }
  }
  static LongArray listOf(std::size_t slotCount) { return LongArray(Array(slotCount, Value(Dictionary{}))); }

  PLBaseline base;
};

TEST_F(PageNumbersTest, AGroupStaysThePageOfTheBaselineThatItIs) {
  const struct {
    const char* edits;
    const char* origins;
    bool haveMoved;
  } rows[] = {
      {"", "", false},         {"+", "0 1 2 3", false}, {"++", "0 1 2 3 4", false}, {"0", "1 2", true},
      {"1", "0 2", true},      {"2", "0 1", true},      {"0+", "1 2 3", true},      {"2+", "0 1 3", true},
      {"00", "2", true},       {"000+", "3", true},     {"+1+", "0 2 3 4", true},   {"+3", "0 1 2", false},
      {"+2+3", "0 1 3", true}, {"210", "", true},
  };
  for (const auto& row : rows) {
    layOut("abcdef");
    base.pages = pages->pageNumbers();
    edit(row.edits);
    EXPECT_EQ(origins(base), row.origins) << row.edits;
    EXPECT_EQ(pages->havePagesMoved(base), row.haveMoved) << row.edits;
  }
}

TEST_F(PageNumbersTest, NumbersAreOneObjectUntilGroupsComeOrGo) {
  fill("abcdefghi");
  pages->_updateFriendGroups();
  EXPECT_THAT(*pages->pageNumbers(), testing::SizeIs(4));
  fill("abcdef---");
  pages->_updateFriendGroups();
  EXPECT_THAT(*pages->pageNumbers(), testing::SizeIs(3));
  base.pages = pages->pageNumbers();
  list.set(0, EmptySlot);
  pages->_updateFriendGroups();
  EXPECT_EQ(pages->pageNumbers(), base.pages);
  base.pages = std::make_shared<const std::vector<std::uint64_t>>(*base.pages);
  EXPECT_EQ(origins(base), "0 1 2") << "the same numbers in another object";
  EXPECT_FALSE(pages->havePagesMoved(base));
  EXPECT_EQ(origins(PLBaseline()), "0 1 2") << "of a baseline without pages all are appended";
}

// What a merge answers about the pages of the stored list is what the groups are told of the baseline made from it.
TEST_F(PageNumbersTest, GroupsHaveThePagesOfTheStoredListThatTheyWereMergedWith) {
  const struct {
    const char* what;
    std::size_t theirSlots;
    std::size_t mergedSlots;
    PLPageOrigins theirPages;
    const char* edits;
    std::vector<Origin> pages;
    std::uint64_t pageCount;
  } rows[] = {
      {"all are at their places", 9, 9, {}, "", {0, 1, 2}, 3},
      {"the last is not merged", 6, 6, {}, "", {0, 1, 2}, 3},
      {"and stored pages lie between", 12, 6, {}, "", {0, 1, 4}, 5},
      {"of a page that is not whole", 10, 6, {}, "", {0, 1, 4}, 5},
      {"they lack one, which is no page of theirs", 6, 9, {0, Origin(), 1}, "", {0, Origin(), 1}, 2},
      {"they lack the last, with others behind", 6, 9, {}, "+", {0, 1, 2, 3}, 4},
      {"they lack one, with others behind", 6, 9, {0, Origin(), 1}, "+", {0, Origin(), 1, 2}, 3},
      {"no group has their last", 9, 6, {1, 0}, "2", {1, 0}, 3},
      {"they have one more in front", 9, 6, {1, 2}, "", {1, 2, 3}, 4},
      {"they lie crosswise, with others behind", 9, 9, {2, 0, 1}, "+", {2, 0, 1, 3}, 4},
      {"the first of theirs is gone", 12, 9, {1, 2, 3}, "", {1, 2, 3}, 4},
      {"pages that are not whole, with others behind", 7, 5, {Origin(), 2}, "+", {Origin(), 2, 3, 4}, 5},
  };
  for (const auto& row : rows) {
    layOut("abcdef");
    edit(row.edits);
    PLMergeResult merged;
    merged.list = listOf(row.mergedSlots);
    merged.theirPages = row.theirPages;
    const LongArray theirs = listOf(row.theirSlots);
    const auto own = *pages->pageNumbers();
    base.pages = pages->pageNumbersOfTheirs(theirs, &merged);
    auto sorted = *base.pages;
    std::ranges::sort(sorted);
    EXPECT_TRUE(std::ranges::adjacent_find(sorted) == sorted.end()) << "no two of one number: " << row.what;
    EXPECT_EQ(base.pages->size(), row.pageCount) << row.what;
    for (std::uint64_t index = 0; index < row.pages.size(); ++index) {
      EXPECT_EQ(pages->pageInTheirs(index, theirs, &merged), row.pages[index]) << row.what << " " << index;
      if (const Origin page = row.pages[index]) {
        EXPECT_EQ(base.pages->at(*page), own[index]) << row.what << " " << index;
      }
    }
    const auto inBase = pages->pagesInBase(base);
    if (!inBase.empty()) {
      EXPECT_EQ(inBase, row.pages) << row.what;
    }
  }
  EXPECT_EQ(pages->pageNumbersOfTheirs(listOf(30), nullptr), pages->pageNumbers()) << "loaded as it is";
  EXPECT_EQ(pages->pageInTheirs(2, listOf(30), nullptr), 2U);
}

TEST_F(PageLayoutTest, TheCountersTellOfTheDefaultDomainAlone) {
  layOut("abcd--");
  const PLListCounters counters(process, std::string(TapnoteDomain), *pages), others(process, "org.other", *pages);
  counters._tallyLogFriendCount();
  counters._tallyLogFriendGroupCount();
  counters._tallyUnreachableFriends(2);
  fill("a");
  pages->_updateFriendGroups();
  others._tallyLogFriendCount();
  others._tallyLogFriendGroupCount();
  others._tallyUnreachableFriends(0);
  EXPECT_EQ(world.counters().value("org.tapnote.tn.friendList.size"), 4);
  EXPECT_EQ(world.counters().value("org.tapnote.tn.friendGroups.count"), 2) << "without the empty one at the end";
  EXPECT_EQ(world.counters().value("org.tapnote.tn.unreachableFriends.count"), 2);
}

}  // namespace
}  // namespace pellor
