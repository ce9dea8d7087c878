// The adapters with little behaviour: digest, strings, counters, log, folders.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "pellor/linux/StandardErrorLog.h"
#include "pellor/linux/files/UserFolders.h"
#include "pellor/linux/files/internal/AsideFolder.h"
#include "pellor/linux/files/internal/NettleDigest.h"
#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/linux/internal/PrometheusCounters.h"
#include "pellor/linux/preferences/internal/UnpairedDevice.h"
#include "pellor/linux/text/GettextStrings.h"
#include "pellor/testing/SimulatedScheduler.h"
#include "pellor/testing/contract/AnalyticsCountersContract.h"
#include "pellor/testing/contract/DigestServiceContract.h"
#include "pellor/testing/contract/LocalizedStringsContract.h"
#include "pellor/testing/contract/PreferencesSyncServiceContract.h"
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

// Digest

struct DigestsByNettle {
  static std::shared_ptr<DigestService> make() { return std::make_shared<NettleDigest>(); }
};

// Strings

struct StringsFromCatalogs {
  static std::map<std::string, std::string> favorites() {
    return {{"en_GB", "Favorites"}, {"de_AT", "Favoriten"}, {"fr_FR", "Favoris"}};
  }
  static std::shared_ptr<LocalizedStrings> make(const std::string& language) {
    return std::make_shared<GettextStrings>(GettextStrings::catalogFolders, environmentOf({{"LANG", language}}));
  }
};

std::string numberedTitle(GettextStrings& strings) {
  return strings.bundleWithIdentifier("org.tapnote.Pellor")->localizedString("NUMBERED_FAVORITES_FORMAT_STRING", "");
}

TEST(GettextStringsTest, TheUsersLanguagesAreTriedInTheirOrder) {
  struct Case {
    std::map<std::string, std::string> variables;
    const char* title;
  };
  const Case cases[] = {
      {{{"LANG", "de_AT@euro"}}, "Favoriten %u"},
      {{{"LANG", "de_DE"}, {"LC_MESSAGES", "fr_FR"}, {"LC_ALL", "es"}}, "Favoritos %u"},
      {{{"LANG", "de_DE"}, {"LANGUAGE", "xx:es_MX:fr"}}, "Favoritos %u"},
      {{{"LANG", "de_DE"}, {"LC_ALL", "C"}}, "Favorites %u"},
      {{{"LANG", "../../de"}}, "Favorites %u"},
      {{}, "Favorites %u"},
  };
  for (const Case& test : cases) {
    GettextStrings strings(GettextStrings::catalogFolders, environmentOf(test.variables));
    EXPECT_EQ(numberedTitle(strings), test.title);
  }
}

