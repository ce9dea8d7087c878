// What two devices say to each other, what each keeps of it, and their connection.
#include <gtest/gtest.h>

#include <optional>
#include <semaphore>
#include <span>
#include <utility>
#include <vector>

#include "pellor/linux/mosquitto/MQTTConnection.h"
#include "pellor/linux/mosquitto/PushState.h"
#include "pellor/linux/mosquitto/SealingKeys.h"
#include "pellor/linux/mosquitto/SyncMessages.h"
#include "pellor/testing/LogCollector.h"
#include "tests/linux/RefusedThreads.h"

namespace pellor {
namespace {

TEST(SyncMessagesTest, WhatIsNotWholeDecodesToNothing) {
  const Data key = *encode(KeyMessage{{"domain", "key"}, Value(Array{"friend"})});
  const Data removed = *encode(KeyMessage{{"domain", "key"}, std::nullopt});
  const Manifest digests{{{"domain", "key"}, digestOf(key)}, {{"domain", "other"}, Data()}};
  const Data manifest = *encode(ManifestMessage{digests, 7});
  const Data acknowledgement = *encode(Acknowledgement{"too small"});
  OutgoingState outgoing;
  outgoing.request({"domain", "key"});
  outgoing.sent[{"domain", "key"}] = {digestOf(key), 3};
  outgoing.refused = {4, "too small"};
  outgoing.emptied = {"topic"};
  IncomingState incoming;
  incoming.generation = 3;
  incoming.stored = incoming.expected = digests;
  incoming.included = 2;
  incoming.sent = {{3, digests}, {5, {}}};
  const Data state = encode(outgoing), stored = encode(incoming);
  EXPECT_EQ(decodeKeyMessage(key)->value, Value(Array{"friend"}));
  EXPECT_EQ(decodeKeyMessage(removed)->value, std::nullopt);
  EXPECT_EQ(encode(*decodeManifest(manifest)), manifest);
  EXPECT_EQ(decodeAcknowledgement(acknowledgement)->refusal, "too small");
  EXPECT_EQ(encode(*decodeOutgoingState(state)), state);
  EXPECT_EQ(encode(*decodeIncomingState(stored)), stored);

  const auto decoded = [](const Data& bytes) {
    return std::vector<bool>{decodeKeyMessage(bytes).has_value(), decodeManifest(bytes).has_value(),
                             decodeAcknowledgement(bytes).has_value(), decodeOutgoingState(bytes).has_value(),
                             decodeIncomingState(bytes).has_value()};
  };
  using Kinds = std::vector<bool>;
  const Kinds none(5);
  const std::pair<Data, Kinds> messages[] = {
      {key, {true, false, false, false, false}},      {removed, {true, false, false, false, false}},
      {manifest, {false, true, false, false, false}}, {acknowledgement, {false, false, true, false, false}},
      {state, {false, false, false, true, false}},    {stored, {false, false, false, false, true}}};
  for (const auto& [bytes, kinds] : messages) {
    EXPECT_EQ(decoded(bytes), kinds);
    for (std::size_t length = 0; length < bytes.size(); ++length) {
      EXPECT_EQ(decoded(Data(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length))), none) << length;
    }
    Data longer = bytes;
    longer.push_back(0);
    EXPECT_EQ(decoded(longer), none);
  }
}

TEST(SealingKeysTest, OnlyTheOtherDeviceOpensOnlyWhatWasSealed) {
  const SealingKeyPair laptop = SealingKeyPair::make(), phone = SealingKeyPair::make(), tablet = SealingKeyPair::make();
  const auto sender = SealingKeys::agree(laptop, phone.publicKey),
             receiver = SealingKeys::agree(phone, laptop.publicKey);
  const Data content{1, 2, 3};
  const Data sealed = sender->seal("topic", 0x0102030405060708, content);
  const auto opened = receiver->open("topic", sealed);
  ASSERT_TRUE(opened);
  EXPECT_EQ(opened->content, content);
  EXPECT_EQ(opened->generation, 0x0102030405060708u);
  EXPECT_NE(sender->seal("topic", 0x0102030405060708, content), sealed);

  EXPECT_FALSE(receiver->open("topics", sealed));
  EXPECT_FALSE(sender->open("topic", sealed)) << "sent back to its writer";
  EXPECT_FALSE(SealingKeys::agree(tablet, laptop.publicKey)->open("topic", sealed));
  EXPECT_FALSE(SealingKeys::agree(phone, tablet.publicKey)->open("topic", sealed));
  for (std::size_t index = 0; index < sealed.size(); ++index) {
    Data changed = sealed;
    changed[index] ^= 0x10;
    EXPECT_FALSE(receiver->open("topic", changed)) << index;
    EXPECT_FALSE(receiver->open("topic", std::span(sealed).first(index))) << index;
  }
  EXPECT_FALSE(SealingKeys::agree(laptop, laptop.publicKey));
  EXPECT_FALSE(SealingKeys::agree(laptop, SealingKeyPair::Key{})) << "no key at all";
}

// The connection to the broker

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
