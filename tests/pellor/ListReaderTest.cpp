// What stands for a stored list that is damaged, without a manager.
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
  for (const Value& mark : {Value(true), Value(1)}) {
    store().setValue(PLFirstListIsDueKey, mark, Domain);
    read();
    EXPECT_EQ(stored.awaitsFavorites, mark == Value(true));
  }
  store().makeUnreadable();
  EXPECT_EQ(read(), unreadable);
  EXPECT_FALSE(reader.versions());
}

}  // namespace
}  // namespace pellor
