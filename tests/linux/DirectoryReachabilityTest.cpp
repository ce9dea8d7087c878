// Queries that a directory answers, and what becomes of them while it is away.
#include "pellor/linux/reachability/DirectoryReachability.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <semaphore>
#include <set>
#include <string>
#include <vector>

#include "pellor/linux/notify/NotifyFolder.h"
#include "pellor/linux/reachability/IdentityService.h"
#include "pellor/runtime/ThreadSafety.h"
#include "pellor/testing/LogCollector.h"
#include "pellor/testing/contract/ReachabilityServiceContract.h"
#include "tests/linux/ServedProcesses.h"
#include "tests/linux/TemporaryFolder.h"

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
  std::string account() const override { return "Ada's"; }
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
    answer.lifetime = _lifetime;
    for (const std::string& identifier : identifiers) {
      if (identifier == _untold) continue;
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
  void setAnswers(const std::string& untold, std::optional<std::chrono::seconds> lifetime) {
    const MutexLock lock(_mutex);
    _untold = untold;
    _lifetime = lifetime;
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
  std::string _untold PELLOR_GUARDED_BY(_mutex);
  std::optional<std::chrono::seconds> _lifetime PELLOR_GUARDED_BY(_mutex);
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
      DirectoryReachabilityOptions{.clock = [this] { return std::chrono::steady_clock::time_point(_now.load()); }});
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

/// Programs that share a data folder and a bus, each with the service and a directory of its own.
class SharedAnswers : public testing::Test {
 protected:
  struct Program {
    HeldDirectory* directory = new HeldDirectory;
    std::unique_ptr<DirectoryReachability> service;
  };

  Program& program(int number) {
    Program& result = _programs[number];
    if (result.service) return result;
    DirectoryReachabilityOptions options;
    options.dataFolder = folder.path();
    options.notifyBus = [this, number] { return busOf(number); };
    options.wallClock = [this] { return now.load(); };
    result.service = std::make_unique<DirectoryReachability>(processes.at(number), conversions(),
                                                             std::unique_ptr<DestinationDirectory>(result.directory),
                                                             LogHandle("test", "reach", nullptr), std::move(options));
    return result;
  }
  void ask(int number, const Identifiers& destinations) {
    const auto client = std::make_shared<RecordingClient>();
    EXPECT_TRUE(pellor::ask(processes.at(number), *program(number).service, destinations, true, client));
    EXPECT_TRUE(processes.runUntil([&] { return client->statuses.size() == destinations.size(); }));
  }
  std::optional<StatusAnswer> lastOf(int number, const std::string& destination) {
    const Process::Scope scope(processes.at(number));
    return program(number).service->lastKnownStatus(destination);
  }

  TemporaryFolder folder;
  ServedProcesses processes;
  std::atomic<double> now = 1000;

 private:
  std::shared_ptr<SystemNotifyBus> busOf(int number) {
    auto& bus = _buses[number];
    if (!bus) bus = NotifyFolder::make(processes.at(number), folder / "notify", LogHandle("test", "bus", nullptr));
    return bus;
  }

  std::map<int, std::shared_ptr<SystemNotifyBus>> _buses;
  std::map<int, Program> _programs;
};

TEST_F(SharedAnswers, WhatOneProgramWasToldAllKnowAndLaterOnesToo) {
  const std::string ada = "ada@example.org", bob = "bob@example.org";
  EXPECT_EQ(lastOf(1, ada), std::nullopt);
  program(0).directory->setAnswers("mailto:bob@example.org", std::chrono::seconds(60));
  ask(0, {ada, bob});
  const StatusAnswer told{valid, 1000, "the directory", 60};
  EXPECT_EQ(lastOf(0, "mailto:" + ada), told);
  EXPECT_TRUE(processes.runUntil([&] { return lastOf(1, ada) == told; })) << "it hears of news on the bus";
  EXPECT_EQ(lastOf(1, bob), std::nullopt) << "the directory could not tell";
  now = 5000;
  ask(1, {ada, bob});
  EXPECT_EQ(lastOf(2, ada), (StatusAnswer{valid, 5000, "the directory", std::nullopt}));
  EXPECT_EQ(lastOf(2, bob), (StatusAnswer{invalid, 5000, "the directory", std::nullopt}));
  now = 9000;
  program(2).directory->setAnswers("mailto:bob@example.org", std::nullopt);
  ask(2, {bob});
  program(2).directory->setProblem("refused");
  ask(2, {ada});
  EXPECT_EQ(lastOf(2, ada)->time, 5000) << "a directory that is away says nothing";
  EXPECT_EQ(lastOf(2, bob)->time, 5000);
}

}  // namespace
}  // namespace pellor
