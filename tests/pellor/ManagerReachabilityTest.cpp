// Whether friends can receive messages.
#include "pellor/friends/PLDestination.h"
#include "pellor/friends/PLPerson.h"
#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using enum DestinationStatus;

constexpr std::string_view UnreachableCount = "org.tapnote.tn.unreachableFriends.count";
const std::string Phone = "+491512345678";

class ManagerReachabilityTest : public ManagerTest {
 protected:
  void SetUp() override {
    setGroups(4, 2);
    a = launchWith("Ann,Bob");
    setServiceName(*a, "Notes");
    a->takeEvents();
  }

  static void setServiceName(ManagerProcess& process, std::optional<std::string> name) {
    process.run([&] { process.manager().setServiceName(std::move(name)); });
  }
  static DestinationStatus status(ManagerProcess& process, const std::shared_ptr<PLPerson>& person,
                                  bool requery = false) {
    return process.run([&] { return process.manager().statusForPersonRequery(person, requery); });
  }
  DestinationStatus status(std::uint64_t position, bool requery = false) {
    return status(*a, a->friendAt(0, position), requery);
  }
  DestinationSet reachable(std::uint64_t position) {
    return a->run([&] { return a->manager().reachableDestinationsForPerson(a->friendAt(0, position)); });
  }
  void update(std::optional<DestinationStatuses> statuses) {
    a->run([&] { a->manager().idStatusUpdatedForDestinations(std::move(statuses)); });
  }
  void refresh() {
    a->run([&] { a->manager().refreshDestinationStatuses(); });
  }
  std::optional<std::int64_t> unreachable() { return world.counters().value(UnreachableCount); }
  /// The friend with a number and an address, in a slot of its own.
  std::shared_ptr<PLPerson> addCy() {
    return a->run([&] {
      auto person = a->manager().personWithDestinations({"0151 2345678", "cy@example.org"});
      a->manager().addFriend(person);
      return person;
    });
  }
  std::vector<SimulatedIdentityService::Query> queries() { return world.identityService().queries(); }

  std::unique_ptr<ManagerProcess> a;
};

TEST_F(ManagerReachabilityTest, AnUncachedFriendIsUnknownOnARequeryAndValidFiveSecondsLater) {
  EXPECT_EQ(status(0), unspecified);
  EXPECT_EQ(status(0, true), unknown);
  EXPECT_EQ(status(0), unspecified) << "what was not answered is not kept";
  advance(4.9);
  const std::string ann = a->friendAt(0, 0)->description();
  EXPECT_THAT(a->takeEvents(),
              ElementsAre(ann + " has cached best status of: unspecified", ann + " has cached best status of: unknown",
                          ann + " has cached best status of: unspecified"));
  advance(0.2);
  EXPECT_THAT(a->takeEvents(),
              ElementsAre("faking Relay status update for [ ann@example.org ]",
                          "Relay statusues updated: {ann@example.org = 1}", "statuses {ann@example.org = 1}"));
  EXPECT_EQ(status(0, true), valid);
  EXPECT_EQ(status(1), unspecified);
  EXPECT_THAT(reachable(0), ElementsAre("ann@example.org"));
  EXPECT_THAT(reachable(1), IsEmpty());
}

TEST_F(ManagerReachabilityTest, ABatchIsAboutTheFriendsThatThereAreWhenItIsAnsweredAndCachesCanonicalForms) {
  refresh();
  advance(4);
  a->remove(0, 1);
  const auto cy = addCy();
  advance(0.9);
  a->takeEvents();
  advance(0.2);
  EXPECT_THAT(a->takeEvents(),
              ElementsAre("faking Relay status update",
                          "Relay statusues updated: {mailto:ann@example.org = 1, mailto:cy@example.org = 1, tel:" +
                              Phone + " = 1}",
                          "statuses {" + Phone + " = 1, ann@example.org = 1, cy@example.org = 1}"));
  EXPECT_EQ(status(*a, cy), valid);
}

TEST_F(ManagerReachabilityTest, WithoutAServiceNameEverybodyIsReachableButTheCacheIsStillAsked) {
  setServiceName(*a, "Notes");
  setServiceName(*a, std::nullopt);
  setServiceName(*a, std::nullopt);
  EXPECT_THAT(a->takeEvents(), ElementsAre("setting service name for reachability queries to (null)"));
  update({{{"ann@example.org", invalid}}});
  EXPECT_EQ(status(0, true), valid);
  EXPECT_EQ(status(*a, nullptr), valid);
  EXPECT_THAT(reachable(0), IsEmpty());
  EXPECT_EQ(a->logged("cached best status"), 0U);
  setServiceName(*a, "Notes");
  EXPECT_EQ(a->logged("setting service name for reachability queries to Notes"), 1U);
  EXPECT_EQ(status(0), invalid);
  EXPECT_THAT(queries(), IsEmpty());
}

TEST_F(ManagerReachabilityTest, UnreachableFriendsAreCountedOnceAnybodyIsKnownToBeReachable) {
  const auto cy = addCy();
  a->set(a->run([] { return PLPerson::init(); }), 1, 1);
  rest();
  a->takeEvents();
  update(std::nullopt);
  EXPECT_EQ(unreachable(), std::nullopt);
  update({{{"ann@example.org", invalid}, {"bob@example.org", unknown}}});
  EXPECT_EQ(unreachable(), 0);
  update({{{"tel:0151 2345678", valid}, {"mailto:bob@example.org", invalid}}});
  EXPECT_EQ(unreachable(), 3) << "Ann, Bob and the friend without any destination";
  EXPECT_EQ(status(*a, cy), valid) << "one valid destination is enough";
  EXPECT_THAT(a->run([&] { return a->manager().reachableDestinationsForPerson(cy); }), ElementsAre(Phone));
  update({{{Phone, invalid}}});
  EXPECT_EQ(unreachable(), 0) << "again nothing is valid";
  EXPECT_EQ(a->run([&] { return a->manager().statusForPersonRequery(cy, false); }), invalid);
  rest();
  EXPECT_THAT(a->takeNotifications(),
              ElementsAre("statuses {ann@example.org = 2, bob@example.org = 0}",
                          "statuses {" + Phone + " = 1, bob@example.org = 2}", "statuses {" + Phone + " = 2}"));
}

}  // namespace
}  // namespace pellor
