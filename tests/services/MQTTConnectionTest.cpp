// A connection to the broker whose thread the system refuses.
#include "pellor/linux/mosquitto/MQTTConnection.h"

#include <semaphore>

#include "pellor/testing/LogCollector.h"
#include "tests/linux/RefusedThreads.h"

namespace pellor {
namespace {

class NotingClient final : public MQTTConnection::Client {
 public:
  void work() override { works.release(); }
  void connected() override {}
  void disconnected() override { ++losses; }
  void arrived(const std::string&, std::span<const std::uint8_t>) override {}
  void subscribed() override {}
  void delivered(bool) override {}

  std::binary_semaphore works{0};
  int losses = 0;
};

TEST(MQTTRefusedThreadsTest, WithoutItsThreadTheBrokerIsAwayUntilItCanBeStarted) {
  runWithRefusedThreads([](const RefusedThreads& refused) {
    const auto log = std::make_shared<LogCollector>();
    NotingClient client;
    MQTTConnection connection(client, {}, {}, "id", {}, LogHandle("test", "mqtt", log));
    connection.start();
    connection.wake();
    EXPECT_EQ(client.losses, 1);
    EXPECT_NE(connection.problem().find("ulimit -u"), std::string::npos) << connection.problem();
    EXPECT_EQ(log->count(RefusedThreads::Refusal), 1U);
    refused.lift();
    connection.wake();
    client.works.acquire();
  });
}

}  // namespace
}  // namespace pellor
