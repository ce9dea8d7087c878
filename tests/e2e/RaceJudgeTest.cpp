// What the judge of races finds: outcomes made by hand, sound ones and others.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/e2e/Race.h"
#include "tests/e2e/RaceJudge.h"

namespace pellor {
namespace {

using Kind = RaceEditKind;
using Outcome = RaceOutcome;

constexpr std::size_t PageSize = 3;

RaceFriend personNamed(const std::string& key) { return {key, {"Person " + key, {"+49" + key}}, {}}; }

/// "a b . | . c . / Work": pages of friends and free slots, with their titles.
RaceList listOf(const std::vector<std::pair<std::string, std::string>>& pages) {
  RaceList list{PageSize, {}};
  for (const auto& [title, slots] : pages) {
    RacePage page{title, {}};
    for (const char slot : slots) {
      page.slots.push_back(slot == '.' ? std::nullopt : std::optional(personNamed({slot})));
    }
    list.pages.push_back(page);
  }
  return list;
}

RaceEdit edit(Kind kind, const std::string& who = {}, RacePlace place = {},
              const std::optional<std::string>& text = {}) {
  return {kind, who, place, "colour", text};
}

RaceFriend& friendIn(RaceList& list, const RacePlace& place) { return *list.pages[place.page].slots[place.slot]; }

struct Expected {
  int lost = 0, doubled = 0, torn = 0, refused = 0;
};

struct Case {
  const char* what;
  std::vector<RaceAttempt> attempts;
  std::vector<std::pair<std::string, std::string>> after;
  Expected expected;
  std::function<void(RaceRecord&)> change = [](RaceRecord&) {};  // what `after` cannot say
};

// The list before: a and b on the first page, the second empty, c alone on the third, room behind.
RaceRecord recordOf(const Case& each) {
  RaceRecord race;
  race.before = listOf({{"Family", "ab."}, {"Later", "..."}, {"Work", ".c."}, {"", "..."}});
  race.maxPages = 5;
  race.attempts = each.attempts;
  race.newcomers = {{"x", personNamed("x").contact}, {"y", personNamed("y").contact}};
  race.after = listOf(each.after);
  each.change(race);
  return race;
}

void expectJudged(const std::vector<Case>& cases) {
  for (const Case& each : cases) {
    const RaceVerdict verdict = judge(recordOf(each));
    SCOPED_TRACE(std::string(each.what) + testing::PrintToString(verdict.reasons));
    EXPECT_EQ(verdict.lost, each.expected.lost);
    EXPECT_EQ(verdict.doubled, each.expected.doubled);
    EXPECT_EQ(verdict.torn, each.expected.torn);
    EXPECT_EQ(verdict.refused, each.expected.refused);
  }
}

TEST(RaceJudge, FindsNothingInWhatTheEditsExplain) {
  const RaceEdit addX = edit(Kind::add, "x"), addY = edit(Kind::add, "y"), removeA = edit(Kind::remove, "a"),
                 removeC = edit(Kind::remove, "c"), purge = edit(Kind::purge);
  const auto colourOfA = [](RaceRecord& race) { friendIn(*race.after, {0, 0}).fields["meta colour"] = "blue"; };
  expectJudged({
      {"both added, the one of them elsewhere",
       {{addX}, {addY}},
       {{"Family", "aby"}, {"Later", "x.."}, {"Work", ".c."}, {"", "..."}},
       {}},
      {"the same person, added by both",
       {{addX}, {addX}},
       {{"Family", "abx"}, {"Later", "..."}, {"Work", ".c."}, {"", "..."}},
       {}},
      {"refused: is a friend already",
       {{addX}, {addX, Outcome::refused}},
       {{"Family", "abx"}, {"Later", "..."}, {"Work", ".c."}, {"", "..."}},
       {}},
      {"two places for one friend",
       {{edit(Kind::move, "a", {1, 0})}, {edit(Kind::move, "a", {1, 2})}},
       {{"Family", ".b."}, {"Later", "..a"}, {"Work", ".c."}, {"", "..."}},
       {}},
      {"one place for two friends",
       {{edit(Kind::move, "a", {1, 0})}, {edit(Kind::move, "b", {1, 0})}},
       {{"Family", "..."}, {"Later", "ab."}, {"Work", ".c."}, {"", "..."}},
       {}},
      {"a removal and a change of the friend: the removal shows",
       {{removeA}, {edit(Kind::meta, "a", {}, "blue")}},
       {{"Family", ".b."}, {"Later", "..."}, {"Work", ".c."}, {"", "..."}},
       {}},
      {"the same: the change shows",
       {{removeA}, {edit(Kind::meta, "a", {}, "blue")}},
       {{"Family", "ab."}, {"Later", "..."}, {"Work", ".c."}, {"", "..."}},
       {},
       colourOfA},
      {"a removal explains that the place of the friend has another",
       {{edit(Kind::move, "a", {1, 0})}, {removeA}, {edit(Kind::move, "b", {1, 0})}},
       {{"Family", "..."}, {"Later", "b.."}, {"Work", ".c."}, {"", "..."}},
       {}},
      {"a page that came back for a friend",
       {{purge}, {edit(Kind::move, "a", {1, 0})}},
       {{"Family", ".b."}, {"Later", "a.."}, {"Work", ".c."}, {"", "..."}},
       {}},
      {"a page number that means another page since",
       {{purge}, {edit(Kind::title, {}, {1, 0}, "Club")}},
       {{"Family", "ab."}, {"Club", ".c."}, {"", "..."}},
       {}},
      {"refused: the page is not there any more",
       {{purge}, {edit(Kind::move, "a", {3, 0}), Outcome::refused}},
       {{"Family", "ab."}, {"Work", ".c."}, {"", "..."}},
       {}},
      {"the page of the last friend vanishes",
       {{removeC}, {edit(Kind::title, {}, {0, 0}, "")}},
       {{"", "ab."}, {"Later", "..."}, {"", "..."}},
       {}},
      {"a page that all have left vanishes",
       {{edit(Kind::swap, "a", {2, 1})}, {edit(Kind::move, "a", {3, 1})}},
       {{"Family", "cb."}, {"Later", "..."}, {"", ".a."}, {"", "..."}},
       {}},
      {"a page vanishes with the friend who was moved there and removed",
       {{edit(Kind::move, "a", {1, 0})}, {removeA}},
       {{"Family", ".b."}, {"Work", ".c."}, {"", "..."}},
       {}},
      {"a page that came back beside the one where all of another's friends went",
       {{edit(Kind::move, "a", {1, 0})}, {edit(Kind::move, "b", {1, 0})}, {edit(Kind::move, "a", {1, 0})}},
       {{"Later", "a.."}, {"Work", ".c."}, {"Later", "b.."}, {"", "..."}},
       {}},
      {"killed before",
       {{removeA}, {addX, Outcome::killed}},
       {{"Family", ".b."}, {"Later", "..."}, {"Work", ".c."}, {"", "..."}},
       {}},
      {"killed afterwards",
       {{removeA}, {addX, Outcome::killed}},
       {{"Family", "xb."}, {"Later", "..."}, {"Work", ".c."}, {"", "..."}},
       {}},
      {"both friends of the last page leave",
       {{edit(Kind::remove, "c")}, {edit(Kind::remove, "d")}},
       {{"Family", "ab."}, {"", "..."}},
       {},
       [](RaceRecord& race) {
         race.before = listOf({{"Family", "ab."}, {"Work", "cd."}});
         race.maxPages = 2;
       }},
      {"an empty page stays before the one behind it on which somebody is put",
       {{edit(Kind::remove, "c")}, {edit(Kind::move, "a", {2, 1})}},
       {{"Family", ".b."}, {"", "..."}, {"", ".a."}, {"", "..."}},
       {},
       [](RaceRecord& race) {
         race.before = listOf({{"Family", "ab."}, {"", ".c."}, {"", "..."}});
       }},
      {"refused: no room",
       {{addX}, {addY, Outcome::refused}},
       {{"Family", "abx"}, {"Later", "def"}, {"Work", "gch"}},
       {},
       [](RaceRecord& race) {
         race.before = listOf({{"Family", "ab."}, {"Later", "def"}, {"Work", "gch"}});
         race.maxPages = 3;
       }},
  });
}

TEST(RaceJudge, FindsEachKindOfFault) {
  const RaceEdit addX = edit(Kind::add, "x"), removeA = edit(Kind::remove, "a"), purge = edit(Kind::purge),
                 moveC = edit(Kind::move, "c", {0, 2}), swap = edit(Kind::swap, "a", {2, 1}),
                 club = edit(Kind::title, {}, {2, 0}, "Club"), colour = edit(Kind::meta, "b", {}, "blue");
  const std::vector<std::pair<std::string, std::string>> untouched = {
      {"Family", "ab."}, {"Later", "..."}, {"Work", ".c."}, {"", "..."}};
  expectJudged({
      {"the addition is not there",
       {{addX}, {removeA}},
       {{"Family", ".b."}, {"Later", "..."}, {"Work", ".c."}, {"", "..."}},
       {.lost = 1}},
      {"nothing is there", {{addX}, {colour}}, untouched, {.lost = 2}},
      {"who was removed is back",
       {{removeA}, {club}},
       {{"Family", "ab."}, {"Later", "..."}, {"Club", ".c."}, {"", "..."}},
       {.lost = 1}},
      {"neither place of a friend that both moved",
       {{edit(Kind::move, "a", {1, 0})}, {edit(Kind::move, "a", {1, 2})}},
       untouched,
       {.lost = 2}},
      {"the removal does not explain another friend",
       {{removeA}, {colour}},
       {{"Family", ".b."}, {"Later", "..."}, {"Work", ".c."}, {"", "..."}},
       {.lost = 1}},
      {"half of a swap",
       {{swap}, {club}},
       {{"Family", "ab."}, {"Later", "..."}, {"Club", "c.."}, {"", "..."}},
       {.lost = 1}},
      {"a friend whom nobody removed is missing",
       {{addX}, {club}},
       {{"Family", "a.x"}, {"Later", "..."}, {"Club", ".c."}, {"", "..."}},
       {.lost = 1}},
      {"somebody is there twice",
       {{moveC}, {club}},
       {{"Family", "abc"}, {"Later", "..."}, {"Club", ".c."}, {"", "..."}},
       {.doubled = 1}},
      {"a friend whom nobody moved stands elsewhere",
       {{addX}, {club}},
       {{"Family", "xba"}, {"Later", "..."}, {"Club", ".c."}, {"", "..."}},
       {.torn = 1}},
      {"titles on the wrong pages",
       {{purge}, {colour}},
       {{"Family", "ab."}, {"Later", ".c."}, {"", "..."}},
       {.torn = 1},
       [](RaceRecord& race) {
         friendIn(*race.after, {0, 1}).fields["meta colour"] = "blue";
       }},
      {"a stranger",
       {{addX}, {removeA}},
       {{"Family", "xbz"}, {"Later", "..."}, {"Work", ".c."}, {"", "..."}},
       {.torn = 1}},
      {"a page with too few slots",
       {{addX}, {removeA}},
       {{"Family", "xb."}, {"Later", ".."}, {"Work", ".c."}, {"", "..."}},
       {.torn = 1}},
      {"a friend with half a contact",
       {{addX}, {removeA}},
       {{"Family", "xb."}, {"Later", "..."}, {"Work", ".c."}, {"", "..."}},
       {.torn = 1},
       [](RaceRecord& race) {
         friendIn(*race.after, {0, 0}).contact.name.clear();
       }},
      {"a field that nobody set",
       {{addX}, {removeA}},
       {{"Family", "xb."}, {"Later", "..."}, {"Work", ".c."}, {"", "..."}},
       {.torn = 1},
       [](RaceRecord& race) {
         friendIn(*race.after, {2, 1}).fields[ReplyField] = "z";
       }},
      {"half of what was killed",
       {{club}, {swap, Outcome::killed}},
       {{"Family", "cb."}, {"Later", "..."}, {"Club", "..a"}, {"", "..."}},
       {.torn = 1}},
      {"no list", {{addX}, {removeA}}, {}, {.torn = 1}, [](RaceRecord& race) { race.after.reset(); }},
      {"refused although nothing was in its way",
       {{addX}, {club, Outcome::refused}},
       {{"Family", "abx"}, {"Later", "..."}, {"Work", ".c."}, {"", "..."}},
       {.refused = 1}},
      {"refused two additions with room for both",
       {{addX}, {edit(Kind::add, "y"), Outcome::refused}},
       {{"Family", "abx"}, {"Later", "..."}, {"Work", ".c."}, {"", "..."}},
       {.refused = 1}},
      {"a contact that is not followed",
       {{edit(Kind::refresh)}, {addX}},
       {{"Family", "abx"}, {"Later", "..."}, {"Work", ".c."}, {"", "..."}},
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
