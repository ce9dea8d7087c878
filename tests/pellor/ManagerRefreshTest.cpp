// The list follows the contacts, and is cleaned up.
#include "pellor/friends/PLPerson.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Process.h"
#include "tests/pellor/ChangingContacts.h"
#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

constexpr std::string_view Refreshing = "refreshing friends against address book";

class ManagerRefreshTest : public ManagerTest {
 protected:
  ManagerRefreshTest() {
    setGroups(4, 2);
    contacts({"Ann", "Bob", "Cy"});
  }

  void rename(const std::string& name, const std::string& to) {
    world.addressBook().change(guidOf(name), [&](TestContact& contact) { contact.first = to; });
  }
  InMemoryAddressBook::Lookups takeLookups() {
    const auto lookups = world.addressBook().lookups();
    world.addressBook().clearRecords();
    return lookups;
  }
  std::optional<Value> storedSequenceNumber() { return storedValue("ABSequenceNumber"); }
};

TEST_F(ManagerRefreshTest, ARecordIsReadAgainOnlyIfItOrItsFriendMayHaveChanged) {
  contacts({"Dan", "Eve", "Fay"});
  InMemoryAddressBook& book = world.addressBook();
  const auto link = [&](const char* name, const char* other) { book.link({guidOf(name), guidOf(other)}); };
  link("Bob", "Eve");
  auto a = launchWith("Ann#,Bob#|Cy#,-");
  const struct {
    const char* what;
    std::function<void()> change;
    unsigned recordsRead;
    const char* list;
  } rows[] = {
      {"nothing", [] {}, 0, "Ann,Bob|Cy,-|-,-"},
      {"a stranger's record", [&] { rename("Dan", "Daniel"); }, 0, "Ann,Bob|Cy,-|-,-"},
      {"a friend's record", [&] { rename("Ann", "Anna"); }, 1, "Anna,Bob|Cy,-|-,-"},
      {"who lends the name", [&] { link("Eve", "Bob"); }, 1, "Anna,Eve|Cy,-|-,-"},
      {"a linked record", [&] { rename("Eve", "Eva"); }, 1, "Anna,Eva|Cy,-|-,-"},
      {"another link", [&] { link("Dan", "Cy"); }, 1, "Anna,Eva|Daniel,-|-,-"},
      {"a linked record that goes", [&] { book.remove(guidOf("Dan")); }, 1, "Anna,Eva|Cy,-|-,-"},
      {"a link that ends", [&] { book.unlink(guidOf("Eve")); }, 1, "Anna,Bob|Cy,-|-,-"},
      {"a setting", [&] { book.setShortNamePreferNicknames(true); }, 3, "Anna,Bob|Cy,-|-,-"},
      {"another setting", [&] { book.setShortNameFormatEnabled(true); }, 3, "Anna,Bob|Cy,-|-,-"},
      {"more contacts than there are slots",
       [&] {
         for (int left = 7; left > 0; --left) book.add({.first = "Zoe"});
       },
       3, "Anna,Bob|Cy,-|-,-"},
      {"a friend", [&] { a->friendAt(0, 0)->setPreferredReplyAs("home"); }, 1, "Anna,Bob|Cy,-|-,-"},
      {"a slot",
       [&] {
         a->set(a->friendAt(1, 0), 1, 1);
         a->remove(1, 0);
       },
       1, "Anna,Bob|-,Cy|-,-"},
      {"who is a friend", [&] { a->set(a->person("Eve"), 1, 0); }, 1, "Anna,Bob|Eva,Cy|-,-"},
      {"who was out of the list during a refresh",
       [&] {
         const auto bob = a->friendAt(0, 1);
         a->remove(0, 1);
         rename("Bob", "Rob");
         rest();
         a->set(bob, 0, 1);
       },
       1, "Anna,Rob|Eva,Cy|-,-"},
      {"the database", [&] { book.setDatabaseUID("Other"); }, 4, "Anna,Rob|Eva,Cy|-,-"},
      {"the numbers", [&] { book.rebuild(); }, 4, "Anna,Rob|Eva,Cy|-,-"},
  };
  for (const auto& row : rows) {
    a->run([&] { row.change(); });
    rename("Fay", row.what);
    rest();
    EXPECT_EQ(a->list(), row.list) << row.what;
    const auto lookups = takeLookups();
    EXPECT_EQ(lookups.readInBulk, row.recordsRead) << row.what;
    EXPECT_EQ(lookups.inBulk, row.recordsRead > 0 ? 1U : 0U) << row.what;
  }
  setSetting("ABSequenceNumber", 0);
  a->kill();
  auto restarted = launch();
  EXPECT_EQ(takeLookups(), (InMemoryAddressBook::Lookups{.inBulk = 1, .readInBulk = 4}));
}

// Another process may write the contacts at any time, also while the timer of an earlier change is set.
TEST_F(ManagerRefreshTest, WhatChangesWhileARefreshRunsIsDueAfterIt) {
  store("Ann#,Bob#");
  for (const double pause : {0.0, 0.1}) {
    for (unsigned question = 1;; ++question) {
      const std::string name = (pause > 0 ? "Ada" : "Ann") + std::to_string(question);
      unsigned left = 0;
      Process process(scheduler, nullptr);
      const Process::Scope scope(process);
      Platform platform = world.makePlatform(process);
      platform.addressBook = std::make_shared<ChangingContacts>(world.addressBook(), process, [&] {
        if (left > 0 && --left == 0) rename("Ann", name);
      });
      installPlatform(process, std::move(platform));
      auto manager = PLFriendsManager::initWithDomain(std::nullopt);
      rest();
      rename("Bob", "Bob" + name);
      advance(pause);
      left = question;
      EXPECT_TRUE(manager->refreshAgainstAddressBook());
      if (std::exchange(left, 0) > 0) break;
      rest();
      EXPECT_EQ(stored(2), name + ",Bob" + name + "|-,-") << "before question " << question;
    }
  }
}

