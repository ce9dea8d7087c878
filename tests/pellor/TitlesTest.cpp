// The titles of the pages and which of them are stored, without a manager.
#include "pellor/friends/internal/PLTitles.h"

#include <string>

#include "tests/pellor/OneList.h"

namespace pellor {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class TitlesTest : public OneList {
 protected:
  /// Three pages, which were loaded with the titles x, y and z.
  TitlesTest() { load(); }

  void load() {
    layOut("abcdef");
    // Numbers of pages are no places.
    pages->dropGroupsFrom(0);
    pages->_updateFriendGroups();
    titles.emplace(process, *pages);
    titles->takeOver(stored({"x", "y", "z"}), nullptr, nullptr);
    base.titles = {"x", "y", "z"};
    base.pages = pages->pageNumbers();
  }
  PLStoredList stored(const Array& withTitles) {
    PLStoredList stored;
    stored.list = twoPages;
    stored.titles = withTitles;
    return stored;
  }
  void remove(std::uint64_t index) {
    titles->noteRemoval();
    pages->_removeGroupAtIndex(index);
  }
  void setTitle(std::uint64_t index, const std::string& title) { group(index)->setTitle(title); }
  std::string text() {
    std::string text;
    for (const auto& group : pages->friendGroups()) text += group->title().value_or("") + ",";
    return text;
  }

  const LongArray twoPages{Array(6, Value(Dictionary{}))};
  std::optional<PLTitles> titles;
  PLBaseline base;
};

TEST_F(TitlesTest, ATitleIsAnEditUntilThatOfItsPageIsStored) {
  setTitle(1, "mine");
  setTitle(2, "other");
  remove(0);
  for (const Array& other : {Array{"x", "y", "z"}, Array{"mine", "other", "z"}, Array{"x", 7}}) {
    base.titles = other;
    titles->noteStored(base);
    EXPECT_THAT(titles->edits(), ElementsAre(Pair(0, "mine"), Pair(1, "other")));
  }
  base.titles = {"x", "mine"};
  titles->noteStored(base);
  EXPECT_THAT(titles->edits(), ElementsAre(Pair(1, "other"))) << "stored for its page, which has moved";
  setTitle(1, "another");
  base.titles = {"x", "mine", "other"};
  titles->noteStored(base);
  EXPECT_THAT(titles->edits(), ElementsAre(Pair(1, "another"))) << "set between the write and the news of it";
  setTitle(1, "other");
  EXPECT_THAT(titles->edits(), IsEmpty());
}

TEST_F(TitlesTest, WhatOthersRenameIsTakenOverButForTitlesThatWereSetHere) {
  setTitle(1, "mine");
  remove(0);
  pages->_addEmptyGroup();
  titles->takeOverRenamed({"x2", "y2", "z2"}, base);
  EXPECT_EQ(text(), "mine,z2,,");
  EXPECT_THAT(titles->edits(), ElementsAre(Pair(0, "mine")));
  setTitle(0, "y2");
  EXPECT_THAT(titles->edits(), IsEmpty()) << "that is stored";
  titles->takeOverRenamed({7, "y3"}, base);
  EXPECT_EQ(text(), "y3,z2,,") << "where none is stored the title stays";
}

TEST_F(TitlesTest, ALoadTakesTheTitlesOfPagesThatWentElsewhere) {
  const struct {
    const char* what;
    bool wasLoaded;
    const char* last;
    const char* text;
  } rows[] = {
      {"they are no titles of these groups", true, "z", "x2,,,"},
      {"another one is this group's own", true, "mine", "x2,,mine,"},
      {"no page went elsewhere", false, "z", "x2,y,z,"},
  };
  for (const auto& row : rows) {
    load();
    setTitle(2, row.last);
    titles->takeOver(stored({"x2"}), nullptr, row.wasLoaded ? &base : nullptr);
    EXPECT_EQ(text(), row.text) << row.what;
    EXPECT_THAT(titles->edits(), IsEmpty()) << row.what;
  }
}

}  // namespace
}  // namespace pellor
