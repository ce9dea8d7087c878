#include "linux/FolderWatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

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

  /// Waits until the watch has told of all that, and gives everything that it told since the last call.
  FolderChange toldOf(const FolderChange& expected) {
    std::unique_lock lock(_mutex);
    EXPECT_TRUE(_arrived.wait_for(lock, std::chrono::seconds(30), [&] {
      return (_change.everything || !expected.everything) && std::ranges::includes(_change.names, expected.names);
    }));
    return std::exchange(_change, {});
  }

  TemporaryFolder folder;
  std::filesystem::path watched = folder / "a" / "b" / "contacts";

 private:
  std::mutex _mutex;
  std::condition_variable _arrived;
  FolderChange _change;
  std::unique_ptr<FolderWatch> _watch;
};

TEST_F(FolderWatchTest, WaitsForAFolderAndTellsOfFilesThatConcernItsOwner) {
  watch();
  std::filesystem::create_directory(folder / "unrelated");
  std::filesystem::create_directories(watched);
  writeFile(watched / "a.vcf", "x");
  toldOf(FolderChange::all());

  writeFile(watched / "other.txt", "x");
  writeFile(watched / "written.vcf", "x");
  writeFile(folder / "draft", "x");
  std::filesystem::rename(folder / "draft", watched / "moved.vcf");
  EXPECT_FALSE(toldOf({false, {"written.vcf", "moved.vcf"}}).names.contains("other.txt"));
  std::filesystem::remove(watched / "written.vcf");
  std::filesystem::rename(watched / "moved.vcf", folder / "gone");
  toldOf({false, {"written.vcf", "moved.vcf"}});

  // Each way to lose the folder, and its return.
  const std::function<void()> losses[] = {
      [&] { std::filesystem::remove_all(watched); },
      [&] { std::filesystem::rename(watched, folder / "elsewhere"); },
      [&] { std::filesystem::remove_all(folder / "a"); },
  };
  for (const auto& lose : losses) {
    lose();
    toldOf(FolderChange::all());
    std::filesystem::create_directories(watched);
    toldOf(FolderChange::all());
    writeFile(watched / "c.vcf", "x");
    toldOf({false, {"c.vcf"}});
  }
}

}  // namespace
}  // namespace pellor
