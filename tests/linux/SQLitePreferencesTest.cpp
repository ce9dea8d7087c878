#include "pellor/linux/preferences/internal/SQLitePreferences.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "pellor/linux/sqlite/SQLiteDatabase.h"
#include "pellor/runtime/CBOR.h"
#include "pellor/runtime/LongArray.h"
#include "pellor/testing/LogCollector.h"
#include "pellor/testing/contract/VersionedWriter.h"
#include "tests/linux/SQLiteStores.h"
#include "tests/linux/TemporaryFolder.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

constexpr const char* Domain = "org.tapnote.TN";
class SQLitePreferencesTest : public testing::Test {
 protected:
  fs::path folder() const { return _temporary / "store"; }
  fs::path file() const { return folder() / SQLiteStoreFile; }
  std::shared_ptr<SQLitePreferences> open(SQLitePreferences::Access access = SQLitePreferences::Access::readWrite) {
    return openIn(folder(), _log, access);
  }
  /// As a restored backup or a failing disk would.
  void replaceFile(const std::string& content) {
    for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(file().string() + suffix);
    writeFile(file(), content);
  }
  /// A closed store that holds one value.
  void makeStore(const Value& value = "stored") {
    const auto store = open();
    store->setValue("key", value, Domain);
    ASSERT_TRUE(store->synchronize(Domain));
  }

  const TemporaryFolder _temporary;
  const std::shared_ptr<LogCollector> _log = std::make_shared<LogCollector>();
};

TEST_F(SQLitePreferencesTest, WhatIsTooDeepFailsAndLeavesTheOthers) {
  Value deep = 1;
  for (std::size_t depth = 0; depth <= CBORMaximumDepth; ++depth) deep = Array{deep};
  makeStore();
  const auto store = open();
  store->setValue("deep", deep, Domain);
  EXPECT_FALSE(store->synchronize(Domain));
  EXPECT_NE(store->lastError().find("deep"), std::string::npos);
  const PreferenceChanges changes{{"deep", setTo(deep)}, {"key", setTo("new")}};
  EXPECT_EQ(store->write(changes, {1, 1}, Domain).outcome, PreferenceWriteOutcome::failed);
  EXPECT_EQ(store->copyValue("deep", Domain).value(), std::nullopt);
  EXPECT_EQ(store->copyValue("key", Domain).value(), Value("stored"));
  EXPECT_TRUE(store->synchronize(Domain));
}

TEST_F(SQLitePreferencesTest, CopiesThatWerePutAsideAreUniqueAndPrivate) {
  makeStore();
  const auto store = open();
  const Data first = {0xFF, 1}, second = {0xFF, 2};
  for (const Data& bytes : {first, second, second}) {
    SQLiteDatabase database(file(), SQLiteDatabase::Access::readWrite, 5);
    database.prepare("UPDATE stored_values SET value = ?1").bind(1, bytes).run();
    const PutAside aside = store->putAside("key", Domain);
    EXPECT_TRUE(aside.kept);
    EXPECT_EQ(aside.lastGood, Value("stored"));
  }
  std::set<std::string> contents;
  for (const auto& entry : fs::directory_iterator(folder() / "aside")) {
    const std::string name = entry.path().filename().string();
    EXPECT_TRUE(name.starts_with("key-org.tapnote.TN-2") && name.ends_with(".cbor")) << name;
    EXPECT_EQ(modeOf(entry.path()), 0600u);
    EXPECT_TRUE(contents.insert(contentOf(entry.path())).second);
  }
  EXPECT_EQ(contents, (std::set<std::string>{{first.begin(), first.end()}, {second.begin(), second.end()}}));
  EXPECT_EQ(modeOf(folder() / "aside"), 0700u);

  fs::remove_all(folder() / "aside");
  writeFile(folder() / "aside", "in the way");
  EXPECT_FALSE(store->putAside("key", Domain).kept);
}

// Damage

