// The first list of the default domain: of favorites, for which it waits where they cannot be read, and imports at any
// time.
#include "pellor/friends/PLFavoritesImport.h"
#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FirstListTest : public ManagerTest {
 protected:
  FirstListTest() {
    setGroups(4, 3);
    contacts({"Ann", "Bob", "Cy", "Dan"});
    setFavorites({"Bob", "Ann"});
  }

  void setFavorites(const std::vector<std::string>& names) {
    std::vector<FavoriteEntry> entries;
    for (const std::string& name : names) {
      const auto contact = world.addressBook().contact(guidOf(name));
      entries.push_back({name, mailOf(name), contact ? contact->recordID : InvalidRecordID});
    }
    world.favorites().setEntries(entries);
  }
  std::optional<Value> storedMark() { return storedValue(PLFirstListIsDueKey); }
  static PLFavoritesImport import(ManagerProcess& process) {
    return process.run([&] { return process.manager().importFavorites(); });
  }
  /// Longer than any pause after which favorites are asked for again.
  void pause() { advance(61); }
};

TEST_F(FirstListTest, FavoritesBecomeFriendsInTheirOrder) {
  world.addressBook().link({"guid-Ann", "guid-Cy"});
  setFavorites({"Bob", "Ann", "Gone", "Gone", "Bob"});
  auto a = launch();
  EXPECT_EQ(a->list(), "Bob,Ann,Gone|Gone,-,-|-,-,-");
  rest();
  EXPECT_EQ(stored(3), "Bob,Ann,Gone|Gone,-,-|-,-,-");
  EXPECT_EQ(a->titles(), "Favorites|Favorites 2|-");
  EXPECT_EQ(storedTitles(), "Favorites|Favorites 2|-");
  // Nobody was added: that is how the list began. Who has no record learns to which database that applies.
  EXPECT_THAT(a->takeNotifications(), ElementsAre("groups changed", "groups changed", "groups changed", "title changed",
                                                  "title changed", "changed Gone~ Gone~"));
}

TEST_F(FirstListTest, NoMoreThanTheListHoldsAreImported) {
  const std::vector<std::string> names{"F0", "F1", "F2", "F3", "F4"};
  contacts(names);
  const struct {
    std::int64_t groups, size;
    std::size_t favorites;
    const char *list, *titles;
  } rows[] = {
      {2, 2, 5, "F0,F1|F2,F3", "Favorites|Favorites 2"},
      {0, 3, 2, "-,-,-", "-"},
      {4, 3, 0, "-,-,-", "-"},
      // Products of huge limits do not wrap.
      {-1, 3, 5, "F0,F1,F2|F3,F4,-|-,-,-", "Favorites|Favorites 2|-"},
  };
  for (const auto& row : rows) {
    setSetting(PLMaxGroupCountKey, row.groups);
    setSetting(PLGroupSizeKey, row.size);
    setFavorites({names.begin(), names.begin() + static_cast<std::ptrdiff_t>(row.favorites)});
    auto a = launch();
    EXPECT_EQ(a->list(), row.list);
    EXPECT_EQ(a->titles(), row.titles);
    a->kill();
  }
}

TEST_F(FirstListTest, ItWaitsForFavoritesThatCannotBeReadAndCanBeEditedMeanwhile) {
  world.favorites().setReadable(false);
  auto a = launch();
  EXPECT_EQ(a->logged("phone favorites cannot be read, the first list waits for them"), 1U);
  EXPECT_EQ(a->list(), "-,-,-");
  EXPECT_TRUE(a->add("Cy"));
  a->setTitle(0, "Mine");
  pause();
  EXPECT_EQ(stored(3), "Cy,-,-|-,-,-");
  EXPECT_EQ(storedMark(), Value(true));
  EXPECT_FALSE(import(*a).couldRead);

  world.favorites().setReadable(true);
  pause();
  EXPECT_EQ(a->list(), "Cy,Bob,Ann|-,-,-");
  EXPECT_EQ(a->titles(), "Mine|-") << "a page that has a title keeps it";
  EXPECT_EQ(stored(3), "Cy,Bob,Ann|-,-,-");
  EXPECT_EQ(storedMark(), std::nullopt);
  EXPECT_FALSE(a->manager().isFirstListDue());

  // It is over for good.
  setFavorites({"Dan"});
  pause();
  a->kill();
  auto b = launch();
  pause();
  EXPECT_EQ(b->list(), "Cy,Bob,Ann|-,-,-");
}

