// What comes out when two edits of one list meet, told case by case; and the parts that settle who is who, which page
// is which and whose field holds.
#include <gtest/gtest.h>

#include <sstream>

#include "tests/pellor/MergeTriples.h"

namespace pellor::merging {
namespace {

// Friends are letters. A page is the next one of base unless its number stands before it.
Side sideOf(const std::string& text) {
  Side side;
  PageName next = 0;
  std::istringstream stream(text);
  std::string word;
  while (stream >> word) {
    const auto open = word.find('[');
    if (open != std::string::npos) {
      if (open > 0) next = std::stoi(word.substr(0, open));
      side.pages.push_back({next++, std::nullopt, {}});
      word.erase(0, open + 1);
    }
    const char letter = word[0];
    std::optional<Friend> person;
    if (letter != '-') {
      person = Friend{letter, {{std::string(PLPersonRecordGUIDKey), Value(std::string(1, letter))}}};
      person->form.emplace(PLPersonNameKey, Value(std::string(1, letter)));
    }
    side.pages.back().places.push_back(std::move(person));
  }
  return side;
}

struct Story {
  const char* what;
  std::size_t maxGroupCount;
  const char* base;
  const char* theirs;
  const char* ours;
  const char* result;
  const char* leftOut = "";
  const char* cleanedUp = "";
};

Triple tripleOf(const Story& story) {
  Triple triple;
  triple.base = sideOf(story.base);
  triple.theirs = sideOf(story.theirs);
  triple.ours = sideOf(story.ours);
  triple.groupSize = triple.base.pages.front().places.size();
  triple.maxGroupCount = story.maxGroupCount;
  for (const char letter : std::string(story.cleanedUp)) triple.ours.removedAutomatically.insert(letter);
  return triple;
}

const Story Stories[] = {
    {"both add, in other places", 9, "[A - -]", "[A B -]", "[A - C]", "[A B C]"},
    {"both add in one place", 9, "[A - -]", "[A B -]", "[A C -]", "[A B C]"},
    {"of two places as near the later", 9, "[A - - - -]", "[A - B - -]", "[A - C - -]", "[A - B C -]"},
    {"the nearest place is before", 9, "[A - - -]", "[A - - B]", "[A - - C]", "[A - C B]"},
    {"on a full page: the first with room", 9, "[A -] [- -] [D -]", "[A B] [- -] [D -]", "[A C] [- -] [D -]",
     "[A B] [C -] [D -]"},
    {"no room", 1, "[A -]", "[A B]", "[A C]", "[A B]", "C"},
    {"no room on the pages that are there", 2, "[A -]", "[A B]", "[A C]", "[A B] [- C]"},
    {"both add on the page that is kept for it", 9, "[A B] [- -]", "[A B] [C -] [- -]", "[A B] [D -] [- -]",
     "[A B] [C D] [- -]"},
    {"both append a page", 9, "[A B]", "[A B] [C -]", "[A B] [D -]", "[A B] [C D]"},
    {"both add one friend", 9, "[A - -]", "[A B -]", "[A - B]", "[A B -]"},
    {"a last page that lacks slots, and that we leave alone", 9, "[A B -] [C]", "[A B -] [C D]", "[A - -] [C]",
     "[A - -] [C D]"},
    {"a last page that lacks slots, and that we fill up", 9, "[A B -] [C]", "[A - -] [C]", "[A B -] [C - E]",
     "[A - -] [C - E]"},
    {"a moved friend for whom the groups have no room", 1, "[A -] [B -]", "[A C] [B -]", "[A -] [- B]", "[A C] [B -]"},
    {"both remove", 9, "[A B C]", "[A B -]", "[A - C]", "[A - -]"},
    {"what they removed stays removed", 9, "[A B] [- C]", "[- B] [- C]", "[- B] [A C]", "[- B] [- C]"},
    {"what we removed leaves from where they put it", 9, "[A B] [- C]", "[- B] [A C]", "[- B] [- C]", "[- B] [- C]"},
    {"both move one friend", 9, "[A - -] [- B -]", "[- A -] [- B -]", "[- - A] [- B -]", "[- - A] [- B -]"},
    {"both move friends to one place", 9, "[A B - -]", "[- B A -]", "[A - B -]", "[- - A B]"},
    {"we swap, they move one of the two", 9, "[A B -]", "[A - B]", "[B A -]", "[B A -]"},
    {"both swap", 9, "[A B C D]", "[B A C D]", "[A B D C]", "[B A D C]"},
    {"we assign, they remove the displaced one", 9, "[A B]", "[- B]", "[C B]", "[C B]"},
    {"an addition is refused before a moved friend", 1, "[A B -]", "[A B C]", "[D B A]", "[A B C]", "D"},
    {"a page goes with the last of its friends", 9, "[A B] [C -]", "[- B] [C -]", "[A -] [C -]", "[C -]"},
    {"the only page stays", 1, "[A B]", "[- B]", "[A -]", "[- -]"},
    {"a page that one side had empty stays", 9, "[A -] [B -]", "[- -] [B -]", "[A -] [B -]", "[- -] [B -]"},
    {"a page that we removed stays for whom they put there", 9, "[A -] [B -]", "[A C] [B -]", "1[B -]", "[- C] [B -]"},
    {"a page that they removed comes back for whom we put there", 9, "[A -] [B -] [C -]", "0[A -] 2[C -]",
     "[A -] [B D] [C -]", "[A -] [- D] [C -]"},
    {"it does not come back when there may be no more", 2, "[A -] [B -]", "0[A -] 3[C -]", "[A -] [B D]",
     "[A -] [C D]"},
    {"they removed the first page, we move on the last", 9, "[A -] [B -] [C -]", "1[B -] 2[C -]", "[A -] [B -] [- C]",
     "[B -] [- C]"},
    {"we removed the first page, they move on the last", 9, "[A -] [B -] [C -]", "[A -] [B -] [- C]", "1[B -] 2[C -]",
     "[B -] [- C]"},
    {"both remove a page", 9, "[A -] [B -] [C -]", "1[B -] 2[C -]", "0[A -] 1[B -]", "[B -]"},
    {"a clean-up does not count", 9, "[A B -]", "[A B C]", "[A - -]", "[A B C]", "", "B"},
    {"it does where nobody else did anything", 9, "[A B -]", "[A B -]", "[A - -]", "[A - -]", "", "B"},
    {"who was cleaned up gives way to an addition", 1, "[A B -]", "[A B C]", "[A D -]", "[A D C]", "", "B"},
    {"slots behind the groups merge like others", 1, "[A B] [C D]", "[A B] [C -]", "[A B] [- D]", "[A B] [- -]"},
    {"nobody is put behind the groups", 1, "[A B] [C -]", "[A B] [C -]", "[A D] [C -]", "[A D] [C -]"},
};

TEST(MergeStoriesTest, WhatComesOut) {
  for (const Story& story : Stories) {
    SCOPED_TRACE(story.what);
    const Triple triple = tripleOf(story);
    const PLMergeInput input = inputOf(triple, triple.theirs, triple.ours);
    const PLMergeResult result = threeWayMerge(input);
    EXPECT_EQ(describe(result.list, triple.groupSize), describe(listOf(sideOf(story.result)), triple.groupSize));
    std::string leftOut;
    for (const std::uint64_t slot : result.leftOut) {
      leftOut += static_cast<char>(*valueForKey(*input.ours.at(slot).dictionary(), TagKey)->integer());
    }
    EXPECT_EQ(leftOut, story.leftOut);
  }
}

}  // namespace
}  // namespace pellor::merging
