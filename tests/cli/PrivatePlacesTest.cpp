// What the program does where other users, or links, have got at its files.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/cli/Story.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;

using Command = std::vector<std::string>;

const Command Edit = {"title", "1", "Family", "--verbose"};

/// Runs a command in a shell that does something first.
ProgramResult pellorAfter(const Home& home, const std::string& preparation, const Command& arguments) {
  Command command = {"sh", "-c", preparation + "; exec \"$0\" \"$@\""};
  for (const std::string& word : pellorCommand(arguments)) command.push_back(word);
  return Program(home, command).finish();
}

void give(const fs::path& path, uid_t owner) {
  if (::lchown(path.c_str(), owner, static_cast<gid_t>(-1)) != 0) ADD_FAILURE() << path << " cannot be given away";
}

/// A home folder in which the program has made its files.
class UsedHome : public HomeWithAnn {
 public:
  UsedHome() { EXPECT_EQ(pellor(*this, {"title", "1", "Friends"}).exitCode, 0); }

  /// The private folders, and what lies in them. The contacts are the user's own.
  std::vector<fs::path> privatePaths() const {
    std::vector<fs::path> paths;
    for (const fs::path& place : {dataFolder(), *this / "run/pellor"}) {
      paths.push_back(place);
      for (fs::recursive_directory_iterator entry(place), end; entry != end; ++entry) {
        if (entry->path() == contactsFolder()) entry.disable_recursion_pending();
        if (entry->path() != contactsFolder()) paths.push_back(entry->path());
      }
    }
    return paths;
  }
};

void expectClosed(const std::vector<fs::path>& paths) {
  EXPECT_GE(paths.size(), 8u);
  for (const fs::path& path : paths) EXPECT_EQ(modeOf(path), fs::is_directory(path) ? 0700u : 0600u) << path;
}

TEST(PrivatePlaces, ALinkInThePlaceOfAFileIsNamedAndNotFollowed) {
  const struct {
    const char* path;  ///< below the home folder
    int exitCode;
  } cases[] = {
      {"data/pellor/preferences.sqlite", 1},     {"data/pellor/preferences.sqlite-wal", 1},
      {"data/pellor/preferences.sqlite-shm", 1}, {"data/pellor/contacts-index.sqlite", 0},
      {"data/pellor/canonical-forms-DE", 0},     {"data/pellor/counters.prom", 0},
      {"data/pellor/copies/newest.copy", 0},     {"run/pellor/notify/PLFriendsChangedExternallyNotification", 0},
  };
  for (const auto& each : cases) {
    for (const bool isOurs : {true, false}) {
      SCOPED_TRACE(std::string(each.path) + (isOurs ? ", to a file of the user" : ", to nothing"));
      const UsedHome home;
      const fs::path link = home / each.path, target = home / "target";
      if (!isOurs) fs::remove(link);
      if (isOurs && fs::exists(link)) fs::rename(link, target);
      if (isOurs && !fs::exists(target)) writeFile(target, "kept");
      if (isOurs) fs::permissions(target, fs::perms{0644});
      const std::string content = isOurs ? contentOf(target) : "";
      fs::create_symlink(target, link);
      // A number that nobody knows yet, so that all files have to be written.
      const ProgramResult result = pellor(home, {"add", "030 1112233", "--verbose"});
      EXPECT_EQ(result.exitCode, each.exitCode) << result.errors;
      EXPECT_THAT(result.errors, AllOf(HasSubstr(link.string() + " is a link"), HasSubstr("remove it")));
      EXPECT_TRUE(fs::is_symlink(link));
      EXPECT_EQ(fs::exists(target), isOurs) << "nothing is made through it";
      EXPECT_EQ(contentOf(target), content);
      EXPECT_EQ(modeOf(target), isOurs ? 0644u : 0u);
    }
  }
}

TEST(PrivatePlaces, ALinkInThePlaceOfAFolderBelowIsNotFollowed) {
  for (const char* path : {"data/pellor/copies", "run/pellor/notify"}) {
    SCOPED_TRACE(path);
    const UsedHome home;
    fs::remove_all(home / path);
    fs::create_directory(home / "elsewhere");
    fs::create_directory_symlink(home / "elsewhere", home / path);
    const ProgramResult result = pellor(home, Edit);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.errors, HasSubstr((home / path).string() + " is a link"));
    EXPECT_TRUE(fs::is_empty(home / "elsewhere"));
  }
}

