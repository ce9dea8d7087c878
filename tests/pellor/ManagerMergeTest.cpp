// A stored list of another process is merged into the list at hand: persons stay who they are.
#include <algorithm>

#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;

class ManagerMergeTest : public ManagerTest {
 protected:
  ManagerMergeTest() { setGroups(4, 3); }

  /// Another process has written.
  void receive(const Array& list) {
    world.preferences().setValue(PLFriendListKey, list, std::string(TapnoteDomain));
    postListChanged();
    rest();
  }
  void receive(const std::string& list) { receive(storedList(list)); }
  static Array listWith(Dictionary form) { return Array{std::move(form), Dictionary{}, Dictionary{}}; }
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

TEST_F(ManagerMergeTest, TheDisplacedAreLogged) {
  auto a = launchWith("Ann,Bob#,-");
  receive("-,-,-");
  EXPECT_EQ(a->logged("[Ann] [ABGUID=(null)] was displaced and removed"), 1U);
  EXPECT_EQ(a->logged("[Bob] [ABGUID=guid-Bob] was displaced and removed"), 1U);
}

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

TEST_F(ManagerMergeTest, OfSeveralWhoFitTheFirstIsTaken) {
  const auto sharing = [](const std::string& name) {
    auto form = storedForm(name);
    form.insert_or_assign("AllValues", Array{mailOf(name), "shared@example.org"});
    return form;
  };
  world.preferences().setValue(PLFriendListKey,
                               Array{Dictionary{}, sharing("Ann"), Dictionary{}, Dictionary{}, sharing("Bob")},
                               std::string(TapnoteDomain));
  auto a = launch();
  rest();
  const auto ann = a->friendAt(0, 1);
  a->takeEvents();
  auto form = storedForm("Cy");
  form.insert_or_assign("AllValues", Array{"shared@example.org"});
  receive(Array{form, Dictionary{}, Dictionary{}, Dictionary{}, sharing("Bob")});
  EXPECT_EQ(a->friendAt(0, 0), ann);
  EXPECT_EQ(a->list(), "Cy,-,-|-,Bob,-|-,-,-");
  EXPECT_THAT(a->takeNotifications(), ElementsAre("groups changed", "changed Cy~>"));
  // Who still has a slot goes before who was displaced.
  const auto bob = a->friendAt(1, 1);
  receive(Array{Dictionary{}, form, Dictionary{}});
  EXPECT_EQ(a->friendAt(0, 1), bob);
}

TEST_F(ManagerMergeTest, AFriendWithoutDestinationsIsOnlyLeftOutBehindTheEnd) {
  auto a = launchWith("Ann,-,-");
  auto form = storedForm("Bob#");
  form.erase("AllValues");
  Array list = storedList("Ann,-,-");
  list[1] = form;
  list.resize(7, Dictionary{});
  list[6] = form;
  receive(list);
  EXPECT_EQ(a->list(), "Ann,Bob,-|-,-,-");
  form.insert_or_assign("AllValues", Array{});
  list[6] = form;
  receive(list);
  EXPECT_EQ(a->list(), "Ann,Bob,-|-,-,-");
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
  for (const Value& element : wrong) {
    Array list = storedList("Ann,-,Bob");
    list[1] = element;
    world.preferences().setValue(PLFriendListKey, list, std::string(TapnoteDomain));
    auto a = launch();
    EXPECT_EQ(a->list(), "Ann,-,Bob|-,-,-");
    rest();
    a->kill();
  }
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
  world.preferences().setValue(PLFriendListKey, listWith(form), std::string(TapnoteDomain));
  auto a = launch();
  auto b = launch();
  rest();
  EXPECT_EQ(*a->friendAt(0, 0)->allValues(), DestinationSet{"ann@example.org"});
  const auto stored = *storedValue(PLFriendListKey)->array();
  EXPECT_EQ((*stored[0].dictionary()).at("AllValues"), Value(Array{"ann@example.org"}));
  EXPECT_EQ(world.bus().postCount(PLFriendsChangedExternallyNotification), 2U) << "each corrects it, then both rest";
}

TEST_F(ManagerMergeTest, AnUpdateKeepsTheObject) {
  auto a = launchWith("Ann,-,-");
  const auto ann = a->friendAt(0, 0);
  auto form = storedForm("Ann");
  form.insert_or_assign("Name", "Anna");
  receive(listWith(form));
  EXPECT_EQ(a->friendAt(0, 0), ann);
  EXPECT_THAT(a->takeNotifications(), ElementsAre("groups changed", "changed Anna~"));
}

TEST_F(ManagerMergeTest, ALookedUpPersonBecomesTheFriendUnchanged) {
  auto a = launchWith("Ann,-,-");
  const auto bob = a->person("Bob");
  const auto cy = a->person("Cy");
  receive("Ann,-,Bob");
  EXPECT_EQ(a->friendAt(0, 2), bob);
  EXPECT_EQ(bob->hasName(), false);
  EXPECT_FALSE(a->run([&] { return a->manager().isPersonFriend(cy); }));
  // Bob is a friend now: when he goes, nobody keeps him.
  receive("Ann,-,-");
  EXPECT_NE(a->person("Bob"), bob);
  EXPECT_EQ(a->person("Cy"), cy);
}

}  // namespace
}  // namespace pellor
