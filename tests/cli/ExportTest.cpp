// pellor export, pellor import

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "tests/cli/Program.h"
#include "tests/cli/Story.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

std::string exported(const Home& home) {
  const ProgramResult result = pellor(home, {"export"});
  EXPECT_EQ(result.exitCode, 0) << result.errors;
  return result.output;
}

ProgramResult import(const Home& home, const std::string& text, Arguments more = {}) {
  writeFile(home / "list.json", text);
  more.insert(more.begin(), {"import", (home / "list.json").string()});
  return pellor(home, more);
}

std::string fileWith(const std::string& pages, const std::string& size = "12") {
  return R"({"format":"pellor friend list","version":1,"pageSize":)" + size + R"(,"pages":)" + pages + "}";
}

std::string fileOfFriend(const std::string& members) { return fileWith(R"([{"slots":[{)" + members + "}]}]"); }

json listOf(const Home& home) { return json::parse(pellor(home, {"list", "--json"}).output).at("pages"); }

// All kinds of values, in arrays and dictionaries too, and what a later version of the program may have stored.
constexpr const char* WholeFriend = R"({
  "name": "Zoë Marsh", "monogram": "Z", "destinations": ["+49307654321", "zoe@example.org"],
  "preferredDestination": "zoe@example.org", "replyAs": "me@work.example.org", "guid": "zoe",
  "metadata": {"yes": true, "count": 5, "least": -9223372036854775808, "five": 5.0, "tiny": 5e-324, "minus": -0.0,
    "nan": {"$real": "nan"}, "far": {"$real": "-inf"}, "bytes": {"$data": "AP+AEA=="}, "none": {"$data": ""},
    "day": {"$date": "2026-01-31T12:00:00Z"}, "moment": {"$date": 0.125}, "text": "a\u202eb\u0000", "nothing": "",
    "list": [true, 1, 1.0, [], {}, {"$data": "AA=="}], "deep": {"$$data": {"in": [{"$date": "2001-01-01T00:00:00Z"}]}}},
  "colour": ["red", 2], "$name": "a key that is called like a member", "$$odd": {"x": 1.5}})";

std::string wholeList() {
  return fileWith(std::string(R"([{"title":"Family","slots":[null,)") + WholeFriend +
                  R"(]},{"title":null,"slots":[]},{"title":"Work","slots":[]},
                     {"slots":[null,null,{"destinations":["+49301234567"]}]}, {"title":"Later"}])");
}

TEST(Export, WhatWasExportedComesBackAsTheSameBytes) {
  const Home first, second;
  ASSERT_EQ(import(first, wholeList()).exitCode, 0);
  const std::string text = exported(first);
  EXPECT_EQ(exported(first), text);
  const json whole = json::parse(text);
  EXPECT_EQ(whole["pages"][0]["slots"][1], json::parse(WholeFriend)) << "nothing of the friend was lost";
  EXPECT_EQ(whole["pages"].size(), 5U);
  EXPECT_EQ(whole["pages"][2], json::parse(R"({"title":"Work","slots":[]})"));

  const auto list = listOf(first);
  const json& zoe = list[0]["slots"][1];
  EXPECT_EQ(zoe["preferredDestination"], "zoe@example.org");
  EXPECT_TRUE(zoe["metadata"]["five"].is_number_float());
  EXPECT_TRUE(zoe["metadata"]["count"].is_number_integer());
  EXPECT_EQ(zoe["metadata"]["bytes"], "AP+AEA==");
  EXPECT_EQ(zoe["metadata"]["day"], "2026-01-31T12:00:00Z");
  EXPECT_FALSE(zoe["metadata"].contains("$$data")) << "the mark is the file's alone";
  EXPECT_EQ(list[3]["slots"][2]["primaryDestination"], "+49301234567");

  const ProgramResult result = import(second, text);
  EXPECT_EQ(result.output,
            "added Zoë Marsh (1:2)\nadded 030 1234567 (4:3)\n"
            "titled page 1: Family\ntitled page 3: Work\ntitled page 5: Later\n");
  EXPECT_EQ(exported(second), text);
  EXPECT_THAT(import(second, text).output, HasSubstr("nothing is to be changed"));
  EXPECT_THAT(import(second, text, {"--replace"}).output, HasSubstr("nothing is to be changed"));
  EXPECT_EQ(exported(second), text);
}