TEST_F(SQLitePreferencesTest, WhatCannotBeReadIsNeverWritten) {
  std::string list(200'000, 'x');
  makeStore(list);
  const std::string whole = contentOf(file());
  std::string torn = whole;
  torn.replace(2 * 4096, torn.size() - 4 * 4096, torn.size() - 4 * 4096, '\xA5');
  const std::vector<std::pair<const char*, std::string>> damages = {
      {"text in its place", "this is no database, but it is long enough to look like one"},
      {"pages overwritten", torn},
  };
  for (const auto& [what, content] : damages) {
    const auto store = open();
    _log->clear();
    replaceFile(content);
    EXPECT_FALSE(store->synchronize(Domain)) << what;
    EXPECT_FALSE(store->copyValue("key", Domain).isReadable()) << what;
    store->setValue("key", "new", Domain);
    EXPECT_FALSE(store->synchronize(Domain)) << what;
    EXPECT_FALSE(store->copyValue("key", Domain).isReadable()) << what;
    EXPECT_FALSE(open()->copyValue("key", Domain).isReadable()) << what;
    EXPECT_EQ(contentOf(file()), content) << what;
    EXPECT_NE(store->lastError(), "") << what;

    replaceFile(whole);
    EXPECT_EQ(store->copyValue("key", Domain).value(), Value(list)) << what;
    EXPECT_TRUE(store->synchronize(Domain)) << what;
    EXPECT_NE(store->lastError(), "") << what << ": nothing was written since";
    store->setValue("further", what, Domain);
    EXPECT_TRUE(store->synchronize(Domain)) << what;
    EXPECT_EQ(store->lastError(), "") << what;
    EXPECT_EQ(_log->count("cannot be read"), 2u) << what << ", by each store";
    EXPECT_EQ(_log->count("cannot be written"), 1u) << what;
    EXPECT_EQ(_log->count("can be read again"), 1u) << what;
    EXPECT_EQ(_log->count("can be written again"), 1u) << what;
  }
}

TEST_F(SQLitePreferencesTest, StoresOfLaterVersionsAndOtherProgramsAreLeftAlone) {
  for (const char* change : {"PRAGMA user_version = 99", "PRAGMA user_version = 0"}) {
    fs::remove_all(folder());
    makeStore();
    executeIn(folder(), change);
    const std::string before = contentOf(file());
    const auto store = open();
    EXPECT_FALSE(store->copyValue("key", Domain).isReadable()) << change;
    store->setValue("key", 1, Domain);
    EXPECT_FALSE(store->synchronize(Domain)) << change;
    EXPECT_FALSE(store->isWritable());
    EXPECT_EQ(contentOf(file()), before) << change;
  }
  fs::remove_all(folder());
  writeFile(_temporary / "store", "a file in the folder's place");
  EXPECT_FALSE(open()->copyValue("key", Domain).isReadable());
}

// Long arrays

TEST_F(SQLitePreferencesTest, AnEditWritesAndReadsOneRow) {
  makeStore(persons(240));
  const auto writer = open(), reader = open();
  const auto valueIn = [](const auto& store) { return *store->copyValue("key", Domain).value(); };
  const auto known = valueIn(reader).longArray()->chunks();
  writer->setValue("key", withElement(*valueIn(writer).longArray(), 70, Dictionary{}), Domain);
  ASSERT_TRUE(writer->synchronize(Domain));
  // A row that has no newer revision is not read again.
  executeIn(folder(), "UPDATE stored_runs SET value = x'FF' WHERE id % 16777216 = 5");
  ASSERT_TRUE(reader->synchronize(Domain));
  EXPECT_EQ(valueIn(reader), valueIn(writer));
  EXPECT_EQ(valueIn(reader).longArray()->chunks()[5], known[5]);
  EXPECT_EQ(valueIn(reader).longArray()->chunks()[2]->at(6), Value(Dictionary{}));
  const SQLiteDatabase database(file(), SQLiteDatabase::Access::readWrite, 5);
  EXPECT_EQ(database.integer("SELECT count(*) FROM stored_runs WHERE revision = 2"), 1);

  writer->setValue("key", Array(*valueIn(reader).array()), Domain);
  ASSERT_TRUE(writer->synchronize(Domain));
  EXPECT_EQ(database.integer("SELECT max(revision) FROM stored_runs"), 2) << "equal values are no change";

  EXPECT_EQ(valueIn(open()), valueIn(reader)) << "of the damaged row there is a good copy";
}

// Reading alone

TEST_F(SQLitePreferencesTest, AReadOnlyStoreMakesNothingAndFollowsTheOthers) {
  using Access = SQLitePreferences::Access;
  EXPECT_FALSE(open(Access::readOnly)->copyValue("key", Domain).isReadable());
  EXPECT_FALSE(fs::exists(folder())) << "nothing is made";
  makeStore();
  const auto reader = open(Access::readOnly);
  EXPECT_FALSE(reader->isWritable());
  EXPECT_TRUE(reader->synchronize(Domain));
  reader->setValue("key", "changed", Domain);
  EXPECT_FALSE(reader->synchronize(Domain));
  EXPECT_FALSE(reader->insertIfAbsent({{"new", 1}}, Domain));
  EXPECT_NE(reader->lastError().find("read-only"), std::string::npos) << reader->lastError();

  const auto writer = open();
  writer->setValue("other", 1, Domain);
  ASSERT_TRUE(writer->synchronize(Domain));
  EXPECT_TRUE(reader->synchronize(Domain)) << "nothing waits";
  EXPECT_EQ(reader->copyValue("other", Domain).value(), Value(1)) << "it still follows";
  EXPECT_EQ(reader->copyValue("key", Domain).value(), Value("stored"));
}

// Defaults

TEST_F(SQLitePreferencesTest, DefaultsComeFromTheJSONFile) {
  const auto store = open();
  EXPECT_EQ(store->persistentValueForKey("flag", Domain), std::nullopt);
  fs::create_directory(folder());
  const fs::path defaults = folder() / "defaults.json";
  writeFile(defaults, R"({"org.tapnote.TN": {"flag": true, "whole": 3, "real": 3.0, "none": null, "text": "a",
                          "big": 18446744073709551615, "list": [1, null, {"k": false}]}, "other": 5})");
  const Dictionary expected = {{"flag", true},
                               {"whole", 3},
                               {"real", 3.0},
                               {"text", "a"},
                               {"big", 18446744073709551615.0},
                               {"list", Array{1, Dictionary{{"k", false}}}}};
  for (const auto& [key, value] : expected) EXPECT_EQ(store->persistentValueForKey(key, Domain), value) << key;
  EXPECT_EQ(store->persistentValueForKey("none", Domain), std::nullopt);
  EXPECT_EQ(store->persistentValueForKey("flag", "other"), std::nullopt);
  EXPECT_EQ(store->copyValue("flag", Domain).value(), std::nullopt) << "not shared";

  for (const char* damaged : {"{\"org.tapnote.TN\": {\"flag\": true}", "[]", "\"\xFF\""}) {
    _log->clear();
    writeFile(defaults, damaged);
    EXPECT_EQ(store->persistentValueForKey("flag", Domain), std::nullopt) << damaged;
    EXPECT_EQ(store->persistentValueForKey("flag", Domain), std::nullopt) << damaged;
    EXPECT_EQ(_log->messages().size(), 1u) << damaged;
  }
}

}  // namespace
}  // namespace pellor
