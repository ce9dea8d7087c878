// Friends are found by what somebody types.
#include "pellor/list/FriendSearch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/list/ListProcess.h"
#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FriendSearchTest : public ManagerTest {
 protected:
  FriendSearchTest() {
    setGroups(20, 6);
    world.addressBook().add({.guid = "guid-Zoe",
                             .first = "Zoe",
                             .last = "Berg",
                             .nickname = "Bee",
                             .phones = {{"home", "+493023125001"}, {"cell", "+4915123125002"}}});
    world.addressBook().add({.guid = "guid-Lee", .first = "Lee", .emails = {{"home", "berg.hill@example.org"}}});
    world.addressBook().add({.guid = "guid-Ida", .first = "Ida", .last = "Zoe", .phones = {{"home", "+493023125777"}}});
    world.addressBook().add({.guid = "guid-Ada", .first = "Ada", .last = "Zoe", .phones = {{"home", "+493023125888"}}});
    world.addressBook().add({.guid = "Ada", .first = "Hal", .phones = {{"home", "+493099999999"}}});
    _a = std::make_unique<ListProcess>(launchWith("-,-,-,-,-,-"));
    for (const char* guid : {"guid-Zoe", "guid-Lee", "guid-Ida", "guid-Ada", "Ada"})
      _a->apply([&](const Snapshot&) { return std::vector<Edit>{AddFriend{.contactGUID = guid}}; });
    rest();
  }

  FriendList& list() { return _a->list(); }
  template <class Work>
  auto run(Work&& work) {
    return _a->run(work);
  }
  std::string nameOf(FriendId id) { return _a->snapshot().friendWith(id)->name; }
  /// Those whom the text fits, the best first, after a bar those who are not meant: "Zoe Berg, Lee | Ida Zoe".
  std::string found(const std::string& text, std::size_t limit = 10) {
    const FoundFriends found = run([&] { return list().find(text, limit); });
    std::string result;
    for (std::size_t index = 0; index < found.friends.size(); ++index) {
      result += index == found.meant ? (index == 0 ? "| " : " | ") : index == 0 ? "" : ", ";
      result += nameOf(found.friends[index].id);
    }
    return result;
  }

 private:
  std::unique_ptr<ListProcess> _a;
};

TEST_F(FriendSearchTest, TheBestFitComesFirstAndTellsWhoIsMeant) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"guid-Lee", "Lee"},
      {"Ada", "Hal | Ada Zoe"},  // a GUID before a word of a name
      {"030 23125777", "Ida Zoe"},
      {"BERG.HILL@example.org", "Lee"},
      {"zoe ida", "Ida Zoe"},
      {"bee", "Zoe Berg"},                    // the nickname is on the card alone
      {"zoe", "Zoe Berg, Ida Zoe, Ada Zoe"},  // of several a person has to choose
      {"berg", "Zoe Berg | Lee"},             // a word of a name before one of an address
      {"0151 23", "Zoe Berg"},
      {"777", "Ida Zoe"},
      {"7", ""},  // one digit is no part of a number
      {"nobody", ""},
      {"", ""},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(found(text), expected) << text;
  EXPECT_EQ(found("zoe", 2), "Zoe Berg, Ida Zoe");
}

TEST_F(FriendSearchTest, ATypedTextFindsWhatTheCardsSayNow) {
  EXPECT_EQ(found("bumble"), "");
  world.addressBook().change("guid-Zoe", [](TestContact& contact) { contact.nickname = "Bumble"; });
  rest();
  EXPECT_EQ(found("bumble"), "Zoe Berg");
  EXPECT_EQ(found("bee"), "");
  run([&] { list().apply(RemoveFriend{list().find("bumble", 1).friends.front().id}); });
  EXPECT_EQ(found("bumble"), "");
}

TEST_F(FriendSearchTest, WhoIsMistypedIsFoundBySimilarNames) {
  const auto similar = [&](const std::string& text) {
    const auto id = run([&] { return list().findSimilar(text); });
    return id ? nameOf(*id) : "";
  };
  EXPECT_EQ(similar("beg zoe"), "Zoe Berg");
  EXPECT_EQ(similar("xylophone"), "");
}

TEST_F(FriendSearchTest, AVersionOfTheListIsSearchedAsItWas) {
  run([&] {
    FriendSearch before(list().snapshot());
    const std::vector<FriendId> lee = before.withContact("guid-Lee");
    ASSERT_EQ(lee.size(), 1U);
    list().apply(RemoveFriend{lee.front()});
    EXPECT_EQ(before.withDestination("berg.hill@example.org"), lee);
    EXPECT_EQ(before.named("lee"), lee);
    EXPECT_THAT(FriendSearch(list().snapshot()).withContact("guid-Lee"), IsEmpty());
  });
}

}  // namespace
}  // namespace pellor
