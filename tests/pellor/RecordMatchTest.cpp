#include "pellor/friends/internal/PLRecordMatch.h"

#include <cmath>

#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

TEST(RecordMatchScore, PrefersWhoHoldsAllAndThenWhoHoldsMore) {
  const DestinationSet own{"a", "b"};
  const struct {
    DestinationSet candidate;
    float score;
  } cases[] = {{{"c"}, 0.0F}, {{"a", "c", "d"}, 0.5F}, {{"a", "b"}, 1.0F}, {{"a", "b", "c", "d"}, 2.0F}};
  for (const auto& one : cases) EXPECT_EQ(matchScore(one.candidate, own), one.score);
  EXPECT_TRUE(std::isnan(matchScore({"a"}, {})));
}

TEST(RecordMatchScore, TheBestIsTheFirstOfTheHighest) {
  const auto best = [](std::vector<RecordMatchDictionary::Entry> entries, const DestinationSet& own) {
    RecordMatchDictionary candidates;
    for (auto& [recordID, destinations] : entries) candidates.set(recordID, std::move(destinations));
    return bestRecordMatch(candidates, [&](const DestinationSet& candidate) { return matchScore(candidate, own); });
  };
  EXPECT_EQ(best({{9, {"a", "b"}}, {1, {"a", "b", "c"}}}, {"a", "b"}), 1);
  EXPECT_EQ(best({{9, {"a"}}, {1, {"b"}}}, {"a", "b"}), 9);
  EXPECT_EQ(best({{9, {"x"}}}, {"a"}), InvalidRecordID);
  EXPECT_EQ(best({{9, {"x"}}}, {}), InvalidRecordID) << "no number never wins";
}

}  // namespace
}  // namespace pellor
