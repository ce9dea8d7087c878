// The first list of the default domain.
#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;

class FavoritesImportTest : public ManagerTest {
 protected:
  /// Favorites that have a contact, then the list that a first run makes of them.
  std::unique_ptr<ManagerProcess> import(const std::vector<std::string>& names) {
    std::vector<FavoriteEntry> entries;
    for (const std::string& name : names) {
      const auto contact = world.addressBook().contact(guidOf(name));
      entries.push_back({name, mailOf(name), contact ? contact->recordID : InvalidRecordID});
    }
    world.favorites().setEntries(entries);
    return launch();
  }
  std::vector<std::string> manyContacts(int count) {
    std::vector<std::string> names;
    for (int number = 0; number < count; ++number) names.push_back("F" + std::to_string(number));
    contacts(names);
    return names;
  }
};

TEST_F(FavoritesImportTest, FavoritesBecomeFriendsInTheirOrder) {
  setGroups(4, 3);
  contacts({"Ann", "Bob", "Cy"});
  world.addressBook().link({"guid-Ann", "guid-Cy"});
  auto a = import({"Bob", "Ann", "Gone", "Gone", "Bob"});
  EXPECT_EQ(a->logged("processing 5 phone favorites for Tapnote friend import"), 1U);
  EXPECT_EQ(a->logged("imported phone favorite [Bob | bob@example.org] with record ID 2 and GUID guid-Bob"), 1U);
  EXPECT_EQ(a->logged("imported phone favorite [Gone | gone@example.org] with record ID -1 and GUID (null)"), 2U);
  EXPECT_EQ(a->logged("not importing phone favorite [Bob | bob@example.org] with record GUID guid-Bob; person was "
                      "already imported"),
            1U);
  EXPECT_EQ(a->logged("phone favorites import complete with 4 Tapnote friends"), 1U);
  EXPECT_EQ(a->list(), "Bob,Ann,Gone|Gone,-,-|-,-,-");
  rest();
  EXPECT_EQ(stored(3), "Bob,Ann,Gone|Gone,-,-|-,-,-");
  EXPECT_EQ(a->titles(), "Favorites|Favorites 2|-");
  EXPECT_EQ(storedTitles(), "Favorites|Favorites 2|-");
  // Nobody was added: that is how the list began. Who has no record learns to which database that applies.
  EXPECT_THAT(a->takeNotifications(), ElementsAre("groups changed", "groups changed", "groups changed", "title changed",
                                                  "title changed", "changed Gone~ Gone~"));
}

TEST_F(FavoritesImportTest, NoMoreThanTheListHoldsAreImported) {
  setGroups(4, 10);
  auto a = import(manyContacts(45));
  EXPECT_EQ(a->logged("phone favorites import complete with 40 Tapnote friends"), 1U);
  EXPECT_EQ(a->manager().friendGroups().size(), 4U);
  EXPECT_EQ(a->friendAt(3, 9)->displayName(), "F39");
  EXPECT_EQ(a->titles(), "Favorites|Favorites 2|Favorites 3|Favorites 4");
}

TEST_F(FavoritesImportTest, WithoutRoomOrFavoritesNothingIsImportedOrTitled) {
  setGroups(0, 3);
  auto a = import(manyContacts(2));
  EXPECT_EQ(a->list(), "-,-,-");
  EXPECT_EQ(a->titles(), "-");
  a->kill();

  setGroups(4, 3);
  auto b = import({});
  EXPECT_EQ(b->titles(), "-");
  rest();
  EXPECT_EQ(storedTitles(), "none");
}

TEST_F(FavoritesImportTest, HugeLimitsDoNotWrap) {
  setSetting(PLMaxGroupCountKey, -1);
  setSetting(PLGroupSizeKey, 3);
  auto a = import(manyContacts(5));
  EXPECT_EQ(a->list(), "F0,F1,F2|F3,F4,-|-,-,-");
}

}  // namespace
}  // namespace pellor
