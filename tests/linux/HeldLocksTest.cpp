// Locks that a stopped program holds, and what the adapters do then.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>

#include <filesystem>
#include <functional>
#include <string>

#include "pellor/linux/notify/NotifyFolder.h"
#include "pellor/testing/contract/ChildProcess.h"
#include "tests/linux/ContactsFixture.h"
#include "tests/linux/SQLiteStores.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using testing::AllOf;
using testing::HasSubstr;

constexpr milliseconds NoPatience{0};

/// A program that holds a lock and is stopped.
class StoppedHolder {
 public:
  static StoppedHolder ofFile(const fs::path& place) {
    return StoppedHolder([place] { return ::flock(::open(place.c_str(), O_RDONLY), LOCK_EX) == 0; });
  }
  static StoppedHolder ofWriting(const fs::path& database) {
    return StoppedHolder([database] {
      static const SQLiteDatabase opened(database, SQLiteDatabase::Access::readWrite, 1);
      opened.execute("BEGIN IMMEDIATE");
      return true;
    });
  }

  /// Writes, while the index of the log has to be made anew.
  static StoppedHolder ofIndexOfLog(const fs::path& database) {
    return StoppedHolder([database] {
      const auto lock = [](int file, short kind, off_t start, off_t length) {
        struct flock range {};
        range.l_type = kind, range.l_whence = SEEK_SET, range.l_start = start, range.l_len = length;
        return ::fcntl(file, F_SETLK, &range) == 0;
      };
      const int file = ::open(database.c_str(), O_RDWR);
      const int index = ::open((database.string() + "-shm").c_str(), O_RDWR | O_CREAT, 0600);
      const std::string nothing(32 * 1024, '\0');
      // Where SQLite has these locks: of who reads the file, who has the index open, and who writes.
      return ::pwrite(index, nothing.data(), nothing.size(), 0) > 0 && lock(file, F_RDLCK, 0x40000002, 510) &&
             lock(index, F_RDLCK, 128, 1) && lock(index, F_WRLCK, 120, 1);
    });
  }

  std::string named() const { return "(process " + std::to_string(_id) + ")"; }

 private:
  explicit StoppedHolder(const std::function<bool()>& lock)
      : _child([&](const ChildProcess::Report& report) {
          report.send(lock() ? ::getpid() : 0);
          ::raise(SIGSTOP);
          return 0;
        }),
        _id(_child.receive().value_or(0)) {
    EXPECT_GT(_id, 0);
    // Returns when the child has stopped.
    ::waitpid(static_cast<pid_t>(_id), nullptr, WUNTRACED);
  }

  ChildProcess _child;
  const std::int64_t _id;
};

auto tellsOf(const StoppedHolder& holder) {
  return AllOf(HasSubstr("is locked by"), HasSubstr(holder.named()), HasSubstr("stopped"), HasSubstr("kill -CONT"));
}

TEST(HeldStore, NamesTheHolderAndIsReadWhereOnlyWritingIsLocked) {
  const TemporaryFolder folder;
  const PreferenceChanges changes{{"key", {PreferenceChange::Kind::set, Value("stored"), std::nullopt}}};
  const auto write = [&](SQLitePreferences& store) { return store.write(changes, {1, 1}, "domain").outcome; };
  ASSERT_EQ(write(*openIn(folder.path())), PreferenceWriteOutcome::written);
  const auto open = [&] { return openIn(folder.path(), nullptr, SQLitePreferences::Access::readWrite, NoPatience); };
  {
    const StoppedHolder holder = StoppedHolder::ofFile(folder.path());
    const auto store = open();
    EXPECT_FALSE(store->copyValue("key", "domain").isReadable());
    EXPECT_THAT(store->lastError(), tellsOf(holder));
  }
  const StoppedHolder holder = StoppedHolder::ofWriting(folder / SQLiteStoreFile);
  const auto store = open();
  EXPECT_EQ(store->copyValue("key", "domain").value(), Value("stored"));
  EXPECT_EQ(write(*store), PreferenceWriteOutcome::failed);
  EXPECT_THAT(store->lastError(), tellsOf(holder));
}

TEST(HeldStore, IsNotWaitedForBySQLiteItself) {
  const TemporaryFolder folder;
  {
    const auto store = openIn(folder.path());
    store->setValue("key", "stored", "domain");
    ASSERT_TRUE(store->synchronize("domain"));
  }
  const StoppedHolder holder = StoppedHolder::ofIndexOfLog(folder / SQLiteStoreFile);
  const auto store = openIn(folder.path(), nullptr, SQLitePreferences::Access::readWrite, NoPatience);
  EXPECT_FALSE(store->copyValue("key", "domain").isReadable());
  EXPECT_THAT(store->lastError(), tellsOf(holder));
  // After that wait none of them takes its 10 seconds.
  for (int attempt = 0; attempt < 50; ++attempt) EXPECT_FALSE(store->synchronize("domain"));
}

TEST(HeldIndex, ContactsAreUnreadableUntilTheLockIsFree) {
  ContactsFixture fixture;
  fixture.put("ann.vcf", ContactsFixture::card("ann", "Ann"));
  fixture.openIndex();
  fixture.put("bob.vcf", ContactsFixture::card("bob", "Bob"));
  ContactIndexOptions options = fixture.options();
  options.lockLimit = NoPatience;
  ContactIndex index(options, fixture.source(), fixture.handle());
  {
    const StoppedHolder holder = StoppedHolder::ofFile(fixture.data);
    EXPECT_FALSE(index.update(FolderChange::all()));
    EXPECT_FALSE(index.isReadable());
    EXPECT_THAT(index.failure().value_or(""), tellsOf(holder));
  }
  {
    const StoppedHolder holder = StoppedHolder::ofWriting(fixture.data / "contacts-index.sqlite");
    EXPECT_FALSE(index.update(FolderChange::all()));
    EXPECT_THAT(index.failure().value_or(""), tellsOf(holder));
    EXPECT_EQ(index.allRecordIDs().size(), 1U) << "what was known can be read";
  }
  EXPECT_TRUE(index.update(FolderChange::all()));
  EXPECT_EQ(index.allRecordIDs().size(), 2U);
}

TEST(HeldCounter, APostIsKeptAndTheHolderNamedOnTheLog) {
  const TemporaryFolder folder;
  const auto log = std::make_shared<LogCollector>();
  fs::create_directory(folder / "notify");
  writeFile(folder / "notify/name", "");
  const StoppedHolder holder = StoppedHolder::ofFile(folder / "notify/name");
  Process process;
  const auto bus = NotifyFolder::make(process, folder / "notify", LogHandle("test", "bus", log),
                                      NotifyFolder::Hearing::whenSettling, NoPatience);
  bus->post("name");
  ASSERT_EQ(log->messages().size(), 1U);
  EXPECT_THAT(log->messages().front(), tellsOf(holder));
}

}  // namespace
}  // namespace pellor
