// One story, told to the program with the parts of the embedded platform and with services in their places: the list is
// the same each time.

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/EarlierJson.h"
#include "tests/cli/Program.h"
#include "tests/services/EDSSanitizers.h"
#include "tests/services/servers/EDSService.h"
#include "tests/services/servers/PostgreSQLCluster.h"

namespace pellor {
namespace {

using Json = nlohmann::json;
using Arguments = std::vector<std::string>;

/// Contacts and store of one user, and the flags that choose them.
class Setting {
 public:
  virtual ~Setting() = default;
  virtual Arguments flags() { return {}; }
  /// Puts a contact into the address book; `lines` are those of its card beside the name.
  virtual void add(const std::string& person, const std::string& name, const std::string& lines) {
    _home.addContact(person, name, lines);
  }
  virtual void rename(const std::string& person, const std::string& name, const std::string& lines) {
    add(person, name, lines);
  }
  virtual void remove(const std::string& person) {
    std::filesystem::remove(_home.contactsFolder() / (person + ".vcf"));
  }
  Home& home() { return _home; }

 private:
  Home _home;
};

/// Both are shared by all tests of the program.
PostgreSQLCluster& cluster() {
  static PostgreSQLCluster cluster;
  return cluster;
}

class InPostgreSQL : public Setting {
 public:
  Arguments flags() override {
    return {"--store", "postgresql", "--postgresql-connection", cluster().connection(database)};
  }

  const std::string database = cluster().makeDatabase();
};

void tellOfSanitizers(Home& home) {
  const std::pair<std::string, const char*> reports[] = {{"TSAN_OPTIONS", __tsan_default_suppressions()},
                                                         {"LSAN_OPTIONS", __lsan_default_suppressions()}};
  for (const auto& [variable, suppressions] : reports) {
    const auto file = home / variable;
    writeFile(file, suppressions);
    const char* options = ::getenv(variable.c_str());
    home.setVariable(variable + "=" + (options ? options + std::string(":") : "") + "suppressions=" + file.string());
  }
}

class InEDS : public Setting {
 public:
  InEDS() {
    tellOfSanitizers(home());
    EDSService::shared().removeAll();
    home().setVariable("DBUS_SESSION_BUS_ADDRESS=" + EDSService::shared().address());
  }
  Arguments flags() override { return {"--address-book", "eds", "--eds-wait", "60"}; }
  void add(const std::string& person, const std::string& name, const std::string& lines) override {
    _uids[person] = EDSService::shared().add({card("", name, lines)}).front();
  }
  void rename(const std::string& person, const std::string& name, const std::string& lines) override {
    EDSService::shared().change(card("UID:" + _uids.at(person) + "\r\n", name, lines));
  }
  void remove(const std::string& person) override { EDSService::shared().remove(_uids.at(person)); }

 private:
  static std::string card(const std::string& uid, const std::string& name, const std::string& lines) {
    return "BEGIN:VCARD\r\nVERSION:3.0\r\n" + uid + "FN:" + name + "\r\n" + lines + "END:VCARD\r\n";
  }