TEST(Export, ContactsOfAnotherMachineTakeOverTheLinks) {
  const Home first, second;
  first.addContact("ann-there", "Ann Lee", "N:Lee;Ann;;;\nTEL:+49 30 1234567\nTEL:030 7654321\n");
  first.addContact("bob-there", "Bob Berg", "N:Berg;Bob;;;\nEMAIL:bob@example.org\n");
  second.addContact("other", "Cy Cole", "TEL:030 1\n");
  second.addContact("ann-here", "Ann Lee", "N:Lee;Ann;;;\nTEL:+49 30 1234567\nTEL:030 7654321\n");
  tell(first, {{{"add", "Bob", "Ann"}, 0, "added"},
               {{"move", "Ann", "2:3"}, 0, ""},
               {{"title", "2", "Work"}, 0, ""},
               {{"number", "Ann", "030 7654321"}, 0, ""},
               {{"reply-as", "Ann", "me@example.org"}, 0, ""},
               {{"meta", "Ann", "birthday", "05-17"}, 0, ""}});
  EXPECT_THAT(exported(first), HasSubstr("\"guid\": \"ann-there\""));
  ASSERT_EQ(import(second, exported(first)).exitCode, 0);
  pellor(second, {"refresh"});
  const json list = listOf(second);
  const json& ann = list[1]["slots"][2];
  EXPECT_EQ(list[1]["title"], "Work");
  EXPECT_EQ(ann["guid"], "ann-here");
  EXPECT_EQ(ann["preferredDestination"], "+49307654321");
  EXPECT_EQ(ann["replyAs"], "me@example.org");
  EXPECT_EQ(ann["metadata"], json::parse(R"({"birthday":"05-17"})"));
  EXPECT_EQ(list[0]["slots"][0]["name"], "Bob Berg");
  EXPECT_EQ(list[0]["slots"][0]["guid"], "bob-there") << "his contact may come later";
  EXPECT_THAT(import(second, exported(first)).output,
              AllOf(HasSubstr("is a friend already: Ann Lee (2:3)\n"), HasSubstr("nothing is to be changed")));
  EXPECT_THAT(import(second, exported(first), {"--replace"}).output, HasSubstr("nothing is to be changed"));
  EXPECT_EQ(listOf(second), list);
}

TEST(Import, AddsWhoIsNoFriendYetWhereThereIsRoom) {
  const Home home;
  tell(home, {{{"add", "030 1234567", "030 1234568"}, 0, "added"}, {{"title", "1", "Mine"}, 0, ""}});
  const std::string file = fileWith(R"([{"title":"Theirs","slots":[{"name":"Ann Lee","destinations":["030 1234567"]},
      {"name":"Bob","destinations":["bob@example.org"]},{"name":"Cy","destinations":["cy@example.org"]}]}])");
  const std::string before = exported(home);
  EXPECT_EQ(import(home, file, {"--dry-run"}).output,
            "would have added Cy (1:3)\nwould have added Bob (1:4)\nis a friend already: 030 1234567 (1:1)\n");
  EXPECT_EQ(exported(home), before);
  const auto result = json::parse(import(home, file, {"--json"}).output);
  EXPECT_EQ(result["added"][1]["slot"], 3);
  EXPECT_EQ(result["isDone"], true);
  EXPECT_EQ(listOf(home)[0]["title"], "Mine");
  EXPECT_EQ(listOf(home)[0]["slots"][3]["name"], "Bob");

  // A family shares its line, and one who has no name but the number is nobody else.
  const std::string family = fileOfFriend(R"("name":"Dora Lee","destinations":["bob@example.org"])");
  EXPECT_EQ(import(home, family).output, "added Dora Lee (1:5)\n");
}

