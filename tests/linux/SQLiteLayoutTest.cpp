// Stores that earlier versions laid out, and programs of earlier versions that still run. What the list of version 0.1
// holds, the program is asked in tests/cli.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "pellor/testing/contract/VersionedWriter.h"
#include "tests/linux/SQLiteStores.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

constexpr const char* Domain = "org.tapnote.TN";
constexpr const char* ListKey = "FriendList";
constexpr const char* TitlesKey = "TNFriendGroupTitles";

/// A copy of what version 0.1 wrote.
class EarlierStore {
 public:
  EarlierStore() {
    fs::copy(fs::path(PELLOR_TEST_DATA) / "0.1/sqlite/data", _folder / "data", fs::copy_options::recursive);
    fs::permissions(_folder / "data" / SQLiteStoreFile, fs::perms::owner_read | fs::perms::owner_write);
  }
  fs::path folder() const { return _folder / "data"; }
  std::shared_ptr<SQLitePreferences> open(
      SQLitePreferences::Access access = SQLitePreferences::Access::readWrite) const {
    return openIn(folder(), nullptr, access);
  }

 private:
  const TemporaryFolder _folder;
};

VersionedPreferences readFrom(PreferencesStore& store) {
  const auto found = store.read(std::vector<std::string>{ListKey, TitlesKey}, Domain);
  EXPECT_TRUE(found.isReadable());
  return found.value().value_or(VersionedPreferences{});
}

TEST(SQLiteLayout, AStoreOfVersion01IsReadAndMigratedAsItIs) {
  const EarlierStore earlier;
  const auto reader = earlier.open(SQLitePreferences::Access::readOnly);
  const auto before = readFrom(*reader);
  EXPECT_EQ(reader->write({{TitlesKey, setTo("new")}}, {1, 1}, Domain).outcome, PreferenceWriteOutcome::failed);
  executeIn(earlier.folder(), "UPDATE preferences SET value = x'80' WHERE key = 'TNFriendGroupTitles'");
  const auto changed = readFrom(*reader);
  EXPECT_NE(changed.at(TitlesKey).version, before.at(TitlesKey).version);
  EXPECT_EQ(changed.at(ListKey).version, before.at(ListKey).version);

  const EarlierStore another;
  const auto follower = another.open(SQLitePreferences::Access::readOnly);
  readFrom(*follower);
  const auto writer = another.open();
  const auto migrated = readFrom(*writer);
  ASSERT_TRUE(migrated.at(ListKey).value && migrated.at(ListKey).value->longArray());
  EXPECT_EQ(writer->putAside(ListKey, Domain).lastGood, migrated.at(ListKey).value);
  EXPECT_EQ(writer->integerValue("PLGroupSize", Domain).value(), 4);
  const auto followed = readFrom(*follower);
  for (const char* key : {ListKey, TitlesKey}) {
    EXPECT_EQ(migrated.at(key).value, before.at(key).value);
    EXPECT_NE(migrated.at(key).version.store, 0U);
    EXPECT_GT(migrated.at(key).version.count, 0U);
    EXPECT_EQ(migrated.at(key).version.write, PreferenceWriteID{});
    EXPECT_TRUE(isSame(followed.at(key), migrated.at(key)));
    EXPECT_TRUE(isSame(readFrom(*another.open()).at(key), migrated.at(key)));
  }
  const Value edited = withElement(*migrated.at(ListKey).value->longArray(), 1, person(1));
  const auto answer = writer->write({{ListKey, setTo(edited, migrated.at(ListKey).version)}}, {1, 1}, Domain);
  EXPECT_EQ(answer.outcome, PreferenceWriteOutcome::written);
  EXPECT_EQ(readFrom(*follower).at(ListKey).value, edited);
}

TEST(SQLiteLayout, AProgramOfVersion01ThatStillRunsFailsAtItsNextWriteAndHarmsNothing) {
  const EarlierStore earlier;
  const SQLiteDatabase running(earlier.folder() / SQLiteStoreFile, SQLiteDatabase::Access::readWrite, 5);
  // As that version writes a value, a run of a list, and the last good copies of both.
  const char* const texts[] = {
      "INSERT INTO preferences (domain, key, value) VALUES ('d', 'k', x'00') ON CONFLICT DO UPDATE"
      " SET value = excluded.value, list = NULL, count = NULL, revision = NULL WHERE value IS NOT excluded.value",
      "INSERT INTO runs SELECT id, list, revision + 1, x'00' FROM runs WHERE true ON CONFLICT DO UPDATE"
      " SET revision = excluded.revision, value = excluded.value",
      "INSERT INTO last_good VALUES ('d', 'k', x'00')", "INSERT INTO last_good_runs VALUES (1, x'00')",
      "DELETE FROM preferences"};
  std::vector<SQLiteStatement> statements;
  for (const char* text : texts) statements.push_back(running.prepare(text));
  running.execute("BEGIN");
  EXPECT_EQ(running.integer("SELECT count(*) FROM runs"), 1);
  running.execute("COMMIT");

  const auto writer = earlier.open();
  const auto migrated = readFrom(*writer);
  for (SQLiteStatement& statement : statements) EXPECT_THROW(statement.run(), SQLiteError);
  EXPECT_EQ(running.integer("PRAGMA user_version"), 3) << "so another one does not start";
  for (const auto& [key, preference] : migrated) EXPECT_TRUE(isSame(readFrom(*earlier.open()).at(key), preference));
}

}  // namespace
}  // namespace pellor
