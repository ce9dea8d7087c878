// Copies of the store: when they are made, which are kept, and what takes the place of a store that is gone.
#include "pellor/linux/preferences/StoreCopies.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "pellor/linux/preferences/internal/StoreCopyKeeper.h"
#include "pellor/testing/LogCollector.h"
#include "pellor/testing/SimulatedScheduler.h"
#include "pellor/testing/contract/VersionedWriter.h"
#include "tests/linux/SQLiteStores.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

constexpr const char* Domain = "org.tapnote.TN";
constexpr double Hour = 3600, Day = 24 * Hour;

class StoreCopiesTest : public testing::Test {
 protected:
  fs::path data() const { return _folder / "data"; }
  fs::path file() const { return data() / SQLiteStoreFile; }
  StoreCopies copies() const { return StoreCopies(data() / StoreCopies::FolderName); }
  std::shared_ptr<SQLitePreferences> open() { return openIn(data(), _log); }

  static bool write(SQLitePreferences& store, const char* key, Value value) {
    return store.write({{key, setTo(std::move(value))}}, {5, 5}, Domain).outcome == PreferenceWriteOutcome::written;
  }
  static std::optional<Value> valueIn(PreferencesStore& store, const char* key) {
    store.synchronize(Domain);
    return store.copyValue(key, Domain).value();
  }
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& entry : copies().list()) names.push_back(entry.name);
    return names;
  }
  std::size_t count(std::string_view prefix) const {
    const auto all = names();
    return static_cast<std::size_t>(
        std::ranges::count_if(all, [&](const std::string& name) { return name.starts_with(prefix); }));
  }

  const TemporaryFolder _folder{TemporaryFolder::memory()};
  const std::shared_ptr<LogCollector> _log = std::make_shared<LogCollector>();
};

TEST_F(StoreCopiesTest, TheNewestIsKeptAndTheFirstOfHoursAndDays) {
  const auto store = open();
  ASSERT_TRUE(write(*store, "FriendList", Array{person(1), Dictionary{}, person(2)}));
  StoreCopy copy = *store->copyOfStore(700'000'000);
  EXPECT_EQ(copy.friends, 2U) << "an empty slot is nobody";
  for (double age = 10 * Day; age >= 0; age -= Hour / 2) {
    copy.date = 800'000'000 - age;
    ASSERT_EQ(copies().keep(copy), std::nullopt);
  }
  EXPECT_EQ(names().front(), "newest");
  EXPECT_EQ(count("hour-"), 5U);
  EXPECT_EQ(count("day-"), 7U);
  const auto entries = copies().list();
  EXPECT_GT(entries.back().date, 800'000'000 - 8 * Day);
  for (const auto& entry : entries) EXPECT_TRUE(entry.isWhole && entry.friends == 2) << entry.name;
  for (int number = 0; number < 9; ++number, copy.date += 1) copies().keepReplaced(copy);
  EXPECT_EQ(count("replaced-"), 5U);
  EXPECT_EQ(modeOf(data() / "copies"), 0700U);
  EXPECT_EQ(modeOf(data() / "copies/newest.copy"), 0600U);

  const auto read = copies().read("newest");
  ASSERT_TRUE(read);
  EXPECT_EQ(read->values.at({Domain, "FriendList"}).value(), valueIn(*store, "FriendList"));
  EXPECT_FALSE(copies().read("../data/copies/newest"));
}

TEST_F(StoreCopiesTest, ADamagedCopyIsNone) {
  const auto store = open();
  ASSERT_TRUE(write(*store, "FriendList", persons(3)));
  ASSERT_EQ(copies().keep(*store->copyOfStore(700'000'000)), std::nullopt);
  const fs::path newest = data() / "copies/newest.copy";
  const std::string whole = contentOf(newest);
  for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
    std::string damaged = whole;
    damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << (bit % 8)));
    writeFile(newest, damaged);
    ASSERT_FALSE(copies().read("newest")) << bit;
  }
  for (std::size_t length = 0; length < whole.size(); ++length) {
    writeFile(newest, whole.substr(0, length));
    ASSERT_FALSE(copies().read("newest")) << length;
  }
}

