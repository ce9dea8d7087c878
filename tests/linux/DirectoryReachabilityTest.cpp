// Queries that a directory answers, and what becomes of them while it is away.
#include "pellor/linux/reachability/DirectoryReachability.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <semaphore>
#include <set>
#include <string>
#include <vector>

#include "pellor/linux/reachability/IdentityService.h"
#include "pellor/runtime/ThreadSafety.h"
#include "pellor/testing/LogCollector.h"
#include "pellor/testing/contract/ReachabilityServiceContract.h"
#include "tests/linux/ServedProcesses.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using enum DestinationStatus;
using Identifiers = std::set<std::string>;

std::shared_ptr<ReachabilityService> conversions(const std::string& region = "DE") {
  return std::make_shared<IdentityService>([region]() -> const std::string& { return region; });
}

/// A directory that answers when it is let to.
class HeldDirectory final : public DestinationDirectory {
 public:
  std::string name() const override { return "the directory"; }
  std::size_t largestQuery() const override { return 5; }
  bool couldKnow(const std::string& identifier) const override { return identifier != "tel:911"; }
  Answer lookUp(const Identifiers& identifiers) override {
    {
      const MutexLock lock(_mutex);
      _asked.push_back(identifiers);
    }
    _arrivals.release();
    if (isHeld) _turns.acquire();
    const MutexLock lock(_mutex);
    if (!_problem.empty()) return {{}, _problem, _pause};
    Answer answer;
    for (const std::string& identifier : identifiers) {
      const bool isKnown = identifier == "tel:+49301234567" || identifier == "mailto:ada@example.org" ||
                           identifier == "mailto:Ada@Example.org";
      answer.statuses.emplace(identifier, isKnown ? valid : invalid);
    }
    return answer;
  }
  State state() override { return {}; }
  void cancel() override { _turns.release(1000); }

  /// Whether one more query has come.
  bool waitForQuery() { return _arrivals.try_acquire_for(std::chrono::minutes(1)); }
  void letAnswer(int times) { _turns.release(times); }
  void setProblem(const std::string& problem, std::chrono::milliseconds pause = {}) {
    const MutexLock lock(_mutex);
    _problem = problem;
    _pause = pause;
  }
  std::vector<Identifiers> asked() {
    const MutexLock lock(_mutex);
    return _asked;
  }

  bool isHeld = false;  // before the first query

 private:
  std::counting_semaphore<> _arrivals{0}, _turns{0};
  Mutex _mutex;
  std::vector<Identifiers> _asked PELLOR_GUARDED_BY(_mutex);
  std::string _problem PELLOR_GUARDED_BY(_mutex);
  std::chrono::milliseconds _pause PELLOR_GUARDED_BY(_mutex){0};
};

/// The service with such a directory, at a time of its own.
class Queries {
 public:
  Process& process() { return _processes.at(0); }
  DirectoryReachability& service() { return *_service; }
  HeldDirectory& directory() { return *_directory; }
  LogCollector& log() { return *_log; }
  template <class Condition>
  bool runUntil(Condition condition) {
    return _processes.runUntil(condition);
  }
  void advance(std::chrono::milliseconds time) { _now = _now.load() + time; }
  void end() { _service.reset(); }

 private:
  ServedProcesses _processes;
  std::shared_ptr<LogCollector> _log = std::make_shared<LogCollector>();
  std::atomic<std::chrono::milliseconds> _now{};
  HeldDirectory* _directory = new HeldDirectory;
  std::unique_ptr<DirectoryReachability> _service = std::make_unique<DirectoryReachability>(
      process(), conversions(), std::unique_ptr<DestinationDirectory>(_directory), LogHandle("test", "reach", _log),
      [this] { return std::chrono::steady_clock::time_point(_now.load()); });
};

struct LinuxConversions {
  static std::vector<std::string> regions() { return {"DE", "US", "RU", "IT", "AR", "no region"}; }
  static std::shared_ptr<ReachabilityService> make(const std::string& region) { return conversions(region); }
};

INSTANTIATE_TYPED_TEST_SUITE_P(Identity, ReachabilityConversionsContract, LinuxConversions);
INSTANTIATE_TYPED_TEST_SUITE_P(Directory, ReachabilityQueriesContract, Queries);

TEST(IdentityServiceTest, TakesNoQueries) {
  Process process;
  expectNoQueries(process, *conversions());
}

