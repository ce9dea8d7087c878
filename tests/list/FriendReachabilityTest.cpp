// Whether friends can receive messages, as an app asks for it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/list/ListProcess.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FriendReachabilityTest : public ListTest {
 protected:
  FriendReachabilityTest() {
    setGroups(20, 2);
    process = open("Ann,Bob|Cy,-|-,-");
  }
  ~FriendReachabilityTest() override {
    process->run([&] { handle.reset(); });
  }

  Reachability known(std::uint64_t slot) {
    const FriendId id = process->idAt(0, slot);
    return process->run([&] { return process->list().reachability(id); });
  }
  void query(std::uint64_t slot) {
    const std::vector<FriendId> who = {process->idAt(0, slot)};
    process->run([&] { handle = process->list().query(who, [&] { ++answers; }); });
  }
  void setService(const std::string& name) {
    process->run([&] { process->list().setService(name); });
  }

  std::unique_ptr<ListProcess> process;
  std::shared_ptr<Observation> handle;
  int answers = 0;
};

TEST_F(FriendReachabilityTest, AnAnswerSaysWhenAndByWhomAndEndsTheWait) {
  setService("chat");
  world.identityService().setScript(SimulatedIdentityService::answering(DestinationStatus::valid, 2));
  query(0);
  EXPECT_EQ(answers, 0) << "never inside the call";
  advance(1);
  EXPECT_EQ(answers, 0);
  rest();
  EXPECT_EQ(answers, 1);
  const Reachability ann = known(0);
  EXPECT_EQ(ann.status, DestinationStatus::valid);
  EXPECT_THAT(ann.reachable, ElementsAre("ann@example.org"));
  ASSERT_TRUE(ann.answer);
  EXPECT_EQ(ann.answer->service, "chat");
  EXPECT_EQ(known(1).status, DestinationStatus::unspecified) << "only one was asked for";

  process->run([&] { handle = process->list().queryAll([&] { ++answers; }); });
  rest();
  EXPECT_EQ(answers, 2);
  EXPECT_THAT(world.identityService().queries().back().destinations,
              ElementsAre("mailto:ann@example.org", "mailto:bob@example.org", "mailto:cy@example.org"));
}

TEST_F(FriendReachabilityTest, WhatAnotherProcessWasToldCountsHere) {
  setService("chat");
  world.identityService().setLastKnownStatus("bob@example.org", {DestinationStatus::invalid, 7, "chat", {}});
  EXPECT_EQ(known(1).status, DestinationStatus::invalid);
  EXPECT_EQ(known(1).answer->time, 7);
  EXPECT_THAT(known(1).reachable, IsEmpty());
}

TEST_F(FriendReachabilityTest, NobodyIsToldOfSilenceOrWithoutAHandle) {
  setService("chat");
  world.identityService().setScript(SimulatedIdentityService::silence());
  query(0);
  rest();
  EXPECT_EQ(answers, 0);
  world.identityService().setScript(SimulatedIdentityService::answering(DestinationStatus::valid, 2));
  query(0);
  process->run([&] { handle.reset(); });
  rest();
  EXPECT_EQ(answers, 0);
  process->run([&] { handle = process->list().query({}, [&] { ++answers; }); });
  EXPECT_EQ(answers, 0);
  rest();
  EXPECT_EQ(answers, 1) << "nothing is left to be answered of nobody";
}

}  // namespace
}  // namespace pellor