TEST_F(StoreCopiesTest, ACopyIsMadeAfterTheLastWriteAndOfLongListsOnceAMinute) {
  const auto scheduler = std::make_shared<SimulatedScheduler>(1);
  Process process(scheduler, _log);
  double wallClock = 700'000'000;
  const auto keep = [&](const std::shared_ptr<SQLitePreferences>& store) {
    return StoreCopyKeeper::make(process, store, LogHandle("org.tapnote.Pellor", "copies", _log),
                                 [&] { return wallClock; });
  };
  const auto friends = [&] {
    const auto copy = copies().read("newest");
    return copy ? static_cast<int>(copy->friends) : -1;
  };
  const auto store = open();
  auto keeper = keep(store);
  ASSERT_TRUE(write(*store, "FriendList", persons(1)));
  scheduler->advance(1.5);
  ASSERT_TRUE(write(*store, "FriendList", persons(2)));
  scheduler->advance(1.5);
  EXPECT_EQ(friends(), -1) << "edits go on";
  scheduler->advance(1);
  EXPECT_EQ(friends(), 2);
  ASSERT_TRUE(write(*store, "FriendList", persons(3)));
  keeper.reset();
  EXPECT_EQ(friends(), 3) << "as a program ends";

  wallClock += 10;
  keeper = keep(store);
  ASSERT_TRUE(write(*store, "FriendList", persons(1200)));
  scheduler->advance(5);
  EXPECT_EQ(friends(), 3) << "the last one is 10 seconds old";
  wallClock += 55;
  scheduler->advance(55);
  EXPECT_EQ(friends(), 1200);
}

TEST_F(StoreCopiesTest, AStoreThatIsGoneOrDamagedIsMadeOfTheNewestCopyAndOneOfALaterVersionIsLeftAlone) {
  struct Case {
    const char* what;
    std::function<void(const fs::path&)> damage;
    bool isReplaced;
    bool isAside;
  };
  const std::vector<Case> cases = {
      {"gone", [](const fs::path& path) { fs::remove(path); }, true, false},
      {"empty", [](const fs::path& path) { writeFile(path, ""); }, true, true},
      {"cut", [](const fs::path& path) { fs::resize_file(path, fs::file_size(path) / 2); }, true, true},
      {"text", [](const fs::path& path) { writeFile(path, std::string(9000, 'x')); }, true, true},
      {"of a later version", [](const fs::path& path) { executeIn(path.parent_path(), "PRAGMA user_version = 9"); },
       false, false},
      {"a folder", [](const fs::path& path) { fs::remove(path), fs::create_directory(path); }, false, false},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.what);
    fs::remove_all(data());
    PreferenceVersion version;
    {
      const auto store = open();
      ASSERT_TRUE(write(*store, "FriendList", persons(40)));
      ASSERT_TRUE(write(*store, "Titles", "Family"));
      ASSERT_EQ(copies().keep(*store->copyOfStore(700'000'000)), std::nullopt);
      version = store->read(std::vector<std::string>{"Titles"}, Domain).value()->at("Titles").version;
    }
    each.damage(file());
    _log->clear();
    for (int times = 0; times < 2; ++times) {
      const auto store = open();
      const auto found = store->read(std::vector<std::string>{"FriendList", "Titles"}, Domain);
      ASSERT_EQ(found.isReadable(), each.isReplaced);
      if (!each.isReplaced) continue;
      EXPECT_EQ(found.value()->at("FriendList").value, Value(persons(40)));
      EXPECT_EQ(found.value()->at("Titles").value, Value("Family"));
      EXPECT_NE(found.value()->at("Titles").version.store, version.store) << "another store";
    }
    EXPECT_EQ(_log->count("the copy of "), each.isReplaced ? 1U : 0U);
    EXPECT_EQ(fs::exists(data() / "aside"), each.isAside);
  }
}

