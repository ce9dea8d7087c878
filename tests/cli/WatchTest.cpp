// The program beside others of its kind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <nlohmann/json.hpp>
#include <string>

#include "pellor/linux/sqlite/SQLiteDatabase.h"
#include "tests/cli/Story.h"

namespace pellor {
namespace {

TEST(Watch, ReportsWhatOthersDo) {
  const Home home;
  home.addContact("ann", "Ann Lee", "TEL:+49301234567\n");
  home.addContact("bob", "Bob Ray", "TEL:+49307654321\n");
  Program watch(home, pellorCommand({"watch"}));
  EXPECT_EQ(watch.readErrorLine(), "pellor: watching");
  pellor(home, {"add", "ann", "bob"});
  EXPECT_EQ(watch.readLine(), "added 1:1 Ann Lee");
  EXPECT_EQ(watch.readLine(), "added 1:2 Bob Ray");
  pellor(home, {"move", "ann", "1:2"});
  EXPECT_THAT((std::vector{watch.readLine(), watch.readLine()}),
              testing::UnorderedElementsAre("moved 1:1 to 1:2 Ann Lee", "moved 1:2 to 1:1 Bob Ray"));
  home.addContact("ann", "Ann Lind", "TEL:+49301234567\n");
  EXPECT_EQ(watch.readLine(), "updated 1:2 Ann Lind");
  pellor(home, {"title", "1", "Family"});
  EXPECT_EQ(watch.readLine(), "titled 1 Family");
  pellor(home, {"remove", "ann"});
  EXPECT_EQ(watch.readLine(), "deleted 1:2 Ann Lind");
  watch.sendSignal(SIGINT);
  const ProgramResult end = watch.finish();
  EXPECT_EQ(end.exitCode, 0);
  EXPECT_EQ(end.output + end.errors, "");
}

// A program that kept to what it read at its start would name everybody back, and so on for ever.
TEST(Watch, NamesPeopleAsTheStoreSaysNow) {
  const Home home;
  home.addContact("ann", "Ann Lee", "N:Lee;Ann;;;\nTEL:+49301234567\n");
  home.addContact("bob", "Bob Ray", "N:Ray;Bob;;;\nTEL:+49307654321\n");
  pellor(home, {"add", "ann lee", "bob ray"});
  Program watch(home, pellorCommand({"watch"}));
  EXPECT_EQ(watch.readErrorLine(), "pellor: watching");
  pellor(home, {"settings", "short-names", "on"});
  EXPECT_EQ(pellor(home, {"list", "--json"}).exitCode, 0);
  EXPECT_EQ(watch.readLine(), "updated 1:1 Ann");
  EXPECT_EQ(watch.readLine(), "updated 1:2 Bob");
  home.addContact("ann", "Anna Lee", "N:Lee;Anna;;;\nTEL:+49301234567\n");
  EXPECT_EQ(watch.readLine(), "updated 1:1 Anna");
  pellor(home, {"title", "1", "Family"});
  EXPECT_EQ(watch.readLine(), "titled 1 Family") << "nobody else was named anew";
}

// What the watcher itself would write, a friend's new name, waits until the store takes it.
TEST(Watch, TellsOfAStoreThatFailsAndOfItsEnd) {
  const auto failWrites = [](const Home& home, bool fail) {
    SQLiteDatabase(home.storeFile(), SQLiteDatabase::Access::readWrite, 10)
        .execute(fail ? "CREATE TRIGGER fails BEFORE INSERT ON good_values BEGIN SELECT RAISE(ABORT, 'no luck'); END"
                      : "DROP TRIGGER fails");
  };
  for (const bool isJson : {false, true}) {
    const HomeWithAnn home;
    Program watch(
        home, pellorCommand(isJson ? std::vector<std::string>{"watch", "--json"} : std::vector<std::string>{"watch"}));
    watch.readErrorLine();
    failWrites(home, true);
    home.addContact("ann", "Ann Lind", "TEL:+49301234567\n");
    watch.readLine();
    const std::string began = watch.readLine();
    failWrites(home, false);
    const std::string ended = watch.readLine();
    if (isJson) {
      const auto change = nlohmann::json::parse(began, nullptr, false);
      EXPECT_EQ(change.value("trouble", ""), "writing") << began;
      EXPECT_THAT(change.value("message", ""), testing::HasSubstr("no luck"));
      EXPECT_TRUE(nlohmann::json::parse(ended, nullptr, false)["trouble"].is_null()) << ended;
    } else {
      EXPECT_THAT(began,
                  testing::AllOf(testing::StartsWith("cannot write the store: "), testing::HasSubstr("no luck")));
      EXPECT_EQ(ended, "the store works again");
    }
  }
}

TEST(Watch, SpeaksJsonAndEndsWithItsReader) {
  const Home home;
  Program watch(home, pellorCommand({"watch", "--json"}));
  watch.readErrorLine();
  pellor(home, {"add", "0301112233"});
  const auto change = nlohmann::json::parse(watch.readLine(), nullptr, false);
  EXPECT_EQ(change.value("change", ""), "added");
  EXPECT_EQ(change["friend"]["destinations"][0], "+49301112233");
  watch.closeOutput();
  const ProgramResult end = watch.finish();
  EXPECT_EQ(end.exitCode, 0);
  EXPECT_EQ(end.errors, "");
}

TEST(Watch, WhatAnAddReportedSurvivesEveryKill) {
  const Home home;
  home.addContact("ann", "Ann Lee", "TEL:+49301234567\n");
  Program watch(home, pellorCommand({"watch"}));
  watch.readErrorLine();
  Program add(home, pellorCommand({"add", "ann", "0301112233"}));
  EXPECT_EQ(add.readLine(), "added Ann Lee (1:1)");
  add.sendSignal(SIGKILL);
  watch.sendSignal(SIGKILL);
  add.finish();
  watch.finish();
  const std::string list = pellor(home, {"list"}).output;
  EXPECT_THAT(list, testing::HasSubstr(" 1 + AL Ann Lee"));
  EXPECT_THAT(list, testing::HasSubstr(" 2 +    030 1112233"));
  EXPECT_EQ(pellor(home, {"list"}).output, list);
}

}  // namespace
}  // namespace pellor