TEST(Import, ADamagedFileChangesNothingAndSaysWhere) {
  const Home home;
  tell(home, {{{"add", "030 1234567"}, 0, "added"}});
  const std::string before = exported(home);
  const auto nested = [](std::size_t depth) {
    return fileOfFriend(R"("destinations":["a@example.org"],"metadata":{"x":)" + std::string(depth, '[') +
                        std::string(depth, ']') + "}");
  };
  const std::string ann = R"({"name":"Ann","destinations":["030 1234568"],"guid":"ann"})";
  const std::string anonymous = R"({"name":"Ann","destinations":["+49 30 1234568"]})";
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"", "line 1, column 1: it is no JSON: "},
      {"BEGIN:VCARD\r\nVERSION:3.0\r\n", "it has contacts: pellor contacts import takes them"},
      {"{\n  \"format\": nonsense}", "line 2, column 14: it is no JSON: "},
      {"{\"format\":\"\xff\"}", "line 1, column 12: it is no JSON: "},
      {"{\"a\":1,\n\"a\":2}", "line 2, column 3: the member \"a\" is there twice"},
      {R"({"a":1e999})", "line 1, column 11: a number that is too large"},
      {std::string(100000, '['), "line 1, column 162: nested deeper than"},
      {"[]", "it is no exported friend list"},
      {pellor(home, {"list", "--json"}).output, "it is no exported friend list"},
      {R"({"format":"pellor friend list","version":2,"pageSize":"x"})", "a later version of pellor made it"},
      {fileWith("[]", "0"), "pageSize is no number from 1 to 65536"},
      {fileWith("{}"), "pages is no array"},
      {fileWith(R"([{},{"title":3}])"), "page 2: title is no text"},
      {fileWith(R"([{"slots":[null,null]},{"slots":[null,null,null]}])", "2"), "page 2: it has 3 slots"},
      {fileWith(R"([{},{"slots":[null,3]}])"), "page 2, slot 2: it is neither a friend nor null"},
      {fileWith("[{\"slots\":[{}]}]"), "page 1, slot 1: the friend has neither a name"},
      {fileOfFriend(R"("name":7)"), "page 1, slot 1: name is no text"},
      {fileOfFriend(R"("name":")" + std::string(1001, 'x') + "\""), "page 1, slot 1: name has more than 1000"},
      {fileOfFriend(R"("name":"A","metadata":{"a":null})"), "page 1, slot 1: metadata is null"},
      {fileOfFriend(R"("name":"A","x":18446744073709551615)"), "page 1, slot 1: x has the number 184467"},
      {fileOfFriend(R"("name":"A","x":{"$data":"A"})"), "page 1, slot 1: x has a \"$data\" that is no base64"},
      {fileOfFriend(R"("name":"A","x":{"$later":1})"), "page 1, slot 1: x has the member \"$later\""},
      {fileOfFriend(R"("name":"A","x":")" + std::string(5U << 20, 'x') + "\""), "page 1, slot 1: x is too long"},
      {nested(125), "page 1, slot 1: metadata is nested deeper than a store can take"},
      {fileWith("[{\"slots\":[" + ann + "]},{\"slots\":[null," + ann + "]}]"),
       "page 2, slot 2: Ann is there twice, also on page 1, slot 1"},
      {fileWith("[{\"slots\":[" + ann + "," + anonymous + "]}]"), "page 1, slot 2: Ann is there twice"},
      {std::string((64U << 20) + 1, ' '), "it is too large"},
  };
  for (const auto& [text, problem] : rows) {
    const ProgramResult result = import(home, text);
    EXPECT_EQ(result.exitCode, 1) << problem;
    EXPECT_THAT(result.errors, AllOf(HasSubstr("nothing was changed: "), HasSubstr(problem)));
  }
  EXPECT_EQ(exported(home), before);
  EXPECT_EQ(import(home, nested(124)).exitCode, 0) << "as deep as a store takes it";
  EXPECT_THAT(exported(home), HasSubstr(std::string("\"x\": [")));
}

