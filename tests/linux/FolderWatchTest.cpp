#include "linux/FolderWatch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "tests/linux/TemporaryFolder.h"

namespace pellor {
namespace {

class FolderWatchTest : public testing::Test {
 protected:
  void watch() {
    const auto concerns = [](std::string_view name) { return name.ends_with(".vcf"); };
    _watch = std::make_unique<FolderWatch>(watched, concerns, [this](const FolderChange& change, const std::string&) {
      const std::lock_guard lock(_mutex);
      _change.merge(change);
      _arrived.notify_all();
    });
  }

  /// Waits until the watch has told of all that.
  bool tells(const FolderChange& expected) {
    std::unique_lock lock(_mutex);
    const bool arrived = _arrived.wait_for(lock, std::chrono::seconds(30), [&] {
      return (_change.everything || !expected.everything) &&
             std::includes(_change.names.begin(), _change.names.end(), expected.names.begin(), expected.names.end());
    });
    return arrived;
  }

  void forget() {
    const std::lock_guard lock(_mutex);
    _change = {};
  }
  FolderChange toldSoFar() {
    const std::lock_guard lock(_mutex);
    return _change;
  }

  TemporaryFolder folder;
  std::filesystem::path watched = folder / "a" / "b" / "contacts";

 private:
  std::mutex _mutex;
  std::condition_variable _arrived;
  FolderChange _change;
  std::unique_ptr<FolderWatch> _watch;
};

TEST_F(FolderWatchTest, TellsOfFilesThatConcernItsOwner) {
  std::filesystem::create_directories(watched);
  watch();
  writeFile(watched / "other.txt", "x");
  writeFile(watched / "written.vcf", "x");
  writeFile(folder / "draft", "x");
  std::filesystem::rename(folder / "draft", watched / "moved.vcf");
  EXPECT_TRUE(tells({false, {"written.vcf", "moved.vcf"}}));
  EXPECT_EQ(toldSoFar().names.size(), 2U);
  EXPECT_FALSE(toldSoFar().everything);
  forget();
  std::filesystem::remove(watched / "written.vcf");
  std::filesystem::rename(watched / "moved.vcf", folder / "gone");
  EXPECT_TRUE(tells({false, {"written.vcf", "moved.vcf"}}));
}

TEST_F(FolderWatchTest, WaitsForAFolderThatIsNotThere) {
  watch();
  std::filesystem::create_directory(folder / "unrelated");
  std::filesystem::create_directories(watched);
  writeFile(watched / "a.vcf", "x");
  EXPECT_TRUE(tells(FolderChange::all()));
  forget();
  writeFile(watched / "b.vcf", "x");
  EXPECT_TRUE(tells({false, {"b.vcf"}}));

  // Each way to lose the folder, and its return.
  const std::function<void()> losses[] = {
      [&] { std::filesystem::remove_all(watched); },
      [&] { std::filesystem::rename(watched, folder / "elsewhere"); },
      [&] { std::filesystem::remove_all(folder / "a"); },
  };
  for (const auto& lose : losses) {
    forget();
    lose();
    EXPECT_TRUE(tells(FolderChange::all()));
    forget();
    std::filesystem::create_directories(watched);
    EXPECT_TRUE(tells(FolderChange::all()));
    forget();
    writeFile(watched / "c.vcf", "x");
    EXPECT_TRUE(tells({false, {"c.vcf"}}));
  }
}

}  // namespace
}  // namespace pellor
