// Services whose threads the system refuses.
#include "tests/linux/RefusedThreads.h"

#include <gmock/gmock.h>

#include <memory>
#include <semaphore>
#include <set>
#include <string>
#include <vector>

#include "pellor/linux/files/internal/FolderWatch.h"
#include "pellor/linux/reachability/DirectoryReachability.h"
#include "pellor/linux/reachability/IdentityService.h"
#include "pellor/linux/threads/ServiceThread.h"
#include "pellor/testing/LogCollector.h"
#include "pellor/testing/contract/ReachabilityServiceContract.h"
#include "tests/linux/ServedProcesses.h"

namespace pellor {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(RefusedThreadsTest, AThreadThatWasRefusedIsStartedWhenThereIsRoom) {
  runWithRefusedThreads([](const RefusedThreads& refused) {
    std::binary_semaphore hasRun{0};
    ServiceThread thread;
    EXPECT_TRUE(thread.start("test", [] {}));
    EXPECT_FALSE(thread.isStarted());
    thread.join();
    refused.lift();
    EXPECT_FALSE(thread.start("test", [&] { hasRun.release(); }));
    hasRun.acquire();
    EXPECT_TRUE(thread.isStarted());
  });
}

TEST(RefusedThreadsTest, AFolderWatchSaysThatItNoticesNothing) {
  runWithRefusedThreads([](const RefusedThreads&) {
    std::vector<std::string> problems;
    const FolderWatch watch(
        "/", [](std::string_view) { return true; },
        [&](const FolderChange&, const std::string& problem) { problems.push_back(problem); });
    EXPECT_THAT(problems, ElementsAre(testing::AllOf(HasSubstr(RefusedThreads::Refusal), HasSubstr("ulimit -u"))));
  });
}

class KnowingDirectory final : public DestinationDirectory {
 public:
  std::string name() const override { return "the directory"; }
  std::string account() const override { return ""; }
  std::size_t largestQuery() const override { return 5; }
  bool couldKnow(const std::string&) const override { return true; }
  Answer lookUp(const std::set<std::string>& identifiers) override {
    Answer answer;
    for (const std::string& identifier : identifiers) answer.statuses.emplace(identifier, DestinationStatus::valid);
    return answer;
  }
  State state() override { return {}; }
  void cancel() override {}
};

TEST(RefusedThreadsTest, ADirectoryAnswersThatItDoesNotKnowAndIsAskedLater) {
  runWithRefusedThreads([](const RefusedThreads& refused) {
    ServedProcesses processes;
    const auto log = std::make_shared<LogCollector>();
    std::chrono::steady_clock::time_point now;
    DirectoryReachability service(
        processes.at(0), std::make_shared<IdentityService>([region = std::string("DE")]() -> auto& { return region; }),
        std::make_unique<KnowingDirectory>(), LogHandle("test", "reach", log),
        DirectoryReachabilityOptions{.clock = [&] { return now; }});
    const auto statusOf = [&](const std::string& destination) {
      const auto client = std::make_shared<RecordingClient>();
      EXPECT_TRUE(ask(processes.at(0), service, {destination}, false, client));
      EXPECT_TRUE(processes.runUntil([&] { return !client->statuses.empty(); }));
      return client->statuses[destination];
    };
    for (int times = 0; times < 2; ++times) EXPECT_EQ(statusOf("a@b"), DestinationStatus::unknown);
    EXPECT_EQ(log->count(RefusedThreads::Refusal), 1U);
    refused.lift();
    now += std::chrono::hours(1);
    EXPECT_EQ(statusOf("a@b"), DestinationStatus::valid);
    EXPECT_EQ(log->count("can be asked again"), 1U);
  });
}

}  // namespace
}  // namespace pellor