TEST(PrivatePlaces, LinksOnTheWayAndThoseOfTheUsersOwnFilesAreFollowed) {
  const UsedHome home;
  const std::string list = pellor(home, {"list"}).output;
  fs::create_directories(home / "disk");
  for (const char* name : {"data", "run", "config"}) {
    fs::rename(home / name, home / ("disk/real-" + std::string(name)));
    fs::create_directory_symlink(home / ("disk/real-" + std::string(name)), home / name);
  }
  fs::rename(home.dataFolder(), home / "disk/pellor");
  fs::create_directory_symlink(home / "disk/pellor", home.dataFolder());
  fs::rename(home.contactsFolder(), home / "disk/contacts");
  fs::create_directory_symlink(home / "disk/contacts", home.contactsFolder());
  fs::rename(home.contactsFolder() / "ann.vcf", home / "disk/ann.vcf");
  fs::create_symlink(home / "disk/ann.vcf", home.contactsFolder() / "ann.vcf");
  writeFile(home / "disk/config.toml", "[ldap]\nbase = \"nobody\"\n");
  fs::create_directories(home / "config/pellor");
  fs::create_symlink(home / "disk/config.toml", home / "config/pellor/config.toml");

  EXPECT_EQ(pellor(home, {"list"}).output, list);
  EXPECT_EQ(pellor(home, {"add", "030 1112233"}).exitCode, 0);
  const ProgramResult refresh = pellor(home, {"refresh", "--verbose"});
  EXPECT_EQ(refresh.exitCode, 0);
  EXPECT_THAT(refresh.errors, testing::Not(HasSubstr("is a link")));
  EXPECT_THAT(pellor(home, {"contacts"}).output, HasSubstr("Ann Lee"));
  EXPECT_THAT(pellor(home, {"doctor", "--keys"}).output, HasSubstr("nobody"));
  EXPECT_THAT(pellor(home, {"doctor"}).output, HasSubstr("the newest copy"));
}

TEST(PrivatePlaces, WhatIsMadeIsClosedToOthersWhateverTheMask) {
  for (const char* mask : {"0000", "0777"}) {
    SCOPED_TRACE(mask);
    const Home empty;
    fs::remove_all(empty.dataFolder());
    const std::string preparation = std::string("umask ") + mask;
    EXPECT_EQ(pellorAfter(empty, preparation, {"add", "030 1234567"}).exitCode, 0);
    EXPECT_EQ(pellorAfter(empty, preparation, {"title", "1", "Family"}).exitCode, 0);
    std::vector<fs::path> paths;
    for (const char* place : {"data/pellor", "run/pellor"}) {
      paths.push_back(empty / place);
      for (const auto& entry : fs::recursive_directory_iterator(empty / place)) paths.push_back(entry.path());
    }
    expectClosed(paths);
  }
}

TEST(PrivatePlaces, WhatWasOpenToOthersIsClosedAndSaidOnce) {
  const UsedHome home;
  for (const fs::path& path : home.privatePaths())
    fs::permissions(path, fs::perms{fs::is_directory(path) ? 0777u : 0666u});
  fs::permissions(home.contactsFolder(), fs::perms{0755});
  EXPECT_THAT(pellor(home, {"add", "030 1112233", "--verbose"}).errors,
              HasSubstr(home.dataFolder().string() + " was open to other users"));
  EXPECT_THAT(pellor(home, Edit).errors, testing::Not(HasSubstr("was open")));
  std::vector<fs::path> used;
  for (const fs::path& path : home.privatePaths()) {
    // Copies of earlier hours are not opened; nobody else can enter their folder.
    if (path.parent_path().filename() != "copies" || path.filename() == "newest.copy") used.push_back(path);
  }
  expectClosed(used);
  EXPECT_EQ(modeOf(home.contactsFolder()), 0755u) << "the user's to arrange";
}

// Another user's file is one that was given away, which takes an administrator. Everybody else has the folder of the
// system here, and PrivatePlaceTest for files.
TEST(PrivatePlaces, WhatBelongsToAnotherUserIsRefused) {
  constexpr uid_t stranger = 65534;
  const UsedHome home;
  if (::geteuid() != 0) {
    const ProgramResult result = pellor(home, {"list", "--data", "/usr"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errors, HasSubstr("/usr belongs to another user"));
    return;
  }
  for (const char* path : {"data/pellor", "data/pellor/preferences.sqlite", "data/pellor/preferences.sqlite-wal"}) {
    SCOPED_TRACE(path);
    if (!fs::exists(home / path)) writeFile(home / path, "");
    give(home / path, stranger);
    const unsigned mode = modeOf(home / path);
    for (const Command& command : {Command{"list"}, Command{"title", "1", "Others"}}) {
      const ProgramResult result = pellor(home, command);
      EXPECT_EQ(result.exitCode, 1);
      EXPECT_THAT(result.errors, AllOf(HasSubstr((home / path).string() + " belongs to another user"),
                                       HasSubstr("run this as that user")));
    }
    EXPECT_EQ(modeOf(home / path), mode);
    give(home / path, 0);
  }
  EXPECT_THAT(pellor(home, {"list"}).output, HasSubstr("Friends"));
  give(home.dataFolder() / "counters.prom", stranger);
  EXPECT_THAT(pellor(home, Edit).errors, HasSubstr("counters.prom belongs to another user"));
}

TEST(PrivatePlaces, AFolderThatAllUsersShareIsLeftAlone) {
  const Home home;
  const fs::path shared = home / "shared";
  fs::create_directory(shared);
  fs::permissions(shared, fs::perms{01777});
  const ProgramResult result = pellor(home, {"add", "030 1234567", "--data", shared.string()});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.errors, HasSubstr("is shared by all users"));
  EXPECT_EQ(modeOf(shared), 01777u);
}

}  // namespace
}  // namespace pellor
