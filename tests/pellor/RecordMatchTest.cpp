#include "Pellor/PLRecordMatch.h"

#include <cmath>

#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

using RecordMatch = OneProcess;

TEST(RecordMatchScore, PrefersWhoHoldsAllAndThenWhoHoldsMore) {
  const DestinationSet own{"a", "b"};
  const struct {
    DestinationSet candidate;
    float score;
  } cases[] = {
      {{}, 0.0F},         {{"c"}, 0.0F},
      {{"a"}, 0.5F},      {{"a", "c", "d"}, 0.5F},
      {{"a", "b"}, 1.0F}, {{"a", "b", "c", "d"}, 2.0F},
  };
  for (const auto& one : cases) EXPECT_EQ(matchScore(one.candidate, own), one.score);
  EXPECT_EQ(matchScore({"a"}, {"a", "b", "c"}), 1.0F / 3.0F) << "in single precision";
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
  EXPECT_EQ(best({{9, {"a"}}, {1, {"a"}}, {9, {"x"}}}, {"a"}), 1)
      << "a later set replaces the earlier one in its place";
  EXPECT_EQ(best({}, {"a"}), InvalidRecordID);
}

TEST_F(RecordMatch, LinkedRecordsStandUnderTheirFirst) {
  auto& contacts = world.addressBook();
  const std::string head = contacts.add({.first = "Ann", .emails = {{"home", "ann@example.org"}}});
  const std::string member = contacts.add({.first = "Anna", .phones = {{"home", "030 1234567"}}});
  const std::string single = contacts.add({.first = "Bob", .emails = {{"home", "bob@example.org"}}});
  contacts.link({head, member});
  const std::vector<RecordRef> records{record(single), nullptr, record(member), record(head), record(single)};
  const DestinationSet both{"+49301234567", "ann@example.org"};

  const auto followed = recordMatchDictionary(records, true, *book());
  EXPECT_THAT(followed.entries(),
              testing::ElementsAre(testing::Pair(record(single)->recordID(), DestinationSet{"bob@example.org"}),
                                   testing::Pair(record(head)->recordID(), both)));
  const auto asTheyAre = recordMatchDictionary(records, false, *book());
  EXPECT_THAT(asTheyAre.entries(),
              testing::ElementsAre(testing::Pair(record(single)->recordID(), DestinationSet{"bob@example.org"}),
                                   testing::Pair(record(member)->recordID(), both),
                                   testing::Pair(record(head)->recordID(), both)));
}

}  // namespace
}  // namespace pellor