// The file goes while a program is at work: it still knows the values, and also those that no copy has.
TEST_F(StoreCopiesTest, ARunningProgramMakesItsStoreAnewOfWhatItKnows) {
  const std::vector<std::pair<const char*, std::function<void(const fs::path&)>>> damages = {
      {"deleted", [](const fs::path& path) { fs::remove(path); }},
      {"all deleted", [](const fs::path& path) { fs::remove_all(path.parent_path()); }},
      {"cut to nothing", [](const fs::path& path) { fs::resize_file(path, 0); }},
      {"cut", [](const fs::path& path) { fs::resize_file(path, 10'000); }},
      {"log deleted", [](const fs::path& path) { fs::remove(path.string() + "-wal"); }},
      {"log replaced",
       [](const fs::path& path) {
         fs::remove(path.string() + "-wal");
         writeFile(path.string() + "-wal", "");
       }},
  };
  for (const auto& [what, damage] : damages) {
    SCOPED_TRACE(what);
    fs::remove_all(data());
    const auto store = open();
    ASSERT_TRUE(write(*store, "FriendList", persons(40)));
    ASSERT_TRUE(write(*open(), "Titles", "of another program"));
    const auto numberOf = [&] {
      return store->read(std::vector<std::string>{"None"}, Domain).value()->at("None").version.store;
    };
    const auto number = numberOf();
    damage(file());
    bool isWritten = write(*store, "Titles", "Family");
    if (!isWritten) isWritten = write(*store, "Titles", "Family");
    EXPECT_TRUE(isWritten) << store->lastError();
    EXPECT_NE(numberOf(), number) << "another store";
    EXPECT_EQ(valueIn(*store, "FriendList"), Value(persons(40)));
    const auto other = open();
    EXPECT_EQ(valueIn(*other, "FriendList"), Value(persons(40)));
    EXPECT_EQ(valueIn(*other, "Titles"), Value("Family"));
  }
}

TEST_F(StoreCopiesTest, ARunningProgramTakesFromTheCopyWhatOthersWroteAfterItHadRead) {
  const auto store = open(), other = open();
  ASSERT_TRUE(write(*store, "FriendList", persons(3)));
  ASSERT_TRUE(write(*store, "Titles", "Family"));
  ASSERT_TRUE(write(*other, "FriendList", persons(4)));
  ASSERT_EQ(copies().keep(*other->copyOfStore(700'000'000)), std::nullopt);
  fs::remove(file());
  EXPECT_EQ(valueIn(*store, "FriendList"), Value(persons(4)));
  EXPECT_EQ(_log->count("with 4 friends"), 1U);
  EXPECT_EQ(valueIn(*store, "Titles"), Value("Family"));
}

// A log that another program loses, or a store that was put back from a backup of the whole folder but the copies.
TEST_F(StoreCopiesTest, AStoreThatLacksWhatItsNewestCopyHasSaysSoAndKeepsThatCopy) {
  const auto keep = [&](SQLitePreferences& store, double date) {
    ASSERT_EQ(copies().keep(*store.copyOfStore(date)), std::nullopt);
  };
  {
    const auto store = open();
    ASSERT_TRUE(write(*store, "FriendList", persons(2)));
  }
  const std::string earlier = contentOf(file());
  {
    const auto store = open();
    ASSERT_TRUE(write(*store, "FriendList", persons(3)));
    ASSERT_TRUE(write(*store, "Titles", "Family"));
    keep(*store, 700'000'000);
  }
  EXPECT_TRUE(open()->synchronize(Domain));
  EXPECT_EQ(_log->count("lack"), 0U) << "nothing is lost yet";
  writeFile(file(), earlier);
  const auto store = open();
  EXPECT_EQ(valueIn(*store, "FriendList"), Value(persons(2)));
  EXPECT_EQ(_log->count("lack"), 1U);
  EXPECT_EQ(store->takeRemarks().size(), 1U);
  ASSERT_TRUE(write(*store, "FriendList", persons(1)));
  keep(*store, 700'000'010);
  EXPECT_EQ(count("replaced-"), 1U) << "of what was lost";
  EXPECT_EQ(copies().newest()->friends, 1U);
  ASSERT_TRUE(write(*store, "FriendList", persons(4)));
  ASSERT_TRUE(write(*store, "FriendList", persons(5)));
  keep(*store, 700'000'020);
  auto late = *store->copyOfStore(700'000'019);
  late.values.begin()->second.count -= 1;
  ASSERT_EQ(copies().keep(late), std::nullopt);
  EXPECT_EQ(copies().newest()->friends, 5U) << "a program that was slower";
  EXPECT_EQ(count("replaced-"), 1U);
  late.store += 1;
  late.date = 700'000'030;
  ASSERT_EQ(copies().keep(late), std::nullopt);
  EXPECT_EQ(count("replaced-"), 2U) << "of the store that another one took the place of";
}

TEST_F(StoreCopiesTest, AValueWithoutAWholeRowIsThatOfTheNewestCopyOfTheSameStore) {
  for (const bool isSameStore : {true, false}) {
    SCOPED_TRACE(isSameStore);
    fs::remove_all(data());
    auto store = open();
    ASSERT_TRUE(write(*store, "FriendList", persons(40)));
    ASSERT_TRUE(write(*store, "Titles", "Family"));
    StoreCopy copy = *store->copyOfStore(700'000'000);
    if (!isSameStore) ++copy.store;
    ASSERT_EQ(copies().keep(copy), std::nullopt);
    store.reset();
    for (const char* table : {"stored_runs", "good_runs", "stored_values", "good_values"}) {
      executeIn(data(), std::string("UPDATE ") + table +
                            " SET value = CAST(x'41' || substr(value, 2) AS BLOB) WHERE length(value) > 0");
    }
    _log->clear();
    store = open();
    EXPECT_EQ(valueIn(*store, "FriendList") == Value(persons(40)), isSameStore);
    EXPECT_EQ(valueIn(*store, "Titles") == Value("Family"), isSameStore);
    EXPECT_EQ(_log->count("newest copy of the store is used"), isSameStore ? 2U : 0U);
    if (!isSameStore) continue;
    ASSERT_TRUE(write(*store, "Titles", "Friends"));
    _log->clear();
    const auto next = open();
    EXPECT_EQ(valueIn(*next, "FriendList"), Value(persons(40)));
    EXPECT_EQ(valueIn(*next, "Titles"), Value("Friends"));
    EXPECT_EQ(_log->count("damaged"), 0U) << "written in its place";
  }
}

}  // namespace
}  // namespace pellor
