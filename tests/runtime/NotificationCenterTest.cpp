#include "pellor/runtime/NotificationCenter.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "pellor/runtime/Process.h"
#include "pellor/testing/SimulatedScheduler.h"

namespace pellor {
namespace {

struct Sender : Object {};

class NotificationCenterTest : public testing::Test {
 protected:
  NotificationCenter::Callback noteAs(std::string name) {
    return [this, name = std::move(name)](const Notification&) { notes.push_back(name); };
  }

  Process process{std::make_shared<SimulatedScheduler>(1), nullptr};
  NotificationCenter& center = process.notificationCenter();
  std::vector<std::string> notes;
};

TEST_F(NotificationCenterTest, CallsTheObserversOfANameAndSenderInOrderOfRegistration) {
  const auto sender = std::make_shared<Sender>();
  const auto stranger = std::make_shared<Sender>();
  const std::vector<std::shared_ptr<Observation>> observations{
      center.addObserver("n", noteAs("1")), center.addObserver("n", sender, noteAs("2 of sender")),
      center.addObserver("other", noteAs("other")), center.addObserver("n", noteAs("3"))};
  center.post({.name = "n", .object = sender, .userInfo = {}});
  EXPECT_EQ(notes, (std::vector<std::string>{"1", "2 of sender", "3"}));
  notes.clear();
  center.post({.name = "n", .object = stranger, .userInfo = {}});
  center.post({.name = "n", .object = nullptr, .userInfo = {}});
  center.post({.name = "unheard", .object = sender, .userInfo = {}});
  EXPECT_EQ(notes, (std::vector<std::string>{"1", "3", "1", "3"}));
}

TEST_F(NotificationCenterTest, ObserversMayRemoveAddAndPostDuringAPost) {
  std::shared_ptr<Observation> first, second, third, added;
  first = center.addObserver("n", [&, capture = std::make_shared<int>(7)](const Notification&) {
    notes.push_back("first");
    first.reset();
    third.reset();
    added = center.addObserver("n", noteAs("added"));
    center.post({.name = "n", .object = nullptr, .userInfo = {}});
    EXPECT_EQ(*capture, 7) << "the callback was destroyed while it ran";
  });
  second = center.addObserver("n", noteAs("second"));
  third = center.addObserver("n", noteAs("third"));
  center.post({.name = "n", .object = nullptr, .userInfo = {}});
  EXPECT_EQ(notes, (std::vector<std::string>{"first", "second", "added", "second"}));
}

TEST_F(NotificationCenterTest, RegistrationsEndOnAnyThread) {
  int calls = 0;
  for (int i = 0; i < 200; ++i) {
    auto observation = center.addObserver("n", [&](const Notification&) { ++calls; });
    std::thread other([moved = std::move(observation)]() mutable { moved.reset(); });
    center.post({.name = "n", .object = nullptr, .userInfo = {}});
    other.join();
    calls = 0;
    center.post({.name = "n", .object = nullptr, .userInfo = {}});
    ASSERT_EQ(calls, 0);
  }
}

}  // namespace
}  // namespace pellor
