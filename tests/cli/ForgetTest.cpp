// forget: no file of the program tells of the person any more.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "pellor/linux/files/internal/AsideFolder.h"
#include "pellor/linux/reachability/AnswerMemory.h"
#include "pellor/runtime/WallClock.h"
#include "tests/cli/Story.h"
#include "tests/cli/Terminal.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const char* Guid = "quillfeather-4711";
constexpr const char* Mail = "quentin@quillfeather.example";

class Forget : public testing::Test {
 protected:
  Forget() {
    addPeople(_home);
    _home.addContact(Guid, "Quentin Quillfeather",
                     "N:Quillfeather;Quentin;;;\nTEL:030 98765432\nEMAIL:" + std::string(Mail) + "\n");
  }

  static std::string lowerCase(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char letter) { return std::tolower(letter); });
    return text;
  }
  static bool mentionsHim(const std::string& file) {
    const std::string content = lowerCase(contentOf(file));
    return std::ranges::any_of(std::vector<std::string>{"quillfeather", "quentin", "98765432", "987 65432", "98 76 54"},
                               [&](const std::string& text) { return content.find(text) != std::string::npos; });
  }
  /// The files of the program that have a byte of him, but for the contacts.
  std::vector<std::string> filesWithHim() const {
    std::vector<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(_home / "")) {
      const std::string name = fs::relative(entry.path(), _home / "").string();
      const bool isContact = name.starts_with("data/pellor/contacts/");
      if (entry.is_regular_file() && !isContact && mentionsHim(entry.path())) files.push_back(name);
    }
    std::ranges::sort(files);
    return files;
  }

  /// Asked whether he is to be forgotten, the user presses that key.
  int exitCodeAfter(const char* key) const {
    Terminal terminal(80);
    Program asked(_home, pellorCommand({"forget", "quentin"}), {.errors = terminal.line(), .input = terminal.line()});
    terminal.awaitText("[y/N]");
    terminal.type(key);
    return asked.finish().exitCode;
  }
  static void makeOld(const fs::path& file) {
    fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(1));
  }

  /// He was in every kind of file.
  void leaveTraces() const {
    pellor(_home, {"add", Guid, "anna", "zoe marsh"});
    pellor(_home, {"meta", Guid, "colour", "of Quentin"});
    pellor(_home, {"list", "--lines"});
    pellor(_home, {"remove", Guid});
    pellor(_home, {"add", Guid});
    pellor(_home, {"number", "quentin", Mail});
    pellor(_home, {"backup", "restore", "newest"});
    pellor(_home, {"remove", "quentin"});
    pellor(_home, {"undo"});
    const fs::path data = _home.dataFolder();
    const std::string newest = contentOf(data / "copies/newest.copy");
    keepAside(data / AsideFolderName, "FriendList", "org.tapnote.TN", Data(newest.begin(), newest.end()));
    fs::copy_file(_home.storeFile(), data / AsideFolderName / "preferences.sqlite-20260101T000000Z");
    fs::copy_file(data / "contacts-index.sqlite", data / "contacts-index.sqlite.damaged-20260101T000000Z");
    const fs::path draft = data / "copies/.newest.copy.aB3xYz";
    writeFile(draft, newest);
    makeOld(draft);
    writeFile(data / "copies/day-20260101.copy", newest.substr(0, newest.size() - 1));
    AnswerMemory answers({data, "account"}, wallClockNow, LogHandle("", "", nullptr));
    answers.add({{"+493098765432", {DestinationStatus::valid, wallClockNow(), "", {}}}});
    answers.write();
  }

  const Home _home;
};

TEST_F(Forget, NoFileHasAByteOfSomebodyWhoseCardIsGone) {
  leaveTraces();
  const auto before = filesWithHim();
  for (const char* kind : {"aside/FriendList", "aside/preferences.sqlite", "canonical-forms-", "contacts-index.sqlite",
                           "contacts-index.sqlite.damaged", "copies/.newest", "copies/day-2026", "copies/hour-",
                           "copies/newest", "copies/replaced-", "preferences.sqlite", "reachable-", "shown-numbers-"})
    EXPECT_THAT(before, Contains(StartsWith("data/pellor/" + std::string(kind))));
  fs::remove(_home.contactsFolder() / (std::string(Guid) + ".vcf"));

  const ProgramResult forgotten = pellor(_home, {"forget", "quentin", "--yes", "--json"});
  EXPECT_EQ(forgotten.exitCode, 0) << forgotten.errors;
  const auto answer = nlohmann::json::parse(forgotten.output);
  EXPECT_EQ(answer["kept"], nlohmann::json::array()) << forgotten.output;
  EXPECT_EQ(answer["names"], (std::vector{"Quentin Quillfeather"}));
  EXPECT_THAT(filesWithHim(), IsEmpty());
  tell(_home, {
                  {{"find", "+49307654321"}, 0, "Anna Berg (friend, "},
                  {{"meta", "anna"}, 0, ""},
                  {{"history"}, 0, "added Anna Berg"},
                  {{"forget", Mail, "--yes"}, 1, "no friend is called \"" + std::string(Mail)},
              });
  // Copies keep all others, in their places.
  const std::string copies = pellor(_home, {"backup"}).output;
  EXPECT_THAT(copies, HasSubstr("replaced-"));
  EXPECT_THAT(copies, Not(HasSubstr("damaged")));
  const std::string replaced = copies.substr(copies.find("replaced-"), std::string("replaced-20260101T000000").size());
  tell(_home, {{{"backup", "restore", replaced}, 0, "restored"}, {{"find", "+49307654321"}, 0, "Anna Berg (friend, "}});
  EXPECT_THAT(filesWithHim(), IsEmpty());
}