TEST_F(ManagerRefreshTest, ARefreshIsDueByNumberByNotificationAndAfterANewFriend) {
  auto a = launchWith("Ann#,Bob#");
  const auto refresh = [&] { return a->run([&] { return a->manager().refreshAgainstAddressBook(); }); };
  EXPECT_FALSE(refresh());
  setSetting("ABSequenceNumber", 99);
  EXPECT_TRUE(refresh());
  EXPECT_FALSE(refresh()) << "the number is on its way to the store";
  scheduler->runUntilQuiet();
  EXPECT_EQ(storedSequenceNumber(), Value(world.addressBook().sequenceNumber()));
  rename("Ann", "Anna");
  advance(0.1);
  EXPECT_TRUE(refresh());
  rename("Bob", "Rob");
  setSetting("ABSequenceNumber", world.addressBook().sequenceNumber());  // another process was first
  rest();
  EXPECT_EQ(a->list(), "Anna,Rob|-,-") << "though the timer was set already";
  a->takeEvents();
  a->run([&] { a->manager().reloadFriendList(); });
  EXPECT_EQ(a->logged(Refreshing), 0U) << "a load that brings nothing new";
  Array moved = *storedValue(PLFriendListKey)->array();
  std::swap(moved[0], moved[1]);
  setSetting(PLFriendListKey, moved);
  a->run([&] { a->manager().reloadFriendList(); });
  EXPECT_EQ(a->logged(Refreshing), 0U) << "or moves friends";
  store("Ann#,Bob#|Cy#");
  a->run([&] { a->manager().reloadFriendList(); });
  EXPECT_EQ(a->logged(Refreshing), 1U);
}

TEST_F(ManagerRefreshTest, WhileTheContactsCannotBeReadNobodyIsUnlinked) {
  world.addressBook().setReadable(false);
  auto a = launchWith("Ann#,Bob#|Bob#,-");
  EXPECT_EQ(a->list(), "Ann,Bob|-,-") << "cleaned up all the same";
  rename("Ann", "Anna");
  rest();
  EXPECT_EQ(a->logged(Refreshing), 0U);
  EXPECT_EQ(a->friendAt(0, 0)->abRecordGUID(), "guid-Ann");
  world.addressBook().setReadable(true);
  rest();
  EXPECT_EQ(a->list(), "Anna,Bob|-,-");
  EXPECT_EQ(storedSequenceNumber(), Value(world.addressBook().sequenceNumber()));
}

TEST_F(ManagerRefreshTest, WhileRefreshingIsDisabledLoadsCleanUpThemselves) {
  auto a = launchWith("Ann#,Bob#");
  a->run([&] { a->manager().setRefreshAgainstContactsEnabled(false); });
  rename("Ann", "Anna");
  rest();
  EXPECT_EQ(a->list(), "Ann,Bob|-,-");
  store("Ann#,Ann#");
  a->run([&] { a->manager().reloadFriendList(); });
  EXPECT_EQ(a->list(), "Ann,-|-,-");
  EXPECT_EQ(a->logged(Refreshing), 0U);
  a->run([&] { a->manager().setRefreshAgainstContactsEnabled(true); });
  EXPECT_EQ(a->logged(Refreshing), 1U) << "at once";
  EXPECT_EQ(a->list(), "Anna,-|-,-");
}

TEST_F(ManagerRefreshTest, OfTwoWithOneRecordTheLowerSlotStays) {
  world.pairedDevice().setCompletedInitialSync(true);
  Array list = storedList("-,Ann#|Dan,Eve|Ann#,Dan");
  for (std::size_t index = 2; index < 4; ++index) {
    auto form = *list[index].dictionary();
    form.insert_or_assign("ABRecordGUID", "");
    list[index] = form;
  }
  setSetting(PLFriendListKey, list);
  auto a = launch();
  EXPECT_EQ(a->list(), "-,Ann|Dan,Eve|-,Dan|-,-") << "who has no GUID is nobody's duplicate";
  EXPECT_EQ(a->logged("deduplicating friend [Ann] [ABGUID=guid-Ann] at index 4 as it is already present in the set of "
                      "friend ABGUIDs analyzed so far: {guid-Ann}"),
            1U);
  rest();
  EXPECT_EQ(stored(2), "-,Ann|Dan,Eve|-,Dan|-,-");
  EXPECT_EQ(world.pairedDevice().pushes().size(), 1U);
}

TEST_F(ManagerRefreshTest, FriendsWithoutDestinationsGoOnlyWhereThatIsAskedFor) {
  const auto lose = [this] {
    world.addressBook().change("guid-Bob", [](TestContact& contact) { contact.emails.clear(); });
  };
  auto a = launchWith("-,Bob#|Ann#,-|Cy#,-");
  lose();
  rest();
  EXPECT_EQ(a->list(), "-,Bob|Ann,-|Cy,-|-,-");
  setSetting(PLRemoveDestinationlessFriendsEnabledKey, true);
  auto b = launch();
  EXPECT_EQ(b->logged("culling friend [Bob] [ABGUID=guid-Bob] since its destination set has become empty"), 1U);
  rest();
  EXPECT_EQ(b->list(), "Ann,-|Cy,-|-,-");
  EXPECT_EQ(a->list(), "Ann,-|Cy,-|-,-");
}

}  // namespace
}  // namespace pellor
