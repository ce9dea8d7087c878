// What the program says and does while contacts are gone or cannot be read.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/cli/Program.h"
#include "tests/cli/UnprivilegedUser.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class VanishedContacts : public testing::Test {
 protected:
  VanishedContacts() {
    addContacts();
    EXPECT_EQ(pellor(home, {"add", "person 1", "person 2"}).exitCode, 0);
    EXPECT_EQ(pellor(home, {"refresh"}).exitCode, 0);
  }

  void addContacts() const {
    for (const char digit : std::string("0123456789")) {
      home.addContact(guid(digit), std::string("Person ") + digit, std::string("TEL:+49 30 200010") + digit + "\n");
    }
  }
  void vanish() const {
    for (const auto& entry : fs::directory_iterator(home.contactsFolder())) fs::remove(entry.path());
  }
  static std::string guid(char digit) { return std::string("person-") + digit; }
  fs::path memoryFile() const {
    for (const auto& entry : fs::directory_iterator(home.dataFolder())) {
      if (entry.path().filename().string().starts_with("refreshed-")) return entry.path();
    }
    return {};
  }
  std::string linkedGuids() const {
    const auto list = nlohmann::json::parse(pellor(home, {"list", "--json"}).output);
    std::string text;
    for (const auto& slot : list["pages"][0]["slots"]) {
      if (!slot.is_null()) text += (slot["guid"].is_null() ? "none" : slot["guid"].get<std::string>()) + " ";
    }
    return text;
  }

  const Home home;
  const std::string bothNumbers = "only 0 of 10 ";
};

TEST_F(VanishedContacts, FriendsKeepTheirContactsUntilTheUserAcceptsIt) {
  EXPECT_EQ(fs::status(memoryFile()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  vanish();
  const ProgramResult held = pellor(home, {"refresh"});
  EXPECT_EQ(held.exitCode, 1);
  EXPECT_EQ(held.output, "");
  EXPECT_THAT(held.errors, AllOf(HasSubstr(bothNumbers + "contacts"), HasSubstr("pellor refresh --accept")));
  const auto json = nlohmann::json::parse(pellor(home, {"refresh", "--json"}).output);
  EXPECT_EQ(json["heldBack"]["before"], 10);
  EXPECT_EQ(json["heldBack"]["now"], 0);
  const ProgramResult doctor = pellor(home, {"doctor"});
  EXPECT_EQ(doctor.exitCode, 0);
  EXPECT_THAT(doctor.output, AllOf(HasSubstr(bothNumbers + "are there"), HasSubstr("pellor refresh --accept")));
  EXPECT_THAT(pellor(home, {"--verbose", "list"}).errors, HasSubstr("is held back: " + bothNumbers + "contacts"));

  // All else goes on.
  EXPECT_THAT(pellor(home, {"contacts"}).output, testing::StartsWith("there are no contacts: "));
  EXPECT_EQ(pellor(home, {"add", "030 7654321"}).exitCode, 0);
  EXPECT_EQ(linkedGuids(), "person-1 person-2 none ");

  addContacts();
  EXPECT_EQ(pellor(home, {"refresh"}).exitCode, 0);
  vanish();
  fs::remove(home.dataFolder() / "contacts-index.sqlite");
  EXPECT_EQ(pellor(home, {"refresh"}).exitCode, 1) << "also with an index that is made anew";
  const ProgramResult accepted = pellor(home, {"refresh", "--accept"});
  EXPECT_EQ(accepted.exitCode, 0) << accepted.errors;
  EXPECT_THAT(accepted.output, HasSubstr("updated 1:1"));
  EXPECT_EQ(linkedGuids(), "none none none ");
  EXPECT_THAT(pellor(home, {"doctor"}).output, Not(HasSubstr("are there")));
}

TEST_F(VanishedContacts, WhatIsKeptOfTheContactsMayGetLostOrDamaged) {
  for (const char* damage : {"", "1 10", "1 90 815000000 - 5\n", "garbage"}) {
    writeFile(memoryFile(), damage);
    EXPECT_EQ(pellor(home, {"list"}).exitCode, 0) << "learns how many there are";
    vanish();
    EXPECT_THAT(pellor(home, {"refresh"}).errors, HasSubstr(bothNumbers)) << damage;
    addContacts();
    EXPECT_EQ(pellor(home, {"refresh"}).exitCode, 0);
  }
  // Nobody knows that there were more.
  vanish();
  fs::remove(memoryFile());
  EXPECT_EQ(pellor(home, {"refresh"}).exitCode, 0);
  EXPECT_EQ(linkedGuids(), "none none ");
}

TEST_F(VanishedContacts, AFolderThatCannotBeListedIsNotInStep) {
  const fs::path folder = home.contactsFolder();
  const auto refreshUnlisted = [&] {
    const UnprivilegedUser user(home, "a+rwX");
    fs::permissions(folder, fs::perms::owner_exec | fs::perms::group_exec | fs::perms::others_exec);
    return user.run({"refresh"});
  };
  const ProgramResult refresh = refreshUnlisted();
  EXPECT_EQ(refresh.exitCode, 1);
  EXPECT_EQ(refresh.output, "");
  EXPECT_THAT(refresh.errors, HasSubstr("nothing was refreshed: the contacts folder " + folder.string()));
  fs::permissions(folder, fs::perms::all);
  EXPECT_EQ(pellor(home, {"refresh"}).exitCode, 0);
  EXPECT_EQ(linkedGuids(), "person-1 person-2 ");
}

TEST(FirstList, ItWaitsForAContactsFolderAndTakesTheFavoritesThen) {
  const Home home;
  fs::remove_all(home.contactsFolder());
  EXPECT_THAT(pellor(home, {"list"}).output, AllOf(HasSubstr("Page 1\n"), HasSubstr(" 1      (empty)")));
  EXPECT_THAT(pellor(home, {"favorites", "import"}).errors, HasSubstr("no contacts folder"));
  EXPECT_EQ(pellor(home, {"add", "030 7654321"}).exitCode, 0);

  fs::create_directories(home.contactsFolder());
  home.addContact("ann", "Ann Lee", "TEL:+49 30 1234567\nX-FOLKS-FAVOURITE:true\n");
  home.addContact("bob", "Bob Berg", "TEL:+49 30 1234568\n");
  EXPECT_THAT(pellor(home, {"favorites", "add", "bob"}).output,
              AllOf(HasSubstr("2 Bob Berg"), Not(HasSubstr("import"))));
  EXPECT_THAT(pellor(home, {"list"}).output,
              AllOf(HasSubstr("Page 1: Favorites\n"), HasSubstr("Ann Lee"), HasSubstr("Bob Berg")));
  EXPECT_EQ(pellor(home, {"remove", "bob"}).exitCode, 0);
  EXPECT_THAT(pellor(home, {"list"}).output, Not(HasSubstr("Bob Berg"))) << "they come once";

  home.addContact("cy", "Cy Cole", "TEL:+49 30 1234569\n");
  EXPECT_THAT(pellor(home, {"favorites", "add", "cy"}).output, HasSubstr("pellor favorites import"));
  EXPECT_EQ(pellor(home, {"favorites", "import"}).output, "added Bob Berg (1:3)\nadded Cy Cole (1:4)\n");
  EXPECT_THAT(pellor(home, {"favorites", "import"}).output, HasSubstr("nobody was added"));
  EXPECT_EQ(pellor(home, {"favorites", "import", "--json"}).output, "{\"version\":1,\"added\":[],\"withoutRoom\":0}\n");
}

}  // namespace
}  // namespace pellor