// A user would meet two languages in one list.
TEST(GettextStringsTest, NoCatalogLacksATextThatAnotherHas) {
  std::map<std::string, MessageCatalog> catalogs;
  std::set<std::string> keys;
  for (const fs::path& place : GettextStrings::catalogFolders()) {
    if (!catalogs.empty() || !fs::exists(place)) continue;
    for (const auto& language : fs::directory_iterator(place)) {
      const auto catalog = readMessageCatalog(language.path() / "LC_MESSAGES/pellor.mo");
      if (!catalog) continue;
      for (const auto& [key, text] : catalog->messages) keys.insert(key);
      catalogs.emplace(language.path().filename(), *catalog);
    }
  }
  for (const char* language : {"ar", "de", "hu", "ja", "tr", "vi"})
    EXPECT_TRUE(catalogs.contains(language)) << language;
  for (const auto& [language, catalog] : catalogs) {
    for (const std::string& key : keys) EXPECT_TRUE(catalog.text(key)) << language << " lacks " << key;
    const std::string numbered = catalog.text("NUMBERED_FAVORITES_FORMAT_STRING").value_or("");
    EXPECT_TRUE(numbered.starts_with(catalog.text("FAVORITES").value_or("?"))) << language << ": " << numbered;
    EXPECT_TRUE(numbered.ends_with("%u")) << language << ": " << numbered;
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
    EXPECT_TRUE(!read || read->messages == whole->messages) << length;
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

TEST(PrometheusCountersTest, ChangedValuesAreWrittenAtASettleAndOnceASecond) {
  const TemporaryFolder folder;
  const fs::path file = folder / "metrics/pellor.prom";
  const auto world = std::make_shared<SimulatedScheduler>(1);
  Process process(world, nullptr);
  std::optional<PrometheusCounters> counters(std::in_place, process, file, LogHandle("test", "counters", nullptr));
  EXPECT_TRUE(process.settle(5));
  EXPECT_FALSE(fs::exists(file)) << "nothing was counted";

  counters->setValueForScalarKey("org.tapnote.tn.friendList.size", 5);
  counters->setValueForScalarKey("7.groups-count", 0);
  for (const char* noName : {"", "__reserved", "..", "\xFF"}) counters->setValueForScalarKey(noName, 7);
  for (const char* same : {"a.b", "a_b"}) counters->setValueForScalarKey(same, 7);
  EXPECT_TRUE(process.settle(5));
  const std::string content = contentOf(file);
  EXPECT_NE(content.find("\norg_tapnote_tn_friendList_size 5"), std::string::npos) << content;
  EXPECT_NE(content.find("\n_7_groups_count 0"), std::string::npos) << content;
  EXPECT_NE(content.find("\na_b 7"), std::string::npos) << content;
  EXPECT_EQ(modeOf(file), 0600u);
  EXPECT_EQ(modeOf(file.parent_path()), 0700u);
  EXPECT_EQ(std::distance(fs::directory_iterator(file.parent_path()), {}), 1) << "no drafts are left";

  counters->setValueForScalarKey("7.groups-count", 1);
  EXPECT_TRUE(process.settle(5));
  EXPECT_EQ(contentOf(file), content) << "too soon";
  world->advance(1);
  EXPECT_NE(contentOf(file).find("\n_7_groups_count 1"), std::string::npos) << "but not forgotten";

  counters->setValueForScalarKey("7.groups-count", 2);
  counters.reset();
  EXPECT_NE(contentOf(file).find("\n_7_groups_count 2"), std::string::npos) << "without a settle";
}

/// Looks into the file.
class CountersInAFile {
 public:
  Process& process() { return _process; }
  AnalyticsCounters& counters() { return *_counters; }
  std::optional<std::int64_t> recorded(const std::string& key) {
    EXPECT_TRUE(_process.settle(5));
    _scheduler->advance(1);
    const std::string content = contentOf(_file), line = "\n" + metricNameOf(key) + " ";
    const std::size_t found = content.find(line);
    if (found == std::string::npos) return std::nullopt;
    return static_cast<std::int64_t>(std::stod(content.substr(found + line.size())));
  }

 private:
  const TemporaryFolder _folder;
  const fs::path _file = _folder / "pellor.prom";
  const std::shared_ptr<SimulatedScheduler> _scheduler = std::make_shared<SimulatedScheduler>(1);
  Process _process{_scheduler, nullptr};
  std::optional<PrometheusCounters> _counters{std::in_place, _process, _file, LogHandle("test", "counters", nullptr)};
};

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

/// While it lives, standard error is that file.
class StandardErrorTo {
 public:
  explicit StandardErrorTo(int file) { ::dup2(file, STDERR_FILENO); }
  ~StandardErrorTo() { ::dup2(_previous.get(), STDERR_FILENO); }
  StandardErrorTo(const StandardErrorTo&) = delete;
  StandardErrorTo& operator=(const StandardErrorTo&) = delete;

 private:
  const FileDescriptor _previous{::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)};
};

LogEntry entryOf(const std::string& text) { return {"tests", "log", "operation", 1, {{text}}}; }

TEST(StandardErrorLogTest, LinesOfSeveralThreadsAndLogsStayWholeInASlowPipe) {
  constexpr int threads = 4, linesEach = 25;
  constexpr std::size_t length = 20'000;  // more than a pipe takes at once
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  FileDescriptor input(ends[0]), output(ends[1]);
  std::optional<StandardErrorTo> redirected(std::in_place, output.get());
  output.close();
  StandardErrorLog logs[] = {StandardErrorLog(StandardErrorLog::Verbosity::verbose),
                             StandardErrorLog(StandardErrorLog::Verbosity::verbose)};
  std::vector<std::thread> writers;
  for (int number = 0; number < threads; ++number) {
    writers.emplace_back([&, number] {
      const LogEntry entry = entryOf(std::string(length, static_cast<char>('a' + number)));
      for (int line = 0; line < linesEach; ++line) logs[number % 2].write(entry);
    });
  }
  std::thread ending([&] {
    for (std::thread& writer : writers) writer.join();
    redirected.reset();
  });
  std::string content;
  char piece[4096];
  for (ssize_t count = 1; count > 0;) {
    count = ::read(input.get(), piece, sizeof piece);
    if (count > 0) content.append(piece, static_cast<std::size_t>(count));
  }
  ending.join();
  int whole = 0;
  std::istringstream lines(content);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t text = line.find('"');
    whole += line.size() > length && text != std::string::npos && line.ends_with('"') &&
             line.substr(text + 1, length) == std::string(length, line[text + 1]) && line.size() == text + length + 2;
  }
  EXPECT_EQ(whole, threads * linesEach);
}

