// Reading the stored list and putting a damaged one aside, without a manager.
#include "pellor/friends/internal/PLListReader.h"

#include "pellor/friends/PLFriendsManagerKeys.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

constexpr const char* Domain = "org.tapnote.TN";
using enum PLListReader::Answer;

class ListReaderTest : public OneProcess {
 protected:
  static Array listOf(const std::string& name) { return {Dictionary{{"Name", name}}}; }

  InMemoryPreferences& store() { return world.preferences(); }
  void write(const std::optional<Value>& list) { store().setValue(PLFriendListKey, list, Domain); }
  void damage(const Value& list) { store().damage(PLFriendListKey, list, Domain); }
  PLListReader::Answer read() {
    stored = {};
    return reader.read(stored);
  }
  Array list() const { return stored.list.elements(); }
  std::size_t copies() { return store().putAsideCopies().size(); }

  PLListReader reader{process, Domain};
  PLStoredList stored;
};

TEST_F(ListReaderTest, EachAnswerComesWithWhatIsStoredBesideTheList) {
  store().setValue(PLGroupTitlesKey, Array{"x"}, Domain);
  store().setValue(PLFirstListIsDueKey, true, Domain);
  const struct {
    const char* what;
    std::function<void()> make;
    PLListReader::Answer answer;
    Array list;
  } rows[] = {
      {"nothing is stored", [] {}, none, {}},
      {"an array", [&] { write(listOf("Ann")); }, loaded, listOf("Ann")},
      {"a long one", [&] { write(Value(LongArray(listOf("Bob")))); }, loaded, listOf("Bob")},
      {"an empty one", [&] { write(Array{}); }, loaded, {}},
      {"bytes, with a good copy", [&] { write(listOf("Ann")), damage(Data{1}); }, recovered, listOf("Ann")},
      {"another type, without one", [&] { write(std::nullopt), damage("Ann"); }, damaged, {}},
      {"with a copy that is no list", [&] { write(7), damage("Ann"); }, damaged, {}},
  };
  for (const auto& row : rows) {
    PLListReader other(process, Domain);
    write(std::nullopt);
    row.make();
    stored = {};
    EXPECT_EQ(other.read(stored), row.answer) << row.what;
    EXPECT_EQ(list(), row.list) << row.what;
    EXPECT_EQ(stored.titles, Array{"x"}) << row.what;
    EXPECT_TRUE(stored.awaitsFavorites) << row.what;
    EXPECT_EQ(stored.listVersion.count == 0, row.answer == none) << row.what;
    EXPECT_EQ(other.versions()->list, stored.listVersion) << row.what;
    EXPECT_EQ(other.versions()->titles, stored.titlesVersion) << row.what;
  }
  write(listOf("Ann"));
  store().setValue(PLGroupTitlesKey, "x", Domain);
  store().setValue(PLFirstListIsDueKey, 1, Domain);
  EXPECT_EQ(read(), loaded);
  EXPECT_EQ(stored.titles, Array{});
  EXPECT_FALSE(stored.awaitsFavorites);
  store().makeUnreadable();
  EXPECT_EQ(read(), unreadable);
  EXPECT_FALSE(reader.versions());
}

TEST_F(ListReaderTest, ADamagedListIsPutAsideOnceAndItsLastGoodCopyStandsForIt) {
  write(listOf("Ann"));
  damage(Data{1});
  for (int time = 0; time < 3; ++time) {
    EXPECT_EQ(read(), recovered);
    EXPECT_EQ(list(), listOf("Ann"));
  }
  EXPECT_EQ(copies(), 1U);
  EXPECT_EQ(log->count("was put aside"), 1U);
  damage(Data{2});
  EXPECT_EQ(read(), recovered);
  EXPECT_EQ(copies(), 2U) << "another damage";
  reader.noteWritten();
  EXPECT_EQ(read(), recovered);
  EXPECT_EQ(read(), recovered);
  EXPECT_EQ(copies(), 3U) << "the same again, after something else was stored";

  for (const auto& [between, answer] : {std::pair{std::optional<Value>(listOf("Bob")), loaded}, {std::nullopt, none}}) {
    write(between);
    EXPECT_EQ(read(), answer);
    damage(Data{2});
    EXPECT_EQ(read(), answer == loaded ? recovered : damaged);
    EXPECT_EQ(list(), answer == loaded ? listOf("Bob") : Array{}) << "of the list that was damaged last";
  }
  EXPECT_EQ(read(), damaged);
  EXPECT_EQ(copies(), 5U);
  EXPECT_EQ(store().putAsideCopies().back().value, Value(Data{2}));

  write(listOf("Eve"));
  damage(Data{2});
  EXPECT_EQ(read(), recovered);
  EXPECT_EQ(list(), listOf("Eve")) << "stored by another process, and damaged in the same way, between two looks";
}

TEST_F(ListReaderTest, NothingTakesThePlaceOfADamagedListThatCannotBePutAside) {
  write(listOf("Ann"));
  damage(Data{1});
  store().setPutAsideFails(true);
  EXPECT_EQ(read(), unreadable);
  EXPECT_EQ(read(), unreadable);
  EXPECT_EQ(list(), Array{});
  store().setPutAsideFails(false);
  EXPECT_EQ(read(), recovered);
  EXPECT_EQ(copies(), 1U);
}

}  // namespace
}  // namespace pellor
