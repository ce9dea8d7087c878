// What every store must do, done by SQLite; and what it does on a disk that fails.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "pellor/testing/contract/PreferencesProcessesContract.h"
#include "pellor/testing/contract/PreferencesReadOnlyContract.h"
#include "pellor/testing/contract/PreferencesStoreContract.h"
#include "pellor/testing/contract/PreferencesUntoldContract.h"
#include "pellor/testing/contract/PreferencesVersionsContract.h"
#include "tests/linux/FaultyDisk.h"
#include "tests/linux/SQLiteStores.h"

namespace pellor {
namespace {

using Outcome = PreferenceWriteOutcome;

/// Where a commit ends in the middle.
class SQLiteStoresOnAFaultyDisk : public SQLiteStores {
 public:
  // As long as another connection is open the log is not read anew, and what was not forced to the disk is passed over.
  static std::vector<UntoldWrite> untoldWrites() { return {UntoldWrite::lost}; }
  void leaveUntold(UntoldWrite) { disk.fail(FaultyDisk::Fault::unsure, 1); }
  void deliver() {}

  FaultyDisk disk;
};

INSTANTIATE_TYPED_TEST_SUITE_P(SQLite, PreferencesStoreContract, SQLiteStores);
INSTANTIATE_TYPED_TEST_SUITE_P(SQLite, PreferencesReadOnlyContract, SQLiteStores);
INSTANTIATE_TYPED_TEST_SUITE_P(SQLite, PreferencesVersionsContract, SQLiteStores);
INSTANTIATE_TYPED_TEST_SUITE_P(SQLite, PreferencesProcessesContract, SQLiteStores);
INSTANTIATE_TYPED_TEST_SUITE_P(SQLite, PreferencesUntoldContract, SQLiteStoresOnAFaultyDisk);

class SQLiteFaultsTest : public testing::Test {
 protected:
  static constexpr int Always = 1'000'000;
  VersionedWriter open() { return VersionedWriter(_stores.open(), ++_writers); }

  SQLiteStoresOnAFaultyDisk _stores;

