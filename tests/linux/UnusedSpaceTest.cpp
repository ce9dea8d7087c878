// What the file of a store still has of values that are gone.
#include "pellor/linux/sqlite/UnusedSpace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

#include "pellor/testing/contract/VersionedWriter.h"
#include "tests/linux/SQLiteStores.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;
using ::testing::IsEmpty;

constexpr const char* Domain = "org.tapnote.TN";

class UnusedSpaceTest : public testing::Test {
 protected:
  static void write(SQLitePreferences& store, const std::string& key, std::optional<Value> value) {
    store.setValue(key, std::move(value), Domain);
    ASSERT_TRUE(store.synchronize(Domain));
  }
  static std::optional<Value> valueIn(SQLitePreferences& store, const char* key) {
    store.synchronize(Domain);
    return store.copyValue(key, Domain).value();
  }
  /// Whether a byte of what is gone is in the file or its log.
  bool hasSecrets() const {
    const std::string file = (_folder / SQLiteStoreFile).string();
    return (contentOf(file) + contentOf(file + "-wal")).find("secret") != std::string::npos;
  }
  /// Values between which others stood and went, and whole pages that are free; as SQLite leaves them where it does not
  /// overwrite by itself what it frees.
  void writeAndRemove(SQLitePreferences& store) const {
    Array others;
    for (int number = 0; number < 400; ++number)
      others.emplace_back(Dictionary{{"Name", "kept " + std::to_string(number)}});
    write(store, "others", others);
    const SQLiteDatabase database(_folder / SQLiteStoreFile, SQLiteDatabase::Access::readWrite, 5);
    database.execute("PRAGMA secure_delete=OFF");
    const std::string numbers = "WITH n(i) AS (VALUES(1) UNION ALL SELECT i+1 FROM n WHERE i<60) ";
    database.execute("CREATE TABLE gone (text TEXT)");
    database.execute(numbers + "INSERT INTO gone SELECT 'secret page ' || hex(zeroblob(3000)) FROM n");
    database.execute(numbers +
                     "INSERT INTO stored_values (domain, key, value) SELECT 'secret ' || i, 'k', x'00' FROM n");
    write(store, "key", Value("kept"));
    database.execute("DELETE FROM stored_values WHERE domain LIKE 'secret%'");
    database.execute("DROP TABLE gone");
  }

  const TemporaryFolder _folder{TemporaryFolder::memory()};
};

TEST_F(UnusedSpaceTest, HoldsNothingOfWhatIsGoneAndAnOpenStoreGoesOn) {
  const auto store = openIn(_folder.path()), other = openIn(_folder.path());
  valueIn(*other, "others");
  writeAndRemove(*store);
  const auto stored = valueIn(*store, "others");
  executeIn(_folder.path(), "PRAGMA wal_checkpoint(TRUNCATE)");
  const auto size = fs::file_size(_folder / SQLiteStoreFile);
  ASSERT_TRUE(hasSecrets());

  EXPECT_EQ(store->eraseUnusedSpace(), std::nullopt);
  EXPECT_FALSE(hasSecrets());
  EXPECT_GE(fs::file_size(_folder / SQLiteStoreFile), size) << "a shorter file would count as one that was cut";
  EXPECT_EQ(contentOf((_folder / SQLiteStoreFile).string() + "-wal"), "");
  for (const auto& each : {store, other, openIn(_folder.path())}) {
    EXPECT_EQ(valueIn(*each, "others"), stored);
    EXPECT_EQ(valueIn(*each, "key"), Value("kept"));
    EXPECT_THAT(each->takeRemarks(), IsEmpty());
  }
}

TEST_F(UnusedSpaceTest, TheLogIsKeptForAReaderOfAnEarlierStateAndSaidToBe) {
  const auto store =
      openIn(_folder.path(), nullptr, SQLitePreferences::Access::readWrite, std::chrono::milliseconds(1));
  writeAndRemove(*store);
  const SQLiteDatabase reader(_folder / SQLiteStoreFile, SQLiteDatabase::Access::readOnly, 5);
  reader.execute("BEGIN");
  ASSERT_GT(reader.integer("SELECT count(*) FROM stored_values"), 0);
  const auto kept = store->eraseUnusedSpace();
  ASSERT_TRUE(kept);
  EXPECT_EQ(kept->where, "the log of the store");
  reader.execute("COMMIT");
  EXPECT_EQ(store->eraseUnusedSpace(), std::nullopt);
  EXPECT_FALSE(hasSecrets());
}

}  // namespace
}  // namespace pellor
