// The list that a user's configuration chose.
#include "pellor/app/UserFriendList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"
#include "tests/linux/TemporaryFolder.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class UserFriendListTest : public testing::Test {
 protected:
  FriendListOptions options() const {
    FriendListOptions options;
    options.configuration.emplace();
    options.configuration->set("data", (_folder / "data").string());
    options.configuration->set("contacts", (_folder / "contacts").string());
    options.configuration->set("region", "DE");
    return options;
  }
  void writeCard(const std::string& name, const std::string& content) const {
    std::filesystem::create_directories(_folder / "contacts");
    std::ofstream(_folder / "contacts" / (name + ".vcf"))
        << "BEGIN:VCARD\nVERSION:3.0\nUID:" + name + "\n" + content + "END:VCARD\n";
  }
  static std::vector<std::string> destinationsOf(UserFriendList& friends) {
    std::vector<std::string> all;
    const Snapshot list = friends.list().snapshot();
    for (std::size_t page = 0; page < list.pageCount(); ++page)
      for (const auto& person : list.page(page).friends)
        if (person) all.push_back(person->destination);
    return all;
  }

  const TemporaryFolder _folder;
};

TEST_F(UserFriendListTest, WhatOneProgramAddsTheNextOneHas) {
  writeCard("zoe", "FN:Zoë Martin\nTEL;TYPE=home:030 23125001\nTEL;TYPE=cell,pref:0151 23125002\n");
  {
    const auto friends = openFriendList(options());
    std::vector<std::string> heard;
    const auto observation =
        friends->list().observe({.loaded = [&](const Snapshot&) { heard.emplace_back("loaded"); },
                                 .changed =
                                     [&](const ListChange& change) {
                                       for (const auto& added : change.added)
                                         heard.push_back(change.after.friendWith(added.id)->destination);
                                     }});
    const auto found = friends->list().findContacts("zoe", 5);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].destinations, (std::vector<std::string>{"0151 23125002", "030 23125001"}));
    ASSERT_TRUE(friends->settle(30));
    friends->manager().addFriend(friends->manager().personWithABRecordGUID(found[0].guid));
    friends->manager().addFriend(friends->manager().personWithDestinations({"ada@example.org"}));
    EXPECT_TRUE(friends->settle(30));
    EXPECT_THAT(heard, ElementsAre("loaded", "+4915123125002", "ada@example.org"));
  }
  const auto friends = openFriendList(options());
  EXPECT_THAT(destinationsOf(*friends), ElementsAre("+4915123125002", "ada@example.org"));
  EXPECT_EQ(friends->list().snapshot().friendAt({0, 0})->name, "Zoë Martin");
  EXPECT_TRUE(friends->settle(30));
}

TEST_F(UserFriendListTest, AConfigurationThatCannotBeFollowedIsToldInOneLine) {
  FriendListOptions unfollowable = options();
  unfollowable.configuration->set("reachability", "ldap");
  try {
    openFriendList(unfollowable);
    FAIL() << "opened";
  } catch (const ConfigurationError& error) {
    EXPECT_THAT(error.what(), HasSubstr("ldap"));
  }
}

}  // namespace
}  // namespace pellor
