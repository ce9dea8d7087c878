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
    auto a = import({names.begin(), names.begin() + static_cast<std::ptrdiff_t>(row.favorites)});
    EXPECT_EQ(a->list(), row.list);
    EXPECT_EQ(a->titles(), row.titles);
    a->kill();
  }
}

}  // namespace
}  // namespace pellor