 private:
  std::uint64_t _writers = 70;
};

TEST_F(SQLiteFaultsTest, AFullDiskFailsTheCommitAndNothingOfItIsStoredOrTriedAgain) {
  auto writer = open(), other = open();
  const auto list = writer.store("list", setTo(persons(70)));
  const auto title = writer.store("title", setTo("old"));
  const PreferenceChanges changes = {{"list", setTo(persons(71), list.version)},
                                     {"title", setTo("new", title.version)}};
  // The first write to the log, and the last one of several.
  for (const int roomFor : {0, 2}) {
    SCOPED_TRACE(roomFor);
    _stores.disk.fail(FaultyDisk::Fault::full, Always, roomFor);
    EXPECT_EQ(writer.write(changes).outcome, Outcome::failed);
    writer.store().setValue("title", "dropped", ContractDomain);
    EXPECT_FALSE(writer.store().synchronize(ContractDomain));
    for (const auto& each : {writer, other}) {
      EXPECT_TRUE(isSame(each.read("list"), list));
      EXPECT_TRUE(isSame(each.read("title"), title));
    }
    _stores.disk.fail(FaultyDisk::Fault::none, 0);
    EXPECT_TRUE(writer.store().synchronize(ContractDomain));
    EXPECT_TRUE(isSame(open().read("title"), title));
  }
  EXPECT_EQ(writer.write(changes).outcome, Outcome::written);
  EXPECT_EQ(other.read("list").value, Value(persons(71)));
}

// Also what is in the log alone, as after a crash; and nothing has to be opened anew by hand when there is room again.
TEST_F(SQLiteFaultsTest, AFullDiskStillShowsTheListWithTheLastWrite) {
  const TemporaryFolder folder, crashed;
  auto store = openIn(folder.path());
  VersionedWriter(store, 1).store("list", setTo(persons(70)));
  store = openIn(folder.path());
  VersionedWriter(store, 2).store("title", setTo("last"));
  for (const char* suffix : {"", "-wal"}) {
    std::filesystem::copy_file((folder / SQLiteStoreFile).string() + suffix,
                               (crashed / SQLiteStoreFile).string() + suffix);
  }
  ASSERT_GT(std::filesystem::file_size((crashed / SQLiteStoreFile).string() + "-wal"), 0U);
  store.reset();

  for (const auto* each : {&folder, &crashed}) {
    SCOPED_TRACE(each == &crashed ? "crashed" : "ended");
    _stores.disk.fail(FaultyDisk::Fault::indexes, Always);
    const auto shown = openIn(each->path());
    VersionedWriter writer(shown, 3);
    EXPECT_EQ(writer.read("list").value, Value(persons(70)));
    EXPECT_EQ(writer.read("title").value, Value("last"));
    EXPECT_FALSE(shown->isWritable());
    EXPECT_NE(shown->lastError().find("full"), std::string::npos) << shown->lastError();
    EXPECT_EQ(writer.write({{"title", setTo("new")}}).outcome, Outcome::failed);
    _stores.disk.fail(FaultyDisk::Fault::none, 0);
    EXPECT_EQ(writer.write({{"title", setTo("new")}}).outcome, Outcome::written);
    EXPECT_EQ(VersionedWriter(openIn(each->path()), 4).read("title").value, Value("new"));
  }
}

// Without another connection the log is read anew, and a commit counts that is whole in it.
TEST_F(SQLiteFaultsTest, AnUnsureCommitMayBeStoredAndIsKnownByItsName) {
  const TemporaryFolder folder;
  const auto store = openIn(folder.path());
  VersionedWriter writer(store, 1);
  const auto list = writer.store("list", setTo(persons(70)));
  writer.store("title", setTo("old"));
  ASSERT_TRUE(writer.store().synchronize(ContractDomain));
  _stores.disk.fail(FaultyDisk::Fault::unsure, Always);
  const auto answer = writer.write({{"list", setTo(persons(71), list.version)}, {"title", setTo("new")}});
  EXPECT_EQ(answer.outcome, Outcome::unknown);
  EXPECT_TRUE(answer.written.empty());
  EXPECT_EQ(store->writeCounts().written, 2U);
  EXPECT_EQ(store->writeCounts().unknown, 1U) << "nobody may say that nothing was saved";
  EXPECT_EQ(writer.store().copyValue("title", ContractDomain).value(), Value("old")) << "until it is known";

  _stores.disk.fail(FaultyDisk::Fault::none, 0);
  EXPECT_EQ(writer.read("list").version.write, writer.id());
  EXPECT_EQ(writer.read("list").value, Value(persons(71)));
  EXPECT_EQ(writer.read("title").value, Value("new")) << "whole";
  EXPECT_EQ(writer.write({{"list", setTo(persons(72), list.version)}}).outcome, Outcome::overtaken);
}

// Where it were, the store would be put aside for it.
TEST_F(SQLiteFaultsTest, APageThatCannotBeReadIsNoDamage) {
  const TemporaryFolder folder;
  VersionedWriter(openIn(folder.path()), 1).store("title", setTo("old"));
  const SQLiteDatabase database(folder / SQLiteStoreFile, SQLiteDatabase::Access::readWrite, 1);
  SQLiteStatement query = database.prepare("SELECT name FROM sqlite_schema");
  database.releaseMemory();
  _stores.disk.fail(FaultyDisk::Fault::bad, 1);
  try {
    query.run();
    ADD_FAILURE() << "nothing was read";
  } catch (const SQLiteError& error) {
    EXPECT_EQ(error.code(), SQLITE_IOERR) << error.what();
  }
  query.reset();
  EXPECT_TRUE(query.step());
}

TEST_F(SQLiteFaultsTest, ACopyIsAnotherStore) {
  const TemporaryFolder folder, elsewhere;
  VersionedWriter writer(openIn(folder.path()), 1);
  const auto stored = writer.store("key", setTo(1));
  executeIn(folder.path(), "VACUUM INTO '" + (elsewhere / SQLiteStoreFile).string() + "'");
  for (std::optional<PreferenceVersion> known; int opened : {1, 2}) {
    const auto copy = VersionedWriter(openIn(elsewhere.path()), 2).read("key");
    EXPECT_EQ(copy.value, Value(1));
    EXPECT_NE(copy.version.store, stored.version.store);
    EXPECT_EQ(copy.version, known.value_or(copy.version)) << opened;
    known = copy.version;
  }
  EXPECT_TRUE(isSame(VersionedWriter(openIn(folder.path()), 3).read("key"), stored)) << "the original";
}

}  // namespace
}  // namespace pellor