TEST(StandardErrorLogTest, AStandardErrorThatTakesNothingHoldsNobodyUp) {
  StandardErrorLog log(StandardErrorLog::Verbosity::verbose);
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
  const FileDescriptor unread(ends[0]), stuffed(ends[1]);
  const FileDescriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  ASSERT_TRUE(full);
  for (const int file : {full.get(), stuffed.get()}) {
    const StandardErrorTo redirected(file);
    for (int line = 0; line < 10; ++line) log.write(entryOf(std::string(100'000, 'x')));
  }
  {
    const StandardErrorTo closed(full.get());
    ::close(STDERR_FILENO);
    log.write(entryOf("nobody hears this"));
  }
  testing::internal::CaptureStderr();
  log.write(entryOf("heard again"));
  EXPECT_NE(testing::internal::GetCapturedStderr().find("\"heard again\"\n"), std::string::npos);
}

// Folders

TEST(AsideFolderTest, ADatabaseGoesAsideWithItsLogsAndCoversNothing) {
  const TemporaryFolder folder;
  const fs::path database = folder / "store.sqlite", place = folder / "store.sqlite.damaged";
  const char* const contents[] = {"first", "second", "third"};
  std::map<fs::path, std::string> expected;
  for (const char* content : contents) {
    for (const char* suffix : {"", "-wal"}) writeFile(database.string() + suffix, content + std::string(suffix));
    const auto aside = moveDatabaseAside(database, place);
    ASSERT_TRUE(aside);
    EXPECT_TRUE(aside->string().starts_with(place.string() + "-20")) << *aside;
    for (const char* suffix : {"", "-wal"}) expected[aside->string() + suffix] = content + std::string(suffix);
  }
  std::map<fs::path, std::string> found;
  for (const auto& entry : fs::directory_iterator(folder.path())) found[entry.path()] = contentOf(entry.path());
  EXPECT_EQ(found, expected);

  for (const char* suffix : {"", "-wal"}) writeFile(database.string() + suffix, "fourth");
  EXPECT_FALSE(moveDatabaseAside(database, folder / "no folder/store.sqlite"));
  EXPECT_TRUE(fs::exists(database.string() + "-wal")) << "both stay where they were";
}

TEST(UserFoldersTest, VariablesCountOnlyWhenTheyAreAbsolute) {
  const TemporaryFolder runtime;
  const UserFolders usual = UserFolders::find(environmentOf({{"HOME", "/home/ada"}, {"XDG_DATA_HOME", "relative"}}));
  EXPECT_EQ(usual.data, "/home/ada/.local/share/pellor");
  EXPECT_EQ(usual.runtime, std::nullopt);
  EXPECT_EQ(usual.notify(), "/home/ada/.local/state/pellor/notify");

  const Environment environment = environmentOf({{"XDG_DATA_HOME", "/data"},
                                                 {"XDG_CONFIG_HOME", "/config"},
                                                 {"XDG_STATE_HOME", "/state"},
                                                 {"XDG_RUNTIME_DIR", runtime.path().string()}});
  const UserFolders chosen = UserFolders::find(environment);
  EXPECT_EQ(chosen.data, "/data/pellor");
  EXPECT_EQ(chosen.notify(), runtime / "pellor/notify");

  fs::permissions(runtime.path(), fs::perms{0755});
  EXPECT_EQ(UserFolders::find(environment).runtime, std::nullopt) << "open to others";
  EXPECT_TRUE(UserFolders::find(environmentOf({})).data.is_absolute()) << "without HOME";
}

// Paired device

struct NoDevice {
  static constexpr bool CanPair = false;
  PreferencesSyncService& service() { return unpaired; }
  void store(const std::string&, const std::optional<Value>&) {}
  void completeInitialSync() {}
  std::optional<Value> arrived(const std::string&) { return std::nullopt; }

  UnpairedDevice unpaired;
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Catalogs, LocalizedStringsContract, StringsFromCatalogs);
INSTANTIATE_TYPED_TEST_SUITE_P(Nettle, DigestServiceContract, DigestsByNettle);
INSTANTIATE_TYPED_TEST_SUITE_P(Prometheus, AnalyticsCountersContract, CountersInAFile);
INSTANTIATE_TYPED_TEST_SUITE_P(Unpaired, PreferencesSyncServiceContract, NoDevice);

}  // namespace pellor
