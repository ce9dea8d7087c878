// Which deliveries of the bus are of own posts, without a manager.
#include "pellor/friends/internal/PLOwnPosts.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "pellor/friends/internal/PLDomainSettings.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

using Fault = InMemoryBus::Fault;

constexpr const char* Domain = "org.tapnote.TN";
constexpr std::string_view ListName = PLFriendsChangedExternallyNotification;
constexpr std::string_view TitlesName = PLFriendGroupTitleChangedExternallyNotification;

/// Deliveries read "LLlT": of the list's name and of the titles', capital where they count as own.
class OwnPostsTest : public OneProcess {
 protected:
  OwnPostsTest() { begin(); }

  void begin() {
    deliveries.clear();
    settings = PLDomainSettings::read(*platform.preferences, Domain).value();
    posts.emplace(process, settings);
    posts->observe([this] { deliveries += posts->takeListEcho() ? 'L' : 'l'; },
                   [this] { deliveries += posts->takeTitlesEcho() ? 'T' : 't'; });
  }
  /// Own posts are capital, those of others are not.
  void post(std::string_view text) {
    for (const char one : text) {
      if (one == 'L') posts->postList();
      if (one == 'T') posts->postTitles();
      if (one == 'l') world.bus().post(ListName);
      if (one == 't') world.bus().post(TitlesName);
    }
  }
  /// What is delivered by now, in whatever order, since the last time.
  std::string delivered() {
    settle();
    std::ranges::sort(deliveries);
    return std::exchange(deliveries, {});
  }

  PLDomainSettings settings;
  std::optional<PLOwnPosts> posts;
  std::string deliveries;
};

TEST_F(OwnPostsTest, ABusThatBringsNothingBackIsGivenUp) {
  world.bus().disturb(Fault::lost, 3);
  post("LT");
  posts->awaitEchoes();
  scheduler->advance(1.5);
  post("L");
  posts->awaitEchoes();
  scheduler->advance(1.9);
  EXPECT_FALSE(posts->haveAllEchoes()) << "2 seconds count from the last post";
  posts->awaitEchoes();
  scheduler->advance(0.2);
  EXPECT_TRUE(posts->haveAllEchoes());
  post("lt");
  EXPECT_EQ(delivered(), "lt") << "of others";

  world.bus().disturb(Fault::lost, 1);
  post("LT");
  scheduler->advance(10);
  EXPECT_FALSE(posts->haveAllEchoes()) << "nobody waits for it";
  posts->awaitEchoes();
  settle();
  scheduler->advance(0);
  EXPECT_TRUE(posts->haveAllEchoes()) << "it is overdue";
}

TEST_F(OwnPostsTest, NothingIsDeliveredAfterItsEnd) {
  posts->observe([this] { deliveries += '!'; }, [this] { deliveries += '!'; });
  post("LT");
  EXPECT_EQ(delivered(), "LT") << "it observes once";
  world.bus().disturb(Fault::late, 2);
  post("LT");
  posts->awaitEchoes();
  post("LTlt");
  posts.reset();
  world.bus().endDisturbance();
  scheduler->advance(10);
  EXPECT_EQ(delivered(), "");
  begin();
  post("LlTt");
  EXPECT_EQ(delivered(), "LTlt");
}

}  // namespace
}  // namespace pellor
