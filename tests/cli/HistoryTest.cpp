// history, undo, redo: what one run of the program did is taken back by another one.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/cli/Story.h"
#include "tests/linux/SQLiteStores.h"

namespace pellor {
namespace {

TEST(History, WhatWasDoneIsTakenBackStepByStepAndDoneAgain) {
  const Home home;
  addPeople(home);
  tell(home, {
                 {{"redo"}, 1, "there is nothing to do again"},
                 {{"add", "030 5556667"}, 0, "added 030 5556667"},
                 {{"history"}, 0, "pellor: added 030 5556667\n"},
                 {{"undo"}, 0, "taken back: added 030 5556667\n"},
                 {{"add", "anna", "zoe marsh"}, 0, "added Anna Berg (1:2)"},
                 {{"meta", "anna", "colour", "blue"}, 0, "colour = blue"},
                 {{"move", "anna", "2:1"}, 0, "(2:1)"},
                 {{"remove", "anna"}, 0, "removed Anna Berg"},
                 {{"history"}, 0, "pellor: removed Anna Berg\n"},
                 {{"undo", "--dry-run"}, 0, "would be taken back: removed Anna Berg\n"},
                 {{"find", "+49307654321"}, 0, "Anna Berg (contact, "},
                 {{"undo"}, 0, "taken back: removed Anna Berg\n"},
                 {{"find", "+49307654321"}, 0, "Anna Berg (friend, 2:1)"},
                 {{"meta", "anna", "colour"}, 0, "blue\n"},
                 {{"history"}, 0, "pellor: removed Anna Berg (taken back)\n"},
                 {{"undo"}, 0, "taken back: moved Anna Berg\n"},
                 {{"find", "+49307654321"}, 0, "(friend, 1:2)"},
                 {{"redo"}, 0, "done again: moved Anna Berg\n"},
                 {{"find", "+49307654321"}, 0, "(friend, 2:1)"},
                 {{"title", "1", "Family"}, 0, "Page 1: Family"},
                 {{"redo"}, 1, "there is nothing to do again"},
                 {{"undo", "nostep"}, 1, "there is no step \"nostep\" (\"pellor history\" names them)"},
                 {{"undo", "a", "b"}, 2, ""},
             });
}

// The card is gone, and another one has the number.
TEST(History, AnAutomaticDecisionIsToldWithWhatItRestsOnExplainedAndTakenBackForGood) {
  const Home home;
  addPeople(home);
  tell(home, {{{"list"}, 0, "Ann Lee"}, {{"why", "ann"}, 0, "linked with the contact ann\n"}});
  std::filesystem::remove(home.contactsFolder() / "ann.vcf");
  home.addContact("bettina", "Bettina Lee", "N:Lee;Bettina;;;\nTEL:+49 30 1234567\n");
  tell(home, {
                 {{"refresh"}, 0, ""},
                 {{"history"},
                  0,
                  "linked with another contact: Bettina Lee (found by a number or address, the only one, score 0.5)\n"},
                 {{"undo"}, 1, "there is nothing to take back"},
                 {{"why", "bettina"}, 0, "linked with the contact bettina, since "},
             });
  const auto why = nlohmann::json::parse(pellor(home, {"why", "bettina", "--json"}).output);
  EXPECT_EQ(why["numberReason"], "card");
  EXPECT_EQ(why["steps"][0]["evidence"]["contactBefore"], "ann");
  EXPECT_EQ(why["steps"][0]["evidence"]["contactAfter"], "bettina");
  const std::string id = why["steps"][0]["id"];
  EXPECT_EQ(why["linkedSince"], id);
  tell(home, {
                 {{"undo", id}, 0, "taken back: linked with another contact: Bettina Lee\n"},
                 {{"refresh"}, 0, ""},
                 {{"list"}, 0, "Ann Lee"},
                 {{"why", "ann"}, 0, "is not linked with the contact bettina, as "},
                 {{"why", "ann"},
                  0,
                  "linked with the contact ann, which is not there, since " + id.substr(0, 6) + " was taken back\n"},
                 {{"redo"}, 0, "done again: linked with another contact: Bettina Lee"},
                 {{"why", "nobody"}, 1, ""},
             });
}

// Of a program that keeps no history nobody knows the name, and an edit of a title names nobody.
TEST(History, WhatAnotherProgramDidIsTakenBackLikeAStepOfAPerson) {
  const Home home;
  addPeople(home);
  tell(home, {{{"title", "1", "Family"}, 0, "Page 1: Family"}});
  const Dictionary page = {{"from", 0}, {"to", 0}, {"titleBefore", "Home"}, {"titleAfter", "Family"}};
  const Dictionary step = {
      {"id", "feed01"}, {"time", 1.5e9}, {"moment", 9}, {"kind", "another program"}, {"pages", Array{Value(page)}}};
  const auto store = openIn(home.dataFolder());
  store->setValue("PLFriendListHistory", Array{Value(step)}, "org.tapnote.TN");
  ASSERT_TRUE(store->synchronize("org.tapnote.TN"));
  const auto told = nlohmann::json::parse(pellor(home, {"history", "--json"}).output)["steps"][0];
  EXPECT_EQ(told["program"], nullptr);
  EXPECT_EQ(told["kind"], "anotherProgram");
  tell(home, {
                 {{"history"}, 0, " changed by another program\n"},
                 {{"undo"}, 0, "taken back: changed by another program\n"},
                 {{"list"}, 0, "Home"},
             });
}

}  // namespace
}  // namespace pellor
