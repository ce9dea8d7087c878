// What the program does where something else stands in the place of one of its files.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/cli/Story.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;

struct Case {
  const char* file;  ///< below the home folder
  std::vector<std::string> command;
  int exitCode;
  const char* said;  ///< a part of the answer, or of the error where there is none, for things of all kinds
};

const Case cases[] = {
    {"data/pellor/preferences.sqlite", {"list"}, 1, "preferences.sqlite is "},
    {"data/pellor/preferences.sqlite-wal", {"add", "0301112233"}, 1, "preferences.sqlite-wal is "},
    {"data/pellor/contacts-index.sqlite", {"contacts"}, 0, "Ann Lee"},
    {"data/pellor/canonical-forms-DE", {"list"}, 0, "Ann Lee"},
    {"data/pellor/contacts/bob.vcf", {"contacts"}, 0, "Ann Lee"},
    {"data/pellor/contacts/favorites", {"favorites", "add", "ann"}, 1, "favorites file"},
    {"data/pellor/counters.prom", {"title", "1", "Family"}, 0, "Family"},
    {"config/pellor/config.toml", {"list"}, 2, "config.toml is no regular file"},
    {"config/pellor/defaults.json", {"list"}, 0, "Ann Lee"},
    {"run/pellor/notify/PLFriendsChangedExternallyNotification", {"title", "1", "Friends"}, 0, "Friends"},
};

enum class Thing { pipe, device, folder };

/// Something in the place of a file, which comes back at the end.
class InTheWay {
 public:
  InTheWay(Thing thing, fs::path place) : _place(std::move(place)), _kept(_place.string() + ".kept") {
    fs::create_directories(_place.parent_path());
    if (fs::exists(_place)) fs::rename(_place, _kept);
    // The device is one that can be read for ever. Only an administrator could put the device itself there.
    if (thing == Thing::device) fs::create_symlink("/dev/zero", _place);
    if (thing == Thing::folder) fs::create_directory(_place);
    if (thing == Thing::pipe && ::mkfifo(_place.c_str(), 0600) != 0) ADD_FAILURE() << "no pipe";
  }
  ~InTheWay() {
    fs::remove_all(_place);
    if (fs::exists(_kept)) fs::rename(_kept, _place);
  }
  InTheWay(const InTheWay&) = delete;
  InTheWay& operator=(const InTheWay&) = delete;

 private:
  const fs::path _place;
  const fs::path _kept;
};

TEST(FilesInTheWay, APipeADeviceOrAFolderInThePlaceOfAFileHoldsNothingUp) {
  const HomeWithAnn home;
  for (const Case& each : cases) {
    for (const Thing thing : {Thing::pipe, Thing::device, Thing::folder}) {
      SCOPED_TRACE(std::string(each.file) + " " + std::to_string(static_cast<int>(thing)));
      const InTheWay inTheWay(thing, home / each.file);
      const ProgramResult result = pellor(home, each.command);
      EXPECT_EQ(result.exitCode, each.exitCode) << result.errors;
      EXPECT_THAT(each.exitCode == 0 ? result.output : result.errors, HasSubstr(each.said));
      EXPECT_THAT(each.exitCode == 0 ? result.errors : result.output, IsEmpty());
    }
  }
}

// Each ends soon with what it was asked for, or with a line that says why not.
TEST(FewOpenFiles, EveryCommandEnds) {
  const HomeWithAnn home;
  for (int limit = 5; limit <= 10; ++limit) {
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"list"},
                                                      {"contacts"},
                                                      {"refresh"},
                                                      {"title", "1", "Page " + std::to_string(limit)}}) {
      SCOPED_TRACE(arguments.front() + " with " + std::to_string(limit));
      std::vector<std::string> command = {"sh", "-c", "ulimit -n " + std::to_string(limit) + "; exec \"$0\" \"$@\""};
      for (const std::string& word : pellorCommand(arguments)) command.push_back(word);
      const ProgramResult result = Program(home, command).finish();
      EXPECT_THAT(result.exitCode, testing::AnyOf(0, 1));
      EXPECT_EQ(result.errors.empty(), result.exitCode == 0) << result.errors;
      EXPECT_THAT(result.errors, testing::Not(HasSubstr("read-only")));
    }
  }
}

}  // namespace
}  // namespace pellor
