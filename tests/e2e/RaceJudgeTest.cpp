// What the judge of races finds: outcomes made by hand, sound ones and others.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "tests/e2e/Race.h"
#include "tests/e2e/RaceJudge.h"

namespace pellor {
namespace {

using Kind = RaceEditKind;
using enum RaceOutcome;

constexpr std::size_t PageSize = 3;

RaceFriend personNamed(const std::string& key) { return {key, {"Person " + key, {"+49" + key}}, {}}; }

/// "Family:ab. :...": pages with their titles, friends and free slots.
RaceList listOf(const std::string& text) {
  RaceList list{PageSize, {}};
  std::istringstream pages(text);
  for (std::string page; pages >> page;) {
    const auto colon = page.find(':');
    list.pages.push_back({page.substr(0, colon), {}});
    for (const char slot : page.substr(colon + 1)) {
      list.pages.back().slots.push_back(slot == '.' ? std::nullopt : std::optional(personNamed({slot})));
    }
  }
  return list;
}

RaceEdit move(const char* who, std::size_t page, std::size_t slot) { return {Kind::move, who, {page, slot}, {}, {}}; }
RaceEdit title(std::size_t page, const char* text) { return {Kind::title, {}, {page, 0}, {}, text}; }

const RaceEdit addX{Kind::add, "x", {}, {}, {}}, addY{Kind::add, "y", {}, {}, {}},
    removeA{Kind::remove, "a", {}, {}, {}}, removeC{Kind::remove, "c", {}, {}, {}}, purge{Kind::purge, {}, {}, {}, {}},
    refresh{Kind::refresh, {}, {}, {}, {}}, swapAC{Kind::swap, "a", {2, 1}, {}, {}},
    club = title(2, "Club"), blueA{Kind::meta, "a", {}, "colour", "blue"}, blueB{Kind::meta, "b", {}, "colour", "blue"};

struct Expected {
  int lost = 0, doubled = 0, torn = 0, refused = 0;
};
using Change = std::function<void(RaceRecord&)>;

struct Case {
  const char* what;
  std::vector<RaceAttempt> attempts;
  const char* after;
  Expected expected = {};
  Change change = [](RaceRecord&) {};  // what `after` cannot say
};

Change startingWith(const char* before, std::size_t maxPages) {
  return [=](RaceRecord& race) {
    race.before = listOf(before);
    race.maxPages = maxPages;
  };
}

Change withField(const RacePlace& place, const char* field, const char* value) {
  return [=](RaceRecord& race) { race.after->pages[place.page].slots[place.slot]->fields[field] = value; };
}

// The list before: a and b on the first page, the second empty, c alone on the third, room behind.
void expectJudged(const std::vector<Case>& cases) {
  for (const Case& each : cases) {
    RaceRecord race{listOf("Family:ab. Later:... Work:.c. :..."), 5, each.attempts, {}, {}, listOf(each.after)};
    race.newcomers = {{"x", personNamed("x").contact}, {"y", personNamed("y").contact}};
    each.change(race);
    const RaceVerdict verdict = judge(race);
    SCOPED_TRACE(std::string(each.what) + testing::PrintToString(verdict.reasons));
    EXPECT_EQ(verdict.lost, each.expected.lost);
    EXPECT_EQ(verdict.doubled, each.expected.doubled);
    EXPECT_EQ(verdict.torn, each.expected.torn);
    EXPECT_EQ(verdict.refused, each.expected.refused);
  }
}

TEST(RaceJudge, FindsNothingInWhatTheEditsExplain) {
  expectJudged({
      {"both added, one elsewhere", {{addX}, {addY}}, "Family:aby Later:x.. Work:.c. :..."},
      {"refused: is a friend already", {{addX}, {addX, refused}}, "Family:abx Later:... Work:.c. :..."},
      {"two places for one friend", {{move("a", 1, 0)}, {move("a", 1, 2)}}, "Family:.b. Later:..a Work:.c. :..."},
      {"one place for two friends", {{move("a", 1, 0)}, {move("b", 1, 0)}}, "Family:... Later:ab. Work:.c. :..."},
      {"a removal and a change: the removal shows", {{removeA}, {blueA}}, "Family:.b. Later:... Work:.c. :..."},
      {"a removal and a change: the change shows",
       {{removeA}, {blueA}},
       "Family:ab. Later:... Work:.c. :...",
       {},
       withField({0, 0}, "meta colour", "blue")},
      {"a place that was another's who has left since",
       {{move("a", 1, 1)}, {removeA}, {move("b", 1, 1)}},
       "Family:..d Later:e.b Work:.c. :...",
       {},
       startingWith("Family:abd Later:e.. Work:.c. :...", 5)},
      {"a page that came back for a friend", {{purge}, {move("a", 1, 0)}}, "Family:.b. Later:a.. Work:.c. :..."},
      {"a number that means another page since", {{purge}, {title(1, "Club")}}, "Family:ab. Club:.c. :..."},
      {"refused: the page is not there any more", {{purge}, {move("a", 3, 0), refused}}, "Family:ab. Work:.c. :..."},
      {"a page vanishes with the friend who was moved there and removed",
       {{move("a", 1, 0)}, {removeA}},
       "Family:.b. Work:.c. :..."},
      {"a page that came back beside the one where all of another's friends went",
       {{move("a", 1, 0)}, {move("b", 1, 0)}, {move("a", 1, 0)}},
       "Later:a.. Work:.c. Later:b.. :..."},
      {"killed afterwards", {{removeA}, {addX, killed}}, "Family:xb. Later:... Work:.c. :..."},
      {"an empty page stays before the one behind it on which somebody is put",
       {{removeC}, {move("a", 2, 1)}},
       "Family:.b. :... :.a. :...",
       {},
       startingWith("Family:ab. :.c. :...", 5)},
      {"refused: no room",
       {{addX}, {addY, refused}},
       "Family:abx Later:def Work:gch",
       {},
       startingWith("Family:ab. Later:def Work:gch", 3)},
  });
}

TEST(RaceJudge, FindsEachKindOfFault) {
  const char* const untouched = "Family:ab. Later:... Work:.c. :...";
  expectJudged({
      {"the addition is not there", {{addX}, {removeA}}, "Family:.b. Later:... Work:.c. :...", {.lost = 1}},
      {"nothing is there", {{addX}, {blueB}}, untouched, {.lost = 2}},
      {"neither place of a friend", {{move("a", 1, 0)}, {move("a", 1, 2)}}, untouched, {.lost = 2}},
      {"the removal explains no other", {{removeA}, {blueB}}, "Family:.b. Later:... Work:.c. :...", {.lost = 1}},
      {"half of a swap", {{swapAC}, {club}}, "Family:ab. Later:... Club:c.. :...", {.lost = 1}},
      {"a quiet friend is missing", {{addX}, {club}}, "Family:a.x Later:... Club:.c. :...", {.lost = 1}},
      {"somebody twice", {{move("c", 0, 2)}, {club}}, "Family:abc Later:... Club:.c. :...", {.doubled = 1}},
      {"a quiet friend elsewhere", {{addX}, {club}}, "Family:xba Later:... Club:.c. :...", {.torn = 1}},
      {"titles on the wrong pages",
       {{purge}, {blueB}},
       "Family:ab. Later:.c. :...",
       {.torn = 1},
       withField({0, 1}, "meta colour", "blue")},
      {"a stranger", {{addX}, {removeA}}, "Family:xbz Later:... Work:.c. :...", {.torn = 1}},
      {"a friend with half a contact",
       {{addX}, {removeA}},
       "Family:xb. Later:... Work:.c. :...",
       {.torn = 1},
       [](RaceRecord& race) { race.after->pages[0].slots[0]->contact.name.clear(); }},
      {"a field that nobody set",
       {{addX}, {removeA}},
       "Family:xb. Later:... Work:.c. :...",
       {.torn = 1},
       withField({2, 1}, ReplyField, "z")},
      {"half of what was killed", {{club}, {swapAC, killed}}, "Family:cb. Later:... Club:..a :...", {.torn = 1}},
      {"no list", {{addX}, {removeA}}, "", {.torn = 1}, [](RaceRecord& race) { race.after.reset(); }},
      {"refused for nothing", {{addX}, {club, refused}}, "Family:abx Later:... Work:.c. :...", {.refused = 1}},
      {"a contact that is not followed",
       {{refresh}, {addX}},
       "Family:abx Later:... Work:.c. :...",
       {.lost = 1},
       [](RaceRecord& race) {
         race.changedContacts["a"] = {"Renamed", {"+49"}};
       }},
  });
}

// Then nothing can be lost: whatever the judge finds is a fault of its own.
TEST(RaceJudge, FindsNothingInEditsOneAfterTheOther) {
  RaceTrack track(RaceStart::inTurn);
  const std::vector<RacePair> pairs = racePairs();
  for (std::size_t index = 0; index < pairs.size(); index += 3) {
    const RaceMode mode = index % 2 == 0 ? RaceMode::program : RaceMode::three;
    const RaceResult result = track.run({mode, pairs[index], static_cast<int>(index) % 10});
    EXPECT_EQ(result.verdict.faults(), 0) << nameOf(pairs[index]) << '\n'
                                          << testing::PrintToString(result.verdict.reasons) << '\n'
                                          << result.story;
  }
}

}  // namespace
}  // namespace pellor