TEST_F(FirstListTest, ItWaitsOverRestartsAndFurtherProcesses) {
  world.addressBook().setReadable(false);
  {
    auto a = launch();
    advance(1);
    a->kill();
  }
  EXPECT_EQ(storedMark(), Value(true));
  auto a = launch(), b = launch();
  EXPECT_TRUE(a->manager().isFirstListDue());
  EXPECT_TRUE(b->add("zoe"));
  advance(1);
  world.addressBook().setReadable(true);
  pause();
  for (const auto* process : {a.get(), b.get()})
    EXPECT_FALSE(const_cast<ManagerProcess*>(process)->manager().isFirstListDue());
  EXPECT_EQ(stored(3), "?,Bob,Ann|-,-,-");
  EXPECT_EQ(a->list(), "zoe@example.org,Bob,Ann|-,-,-") << "once, though two were waiting";
  EXPECT_EQ(b->list(), a->list());
  EXPECT_EQ(a->titles(), "Favorites|-");
  EXPECT_EQ(storedTitles(), "Favorites|-");
  EXPECT_EQ(storedMark(), std::nullopt);
}

TEST_F(FirstListTest, WhereThereAreNoFavoritesItWaitsNoLonger) {
  world.favorites().setReadable(false);
  auto a = launch();
  advance(1);
  world.favorites().setEntries({});
  world.favorites().setReadable(true);
  pause();
  EXPECT_EQ(storedMark(), std::nullopt);
  setFavorites({"Bob"});
  pause();
  EXPECT_EQ(a->list(), "-,-,-");
}

// A process that ends between two writes must leave a list that has its favorites, or still waits for them.
TEST_F(FirstListTest, WhatIsStoredHasTheFavoritesOrWaitsForThem) {
  world.favorites().setReadable(false);
  for (unsigned steps = 0;; ++steps) {
    setSetting(PLFriendListKey, storedList("Dan#,-,-"));
    setSetting(PLFirstListIsDueKey, true);
    auto a = launch();
    scheduler->runUntilQuiet();
    world.favorites().setReadable(true);
    a->run([&] { a->manager().importFavorites(); });
    bool isQuiet = false;
    for (unsigned step = 0; step < steps && !isQuiet; ++step) isQuiet = !scheduler->step();
    a->kill();
    world.favorites().setReadable(false);
    const bool waits = storedMark().has_value();
    EXPECT_TRUE(waits || stored(3).starts_with("Dan,Bob,Ann")) << stored(3) << " after " << steps;
    if (!waits) break;
    ASSERT_LT(steps, 1000U);
  }
}

TEST_F(FirstListTest, AnImportAddsWhoIsNoFriendYetAndSaysWhoFoundNoRoom) {
  setGroups(2, 3);
  world.addressBook().link({guidOf("Bob"), guidOf("Dan")});
  setFavorites({"Dan", "Cy", "Ann", "Gone", "ann", "Eve", "Fay", "Gus"});
  auto a = launchWith("Bob#,-,Ann|-,-,-");
  const PLFavoritesImport first = import(*a);
  EXPECT_TRUE(first.couldRead);
  EXPECT_EQ(a->list(), "Bob,Cy,Ann|Gone,Eve,Fay");
  EXPECT_EQ(first.added.size(), 4U);
  EXPECT_EQ(first.withoutRoom, 1U);
  EXPECT_EQ(a->titles(), "Favorites|Favorites 2");
  advance(5);
  EXPECT_EQ(stored(3), "Bob,Cy,Ann|Gone,Eve,Fay");
  EXPECT_EQ(storedTitles(), "Favorites|Favorites 2");
  EXPECT_THAT(import(*a).added, IsEmpty());
}

}  // namespace
}  // namespace pellor
