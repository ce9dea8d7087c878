// The pages over the flat list, without a manager.
#include "pellor/friends/internal/PLPageLayout.h"

#include <limits>

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
  EXPECT_EQ(announcements, 2);
  pages->_updateFriendGroups();
  EXPECT_EQ(textOfPages(), "abc");
  EXPECT_EQ(textOfList(), "abcde-f--");
  EXPECT_EQ(announcements, 3);
  setLimits(3, 2);
  pages->_updateFriendGroups();
  EXPECT_EQ(textOfPages(), "abc|de-") << "slots that were laid out before, without a group";
}

TEST_F(PageLayoutTest, ARemovedGroupTakesItsSlotsAlongAndLaterOnesMoveDown) {
  constexpr auto NoSlot = std::numeric_limits<std::uint64_t>::max();
  layOut("abc-d-ghi");
  const auto removed = group(1), later = group(2);
  const auto before = *pages->pageNumbers();
  pages->_removeGroupAtIndex(1);
  pages->_removeGroupAtIndex(3);
  EXPECT_EQ(textOfPages(), "abc|ghi|---");
  EXPECT_EQ(textOfList(), "abcghi---");
  EXPECT_EQ(pages->_indexForPositionInGroup(2, *later), 5U);
  for (const std::uint64_t position : {std::uint64_t{3}, NoSlot}) {
    EXPECT_EQ(pages->_indexForPositionInGroup(position, *later), NoSlot);
  }
  EXPECT_EQ(pages->_indexForPositionInGroup(0, *removed), NoSlot);
  pages->_addEmptyGroup();
  EXPECT_THAT(*pages->pageNumbers(), testing::ElementsAre(before[0], before[2], before[3], testing::Gt(before[3])));
  EXPECT_EQ(pages->violation(), std::nullopt);
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

}  // namespace
}  // namespace pellor
