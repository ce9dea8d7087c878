#include "pellor/list/internal/PageMatching.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace pellor {
namespace {

using ::testing::ElementsAre;

/// Pages of "ab.|c." and their titles: a letter is a friend, and the object of a page is the one at its index.
std::vector<MatchedPage> pages(const std::string& text, const std::vector<std::string>& titles = {}) {
  static const std::string letters = "abcdefghijklmnopqrstuvwxyz", objects = "0123456789";
  std::vector<MatchedPage> pages(1);
  for (const char letter : text) {
    if (letter == '|') pages.emplace_back();
    if (const auto place = letters.find(letter); place != std::string::npos)
      pages.back().friends.push_back(&letters[place]);
  }
  for (std::size_t index = 0; index < pages.size(); ++index) {
    pages[index].object = &objects[index];
    if (index < titles.size()) pages[index].title = titles[index];
  }
  return pages;
}

std::vector<int> matches(const std::vector<MatchedPage>& before, const std::vector<MatchedPage>& after) {
  std::vector<int> numbers;
  for (const auto& match : matchedPages(before, after)) numbers.push_back(match ? static_cast<int>(*match) : -1);
  return numbers;
}

TEST(PageMatchingTest, PagesGoWithTheirFriendsInOneOrder) {
  EXPECT_THAT(matches(pages("ab|cd|ef"), pages("ab|ef")), ElementsAre(0, 2));
  EXPECT_THAT(matches(pages("ab|ef"), pages("ab|cd|ef")), ElementsAre(0, -1, 1));
  EXPECT_THAT(matches(pages("ab|cd"), pages("ac|bd")), ElementsAre(0, 1));
  EXPECT_THAT(matches(pages("abc|d.."), pages("d..|abc")), ElementsAre(-1, 0)) << "most friends, and no crossing";
  EXPECT_THAT(matches(pages("a|b|c|d"), pages("c|d|a|b|c")), ElementsAre(-1, -1, 0, 1, 2));
  EXPECT_THAT(matches({}, pages("ab|cd")), ElementsAre(-1, -1));
}

TEST(PageMatchingTest, TitlesDecideWhereFriendsDoNot) {
  EXPECT_THAT(matches(pages("a|.|b", {"", "Work", ""}), pages("a|b|.", {"", "", "Work"})), ElementsAre(0, 2, -1));
  EXPECT_THAT(matches(pages(".|.", {"Work", "Family"}), pages(".", {"Family"})), ElementsAre(1));
}

TEST(PageMatchingTest, EmptyPagesGoByTheirObjectsAndAsTheyStand) {
  EXPECT_THAT(matches(pages("a|."), pages("b|.")), ElementsAre(0, 1)) << "as many as before";
  auto after = pages("a|.");
  after[1].object = pages("a|.|.")[2].object;
  EXPECT_THAT(matches(pages("a|.|."), after), ElementsAre(0, 2));
}

}  // namespace
}  // namespace pellor