  std::map<std::string, std::string> _uids;
};

Arguments with(Arguments arguments, const Arguments& flags) {
  arguments.insert(arguments.end(), flags.begin(), flags.end());
  return arguments;
}

/// The lists that the program shows, without GUIDs, in the course of the story.
std::vector<Json> tell(Setting& setting) {
  std::vector<Json> lists;
  const auto run = [&](Arguments arguments) {
    const ProgramResult result = pellor(setting.home(), with(std::move(arguments), setting.flags()));
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    Json& list = lists.emplace_back(
        Json::parse(pellor(setting.home(), with({"list", "--json"}, setting.flags())).output, nullptr, false));
    for (Json& page : list["pages"]) {
      for (Json& slot : page["slots"]) {
        if (!slot.is_null() && !slot["guid"].is_null()) slot["guid"] = "known";
      }
    }
  };
  const std::string ben = "N:Berg;Ben;;;\r\nTEL:+49 30 1234567\r\nEMAIL:Ben@example.org\r\n";
  setting.add("ann", "Ann Lee", "N:Lee;Ann;;;\r\nTEL:+1 415 555 2671\r\nX-FOLKS-FAVOURITE:true\r\n");
  setting.add("ben", "Ben Berg", ben);
  setting.add("cy", "Cy Low", "N:Low;Cy;;;\r\nTEL:030 7654321\r\n");
  run({"settings", "page-size", "3"});
  run({"add", "Ben Berg", "Cy Low", "+49 30 1112233"});
  run({"move", "Cy Low", "2:3"});
  run({"title", "2", "Work"});
  setting.rename("ben", "Benedikt Berg", "N:Berg;Benedikt;;;\r\n" + ben.substr(ben.find("TEL")));
  run({"refresh"});
  setting.remove("cy");
  run({"refresh"});
  setting.add("cy again", "Cyril Low", "N:Low;Cyril;;;\r\nTEL:+49 30 765-4321\r\n");
  run({"remove", "Ann Lee"});
  return lists;
}

std::string namesIn(const Json& list) {
  std::string names;
  for (const Json& page : list["pages"]) {
    for (const Json& slot : page["slots"]) names += slot.is_null() ? ". " : slot["name"].dump() + " ";
  }
  return names;
}

TEST(Scenario, TheListIsTheSameWhateverKeepsTheContactsAndTheList) {
  Setting embedded;
  const std::vector<Json> expected = tell(embedded);
  EXPECT_EQ(namesIn(expected[1]), R"("Ann Lee" "Ben Berg" "Cy Low" null . . . . . )");
  EXPECT_EQ(namesIn(expected.back()), R"(. "Benedikt Berg" . null . "Cyril Low" . . . )");
  InPostgreSQL inPostgreSQL;
  EXPECT_EQ(tell(inPostgreSQL), expected);
  InEDS inEDS;
  EXPECT_EQ(tell(inEDS), expected);
}

TEST(Scenario, WhatVersion01LeftIsShownAsItWas) {
  const std::filesystem::path before = std::filesystem::path(PELLOR_TEST_DATA) / "0.1";
  InPostgreSQL setting;
  cluster().load(setting.database, before / "postgresql/pellor.sql");
  std::filesystem::copy(before / "contacts", setting.home().contactsFolder());
  const ProgramResult list = pellor(setting.home(), with({"list", "--json"}, setting.flags()));
  EXPECT_EQ(asVersion01Said(list.output), Json::parse(contentOf(before / "postgresql/list.json"))) << list.errors;
}

TEST(Scenario, AnEditOnOneMachineIsOnTheOtherAndNeitherRewritesTheOthers) {
  InPostgreSQL first;
  Home second;
  // The same contacts, as a synchroniser brings them, but for one that the other machine does not have.
  const std::string ann = "N:Lee;Ann;;;\r\nTEL:+49 30 1234567\r\n";
  first.add("ann", "Ann Lee", ann);
  second.addContact("ann", "Ann Lee", ann);
  first.add("ben", "Ben Berg", "N:Berg;Ben;;;\r\nTEL:+49 30 7654321\r\n");
  second.addContact("otherwise", "Ben Berg", "N:Berg;Ben;;;\r\nTEL:+49 30 7654321\r\n");
  const Arguments flags = first.flags();
  Program watchFirst(first.home(), pellorCommand(with({"watch"}, flags)));
  Program watchSecond(second, pellorCommand(with({"watch"}, flags)));
  for (Program* watch : {&watchFirst, &watchSecond}) EXPECT_EQ(watch->readErrorLine(), "pellor: watching");

  const std::vector<std::pair<const Home*, std::string>> edits = {
      {&first.home(), "ann"}, {&second, "+49301112233"}, {&second, "ben"}, {&first.home(), "+49301112244"}};
  const std::vector<std::string> told = {"added 1:1 Ann Lee", "added 1:2 030 1112233", "added 1:3 Ben Berg",
                                         "added 1:4 030 1112244"};
  // The machine that follows its contacts may find another record for a friend: once, and then all come to rest.
  std::map<Program*, std::size_t> others;
  for (std::size_t index = 0; index < edits.size(); ++index) {
    const auto& [home, who] = edits[index];
    ASSERT_EQ(pellor(*home, with({"add", who}, flags)).exitCode, 0);
    for (Program* watch : {&watchFirst, &watchSecond}) {
      while (watch->readLine() != told[index]) ASSERT_LE(++others[watch], 2 * edits.size());
    }
  }
  for (Program* watch : {&watchFirst, &watchSecond}) {
    watch->sendSignal(SIGINT);
    const ProgramResult end = watch->finish();
    EXPECT_EQ(end.exitCode, 0);
    others[watch] += static_cast<std::size_t>(std::ranges::count(end.output, '\n'));
    EXPECT_LE(others[watch], 2 * edits.size());
  }
}

}  // namespace
}  // namespace pellor
