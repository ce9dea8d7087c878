// Arrays that are stored with the list: merged by id, and written with what they tell of.
#include "pellor/friends/PLListEditor.h"
#include "pellor/friends/internal/PLAttachedArrays.h"

#include <utility>

#include "tests/pellor/ManagerWorld.h"
#include "tests/pellor/SlowStore.h"

namespace pellor {
namespace {

const std::string Key = "PLFriendListHistory";

// "a b1 c": elements with these letters as ids, and what else they say; in an ordered one numbers that tell which is
// newer.
LongArray arrayOf(const std::string& text, bool isOrdered = false) {
  Array elements;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find(' ', begin), text.size());
    const std::string id = text.substr(begin, 1), rest = text.substr(begin + 1, end - begin - 1);
    elements.emplace_back(isOrdered ? Dictionary{{"id", id}, {"number", std::stoi(rest)}}
                                    : Dictionary{{"id", id}, {"says", rest}});
    begin = end + 1;
  }
  return LongArray(elements);
}
LongArray orderedArrayOf(const std::string& text) { return arrayOf(text, true); }

std::string textOf(const LongArray& array) {
  std::string text;
  for (const Value& element : array.elements()) {
    const Dictionary& entries = *element.dictionary();
    text += (text.empty() ? "" : " ") + *entries.at("id").string() + *entries.at("says").string();
  }
  return text;
}

TEST(MergedArraysTest, AreMergedByIdAndTheLastOnesStay) {
  struct Case {
    const char *base, *theirs, *ours, *merged;
  };
  const std::vector<Case> cases = {
      {"a b", "a b", "a b", "a b"},
      {"a b", "a b c", "a b d", "a b c d"},
      {"a b", "b", "a b", "b"},
      {"a b", "a b", "b", "b"},
      {"a b", "a c", "b d", "c d"},
      {"a b", "a1 b", "a b2", "a1 b2"},
      {"a b", "a1 b", "a2 b", "a2 b"},
      {"a b", "b", "a1 b", "b"},
      {"", "a1 c", "a2 d", "a2 c d"},
      {"a b c d e", "b c d e f", "b c d e g", "c d e f g"},
      {"a b", "", "", ""},
  };
  for (const Case& each : cases) {
    EXPECT_EQ(textOf(mergedArrays(arrayOf(each.base), arrayOf(each.theirs), arrayOf(each.ours), {5, {}})), each.merged)
        << each.base << ", theirs " << each.theirs << ", ours " << each.ours;
  }
  Array many;
  for (int number = 0; number < 200; ++number) many.emplace_back(Dictionary{{"id", std::to_string(number)}});
  const LongArray last = newestElements(LongArray(many), {100, {}});
  EXPECT_EQ(last.elements(), Array(many.end() - 100, many.end()));
}

TEST(MergedArraysTest, AreOrderedByANumberWhereOneWasNamed) {
  struct Case {
    std::size_t mostElements;
    const char *base, *theirs, *ours, *merged;
  };
  const std::vector<Case> cases = {
      {5, "a1 b2", "a1 b2 c3", "a1 b2 d3", "a1 b2 c3 d4"},
      {5, "a1 b2", "a1 b2 c7", "a1 b2 d3 e4", "a1 b2 c7 d8 e9"},
      {5, "a1 b2", "a1 b2", "a1 b2 e4 d3", "a1 b2 d3 e4"},
      {4, "a1 b2 c3 d4", "e5 b2 c3 d4", "f5 b2 c3 d4", "c3 d4 e5 f6"},
      {5, "d4 e5 a1 b2 c3", "d4 e5 f6 b2 c3", "d4 e5 g6 h7 c3", "d4 e5 f6 g7 h8"},
      {5, "d4 e5 a1 b2 c3", "d4 e5 f6 g7 c3", "d4 e5 h6 b2 c3", "d4 e5 f6 g7 h8"},
      {3, "c5 a1 b4", "c5 a1 b4", "c5 d6 b4", "c5 b4 d6"},
  };
  for (const Case& each : cases) {
    const LongArray merged = mergedArrays(orderedArrayOf(each.base), orderedArrayOf(each.theirs),
                                          orderedArrayOf(each.ours), {each.mostElements, "number"});
    EXPECT_EQ(merged, orderedArrayOf(each.merged)) << each.base << ", theirs " << each.theirs << ", ours " << each.ours;
  }
  EXPECT_EQ(newestElements(orderedArrayOf("d4 e5 a1 b2 c3"), {3, "number"}), orderedArrayOf("c3 d4 e5"));
  EXPECT_EQ(newestElements(orderedArrayOf("d4 a1 c3"), {3, "number"}), orderedArrayOf("d4 a1 c3"));
}

