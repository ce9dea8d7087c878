#include "pellor/linux/files/internal/PrivatePlace.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <functional>
#include <string>

#include "pellor/linux/files/internal/AsideFolder.h"
#include "pellor/linux/files/internal/FileLock.h"
#include "pellor/linux/sqlite/SQLiteDatabase.h"
#include "tests/linux/TemporaryFolder.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr std::array<std::uint8_t, 3> Bytes = {1, 2, 3};

std::string textOf(const std::optional<std::string>& problem) { return problem.value_or(""); }

std::string problemOfLock(const fs::path& file) {
  LockPatience patience(std::chrono::milliseconds(0));
  return FileLock::take(file, patience) ? "" : lockError(file);
}

std::string problemOfDatabase(const fs::path& file) {
  try {
    const SQLiteDatabase database(file, SQLiteDatabase::Access::readWrite, 0);
    database.execute("CREATE TABLE made (value)");
    return "";
  } catch (const SQLiteError& error) {
    return error.what();
  }
}

/// Each way to use a file, with what it says when it does not.
const struct {
  const char* name;
  std::function<std::string(const fs::path&)> problem;
} Uses[] = {
    {"read", [](const fs::path& file) { return PrivateFile(file).read().problem; }},
    {"write", [](const fs::path& file) { return PrivateFile(file).open(O_RDWR | O_CREAT).problem; }},
    {"replace", [](const fs::path& file) { return textOf(PrivateFile(file).replace("new")); }},
    {"problem", [](const fs::path& file) { return textOf(PrivateFile(file).problem()); }},
    {"lock", problemOfLock},
    {"database", problemOfDatabase},
};

TEST(PrivatePlaceTest, NoUseFollowsALinkToAFileOrThroughAFolder) {
  for (const auto& use : Uses) {
    SCOPED_TRACE(use.name);
    const TemporaryFolder folder;
    const fs::path target = folder / "elsewhere/target";
    fs::create_directory(folder / "elsewhere");
    fs::create_directory(folder / "place");
    writeFile(target, "kept");
    fs::permissions(target, fs::perms{0644});
    fs::create_symlink(target, folder / "place/link");
    fs::create_symlink(folder / "elsewhere/missing", folder / "place/dangling");
    fs::create_directory_symlink(folder / "elsewhere", folder / "place/sub");
    EXPECT_THAT(use.problem(folder / "place/link"), HasSubstr("place/link is a link"));
    EXPECT_THAT(use.problem(folder / "place/dangling"), HasSubstr("place/dangling is a link"));
    EXPECT_THAT(use.problem(folder / "place/sub/target"), HasSubstr("place/sub is a link"));
    EXPECT_EQ(contentOf(target), "kept");
    EXPECT_EQ(modeOf(target), 0644u);
    EXPECT_FALSE(fs::exists(folder / "elsewhere/missing"));
    EXPECT_TRUE(fs::is_symlink(folder / "place/link"));
  }
}

TEST(PrivatePlaceTest, NothingIsMadeRemovedOrPutAsideThroughALink) {
  const TemporaryFolder folder;
  fs::create_directory(folder / "elsewhere");
  writeFile(folder / "elsewhere/file", "kept");
  fs::create_directory_symlink(folder / "elsewhere", folder / "sub");
  fs::create_symlink(folder / "elsewhere/file", folder / "link");
  EXPECT_EQ(PrivateFile(folder / "link").create(Bytes), FileCreation::exists);
  EXPECT_EQ(PrivateFile(folder / "sub/new").create(Bytes), FileCreation::failed);
  EXPECT_TRUE(PrivateFile(folder / "sub/file").remove());
  EXPECT_TRUE(PrivateFolder(folder / "sub/deeper").make());
  EXPECT_FALSE(keepAside(folder / "sub", "key", "domain", {1, 2}));
  EXPECT_FALSE(PrivateFile(folder / "link").remove()) << "the link itself goes";
  EXPECT_EQ(contentOf(folder / "elsewhere/file"), "kept");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder / "elsewhere"), {}), 1);
  EXPECT_EQ(PrivateFile(placeBehindLinks(folder / "sub") / "new").create(Bytes), FileCreation::created);
}

TEST(PrivatePlaceTest, OnlyTheUsersOwnIsUsedAndItIsClosedToOthers) {
  // For files that a test cannot give to somebody else.
  EXPECT_FALSE(problemOfOwner("/place/file", 1000, 1000));
  EXPECT_THAT(textOf(problemOfOwner("/place/file", 1000, 0)), HasSubstr("/place/file belongs to another user"));
  EXPECT_THAT(textOf(problemOfOwner("/place/file", 0, 1000)), HasSubstr("run this as that user"));

  const TemporaryFolder folder;
  const fs::path place = folder / "place", file = place / "file";
  fs::create_directory(place);
  writeFile(file, "kept");
  for (const auto& use : Uses) {
    if (std::string(use.name) == "database") continue;
    fs::permissions(place, fs::perms{0750});
    fs::permissions(file, fs::perms{0664});
    EXPECT_EQ(use.problem(file), "") << use.name;
    EXPECT_EQ(modeOf(place), 0700u) << use.name;
    EXPECT_EQ(modeOf(file), 0600u) << use.name;
  }
  fs::permissions(file, fs::perms{0444});
  EXPECT_TRUE(PrivateFile(file).open(O_RDONLY).wasOpenToOthers);
  EXPECT_EQ(modeOf(file), 0400u) << "what its owner may not do stays";
  EXPECT_FALSE(PrivateFile(file).open(O_RDONLY).wasOpenToOthers);
}

}  // namespace
}  // namespace pellor