class DirectoryReachabilityTest : public testing::Test {
 protected:
  std::shared_ptr<RecordingClient> ask(const Identifiers& destinations, bool hasPriority = false) {
    auto client = std::make_shared<RecordingClient>();
    EXPECT_TRUE(pellor::ask(queries.process(), queries.service(), destinations, hasPriority, client));
    return client;
  }
  DestinationStatuses answered(const std::shared_ptr<RecordingClient>& client) {
    const std::size_t count = client->starts.front().destinations.size();
    EXPECT_TRUE(queries.runUntil([&] { return client->statuses.size() == count; }));
    return client->statuses;
  }

  Queries queries;
  HeldDirectory& directory = queries.directory();
};

TEST_F(DirectoryReachabilityTest, WhatWaitsIsAskedForTogetherAndPriorityFirst) {
  directory.isHeld = true;
  const auto first = ask({"a@b"});
  ASSERT_TRUE(directory.waitForQuery());
  auto gone = ask({"gone@b"}, true);
  const auto batch = ask({"1@b", "2@b", "3@b", "4@b", "5@b", "6@b"});
  const auto urgent = ask({"5@b"}, true), alsoUrgent = ask({"5@b", "mailto:5@b", "tel:911"}, true);
  gone.reset();
  directory.letAnswer(1000);
  EXPECT_THAT(answered(batch), SizeIs(6));
  EXPECT_EQ(answered(alsoUrgent),
            (DestinationStatuses{{"5@b", invalid}, {"mailto:5@b", invalid}, {"tel:911", unknown}}));
  EXPECT_EQ(urgent->parts, 1);
  EXPECT_EQ(batch->parts, 2);
  EXPECT_EQ(first->parts, 1);
  EXPECT_THAT(directory.asked(),
              ElementsAre(Identifiers{"mailto:a@b"}, Identifiers{"mailto:5@b"},
                          Identifiers{"mailto:1@b", "mailto:2@b", "mailto:3@b", "mailto:4@b", "mailto:5@b"},
                          Identifiers{"mailto:6@b"}));
}

TEST_F(DirectoryReachabilityTest, WhatIsTooLongIsNotAskedFor) {
  const std::string number(251, '1'), address = std::string(320, 'a') + "@b";
  EXPECT_EQ(answered(ask({number, address, "a@b"})),
            (DestinationStatuses{{number, unknown}, {address, unknown}, {"a@b", invalid}}));
  EXPECT_THAT(directory.asked(), ElementsAre(Identifiers{"mailto:a@b"}));
}

TEST_F(DirectoryReachabilityTest, OneThatIsAwayIsLeftAloneForAGrowingPauseAndSpokenOfOnceEachWay) {
  using std::chrono::seconds;
  const std::string ada = "ada@example.org";
  directory.setProblem("refused");
  std::size_t times = 0;
  for (const int pause : {1, 2, 4, 8, 16, 32, 60, 60}) {
    EXPECT_EQ(answered(ask({ada})), (DestinationStatuses{{ada, unknown}}));
    EXPECT_THAT(directory.asked(), SizeIs(++times)) << pause;
    queries.advance(seconds(pause) - std::chrono::milliseconds(1));
    EXPECT_EQ(answered(ask({ada}, true)), (DestinationStatuses{{ada, unknown}}));
    EXPECT_THAT(directory.asked(), SizeIs(times)) << "before " << pause << " s";
    queries.advance(std::chrono::milliseconds(1));
  }
  directory.setProblem("too often", seconds(300));
  EXPECT_EQ(answered(ask({ada})), (DestinationStatuses{{ada, unknown}}));
  directory.setProblem("");
  queries.advance(seconds(299));
  EXPECT_EQ(answered(ask({ada})), (DestinationStatuses{{ada, unknown}})) << "it asked for 300 s";
  EXPECT_EQ(answered(ask({"tel:911"})), (DestinationStatuses{{"tel:911", unknown}})) << "which is no news of it";
  queries.advance(seconds(1));
  EXPECT_EQ(answered(ask({ada})), (DestinationStatuses{{ada, valid}}));
  EXPECT_EQ(answered(ask({ada})), (DestinationStatuses{{ada, valid}}));
  EXPECT_THAT(queries.log().messages(), ElementsAre("the directory cannot be asked who is reachable: refused",
                                                    "the directory can be asked again who is reachable"));
}

TEST_F(DirectoryReachabilityTest, ItsEndCancelsTheQueryThatIsUnderWayAndAnswersNoMore) {
  directory.isHeld = true;
  directory.setProblem("cancelled");
  const auto client = ask({"1@b", "2@b", "3@b", "4@b", "5@b", "6@b"});
  ASSERT_TRUE(directory.waitForQuery());
  queries.end();
  EXPECT_TRUE(queries.process().settle(60));
  EXPECT_THAT(queries.log().messages(), IsEmpty()) << "nobody has been away";
  EXPECT_EQ(client->parts, 0);
}

}  // namespace
}  // namespace pellor
