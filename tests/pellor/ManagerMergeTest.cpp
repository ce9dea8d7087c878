// A stored list of another process is merged into the list at hand: persons stay who they are.
#include <algorithm>

#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

class ManagerMergeTest : public ManagerTest {
 protected:
  ManagerMergeTest() { setGroups(4, 3); }

  /// Another process has written.
  void receive(const std::string& list) {
    store(list);
    postListChanged();
    rest();
  }
};

struct Merge {
  const char* name;
  const char* before;
  const char* after;
  const char* list;
  const char* changes;
};

class MergeTableTest : public ManagerMergeTest, public ::testing::WithParamInterface<Merge> {};

TEST_P(MergeTableTest, KeepsThePersonsAndTellsWhatHappened) {
  const Merge& merge = GetParam();
  // With and without GUIDs, by which stored forms find their persons.
  for (const std::string mark : {"", "#"}) {
    const auto marked = [&](std::string text) {
      for (std::size_t place = 0; place < text.size(); ++place) {
        if (std::islower(text[place]) && (place + 1 == text.size() || !std::isalpha(text[place + 1]))) {
          text.insert(++place, mark);
        }
      }
      return text;
    };
    auto a = launchWith(marked(merge.before));
    std::map<std::string, std::shared_ptr<PLPerson>> persons;
    for (const auto& person : a->manager().allPeople()) persons.emplace(*person->displayName(), person);

    receive(marked(merge.after));
    EXPECT_EQ(a->list(), merge.list);
    auto notifications = a->takeNotifications();
    std::erase(notifications, "groups changed");
    const std::string expected = std::string("changed ") + merge.changes;
    EXPECT_EQ(notifications, *merge.changes ? std::vector{expected} : std::vector<std::string>()) << mark;
    EXPECT_EQ(world.preferences().writeCount(), 0U) << "who only reloads writes nothing";
    for (const auto& person : a->manager().allPeople()) {
      const auto known = persons.try_emplace(*person->displayName(), person).first->second;
      EXPECT_EQ(person, known) << "the same object";
    }
    a->kill();
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, MergeTableTest,
    ::testing::Values(
        Merge{"Stays", "Ann,Bob,-", "Ann,Bob,-", "Ann,Bob,-|-,-,-", ""},
        Merge{"Added", "Ann,-,-", "Ann,-,Bob", "Ann,-,Bob|-,-,-", "Bob+"},
        Merge{"MovedUp", "-,-,Ann", "Ann,-,-", "Ann,-,-|-,-,-", "Ann>"},
        Merge{"MovedDown", "Ann,-,-", "-,-,Ann", "-,-,Ann|-,-,-", "Ann>"},
        Merge{"MovedToAnotherPage", "Ann,Bob,-|Cy,-,-", "Bob,-,-|Cy,-,Ann", "Bob,-,-|Cy,-,Ann|-,-,-", "Bob> Ann>"},
        Merge{"DisplacedAndFoundAgain", "Ann,Bob,-", "Bob,-,Ann", "Bob,-,Ann|-,-,-", "Bob> Ann>"},
        Merge{"Swapped", "Ann,Bob,-", "Bob,Ann,-", "Bob,Ann,-|-,-,-", "Bob> Ann>"},
        Merge{"Rotated", "Ann,Bob,Cy", "Cy,Ann,Bob", "Cy,Ann,Bob|-,-,-", "Cy> Ann> Bob>"},
        Merge{"Dropped", "Ann,Bob,-", "Ann,-,-", "Ann,-,-|-,-,-", "Bob-"},
        Merge{"Replaced", "Ann,-,-", "Cy,-,-", "Cy,-,-|-,-,-", "Cy+ Ann-"},
        Merge{"AllAtOnce", "Ann,Bob,Cy|Dan,-,-", "Dan,Eve,Ann|-,-,-", "Dan,Eve,Ann|-,-,-", "Dan> Eve+ Ann> Bob- Cy-"},
        Merge{"Shortened", "Ann,-,-|-,Bob,Cy", "Ann,-,-", "Ann,-,-|-,-,-", "Bob- Cy-"},
        Merge{"ShortenedWithinAGroup", "Ann,-,-|Bob,-,Cy", "Ann,-,-|Bob", "Ann,-,-|Bob,-,Cy|-,-,-", ""},
        Merge{"Emptied", "Ann,Bob,-", "-,-,-", "-,-,-", "Ann- Bob-"},
        Merge{"Longer", "Ann,-,-", "Ann,-,-|-,-,-|Bob,Cy,-", "Ann,-,-|-,-,-|Bob,Cy,-|-,-,-", "Bob+ Cy+"},
        Merge{"LongerThanTheGroups", "Ann,-,-", "Ann,-,-|-,-,-|-,-,-|-,-,-|Bob,-,-", "Ann,-,-|-,-,-|-,-,-|-,-,-",
              "Bob+"},
        // What stands behind the end is new there, even if it stands before the end as well.
        Merge{"APageRemoved", "Ann,-,-|Bob,-,-|Cy,Dan,-", "Ann,-,-|Cy,Dan,-", "Ann,-,-|Cy,Dan,-|-,-,-",
              "Cy> Dan> Bob-"}),
    [](const auto& merge) { return merge.param.name; });

TEST_F(ManagerMergeTest, WithoutADatabaseBehindTheSharedHandleAMergeOpensItsOwn) {
  auto a = launch();
  receive("Ann,-,-");
  EXPECT_EQ(world.addressBook().privateHandleCount(), 0U);
  world.addressBook().setDatabaseUID(std::nullopt);
  receive("Ann,Bob,-");
  EXPECT_EQ(world.addressBook().privateHandleCount(), 1U);
  world.addressBook().setOpenFails(true);
  receive("Ann,Bob,Cy");
  EXPECT_EQ(a->list(), "Ann,Bob,Cy|-,-,-");
}

// Else its write could overwrite what the other process does next.
TEST_F(ManagerMergeTest, WhoPutsALookedUpPersonInWritesNothing) {
  contacts({"Bob"});
  store("Ann,-,-");
  auto a = launch();
  auto b = launch();
  rest();
  const auto bob = b->person("Bob");
  const std::uint64_t posts = world.bus().postCount(PLFriendsChangedExternallyNotification);
  a->add("Bob");
  rest();
  EXPECT_EQ(b->friendAt(0, 1), bob);
  EXPECT_EQ(world.bus().postCount(PLFriendsChangedExternallyNotification), posts + 1);
}

TEST_F(ManagerMergeTest, WhatIsOfAWrongTypeReadsAsAbsentAndTheRestLoads) {
  const Array wrong{Value(7), Value("text"), Value(Array{}), Value(true), Value(1.5), Value(Data{1})};
  for (const char* key :
       {"ABRecordID", "ABRecordGUID", "ABDatabaseUID", "Name", "AllValues", "ReplyAs", "Monogram", "Metadata"}) {
    for (const Value& value : wrong) {
      auto form = storedForm("Ann");
      form.insert_or_assign(key, value);
      world.preferences().setValue(PLFriendListKey, Array{form, storedForm("Bob")}, std::string(TapnoteDomain));
      auto a = launch();
      EXPECT_NE(a->friendAt(0, 0), nullptr) << key << value.description();
      rest();
      EXPECT_EQ(a->list().substr(a->list().find(',')), ",Bob,-|-,-,-") << key << value.description();
      a->kill();
    }
  }
}

TEST_F(ManagerMergeTest, StoredDestinationsThatAreNotCanonicalAreCorrectedOnce) {
  auto form = storedForm("Ann");
  form.insert_or_assign("AllValues", Array{"mailto:ann@example.org"});
  world.preferences().setValue(PLFriendListKey, Array{form}, std::string(TapnoteDomain));
  auto a = launch();
  auto b = launch();
  rest();
  EXPECT_EQ(*a->friendAt(0, 0)->allValues(), DestinationSet{"ann@example.org"});
  const auto stored = *storedValue(PLFriendListKey)->array();
  EXPECT_EQ((*stored[0].dictionary()).at("AllValues"), Value(Array{"ann@example.org"}));
  EXPECT_EQ(world.bus().postCount(PLFriendsChangedExternallyNotification), 1U) << "one corrects it for all";
}

}  // namespace
}  // namespace pellor
