// pellor contacts import

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/cli/Program.h"
#include "tests/cli/UnprivilegedUser.h"

namespace pellor {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;

std::string card(const std::string& name, const std::string& lines) {
  return "BEGIN:VCARD\nVERSION:3.0\nFN:" + name + "\n" + lines + "END:VCARD\n";
}

ProgramResult inShell(const Home& home, const std::string& line) {
  const std::string program = "pellor() { '" PELLOR_PROGRAM "' \"$@\"; }; ";
  return Program(home, {"/bin/sh", "-c", program + line}).finish();
}

TEST(ContactImport, AStoryOfTwoFilesAndAPipe) {
  const Home home;
  const std::string phone = home / "phone.vcf", table = home / "table.csv";
  writeFile(phone, card("Ann Lee", "UID:ann\nTEL:030 1234567\n") + card("Zoë Marsh", "EMAIL:zoe@example.org\n"));
  writeFile(table, "Vorname;Nachname;Telefon (privat)\nJörg;Mühlgrab;030 7654321\n;;\n");

  const ProgramResult first = pellor(home, {"contacts", "import", phone, table, home / "gone.vcf"});
  EXPECT_EQ(first.exitCode, 1);
  EXPECT_EQ(first.output, "imported 3 contacts\nleft out " + table +
                              ", line 3: the row has neither a name nor a number or address\nleft out " +
                              (home / "gone.vcf").string() + ": it cannot be read: No such file or directory\n");
  EXPECT_EQ(first.errors, "pellor: 2 files or cards were left out\n");
  EXPECT_THAT(pellor(home, {"contacts", "mühl"}).output, HasSubstr("030 7654321"));
  EXPECT_THAT(pellor(home, {"add", "zoe@example.org"}).output, HasSubstr("added Zoë Marsh"));

  const ProgramResult again = inShell(home, "cat '" + phone + "' | pellor contacts import -");
  EXPECT_EQ(again.output, "imported 0 contacts\n2 contacts were there already\n");
  EXPECT_EQ(again.exitCode, 0) << again.errors;

  writeFile(phone, card("Ann Berg", "UID:ann\nTEL:030 1234567\n"));
  EXPECT_THAT(pellor(home, {"contacts", "import", phone}).output, HasSubstr("card 1 (Ann Berg) differs\n--replace"));
  EXPECT_THAT(pellor(home, {"contacts", "import", "--replace", phone}).output, HasSubstr("1 of them in place"));
  EXPECT_THAT(pellor(home, {"contacts"}).output, HasSubstr("Ann Berg"));
}

TEST(ContactImport, AnswersInJson) {
  const Home home;
  home.addContact("mine", "Ann Lee", "TEL:1\n");
  const std::string file = home / "phone.vcf";
  writeFile(file, card("Ann Lee", "UID:mine\nTEL:2\n") + card("Zoë", "UID:z/1\nTEL:3\n") + "BEGIN:VCARD\nFN:Bo\n");
  const ProgramResult result = pellor(home, {"contacts", "import", file, "--json"});
  EXPECT_EQ(result.exitCode, 1);
  const json answer = json::parse(result.output);
  const auto expected = [&](const std::string& members) {
    json entry = json::parse("{\"line\":null," + members + "}");
    entry["file"] = file;
    return json::array({entry});
  };
  EXPECT_EQ(answer.at("imported"),
            expected(R"("card":2,"name":"Zoë","guid":"z/1","contactFile":"z%2f1.vcf","isReplaced":false)"));
  EXPECT_EQ(answer.at("known"), expected(R"("card":1,"name":"Ann Lee","guid":"mine","differs":true)"));
  EXPECT_EQ(answer.at("leftOut"), expected(R"("card":3,"name":"Bo","reason":"it has no END:VCARD")"));
}

TEST(ContactImport, WhereNothingCanBeImported) {
  const Home home;
  const std::string file = home / "phone.vcf";
  writeFile(file, card("Ann Lee", "TEL:1\n"));
  const std::string missing = home / "missing";
  const ProgramResult nowhere = pellor(home, {"contacts", "import", file, "--contacts", missing});
  EXPECT_EQ(nowhere.errors, "pellor: there is no contacts folder " + missing + "\n");
  EXPECT_EQ(nowhere.exitCode, 1);
  EXPECT_FALSE(std::filesystem::exists(missing)) << "only the usual folder is made";
  EXPECT_EQ(pellor(home, {"contacts", "import", file, "--contacts", file}).errors,
            "pellor: " + file + " is one file: contacts are imported into a folder\n");
  EXPECT_EQ(pellor(home, {"contacts", "import"}).exitCode, 2);
  EXPECT_EQ(pellor(home, {"contacts", "import", "-", "-"}).exitCode, 2);

  home.addContact("import", "Import Export", "TEL:2\n");
  EXPECT_THAT(pellor(home, {"contacts", "--", "import"}).output, HasSubstr("Import Export"));
  EXPECT_EQ(pellor(home, {"contacts", "Ann", "import", file}).exitCode, 2) << "a search imports nothing";

  const UnprivilegedUser user(home);
  const ProgramResult readOnly = user.run({"contacts", "import", file});
  EXPECT_THAT(readOnly.errors, HasSubstr("nothing can be imported into the contacts folder"));
  EXPECT_THAT(readOnly.errors, HasSubstr("Permission denied"));
  EXPECT_THAT(readOnly.output, IsEmpty());
}

}  // namespace
}  // namespace pellor
