// What the commands answer, and how they exit.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "tests/cli/EarlierJson.h"
#include "tests/cli/Story.h"

namespace pellor {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST(Commands, AddRemoveAndMove) {
  const Home home;
  addPeople(home);
  tell(home, {
                 {{}, 0, "Page 1: Favorites\n 1 + AL Ann Lee"},
                 {{"add", "anna"}, 0, "added Anna Berg (1:2)"},
                 {{"add", "ANNA BERG"}, 1, "Anna Berg is a friend already (1:2)"},
                 {{"add", "+49 30 765 43 21"}, 1, "Anna Berg is a friend already (1:2)"},
                 {{"add", "zoe marsh", "0151-23456789"}, 0, "added Zoë Marsh (1:3)\nadded 01512 3456789 (1:4)\n"},
                 {{"add", "No Body"}, 1, "No Body has neither a number nor an address"},
                 // All or none.
                 {{"add", "030 1112233", "No Body"}, 1, "No Body"},
                 {{"find", "030 1112233"}, 1, "nobody has 030 1112233"},
                 {{"add", "030 1112233", "+49301112233"}, 2, "is named twice"},
                 {{"move", "Ann@EXAMPLE.org", "1:2"}, 0, "moved Ann Lee (1:2)\nmoved Anna Berg (1:1)"},
                 {{"list"}, 0, "Page 2\n"},
                 {{"move", "zoe", "2:12"}, 0, "moved Zoë Marsh (2:12)"},
                 {{"list"}, 0, "Page 3\n"},
                 {{"move", "zoe", "3:13"}, 1, "there is no slot 3:13"},
                 {{"move", "1:5", "1:2"}, 1, "slot 1:5 is empty"},
                 {{"remove", "anna", "stranger"}, 1, "stranger"},
                 {{"remove", "anna", "1:1"}, 2, "Anna Berg is named twice"},
                 {{"remove", "ann lee", "0151 234 56789"}, 0, "removed Ann Lee (1:2)\nremoved 01512 3456789 (1:4)\n"},
             });
}

TEST(Commands, WhatBelongsToPagesAndFriends) {
  const Home home;
  addPeople(home);
  tell(home, {
                 {{"add", "anna"}, 0, "(1:2)"},
                 {{"move", "anna", "2:1"}, 0, "(2:1)"},
                 {{"title", "2", "Family"}, 0, "Page 2: Family"},
                 {{"title", "1", ""}, 0, "Page 1\n"},
                 {{"title", "7"}, 1, "there is no page 7"},
                 {{"reply-as", "anna", "me@example.org"}, 0, "me@example.org"},
                 {{"reply-as", "anna", "--clear"}, 0, "(none)"},
                 {{"meta", "anna", "colour", "blue"}, 0, "colour = blue"},
                 {{"meta", "anna", "colour"}, 0, "blue\n"},
                 {{"meta", "anna", "--clear"}, 0, ""},
                 {{"meta", "anna", "colour"}, 1, "no metadata"},
                 {{"move", "ann lee", "2:2"}, 0, "(2:2)"},
                 {{"purge"}, 0, "removed 1 empty page\n"},
                 {{"list"}, 0, "Page 1: Family\n 1 + AB Anna Berg"},
                 {{"find", "+49307654321"}, 0, "Anna Berg (friend, 1:1)\n"},
                 {{"find", "anna"}, 2, "neither a number nor an address: pellor contacts finds people by their names"},
                 {{"find", "mailto:zoe@example.org"}, 0, "Zoë Marsh (contact, "},
             });
}

// The platform answers no queries, so the library's own answer comes, after its five seconds.
TEST(Commands, WhoIsReachable) {
  const Home home;
  addPeople(home);
  const std::string everybody = "not checked, so everybody counts as reachable: ";
  tell(home,
       {
           {{"add", "anna"}, 0, "(1:2)"},
           {{"status"}, 0, everybody + "no messaging service is named (--service)\n+ Ann Lee (1:1): reachable\n"},
           {{"status", "anna", "--requery"}, 0, everybody},
           {{"status", "--service", "Notes"}, 0, "? Ann Lee (1:1): not asked yet\n? Anna Berg (1:2): not asked yet\n"},
           {{"list", "--service", "Notes"}, 0, " 1 ? AL Ann Lee"},
           {{"status", "anna", "1:1", "--service", "Notes", "--requery"},
            0,
            "+ Anna Berg (1:2): reachable at 030 7654321\n+ Ann Lee (1:1): reachable at "},
       });
}

TEST(Commands, ContactsFavoritesAndSettings) {
  const Home home;
  addPeople(home);
  tell(home, {
                 {{"--region", "de", "settings", "region"}, 0, "DE\n"},
                 {{"--region", "FR", "list"}, 2, "pellor settings region FR"},
                 {{"contacts", "MARSH"}, 0, "  Z. Marsh"},
                 {{"allow", "anna"}, 0, "Anna Berg may be added"},
                 {{"allow", "ann lee"}, 1, "Ann Lee is a friend already (1:1)"},
                 {{"refresh"}, 0, "in step"},
                 {{"favorites"}, 0, "1 Ann Lee +49 30 1234567\n"},
                 {{"favorites", "add", "zoe"}, 0, "2 Zoë Marsh"},
                 {{"favorites", "move", "2", "1"}, 0, "1 Zoë Marsh"},
                 {{"favorites", "remove", "ann lee"}, 0, "1 Zoë Marsh"},
                 {{"settings"}, 0, "page-size           12 (default)"},
                 {{"settings", "page-size", "1"}, 0, "1\n"},
                 {{"settings", "max-pages", "2"}, 0, "2\n"},
                 {{"add", "anna"}, 0, "(2:1)"},
                 {{"add", "zoe marsh"}, 1, "there is no room"},
                 {{"settings", "region", "us"}, 0, "US\n"},
                 {{"find", "+49307654321"}, 1, "nobody has"},
             });
}

TEST(Commands, APersonWithAFormattedNameAloneIsAbbreviatedAsTheLocaleWritesNames) {
  Home home;
  home.setVariable("LC_ALL=hu_HU.UTF-8");
  home.addContact("bela", "ifj. Kovács Béla", "NICKNAME:Béci\nTEL:+3612345678\n");
  tell(home, {
                 {{"add", "kovács"}, 0, "added ifj. Kovács Béla (1:1)"},
                 {{"list"}, 0, " 1 + KB ifj. Kovács Béla"},
                 {{"settings", "short-names", "on"}, 0, "true\n"},
                 {{"list"}, 0, " 1 + KB Béla  "},
                 {{"settings", "prefer-nicknames", "true"}, 0, "true\n"},
                 {{"list"}, 0, " 1 + KB Béci  "},
             });
}

TEST(Commands, WrongUsage) {
  const Home home;
  tell(home, {
                 {{"move", "ann", "first"}, 2, "\"first\" is no place such as 2:5"},
                 {{"move", "ann", "0:1"}, 2, "numbered from 1"},
                 {{"remove", ""}, 2, "WHO is empty"},
                 {{"reply-as", "ann", "a@b", "--clear"}, 2, "--clear"},
                 {{"settings", "page-size", "0"}, 2, "from 1 to 65536"},
                 {{"settings", "short-names", "yes"}, 2, "\"yes\" is neither on"},
             });
}

TEST(Commands, PasswordsAreNotShownAndWarnedOfOnTheCommandLine) {
  const Home home;
  std::filesystem::create_directories(home / "config/pellor");
  const auto keys = [&home](const std::string& configuration) {
    writeFile(home / "config/pellor/config.toml", configuration);
    const ProgramResult result = pellor(home, {"doctor", "--keys", "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(result.errors, IsEmpty());
    return result.output;
  };
  const char* const hidden[] = {"host=db password=hush7 dbname=x", "host=db PASSWORD = 'hush7'",
                                "host=db sslpassword=hush7", "postgresql://ada:hush7@db/x",
                                "postgresql://db/x?user=ada&password=hush7"};
  for (const char* connection : hidden) {
    const std::string shown = keys("[postgresql]\nconnection = \"" + std::string(connection) + "\"\n");
    EXPECT_THAT(shown, AllOf(HasSubstr("not shown"), Not(HasSubstr("hush7")))) << connection;
    const ProgramResult warned = pellor(home, {"doctor", "--keys", "--postgresql-connection", connection});
    EXPECT_THAT(warned.errors, AllOf(HasSubstr("put it into"), Not(HasSubstr("hush7"))));
    EXPECT_EQ(std::ranges::count(warned.errors, '\n'), 1);
    EXPECT_THAT(warned.output, AllOf(HasSubstr("not shown"), Not(HasSubstr("hush7"))));
  }
  EXPECT_THAT(keys("[postgresql]\nconnection = \"postgresql://ada@db:5432/x\"\n"), HasSubstr("ada@db:5432"));
  EXPECT_THAT(keys("[ldap]\npassword-file = \"/etc/pellor/secret\"\n"), HasSubstr("/etc/pellor/secret"));
}

TEST(Commands, TheDoctorTellsWhatFailsAndMakesNothing) {
  const Home home;
  const auto expect = [&home](const Arguments& arguments, const char* output, const char* error) {
    const ProgramResult result = pellor(home, arguments);
    EXPECT_EQ(result.exitCode, *error == 0 ? 0 : 1);
    EXPECT_THAT(result.output, HasSubstr(output));
    EXPECT_THAT(result.errors, HasSubstr(error));
  };
  std::filesystem::remove_all(home.dataFolder());
  writeFile(home / "file", "");
  expect({"doctor"}, "-> put vCard files there", "address-book fails: ");
  expect({"doctor", "--data", (home / "file/none").string()}, "store          sqlite      fails", "does not exist");
  expect({"doctor", "--region", "fr"}, "not made yet; national numbers are read as in FR\n", "address-book");
  expect({"doctor", "--keys", "--region", "de"}, "region                    DE  #", "");
  EXPECT_FALSE(std::filesystem::exists(home.dataFolder()));

  std::filesystem::create_directories(home.contactsFolder());
  addPeople(home);
  ASSERT_EQ(pellor(home, {"list"}).exitCode, 0);
  expect({"doctor"}, "contacts: 5 cards\n", "");
  expect({"doctor", "--region", "fr"}, "; national numbers are read as in DE; the newest copy", "");
  writeFile(home.storeFile(), "no database");
  expect({"doctor"}, "-> put a backup in its place", "store fails: ");
}

TEST(Commands, AllCardsOfAFileAreContactsAndOthersAreNamed) {
  const Home home;
  const auto card = [](const std::string& lines) { return "BEGIN:VCARD\r\nVERSION:3.0\r\n" + lines + "END:VCARD\r\n"; };
  const std::string cards =
      card("FN:Ann Lee\r\nTEL:+49 30 1234567\r\n") + "BEGIN:VCARD\r\nFN:Bo\x1b[1m\r\n" + card("FN:Cy\r\n");
  writeFile(home.contactsFolder() / "export.vcf", cards);
  writeFile(home.contactsFolder() / "letter.vcf", "Dear Ann,\n");
  const char* const told = "2 cards give no contact: pellor doctor lists what is wrong\n";
  tell(home, {
                 {{"contacts"}, 0, told},
                 {{"contacts", "cy"}, 0, "  Cy  (unreachable)"},
                 {{"--json", "contacts"}, 0, "\"unusableCards\":2"},
                 {{"doctor"}, 0, "contacts: 2 cards, and 2 that give no contact"},
                 {{"doctor"}, 0, " export.vcf: card 2 (Bo [1m): it has no END:VCARD\n"},
                 {{"doctor"}, 0, " letter.vcf: the file holds no BEGIN:VCARD\n"},
                 {{"--json", "doctor"}, 0, "letter.vcf: the file holds no BEGIN:VCARD"},
             });
  // A file of cards, wherever it lies, is read as it is.
  const std::string file = (home / "mine.vcf").string();
  tell(home, {
                 {{"contacts", "--contacts", file}, 1, "the contacts file " + file + " does not exist"},
             });
  writeFile(file, card("FN:Ann Lee\r\nTEL:1\r\n") + card("UID:d\r\nFN:Di\r\nPHOTO;ENCODING=b;TYPE=PNG:aGVsbG8=\r\n"));
  tell(home, {
                 {{"contacts", "--contacts", file}, 0, "  Di       (unreachable)  d\n"},
                 {{"doctor", "--contacts", file}, 0, "mine.vcf: 2 cards\n"},
                 {{"--json", "contacts", "--photos", "--contacts", file},
                  0,
                  "\"photo\":{\"type\":\"image/png\",\"base64\":\"aGVsbG8=\"}}"},
                 {{"add", "ann", "--contacts", file}, 0, "added Ann Lee"},
             });
}

TEST(Commands, FriendsHaveThePicturesOfTheirCards) {
  const Home home;
  addPeople(home);
  home.addContact("di", "Di", "TEL:+49305550199\nPHOTO;ENCODING=b;TYPE=PNG:aGVsbG8=\n");
  ASSERT_EQ(pellor(home, {"add", "di", "+49305550100"}).errors, "");
  const auto answer = [&](Arguments arguments) {
    arguments.insert(arguments.end(), {"--json", "--photos"});
    return nlohmann::json::parse(pellor(home, arguments).output, nullptr, false);
  };
  const nlohmann::json picture = {{"type", "image/png"}, {"base64", "aGVsbG8="}};
  const nlohmann::json slots = answer({"list"})["pages"][0]["slots"];
  EXPECT_EQ(slots[1]["photo"], picture);
  EXPECT_EQ(slots[1]["monogram"], "D");
  for (const auto& without : {slots[0], slots[2]}) EXPECT_TRUE(without.contains("photo") && without["photo"].is_null());
  EXPECT_TRUE(slots[3].is_null());
  EXPECT_EQ(answer({"status", "di"})["friends"][0]["friend"]["photo"], picture);
  EXPECT_EQ(answer({"number", "di"})["friend"]["photo"], picture);
  EXPECT_THAT(pellor(home, {"list", "--json"}).output, Not(HasSubstr("photo")));
}

TEST(Commands, AStoreMadeWithoutALocaleSaysWhichRegionItAssumesOnce) {
  Home home;
  home.setVariable("LC_ALL=C.UTF-8");
  EXPECT_THAT(pellor(home, {"doctor"}).output, HasSubstr("-> no locale names a country"));
  const ProgramResult first = pellor(home, {"add", "202-555-0123"});
  EXPECT_EQ(first.exitCode, 0);
  EXPECT_EQ(first.output, "added (202) 555-0123 (1:1)\n");
  EXPECT_THAT(first.errors, HasSubstr("as in US; \"pellor settings region XX\""));
  tell(home, {{{"list"}, 0, "(202) 555-0123"}, {{"settings", "region"}, 0, "US"}});

  Home told;
  told.setVariable("LC_ALL=C");
  tell(told, {{{"settings", "region", "DE"}, 0, "DE"}, {{"add", "030 1234567"}, 0, "added 030 1234567"}});
}

TEST(Commands, TheListOfVersion01IsShownAsThatVersionShowedIt) {
  const Home home;
  const auto earlier = std::filesystem::path(PELLOR_TEST_DATA) / "0.1/sqlite";
  std::filesystem::remove_all(home.dataFolder());
  std::filesystem::copy(earlier / "data", home.dataFolder(), std::filesystem::copy_options::recursive);
  std::filesystem::permissions(home.storeFile(), std::filesystem::perms{0600});
  const auto shown = asVersion01Said(pellor(home, {"--json", "list"}).output);
  EXPECT_EQ(shown, nlohmann::json::parse(contentOf(earlier / "list.json")));
}

// Everything that is a number in an answer counts something; a record's number would be one too many.
void expectNoRecordNumbers(const nlohmann::json& json, const std::string& member) {
  static const std::set<std::string> counts = {"page",  "slot",    "pageSize",     "removedPages",
                                               "value", "version", "unusableCards"};
  EXPECT_TRUE(!json.is_number() || counts.contains(member)) << member;
  if (!json.is_structured()) return;
  for (const auto& [key, value] : json.items()) expectNoRecordNumbers(value, json.is_array() ? member : key);
}

TEST(Commands, AnswerInJson) {
  const Home home;
  addPeople(home);
  const std::vector<std::pair<Arguments, const char*>> cases = {
      {{}, "/pages/0/slots/0/status"},
      {{"status", "--service", "Notes", "--requery"}, "/friends/0/reachableDestinations/1"},
      {{"add", "anna"}, "/added/0/friend/guid"},
      {{"move", "anna", "1:1"}, "/moved/1/slot"},
      {{"find", "+49307654399"}, "/contacts/0/linkedGuids/0"},
      {{"title", "1", "Family"}, "/title"},
      {{"purge"}, "/removedPages"},
      {{"reply-as", "anna", "me@example.org"}, "/friend/replyAs"},
      {{"meta", "anna", "colour", "blue"}, "/friend/metadata/colour"},
      {{"contacts"}, "/contacts/3/isFriend"},
      {{"allow", "zoe"}, "/contact/guid"},
      {{"favorites", "add", "anna"}, "/favorites/1/name"},
      {{"settings", "page-size", "6"}, "/settings/page-size/value"},
      {{"refresh"}, "/changes"},
      {{"remove", "anna"}, "/removed/0/page"},
  };
  for (const auto& [arguments, pointer] : cases) {
    Arguments command = arguments;
    command.emplace_back("--json");
    const ProgramResult result = pellor(home, command);
    SCOPED_TRACE(testing::PrintToString(command) + result.output + result.errors);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_TRUE(isOneLine(result.output));
    const auto json = nlohmann::json::parse(result.output, nullptr, false);
    EXPECT_TRUE(json.contains(nlohmann::json::json_pointer(pointer))) << pointer;
    expectNoRecordNumbers(json, "");
  }
  const ProgramResult refused = pellor(home, {"--json", "allow", "nobody"});
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_EQ(nlohmann::json::parse(refused.output)["reason"], "noDestination");
  EXPECT_TRUE(isOneLine(refused.errors));
}

}  // namespace
}  // namespace pellor
