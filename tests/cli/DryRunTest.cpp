// --dry-run of every command that changes something.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "tests/cli/Program.h"
#include "tests/cli/Story.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::HasSubstr;

// What these write, a file that was named or the terminal, is what they are asked for.
const std::set<std::string> ChangesNothing = {
    "list",  "why",        "find",   "contacts", "allow",  "favorites",     "favorites list", "status",
    "watch", "completion", "export", "backup",   "device", "device status", "doctor",         "help"};

std::vector<std::string> completions(const Home& home, Arguments words) {
  Arguments arguments = {"complete", "--"};
  arguments.insert(arguments.end(), words.begin(), words.end());
  std::vector<std::string> found;
  for (const std::string& line : linesOf(pellor(home, arguments).output))
    found.push_back(line.substr(0, line.find('\t')));
  return found;
}

std::set<std::string> allCommands(const Home& home) {
  std::set<std::string> commands;
  for (const std::string& name : completions(home, {""})) {
    commands.insert(name);
    for (const std::string& below : completions(home, {name, ""}))
      if (!pellor(home, {"help", name, below}).output.empty()) commands.insert(name + " " + below);
  }
  return commands;
}

std::set<std::string> commandsWithDryRun(const Home& home) {
  std::set<std::string> commands;
  for (const std::string& command : allCommands(home)) {
    Arguments words = wordsOf(command);
    words.emplace_back("--dry");
    if (!completions(home, words).empty()) commands.insert(command);
  }
  return commands;
}

TEST(DryRun, EveryCommandHasItOrChangesNothing) {
  const Home home;
  const auto withDryRun = commandsWithDryRun(home);
  for (const std::string& command : allCommands(home))
    EXPECT_NE(withDryRun.contains(command), ChangesNothing.contains(command)) << command;
  EXPECT_GT(withDryRun.size(), 20U);
  for (const std::string& command : ChangesNothing) {
    Arguments words = wordsOf(command);
    words.emplace_back("--dry-run");
    EXPECT_EQ(pellor(home, words).exitCode, 2) << command << " knows no such option";
  }
}

/// The copies whose place another one took. When the others are made the clock says.
std::string replacedCopies(const Home& home) {
  std::string replaced;
  for (const std::string& line : linesOf(pellor(home, {"backup"}).output))
    if (line.starts_with("replaced")) replaced += line + "\n";
  return replaced;
}

/// All that a user keeps.
std::string stateOf(const Home& home) {
  std::string state = pellor(home, {"export"}).output + pellor(home, {"settings", "--json"}).output +
                      pellor(home, {"history", "--json"}).output + replacedCopies(home);
  std::set<fs::path> files;
  for (const fs::path& folder : {home.contactsFolder(), home.dataFolder() / "device"}) {
    if (!fs::exists(folder)) continue;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
      if (entry.is_regular_file()) files.insert(entry.path());
  }
  for (const fs::path& file : files) state += file.string() + "\n" + contentOf(file) + "\n";
  return state;
}

struct Row {
  std::string command;
  Arguments arguments;
  std::string says;  ///< its output; of one that fails its error
};