class AttachedArraysTest : public ManagerTest {
 protected:
  AttachedArraysTest() {
    setGroups(4, 3);
    world.pairedDevice().setCompletedInitialSync(true);
    a = launchWith("Ann,-,-");
    b = launch();
    rest();
    attach(*a);
    attach(*b);
  }
  static void attach(ManagerProcess& process) {
    process.run([&] { process.manager().editor().attach(Key, 4); });
  }
  static std::string shown(ManagerProcess& process) { return textOf(process.manager().editor().attached(Key)); }
  static void set(ManagerProcess& process, const std::string& text) {
    process.run([&] { process.manager().editor().setAttached(Key, arrayOf(text)); });
  }
  std::string storedArray() {
    const auto value = storedValue(Key);
    if (!value) return "none";
    return textOf(value->longArray() ? *value->longArray() : LongArray(*value->array()));
  }

  std::unique_ptr<ManagerProcess> a, b;
};

TEST_F(AttachedArraysTest, AloneItGoesToTheOthersToo) {
  set(*a, "a b c d e");
  rest();
  EXPECT_EQ(storedArray(), "b c d e");
  EXPECT_EQ(shown(*b), "b c d e");
  world.preferences().failWrites(3);
  set(*b, "c d e f1");
  advance(0.15);
  set(*a, "b c2 d e");
  rest();
  EXPECT_EQ(storedArray(), "c2 d e f1");
  using Untold = InMemoryPreferences::Untold;
  for (const Untold fate : {Untold::stored, Untold::delayed, Untold::lost}) {
    world.preferences().leaveUntold(fate, 1);
    world.preferences().clearRecords();
    set(*a, "c" + std::to_string(static_cast<int>(fate)) + " d");
    advance(1.15);
    world.preferences().storeDelayedWrites();
    rest();
    EXPECT_EQ(storedArray(), "c" + std::to_string(static_cast<int>(fate)) + " d");
    EXPECT_EQ(shown(*b), storedArray());
    EXPECT_EQ(world.preferences().writes().size(), 1U);
    EXPECT_TRUE(a->settle());
  }
}

// An array that is attached once there is a list is read at once, or as soon as the store can be read.
TEST_F(AttachedArraysTest, OneThatIsAttachedLateIsReadThen) {
  set(*a, "a b");
  rest();
  const auto late = launch();
  attach(*late);
  EXPECT_EQ(shown(*late), "a b");
  const auto later = launch();
  world.preferences().makeUnreadable();
  attach(*later);
  attach(*later);
  EXPECT_EQ(shown(*later), "");
  world.preferences().makeReadable();
  rest();
  EXPECT_EQ(shown(*later), "a b");
}

TEST_F(AttachedArraysTest, ADamagedOneCountsAsEmptyAndOthersLeaveTheKeyAlone) {
  setSetting(Key, "no array");
  for (int load = 0; load < 2; ++load) a->run([&] { a->manager().reloadFriendList(); });
  EXPECT_EQ(a->logged("is damaged and counts as empty"), 1U);
  EXPECT_EQ(shown(*a), "");
  const auto plain = launch();
  plain->add("Bob");
  rest();
  EXPECT_EQ(storedValue(Key), Value("no array"));
  plain->run([&] { plain->manager().editor().setAttached(Key, arrayOf("x")); });
  a->add("Cy");
  set(*a, "c");
  rest();
  EXPECT_EQ(storedArray(), "c");
  const auto late = makeProcess();
  world.preferences().makeUnreadable();
  late->start();
  attach(*late);
  set(*late, "l");
  world.preferences().makeReadable();
  rest();
  EXPECT_EQ(storedArray(), "c l");
  EXPECT_EQ(shown(*a), "c l");
}

}  // namespace
}  // namespace pellor
