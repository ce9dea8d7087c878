// Numbers and addresses as users type and see them.

#include <nlohmann/json.hpp>
#include <string>

#include "tests/cli/Story.h"

namespace pellor {
namespace {

using testing::HasSubstr;

TEST(Numbers, LettersFromAToZOfAddressesHaveNoCaseInAnyLocale) {
  Home turkish;
  turkish.setVariable("LC_ALL=tr_TR.UTF-8");
  turkish.addContact("INGE", "Inge", "EMAIL:I@EXAMPLE.org\n");
  tell(turkish, {
                    {{"add", "INFO@example.org"}, 0, "added INFO@example.org (1:1)"},
                    {{"add", "info@EXAMPLE.ORG"}, 1, "INFO@example.org is a friend already (1:1)"},
                    {{"add", "Id@example.org", "iD@example.org"}, 2, "is named twice"},
                    {{"find", "i@example.ORG"}, 0, "Inge (contact, INGE)"},
                    {{"contacts", "i@example"}, 0, "Inge"},
                    {{"contacts", "inge"}, 0, "Inge"},
                    {{"remove", "info@example.org"}, 0, "removed INFO@example.org (1:1)"},
                });
  const Home german;
  tell(german, {
                   {{"add", "strasse@example.org"}, 0, "added strasse@example.org (1:1)"},
                   {{"add", "straße@example.org"}, 0, "added straße@example.org (1:2)"},
                   {{"find", "STRASSE@example.org"}, 0, "strasse@example.org (friend, 1:1)\n"},
                   {{"find", "STRAßE@example.org"}, 0, "straße@example.org (friend, 1:2)\n"},
               });
}

TEST(Numbers, FamiliesShareALine) {
  const Home home;
  for (const char* name : {"Ann", "Bea", "Cid"}) {
    home.addContact(std::string("lee") + name[0], std::string(name) + " Lee",
                    std::string("N:Lee;") + name + ";;;\nTEL:030 1234567\nEMAIL:" + name + "@example.org\n");
  }
  tell(home,
       {
           {{"add", "ann lee"}, 0, "added Ann Lee (1:1)\n"},
           {{"add", "bea lee"}, 0, "added Bea Lee (1:2)\nAnn Lee (1:1) and Bea Lee (1:2) share 030 1234567\n"},
           {{"add", "+49 30 1234567"}, 1, "Ann Lee is a friend already (1:1)"},
           {{"add", "BEA@example.org"}, 1, "Bea Lee is a friend already (1:2)"},
           {{"add", "leeC"}, 0, "(1:3)\nAnn Lee (1:1), Bea Lee (1:2) and Cid Lee (1:3) share 030 1234567\n"},
           {{"remove", "1:1", "1:2", "1:3"}, 0, "removed"},
           {{"add", "leeA", "leeB"}, 0, "added Bea Lee (1:2)\nAnn Lee (1:1) and Bea Lee (1:2) share 030 1234567\n"},
           {{"refresh"}, 0, "in step"},
           {{"find", "030 1234567"}, 0, "Ann Lee (friend, 1:1)\nBea Lee (friend, 1:2)\n"},
       });
}

TEST(Numbers, TheNumberThatIsShownIsTheUsersChoiceElseTheCards) {
  const Home home;
  home.addContact("ann", "Ann Lee",
                  "N:Lee;Ann;;;\nEMAIL:ann@example.org\nTEL:0151 23456789\nTEL;TYPE=pref:030 7654321\n");
  home.addContact("bob", "Bob Ray", "N:Ray;Bob;;;\nTEL:040 999888\nTEL:030 1234567\n");
  tell(home, {
                 {{"add", "ann", "bob", "030 5556667"}, 0, "(1:3)"},
                 {{"number", "ann"}, 0, "030 7654321\n"},
                 {{"number", "bob"}, 0, "040 999888\n"},
                 {{"number", "1:3"}, 0, "030 5556667\n"},
                 {{"number", "ann", "0151-23456789"}, 0, "01512 3456789\n"},
                 {{"list"}, 0, "01512 3456789"},
                 {{"number", "ann", "ANN@example.org"}, 0, "ann@example.org\n"},
                 {{"number", "ann", "030 1234567"}, 1, "Ann Lee has no \"030 1234567\", but"},
                 {{"number", "bob", "030 1234567"}, 0, "030 1234567\n"},
             });
  home.addContact("bob", "Bob Ray", "N:Ray;Bob;;;\nTEL:040 999888\n");
  tell(home, {
                 {{"refresh"}, 0, "updated 1:2 Bob Ray"},
                 {{"number", "bob"}, 0, "040 999888\n(chosen, but not Bob Ray's at present: 030 1234567)\n"},
                 {{"number", "bob", "--clear"}, 0, "040 999888\n"},
                 {{"number", "bob", "1", "--clear"}, 2, "--clear"},
             });
  const auto list = nlohmann::json::parse(pellor(home, {"--json", "list"}).output, nullptr, false);
  const auto& ann = list["pages"][0]["slots"][0];
  EXPECT_EQ(ann["shownDestination"], "ann@example.org");
  EXPECT_EQ(ann["preferredDestination"], "ann@example.org");
  EXPECT_EQ(ann["primaryDestination"], "+4915123456789");
  EXPECT_EQ(list["pages"][0]["slots"][1]["shownDestination"], "+4940999888");
  EXPECT_TRUE(list["pages"][0]["slots"][1]["preferredDestination"].is_null());
}

}  // namespace
}  // namespace pellor