// The real one follows, which ends as the dry one did.
TEST(DryRun, SaysWhatWouldBeDoneAndDoesNothing) {
  const Home home;
  addPeople(home);
  pellor(home, {"list"});
  const std::string list = home / "list.json", cards = home / "cards.vcf";
  writeFile(list, R"({"format":"pellor friend list","version":1,"pageSize":12,"pages":[{"title":"Theirs","slots":[
      {"name":"Cy","destinations":["cy@example.org"]}]}]})");
  writeFile(cards, "BEGIN:VCARD\nVERSION:3.0\nUID:dora\nFN:Dora\nTEL:030 9\nEND:VCARD\n");
  const std::vector<Row> rows = {
      {"add", {"Anna", "030 5"}, "would have added Anna Berg (1:2)\nwould have added 0305 (1:3)\n"},
      {"add", {"Ann Lee"}, "Ann Lee is a friend already (1:1)"},
      {"move", {"Anna", "2:1"}, "would have moved Anna Berg (2:1)"},
      {"title", {"1", "Family"}, "would be: Page 1: Family"},
      {"number", {"Ann Lee", "ann@example.org"}, "would be: Ann@example.org"},
      {"number", {"Ann Lee", "030 4"}, "has no \"030 4\""},
      {"reply-as", {"Ann Lee", "me@example.org"}, "would be: me@example.org\n"},
      {"meta", {"Ann Lee", "birthday", "05-17"}, "would be: birthday = 05-17\n"},
      {"favorites add", {"Zoë Marsh"}, "would be:\n"},
      {"favorites move", {"1", "2"}, "would be:\n"},
      {"favorites import", {}, "would have added Zoë Marsh (1:2)\n"},
      {"favorites remove", {"1"}, "would be:\n"},
      {"refresh", {}, "the friends are in step with the contacts\n"},
      {"import", {list}, "would have added Cy (1:4)\n"},
      {"import", {"--replace", list}, "would have removed Anna Berg (2:1)\n"},
      {"undo", {}, "would be taken back: imported"},
      {"redo", {}, "would be done again: imported"},
      {"remove", {"Cy"}, "would have removed Cy (1:1)\n"},
      {"remove", {"Cy"}, "no friend is called \"Cy\""},
      {"move", {"030 5", "1:1"}, "no friend is called"},
      {"add", {"Anna"}, "would have added Anna Berg (1:1)\n"},
      {"move", {"Anna", "2:1"}, "would have moved Anna Berg (2:1)\n"},
      {"purge", {}, "would have removed 1 empty page\n"},
      {"settings", {"page-size", "9"}, "would have set page-size to 9 (is 12)\n"},
      {"settings", {"short-names", "on"}, "would have set short-names to true (is false)\n"},
      {"settings", {"region", "us"}, "would have set region to US (is DE)\n"},
      {"settings", {"page-size", "none"}, "is no number from 1"},
      {"contacts import", {cards}, "would have imported 1 contact\n"},
      {"forget", {"Anna", "--yes"}, "would forget Anna (1:1)\n"},
      {"history", {"--clear"}, "would clear "},
      {"device serve", {}, "no device is paired"},
      {"device revoke", {}, "no device is paired"},
      {"device pair", {}, "this device has no name yet"},
      {"device pair", {"--name", "phone"}, "would have made a private key"},
      {"backup restore", {"newest"}, "would have restored the copy of "},
      {"backup restore", {"--empty"}, "the store would be new"},
  };
  std::set<std::string> tested;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.command + testing::PrintToString(row.arguments));
    tested.insert(row.command);
    Arguments real = wordsOf(row.command);
    real.insert(real.end(), row.arguments.begin(), row.arguments.end());
    Arguments dry = real, dryJson = real;
    dry.emplace_back("--dry-run");
    dryJson.insert(dryJson.end(), {"--dry-run", "--json"});
    const std::string state = stateOf(home);
    const ProgramResult told = pellor(home, dry);
    EXPECT_THAT(told.exitCode == 0 ? told.output : told.errors, HasSubstr(row.says));
    const std::string output = pellor(home, dryJson).output;
    EXPECT_EQ(told.exitCode == 0, !output.empty() && json::parse(output).value("dryRun", false)) << output;
    EXPECT_EQ(stateOf(home), state);
    const ProgramResult done = pellor(home, real);
    EXPECT_EQ(done.exitCode, told.exitCode) << done.errors;
    if (told.exitCode != 0) {
      EXPECT_EQ(done.errors, told.errors);
    }
  }
  EXPECT_EQ(tested, commandsWithDryRun(home));
}

// Any load follows the contacts: it is the dry run that must not have stored it.
TEST(DryRun, OfARefreshStoresNothingOfWhatItTells) {
  const Home home;
  home.addContact("ann", "Ann Lee", "N:Lee;Ann;;;\nTEL:+49 30 1234567\n");
  tell(home, {{{"add", "Ann"}, 0, "added Ann Lee"}});
  home.addContact("ann", "Ann Loo", "N:Loo;Ann;;;\nTEL:+49 30 1234567\n");
  tell(home, {{{"refresh", "--dry-run"}, 0, "would have updated 1:1 Ann Loo\n"},
              {{"refresh", "--dry-run"}, 0, "would have updated 1:1 Ann Loo\n"},
              {{"refresh"}, 0, "updated 1:1 Ann Loo\n"},
              {{"refresh", "--dry-run"}, 0, "the friends are in step with the contacts\n"}});
}

}  // namespace
}  // namespace pellor