TEST_F(Forget, WhatIsTheUsersOrTheDevicesStaysAndTheAnswerSaysSo) {
  leaveTraces();
  const fs::path device = _home.dataFolder() / "device";
  fs::create_directory(device);
  fs::copy_file(_home.dataFolder() / "copies/newest.copy", device / "exchanged-0a");
  ASSERT_EQ(pellor(_home, {"favorites", "add", Guid}).exitCode, 0);
  const ProgramResult forgotten = pellor(_home, {"forget", Mail, "--yes"});
  EXPECT_THAT(forgotten.output, StartsWith("forgot Quentin Quillfeather (1:"));
  EXPECT_THAT(forgotten.output, HasSubstr("copies of the store\n"));
  EXPECT_THAT(forgotten.output, HasSubstr("still in the contacts, and their index: "));
  EXPECT_THAT(forgotten.output, HasSubstr("still in the favorites: "));
  EXPECT_THAT(forgotten.output, HasSubstr("still in what the paired device has: "));
  EXPECT_THAT(filesWithHim(), ElementsAre("data/pellor/contacts-index.sqlite", "data/pellor/device/exchanged-0a"));
  tell(_home, {{{"contacts", "quentin"}, 0, "Quentin Quillfeather"}});
}

// Another program has the store open, its log too.
TEST_F(Forget, ARunningProgramTakesItOverAndLeavesNothing) {
  leaveTraces();
  fs::remove(_home.contactsFolder() / (std::string(Guid) + ".vcf"));
  Program watch(_home, pellorCommand({"watch"}));
  EXPECT_EQ(watch.readErrorLine(), "pellor: watching");
  const ProgramResult forgotten = pellor(_home, {"forget", "quentin", "--yes"});
  EXPECT_EQ(forgotten.exitCode, 0) << forgotten.errors;
  std::string line;
  while (!HasFailure() && (line = watch.readLine(), !line.starts_with("deleted"))) {
  }
  EXPECT_THAT(line, HasSubstr("Quentin"));
  EXPECT_THAT(filesWithHim(), IsEmpty());
  tell(_home, {{{"meta", "anna", "colour", "red"}, 0, "colour = red"}});
  watch.sendSignal(SIGINT);
  EXPECT_EQ(watch.finish().errors, "") << "nobody took the store for a damaged one";
  EXPECT_THAT(filesWithHim(), IsEmpty());
}

// As after a kill: the list has forgotten him, and files have not.
TEST_F(Forget, WhatWasInterruptedIsFinishedByAnotherCall) {
  leaveTraces();
  fs::remove(_home.contactsFolder() / (std::string(Guid) + ".vcf"));
  const fs::path data = _home.dataFolder(), before = _home / "before";
  fs::copy(data, before, fs::copy_options::recursive);
  ASSERT_EQ(pellor(_home, {"forget", "quentin", "--yes"}).exitCode, 0);
  for (const auto& entry : fs::directory_iterator(before)) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with("preferences.sqlite") || name == "contacts") continue;
    fs::remove_all(data / name);
    fs::copy(entry.path(), data / name, fs::copy_options::recursive);
  }
  fs::remove_all(before);
  makeOld(data / "copies/.newest.copy.aB3xYz");
  EXPECT_GT(filesWithHim().size(), 5U);
  tell(_home, {{{"forget", Mail, "--dry-run"}, 0, "would forget Quentin Quillfeather\n"},
               {{"forget", Mail, "--yes"}, 0, "forgot Quentin Quillfeather\n"}});
  EXPECT_THAT(filesWithHim(), IsEmpty());
}

TEST_F(Forget, AsksFirstAndADryRunChangesNothing) {
  pellor(_home, {"add", Guid, "anna"});
  const std::string list = pellor(_home, {"list", "--json"}).output;
  tell(_home,
       {
           {{"forget", "quentin"}, 2, "say --yes, or see what would go by --dry-run"},
           {{"forget", "nobody here", "--yes"}, 1, ""},
           {{"forget", "quentin", "--dry-run"}, 0, "would forget Quentin Quillfeather (1:2)\nfrom the history\n"},
           {{"forget"}, 2, ""},
       });
  const auto plan = nlohmann::json::parse(pellor(_home, {"forget", "quentin", "--dry-run", "--json"}).output);
  EXPECT_EQ(plan["isDone"], false);
  EXPECT_EQ(plan["friends"], 1);
  EXPECT_EQ(plan["guids"], (std::vector{Guid}));
  EXPECT_THAT(plan["found"].dump(), HasSubstr("of the store"));
  EXPECT_EQ(exitCodeAfter("n"), 1);
  EXPECT_EQ(pellor(_home, {"list", "--json"}).output, list);
  EXPECT_EQ(exitCodeAfter("y"), 0);
  EXPECT_NE(pellor(_home, {"list", "--json"}).output, list);
  tell(_home, {{{"undo"}, 1, " (\"pellor history\" names the others, for pellor undo STEP)"},
               {{"history", "--clear", "--dry-run"}, 0, "would clear 2 steps\n"},
               {{"history", "--dry-run"}, 2, ""},
               {{"history", "--clear"}, 0, "cleared 2 steps\n"},
               {{"undo"}, 1, "there is nothing to take back"}});
}

}  // namespace
}  // namespace pellor
