// The statuses of friends' destinations and the queries for them, without a manager.
#include "pellor/friends/internal/PLReachability.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "pellor/friends/PLPerson.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using enum DestinationStatus;
using Parts = std::vector<SimulatedIdentityService::AnswerPart>;

constexpr std::string_view TimedOut = "Relay Query took too long to respond, clearing request queues";
constexpr std::string_view HeldBack = "not starting batch query because high priority query is in progress for ";
const std::string Phone = "+491512345678";

/// A list of Cy, who has a number and an address, Bob, and somebody without any destination.
class ReachabilityTest : public OneProcess {
 protected:
  struct List final : PLReachabilityClient {
    void forEachFriend(const std::function<void(const PLPerson&)>& visit) const override {
      for (const auto& person : friends) visit(*person);
    }
    void statusesWereUpdated(const DestinationStatuses& statuses) override { updates.push_back(statuses); }
    void unreachableFriendsWereCounted(std::int64_t count) override { unreachable = count; }

    std::vector<std::shared_ptr<PLPerson>> friends;
    std::vector<DestinationStatuses> updates;
    std::optional<std::int64_t> unreachable;
  };

  ReachabilityTest() {
    cy = PLPerson::initWithDestinationsAddressBook({Phone, "cy@example.org"}, book());
    bob = PLPerson::initWithDestinationsAddressBook({"bob@example.org"}, book());
    list->friends = {cy, bob, PLPerson::init()};
    reachability->setClient(list);
    reachability->setServiceName("Notes");
  }

  DestinationStatus status(const std::shared_ptr<PLPerson>& person, bool requery = false) {
    return reachability->statusForPersonRequery(person.get(), requery);
  }
  void refresh() { reachability->refreshDestinationStatuses(); }
  void update(const DestinationStatuses& statuses) { reachability->idStatusUpdatedForDestinations(statuses); }
  void answer(SimulatedIdentityService::Script script) { world.identityService().setScript(std::move(script)); }
  std::size_t queryCount() { return world.identityService().queries().size(); }
  void advance(double seconds) { scheduler->advance(seconds); }

  std::shared_ptr<PLPerson> cy, bob;
  std::shared_ptr<List> list = std::make_shared<List>();
  std::shared_ptr<PLReachability> reachability = PLReachability::make(process, "org.tapnote.TN");
};

TEST_F(ReachabilityTest, WhoHasNoDestinationIsInvalidAndNotAskedFor) {
  for (const auto& person : {list->friends.back(), std::shared_ptr<PLPerson>()}) {
    EXPECT_EQ(status(person, true), invalid);
    EXPECT_THAT(reachability->reachableDestinationsForPerson(person.get()), IsEmpty());
  }
  advance(60);
  EXPECT_THAT(list->updates, IsEmpty());
}

TEST_F(ReachabilityTest, TheBestStatusOfItsDestinationsIsThePersons) {
  const DestinationStatus ascending[] = {unspecified, invalid, unknown, valid};
  for (std::size_t phone = 0; phone < std::size(ascending); ++phone) {
    for (std::size_t address = 0; address < std::size(ascending); ++address) {
      update({{Phone, ascending[phone]}, {"cy@example.org", ascending[address]}});
      EXPECT_EQ(status(cy), ascending[std::max(phone, address)]) << phone << " " << address;
    }
  }
}

TEST_F(ReachabilityTest, NoBatchStartsWhileAPriorityQueryWaitsForAnyOfItsDestinations) {
  answer([](const auto&) -> Parts {
    return {{1, {{"cy@example.org", valid}}}, {3, {{"tel:" + Phone, valid}}}, {10, {{Phone, valid}}}};
  });
  EXPECT_EQ(status(cy, true), unknown);
  takeLog();
  refresh();
  EXPECT_THAT(takeLog(), ElementsAre(std::string(HeldBack) + "[ " + Phone + ", cy@example.org ]"));
  advance(5);
  EXPECT_EQ(status(cy), valid);
  refresh();
  EXPECT_EQ(log->count(std::string(HeldBack) + "[ " + Phone + " ]"), 1U) << "answers count by the name that was asked";
  EXPECT_EQ(list->unreachable, std::nullopt) << "not counted while an answer is due";
  advance(10);
  EXPECT_EQ(queryCount(), 1U) << "what was held back is not made up for";
  refresh();
  EXPECT_EQ(queryCount(), 2U);
  advance(2);
  EXPECT_EQ(list->unreachable, 2);
}

TEST_F(ReachabilityTest, SilenceEndsThirtySecondsAfterTheFirstQuery) {
  answer(SimulatedIdentityService::silence());
  update({{"bob@example.org", invalid}});
  refresh();
  advance(29.9);
  status(bob, true);
  EXPECT_EQ(log->count(TimedOut), 0U);
  refresh();
  EXPECT_EQ(log->count(HeldBack), 1U);
  advance(0.2);
  EXPECT_EQ(log->count(TimedOut), 1U) << "a running timer is not put off";
  EXPECT_EQ(status(bob), invalid) << "what was known stays";
  refresh();
  EXPECT_EQ(queryCount(), 3U) << "batches start again";
  advance(60);
  EXPECT_EQ(log->count(TimedOut), 2U) << "a batch that is not answered is given up as well";
}

TEST_F(ReachabilityTest, AServiceThatAnswersInPartsAndThenNoMoreIsGivenUpAfterItsLastAnswer) {
  answer([](const auto& query) -> Parts {
    if (query.hasPriority) return {{20, {{"cy@example.org", valid}}}};
    return {};
  });
  status(cy, true);
  refresh();
  advance(49.9);
  EXPECT_EQ(log->count(TimedOut), 0U) << "the time-out began anew with the answer";
  EXPECT_EQ(status(cy), valid);
  refresh();
  EXPECT_EQ(log->count(HeldBack), 2U);
  update({{"bob@example.org", invalid}});
  advance(29.9);
  EXPECT_EQ(log->count(TimedOut), 0U) << "and with one to something else";
  advance(0.2);
  EXPECT_EQ(log->count(TimedOut), 1U);
  refresh();
  EXPECT_EQ(queryCount(), 2U) << "batches start again";
  update({{"bob@example.org", valid}});
  advance(60);
  EXPECT_EQ(log->count(TimedOut), 1U) << "with no priority destination left an answer stops the time-out";
}

}  // namespace
}  // namespace pellor
