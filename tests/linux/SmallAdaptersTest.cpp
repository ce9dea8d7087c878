// The adapters with little behaviour: digest, strings, counters, log, folders.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "linux/GettextStrings.h"
#include "linux/NettleDigest.h"
#include "linux/PrivateFiles.h"
#include "linux/PrometheusCounters.h"
#include "linux/StandardErrorLog.h"
#include "linux/UserFolders.h"
#include "testing/LogCollector.h"
#include "tests/linux/TemporaryFolder.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

Environment environmentOf(std::map<std::string, std::string> variables) {
  return [variables](const char* name) {
    const auto found = variables.find(name);
    return found == variables.end() ? std::nullopt : std::optional(found->second);
  };
}

std::string hexadecimal(const std::array<std::uint8_t, 20>& digest) {
  std::string text;
  for (const std::uint8_t byte : digest) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", byte);
    text += digits;
  }
  return text;
}

TEST(NettleDigestTest, GivesThePublishedDigests) {
  NettleDigest digest;
  EXPECT_EQ(hexadecimal(digest.sha1({})), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
  EXPECT_EQ(hexadecimal(digest.sha1(Data{'a', 'b', 'c'})), "a9993e364706816aba3e25717850c26c9cd0d89d");
}

// Strings

std::string numberedTitle(GettextStrings& strings) {
  return strings.bundleWithIdentifier("org.tapnote.Pellor")->localizedString("NUMBERED_FAVORITES_FORMAT_STRING", "");
}

TEST(GettextStringsTest, TheUsersLanguagesAreTriedInTheirOrder) {
  struct Case {
    std::map<std::string, std::string> variables;
    const char* title;
  };
  const Case cases[] = {
      {{{"LANG", "de_DE.UTF-8"}}, "Favoriten %u"},
      {{{"LANG", "de_AT@euro"}}, "Favoriten %u"},
      {{{"LANG", "de_DE"}, {"LC_MESSAGES", "fr_FR"}}, "Favoris %u"},
      {{{"LANG", "de_DE"}, {"LC_MESSAGES", "fr_FR"}, {"LC_ALL", "es"}}, "Favoritos %u"},
      {{{"LANG", "de_DE"}, {"LANGUAGE", "xx:es_MX:fr"}}, "Favoritos %u"},
      {{{"LANG", "de_DE"}, {"LANGUAGE", "en_GB:fr"}}, "Favorites %u"},
      {{{"LANG", "C"}, {"LANGUAGE", "de"}}, "Favorites %u"},
      {{{"LANG", "de_DE"}, {"LC_ALL", "C"}}, "Favorites %u"},
      {{{"LANG", "../../de"}}, "Favorites %u"},
      {{}, "Favorites %u"},
  };
  for (const Case& test : cases) {
    GettextStrings strings(GettextStrings::catalogFolders(), environmentOf(test.variables));
    EXPECT_EQ(numberedTitle(strings), test.title);
  }
  GettextStrings nowhere({"/nowhere"}, environmentOf({{"LANG", "de"}}));
  EXPECT_EQ(numberedTitle(nowhere), "Favorites %u");
}

TEST(GettextStringsTest, UnknownKeysGiveTheDefaultOrThemselves) {
  GettextStrings strings;
  EXPECT_EQ(strings.bundleWithIdentifier("org.tapnote.Other"), nullptr);
  const auto bundle = strings.bundleWithIdentifier("org.tapnote.Pellor");
  EXPECT_EQ(bundle->identifier(), "org.tapnote.Pellor");
  EXPECT_EQ(bundle->localizedString("UNKNOWN", "default"), "default");
  EXPECT_EQ(bundle->localizedString("UNKNOWN", ""), "UNKNOWN");
}

TEST(GettextStringsTest, EveryCatalogNumbersItsTitleOnce) {
  for (const char* language : {"de", "es", "fr", "ja"}) {
    GettextStrings strings(GettextStrings::catalogFolders(), environmentOf({{"LANG", language}}));
    const std::string title = numberedTitle(strings);
    EXPECT_NE(title, "Favorites %u") << language << " is missing";
    EXPECT_EQ(std::count(title.begin(), title.end(), '%'), 1) << title;
    EXPECT_NE(title.find("%u"), std::string::npos) << title;
  }
}

TEST(GettextStringsTest, DamagedCatalogsAreNoCatalogs) {
  const TemporaryFolder folder;
  std::string content;
  for (const fs::path& place : GettextStrings::catalogFolders()) {
    if (content.empty()) content = contentOf(place / "ja/LC_MESSAGES/pellor.mo");
  }
  ASSERT_FALSE(content.empty());
  writeFile(folder / "whole", content);
  const auto whole = readMessageCatalog(folder / "whole");
  ASSERT_TRUE(whole);
  for (std::size_t length = 0; length < content.size(); length += 3) {
    writeFile(folder / "cut", content.substr(0, length));
    const auto read = readMessageCatalog(folder / "cut");
    EXPECT_TRUE(!read || read == whole) << length;
  }
  // Nor do counts and offsets that lead anywhere lead outside.
  for (std::size_t length = 0; length < 64; ++length) {
    std::string overwritten = content;
    overwritten[length] = '\xFF';
    writeFile(folder / "cut", overwritten);
    readMessageCatalog(folder / "cut");
  }
}

// Counters

TEST(PrometheusCountersTest, ChangedValuesAreWrittenOnceASettle) {
  const TemporaryFolder folder;
  const fs::path file = folder / "metrics/pellor.prom";
  Process process;
  PrometheusCounters counters(process, file, LogHandle("test", "counters", nullptr));
  EXPECT_TRUE(process.settle(5));
  EXPECT_FALSE(fs::exists(file)) << "nothing was counted";

  counters.setValueForScalarKey("org.tapnote.tn.friendList.size", 4);
  counters.setValueForScalarKey("org.tapnote.tn.friendList.size", 5);
  counters.setValueForScalarKey("7.groups-count", 0);
  EXPECT_TRUE(process.settle(5));
  const std::string content = contentOf(file);
  EXPECT_NE(content.find("\norg_tapnote_tn_friendList_size 5"), std::string::npos) << content;
  EXPECT_NE(content.find("\n_7_groups_count 0"), std::string::npos) << content;
  EXPECT_EQ(modeOf(file), 0600u);
  EXPECT_EQ(modeOf(file.parent_path()), 0700u);
  EXPECT_EQ(std::distance(fs::directory_iterator(file.parent_path()), {}), 1) << "no drafts are left";

  fs::remove(file);
  counters.setValueForScalarKey("org.tapnote.tn.friendList.size", 5);
  EXPECT_TRUE(process.settle(5));
  EXPECT_FALSE(fs::exists(file)) << "nothing changed";
}

TEST(PrometheusCountersTest, AFailureIsReportedOnceAndMadeUpFor) {
  const TemporaryFolder folder;
  writeFile(folder / "metrics", "in the way");
  const auto log = std::make_shared<LogCollector>();
  Process process;
  PrometheusCounters counters(process, folder / "metrics/pellor.prom", LogHandle("test", "counters", log));
  counters.setValueForScalarKey("key", 1);
  EXPECT_TRUE(process.settle(5));
  EXPECT_TRUE(process.settle(5));
  EXPECT_EQ(log->messages().size(), 1u);
  fs::remove(folder / "metrics");
  EXPECT_TRUE(process.settle(5));
  EXPECT_EQ(log->messages().size(), 2u);
  EXPECT_NE(contentOf(folder / "metrics/pellor.prom").find("key 1"), std::string::npos);
}

// Log

TEST(StandardErrorLogTest, LinesGoToStandardErrorWhenAskedFor) {
  const auto shown = [](StandardErrorLog& log) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const LogHandle handle("org.tapnote.Pellor", "main", std::shared_ptr<LogSink>(&log, [](LogSink*) {}));
    handle.log("renamed [%@] in %d", redactable("Ada\x1B[2J\nLovelace"), 3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    return testing::internal::GetCapturedStderr();
  };
  StandardErrorLog log(StandardErrorLog::Verbosity::silent);
  EXPECT_EQ(shown(log), "");
  log.setVerbosity(StandardErrorLog::Verbosity::verbose);
  const std::string line = shown(log);
  EXPECT_NE(line.find("[info] org.tapnote.Pellor:main "), std::string::npos) << line;
  EXPECT_NE(line.find("\"renamed [<private>] in 3\"\n"), std::string::npos) << line;

  StandardErrorLog open(StandardErrorLog::Verbosity::verbose, LogEntry::Private::shown);
  EXPECT_NE(shown(open).find("\"renamed [Ada?[2J?Lovelace] in 3\"\n"), std::string::npos);
}

// Folders and files

TEST(UserFoldersTest, VariablesCountOnlyWhenTheyAreAbsolute) {
  const TemporaryFolder runtime;
  const UserFolders usual = UserFolders::find(environmentOf({{"HOME", "/home/ada"}, {"XDG_DATA_HOME", "relative"}}));
  EXPECT_EQ(usual.data, "/home/ada/.local/share/pellor");
  EXPECT_EQ(usual.config, "/home/ada/.config/pellor");
  EXPECT_EQ(usual.state, "/home/ada/.local/state/pellor");
  EXPECT_EQ(usual.runtime, std::nullopt);
  EXPECT_EQ(usual.notify(), "/home/ada/.local/state/pellor/notify");

  const Environment environment = environmentOf({{"XDG_DATA_HOME", "/data"},
                                                 {"XDG_CONFIG_HOME", "/config"},
                                                 {"XDG_STATE_HOME", "/state"},
                                                 {"XDG_RUNTIME_DIR", runtime.path().string()}});
  const UserFolders chosen = UserFolders::find(environment);
  EXPECT_EQ(chosen.data, "/data/pellor");
  EXPECT_EQ(chosen.config, "/config/pellor");
  EXPECT_EQ(chosen.state, "/state/pellor");
  EXPECT_EQ(chosen.notify(), runtime / "pellor/notify");

  fs::permissions(runtime.path(), fs::perms{0755});
  EXPECT_EQ(UserFolders::find(environment).runtime, std::nullopt) << "open to others";
  EXPECT_TRUE(UserFolders::find(environmentOf({})).data.is_absolute()) << "without HOME";
}

TEST(PrivateFilesTest, FoldersAreMadeForTheirOwnerAlone) {
  const TemporaryFolder folder;
  fs::permissions(folder.path(), fs::perms{0755});
  EXPECT_EQ(createPrivateFolder(folder / "a/b/c/"), std::nullopt);
  EXPECT_EQ(createPrivateFolder(folder / "a/b"), std::nullopt);
  for (const char* made : {"a", "a/b", "a/b/c"}) EXPECT_EQ(modeOf(folder / made), 0700u);
  EXPECT_EQ(modeOf(folder.path()), 0755u) << "was there before";

  writeFile(folder / "file", "in the way");
  const auto error = createPrivateFolder(folder / "file/below");
  ASSERT_TRUE(error);
  EXPECT_NE(error->find((folder / "file").string()), std::string::npos) << *error;
}

TEST(PrivateFilesTest, AFileIsReplacedAsAWholeAndMadeOnce) {
  const TemporaryFolder folder;
  const Data bytes = {1, 2, 3};
  EXPECT_EQ(createPrivateFile(folder / "new", bytes), FileCreation::created);
  EXPECT_EQ(createPrivateFile(folder / "new", Data{}), FileCreation::exists);
  EXPECT_EQ(contentOf(folder / "new"), "\1\2\3");
  EXPECT_EQ(createPrivateFile(folder / "missing/new", bytes), FileCreation::failed);
  EXPECT_EQ(replacePrivateFile(folder / "new", "other"), std::nullopt);
  EXPECT_EQ(contentOf(folder / "new"), "other");
  EXPECT_EQ(modeOf(folder / "new"), 0600u);
  EXPECT_TRUE(replacePrivateFile(folder / "missing/new", "text"));
}

TEST(PrivateFilesTest, EveryTextHasAFileNameOfItsOwn) {
  const std::string text(1000, 'x');
  const std::vector<std::string> texts = {"",  ".",  "..", ".hidden",  "a/b", "a%2fb",   "a b", "A B",
                                          "%", "%%", "\n", "\xC3\xBC", "a",   "a.b-c_d", text,  text + "y"};
  std::set<std::string> names;
  for (const std::string& original : texts) {
    const std::string name = fileNameOf(original);
    EXPECT_TRUE(names.insert(name).second) << original;
    EXPECT_LT(name.size(), 150u);
    EXPECT_FALSE(name.empty() || name.front() == '.') << name;
    EXPECT_EQ(name.find_first_of("/\n "), std::string::npos) << name;
  }
  EXPECT_EQ(fileNameOf("org.tapnote.TN"), "org.tapnote.TN");
}

}  // namespace
}  // namespace pellor