TEST(Import, MembersThatThisVersionDoesNotKnow) {
  const Home home;
  const ProgramResult result =
      import(home, R"({"format":"pellor friend list","version":1,"pageSize":12,"by":"me","pages":[{"icon":1,"slots":[
        {"name":"Ann","destinations":["030 1"],"colour":"red","ABRecordID":7,"Name":"Bob"}]}]})");
  EXPECT_EQ(result.output, "added Ann (1:1)\n");
  EXPECT_EQ(result.exitCode, 0);
  for (const char* member : {"member \"by\"", "page 1: member \"icon\"", "page 1, slot 1: member \"ABRecordID\"",
                             "page 1, slot 1: member \"Name\""}) {
    EXPECT_THAT(result.errors, HasSubstr(std::string("left out, as this version does not know it: ") + member + "\n"));
  }
  EXPECT_THAT(exported(home), AllOf(HasSubstr("\"colour\": \"red\""), Not(HasSubstr("ABRecordID"))));
}

// The list would lose them at its next load or clean-up: nobody is to be told that they were added.
TEST(Import, WhoWouldNotStayIsLeftOutAndNamed) {
  const Home home;
  home.addContact("ann", "Ann Lee", "N:Lee;Ann;;;\nTEL:+49 30 1234567\nTEL:030 7654321\n");
  const std::string file = fileWith(R"([{"slots":[{"name":"Nobody"},{"name":"Ann Lee","destinations":["030 1234567"]},
      {"name":"Ann","destinations":["030 7654321"]}]}])");
  const std::string added = "added Ann Lee (1:2)\n";
  const std::string leftOut =
      "left out Nobody: there is neither a number nor an address\n"
      "left out Ann Lee: a friend before in the file has the same contact\n";
  EXPECT_EQ(import(home, file).output, added + leftOut);
  const std::string before = exported(home);
  EXPECT_THAT(import(home, file, {"--replace"}).output, AllOf(HasSubstr(leftOut), Not(HasSubstr("removed"))));
  pellor(home, {"refresh"});
  EXPECT_EQ(exported(home), before);
}

TEST(Export, WritesAFileForItsOwnerAlone) {
  const Home home;
  const fs::path file = home / "friends.json";
  const std::string folder = home / "folder";
  fs::create_directory(folder);
  tell(home, {{{"add", "030 1234567"}, 0, "added"},
              {{"export", file}, 0, "exported 1 friend to " + file.string()},
              {{"export", file, "--json"}, 0, R"("friends":1)"},
              {{"export", folder}, 1, "is a folder: name a file"},
              {{"export", "/dev/null"}, 1, "is no file"},
              {{"export", home / "missing/friends.json"}, 1, "there is no folder "},
              {{"import", home / "missing.json"}, 1, "it cannot be read: No such file"},
              {{"import", folder}, 1, "it cannot be read: Is a directory"},
              {{"export", ""}, 2, "FILE is empty"}});
  EXPECT_EQ(contentOf(file), exported(home));
  EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  fs::create_symlink(file, home / "link");
  tell(home, {{{"export", home / "link"}, 0, "exported"}});
  EXPECT_TRUE(fs::is_symlink(home / "link"));
  std::size_t count = 0;
  for (const auto& entry : fs::directory_iterator(file.parent_path()))
    count += entry.path().string().find(".json.") != std::string::npos;
  EXPECT_EQ(count, 0U) << "nothing is left beside the file";
}

}  // namespace
}  // namespace pellor
