// People are found as they are typed, among friends and among contacts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/cli/Story.h"

namespace pellor {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

void addTeam(const Home& home) {
  home.addContact("g1", "Zoë Martin", "N:Martin;Zoë;;;\nTEL:+49 151 2345679\nORG:Acme GmbH\n");
  home.addContact("g2", "Réka Kovács", "N:Kovács;Réka;;;\nTEL:+36 1 234 5678\n");
  home.addContact("g3", "Jürgen Müller", "N:Müller;Jürgen;;;\nNICKNAME:Buddy\nEMAIL:jm@islands.example.org\n");
  home.addContact("g4", "Ayşe Yıldız", "N:Yıldız;Ayşe;;;\nTEL:030 7654321\n");
  home.addContact("g5", "Ａｎｎａ Berg", "N:Berg;Ａｎｎａ;;;\nTEL:030 7654322\n");
}

struct Typed {
  const char* text;
  const char* name;
};

// By the beginnings of words, whatever the case, the accents and the width.
constexpr Typed Names[] = {
    {"zoe", "Zoë Martin"},           {"ZOË", "Zoë Martin"},     {"mart zo", "Zoë Martin"},
    {"reka", "Réka Kovács"},         {"kovacs", "Réka Kovács"}, {"muller", "Jürgen Müller"},
    {"buddy", "Jürgen Müller"},      {"yildiz", "Ayşe Yıldız"}, {"mueller", "Jürgen Müller"},
    {"juergen mü", "Jürgen Müller"}, {"anna", "Ａｎｎａ Berg"}, {"ＢＥＲＧ", "Ａｎｎａ Berg"},
    {"islands", "Jürgen Müller"},
};

TEST(Search, AFriendIsFoundByWordsAndPartsOfNumbers) {
  const Home home;
  addTeam(home);
  for (const auto& [text, name] : Names) {
    const std::string who(text);
    SCOPED_TRACE(who);
    tell(home, {{{"add", text}, 0, "added " + std::string(name) + " (1:1)"},
                {{"move", text, "1:2"}, 0, "moved " + std::string(name) + " (1:2)"},
                {{"status", text}, 0, name},
                {{"remove", text}, 0, "removed " + std::string(name)}});
  }
  tell(home, {
                 {{"add", "g1", "g3", "g4", "g5"}, 0, "(1:4)"},
                 {{"number", "0151 234"}, 0, "+49 1512345679\n"},
                 {{"status", "5679"}, 0, "+ Zoë Martin (1:1)"},
                 {{"status", "030 765 4321"}, 0, "+ Ayşe Yıldız (1:3)"},
             });
  EXPECT_THAT(pellor(home, {"status", "030 765"}).errors, HasSubstr("\"030 765\" fits several"));
}

TEST(Search, AContactIsFoundWithTheBestFitFirst) {
  const Home home;
  addTeam(home);
  home.addContact("a1", "Bo Acmeson", "TEL:030 1\n");
  home.addContact("h1", "Lazarus Bacme", "TEL:030 2\n");
  home.addContact("acme", "Di", "TEL:030 3\n");
  home.addContact("urn:uuid:0bea7a1e", "Ulf", "TEL:030 4\n");
  for (const auto& [text, name] : Names) tell(home, {{{"contacts", text}, 0, name}, {{"allow", text}, 0, name}});
  // A name, an organisation, and what holds it somewhere.
  const std::string found = pellor(home, {"contacts", "ACME"}).output;
  EXPECT_LT(found.find("Bo Acmeson"), found.find("Zoë Martin")) << found;
  EXPECT_LT(found.find("Zoë Martin"), found.find("Di ")) << found;
  EXPECT_LT(found.find("Di "), found.find("Lazarus Bacme")) << found;
  EXPECT_THAT(found, Not(HasSubstr("Berg")));
  EXPECT_THAT(pellor(home, {"contacts", "bea"}).errors, HasSubstr("no contact fits \"bea\""));
  EXPECT_THAT(pellor(home, {"contacts", "bea7a"}).output, HasSubstr("Ulf"));
  EXPECT_THAT(pellor(home, {"contacts", "zoe", "mart"}).output, HasSubstr("Zoë Martin"));
  EXPECT_THAT(pellor(home, {"contacts", "0151 234"}).output, HasSubstr("Zoë Martin"));
  EXPECT_THAT(pellor(home, {"contacts", "76543"}).output, AllOf(HasSubstr("Yıldız"), HasSubstr("Berg")));
}

// The list shows who was marked without a place of their own in the same order. The locale is the store's: a program in
// another one sorts alike.
TEST(Search, ContactsStandInTheOrderOfTheStoresLanguage) {
  Home home;
  home.setVariable("LC_ALL=sv_SE.UTF-8");
  const std::vector<std::string> names = {"Anna Zorn", "Zeth Asp", "Åke Berg", "Ängla Ek", "Örjan Wik"};
  for (std::size_t index = names.size(); index-- > 0;)
    home.addContact("g" + std::to_string(index), names[index],
                    "TEL:030 765430" + std::to_string(index) + "\nX-FOLKS-FAVOURITE:true\n");
  const auto inOrder = [&](const std::string& output) {
    std::vector<std::size_t> places;
    for (const std::string& name : names) places.push_back(output.find(name));
    return places.back() != std::string::npos && std::ranges::is_sorted(places);
  };
  for (const char* locale : {"LC_ALL=sv_SE.UTF-8", "LC_ALL=en_US.UTF-8"}) {
    home.setVariable(locale);
    for (const Arguments& command : {Arguments{"contacts"}, Arguments{"list", "--lines"}}) {
      const std::string output = pellor(home, command).output;
      EXPECT_TRUE(inOrder(output)) << locale << "\n" << output;
    }
  }
}

TEST(Search, WhatStandsAroundANameTellsFatherAndSonApart) {
  const Home home;
  home.addContact("f1", "id. Béla Kovács", "N:Kovács;Béla;;id.;\nTEL:+36 30 1234561\n");
  home.addContact("f2", "Béla Kovács", "N:Kovács;Béla;;;\nTEL:+36 30 1234562\n");
  home.addContact("f3", "ifj. Béla Kovács", "N:Kovács;Béla;;ifj.;\nTEL:+36 30 1234563\n");
  home.addContact("t1", "山田太郎", "N:山田;太郎;;;\nTEL:+81 3 1234 5678\n");
  tell(home, {
                 {{"add", "Kovács Béla"}, 0, "added Béla Kovács (1:1)"},
                 {{"add", "ifj. bela kovacs"}, 0, "added ifj. Béla Kovács (1:2)"},
                 {{"remove", "bela kovacs"}, 0, "removed Béla Kovács"},
                 {{"add", "山田 太郎"}, 0, "(1:1)"},
                 {{"move", "山田 太郎", "1:4"}, 0, "(1:4)"},
                 {{"remove", "太郎"}, 0, "(1:4)"},
             });
}

// Accents and the order of words tell people apart for whoever writes them.
TEST(Search, ANameAsItIsWrittenLeavesOutThoseWhoseNameIsAlike) {
  const struct {
    const char* locale;
    std::vector<std::string> names;
  } homes[] = {
      {"de_DE", {"Anna Gross", "Anna Groß"}},
      {"vi_VN", {"Nguyễn Thị Hoa", "Nguyễn Thị Hòa"}},
      {"ar_EG", {"محمد أحمد", "أحمد محمد", "أحمد مُحَمَّد"}},
      {"tr_TR", {"Ilgaz Işık", "İlgaz İşik"}},
  };
  for (const auto& [locale, names] : homes) {
    Home home;
    home.setVariable("LC_ALL=" + std::string(locale) + ".UTF-8");
    for (std::size_t index = 0; index < names.size(); ++index)
      home.addContact("g" + std::to_string(index), names[index], "TEL:+49 30 765432" + std::to_string(index) + "\n");
    for (const char* command : {"add", "status", "remove"})
      for (const std::string& name : names) tell(home, {{{command, name}, 0, name}});
  }
  const Home home;
  home.addContact("g1", "Anna Gross", "TEL:030 1234561\n");
  home.addContact("g2", "Anna Groß", "TEL:030 1234562\n");
  tell(home, {{{"allow", "ANNA GROSS"}, 0, "Anna Gross "},
              {{"allow", "anna groß"}, 0, "Anna Groß "},
              {{"allow", "Anna Groß#1"}, 0, "Anna Groß "}});
  EXPECT_THAT(pellor(home, {"allow", "gross anna"}).errors, HasSubstr("\"gross anna\" fits several"));
}

TEST(Search, WhoIsNotFoundMayHaveBeenMistyped) {
  const Home home;
  addTeam(home);
  tell(home, {
                 {{"add", "zoee"}, 1, "no contact is called \"zoee\": did you mean Zoë Martin?"},
                 {{"contacts", "zoe matrin"}, 1, "no contact fits \"zoe matrin\": did you mean Zoë Martin?"},
                 {{"favorites", "add", "mullr"}, 1, "no contact is called \"mullr\": did you mean Jürgen Müller?"},
                 {{"add", "xylophone"}, 1, "no contact is called \"xylophone\", and it is neither a number nor"},
                 {{"remove", "zoee"}, 1, "no friend is called \"zoee\"\n"},
                 {{"add", "zoe", "reka"}, 0, "(1:2)"},
                 {{"remove", "zoee"}, 1, "no friend is called \"zoee\": did you mean Zoë Martin?"},
                 {{"remove", "0159"}, 1, "no friend is called \"0159\"\n"},
             });
}

}  // namespace
}  // namespace pellor
