// What every search of the contacts must do, written against the interface alone. Needs GoogleTest.
//
// A factory is one of AddressBookStoreContract.h that also has the search of its contacts:
//
//   ContactSearch& search();
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/platform/ContactSearch.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/TestContact.h"

namespace pellor {

using FoundNames = std::vector<std::string>;

template <class Factory>
class ContactSearchContract : public testing::Test {
 protected:
  void SetUp() override {
    add("zoe", {.first = "Zoë", .last = "Martin", .phones = {{"cell", "+49 151 2345679"}}});
    add("reka", {.first = "Réka", .last = "Kovács", .phones = {{"home", "0664/1234567"}, {"cell", "+436641234567"}}});
    add("muller", {.first = "Jürgen", .last = "Müller", .nickname = "Jogi", .organization = "Acme GmbH"});
    add("mueller", {.first = "Sabine", .last = "Mueller", .emails = {{"work", "s.mueller@Example.org"}}});
    add("anna", {.first = "Anna", .last = "Novak", .phones = {{"home", "+49 30 23125001"}}});
    add("annabel", {.first = "Annabel", .last = "Krüger", .organization = "Novak Acme"});
    add("hans", {.first = "Hans", .last = "Anna"});
    add("bank", {.kind = TestContact::Kind::organization, .organization = "Sparbank"});
  }
  void add(const std::string& name, const TestContact& contact) { _names[_contacts.add(contact)] = name; }
  std::string guidOf(std::string_view name) const {
    for (const auto& [guid, known] : _names)
      if (known == name) return guid;
    return {};
  }
  FoundNames namesOf(const std::vector<FoundContact>& found) {
    FoundNames names;
    for (const FoundContact& contact : found) names.push_back(_names[contact.guid]);
    return names;
  }
  std::vector<FoundContact> find(std::string_view text, std::size_t limit = 20) {
    const Process::Scope scope(_contacts.process());
    return _contacts.search().find(text, limit);
  }
  FoundNames found(std::string_view text, std::size_t limit = 20) { return namesOf(find(text, limit)); }
  FoundNames similar(std::string_view text) {
    const Process::Scope scope(_contacts.process());
    return namesOf(_contacts.search().findSimilar(text, 20));
  }

  Factory _contacts;
  std::map<std::string, std::string> _names;  // by GUID
};

TYPED_TEST_SUITE_P(ContactSearchContract);

TYPED_TEST_P(ContactSearchContract, TheBestFitComesFirst) {
  ASSERT_TRUE(this->_contacts.runUntil([&] { return this->found("sparbank") == FoundNames{"bank"}; }));
  const struct {
    const char* text;
    FoundNames found;
  } cases[] = {
      {"zoe", {"zoe"}},
      {"ZOË", {"zoe"}},
      {"zo", {"zoe"}},
      {"oe", {}},
      {"reka", {"reka"}},
      {"\xEF\xBC\xB2\xC3\xA9k\xEF\xBD\x81", {"reka"}},  // two full-width letters
      {"kovacs, reka", {"reka"}},
      {"muller", {"muller"}},
      {"mueller", {"mueller", "muller"}},
      {"Müller", {"muller", "mueller"}},
      {"jogi", {"muller"}},
      {"jürgen acm", {"muller"}},
      {"acme", {"muller", "annabel"}},
      {"anna novak", {"anna", "annabel"}},
      {"novak anna", {"anna", "annabel"}},
      {"anna", {"anna", "hans", "annabel"}},
      {"ann nov", {"anna", "annabel"}},
      {"anna martin", {}},
      {"example", {"mueller"}},
      {"S.MUELLER@example.ORG", {"mueller"}},
      {"+49 151 2345679", {"zoe"}},
      {"01512345679", {"zoe"}},
      {"0049-151-2345679", {"zoe"}},
      {"0151 23", {"zoe"}},
      {"151 23", {"zoe"}},
      {"+49151", {"zoe"}},
      {"49 151", {"zoe"}},
      {"+49", {"zoe", "reka", "anna"}},
      {"5001", {"anna"}},
      {"01", {"zoe"}},
      {"79", {}},
      {"\xD9\xA0\xD9\xA1\xD9\xA5\xD9\xA1\xD9\xA2\xD9\xA3\xD9\xA4\xD9\xA5\xD9\xA6\xD9\xA7\xD9\xA9", {"zoe"}},
      {"", {}},
      {" .-+", {}},
      {"nobody", {}},
  };
  for (const auto& test : cases) {
    auto expected = test.found, found = this->found(test.text);
    // People whom the text fits alike come in an order of the search's own.
    const auto isAlike = [&](std::string_view text) { return text == test.text; };
    if (std::ranges::any_of(std::vector<std::string_view>{"acme", "+49", "mueller", "Müller"}, isAlike)) {
      std::ranges::sort(expected);
      std::ranges::sort(found);
    }
    EXPECT_EQ(found, expected) << test.text;
  }
}

TYPED_TEST_P(ContactSearchContract, AnEntryIsWhatAUserTellsNamesakesApartBy) {
  ASSERT_TRUE(this->_contacts.runUntil([&] { return this->found("sparbank") == FoundNames{"bank"}; }));
  const auto found = this->find("jogi").front();
  EXPECT_EQ(found.name, "Jürgen Müller");
  EXPECT_EQ(found.organization, "Acme GmbH");
  EXPECT_EQ(found.fit, ContactFit::name);
  EXPECT_EQ(this->find("reka").front().destinations, (FoundNames{"0664/1234567", "+436641234567"}));
  const struct {
    const char* text;
    ContactFit fit;
  } fits[] = {{"+4915123 45679", ContactFit::destination},
              {"martin zoe", ContactFit::name},
              {"mart", ContactFit::nameWords},
              {"gmbh", ContactFit::organizationWords},
              {"example", ContactFit::addressWords},
              {"0151", ContactFit::numberBeginning},
              {"5679", ContactFit::numberEnding}};
  for (const auto& test : fits) EXPECT_EQ(this->find(test.text).front().fit, test.fit) << test.text;
}

TYPED_TEST_P(ContactSearchContract, LinkedRecordsAreOnePersonAndTheLimitCountsPeople) {
  this->add("anja", {.first = "Anja", .nickname = "Anna"});
  this->_contacts.link(this->guidOf("anja"), this->guidOf("hans"));
  const auto annas = [&] { return this->found("anna"); };
  // The nickname is all that was typed; the name of the other record only holds it.
  EXPECT_TRUE(this->_contacts.runUntil([&] {
    return annas() == FoundNames{"anja", "anna", "annabel"};
  })) << testing::PrintToString(annas());
  EXPECT_EQ(this->found("anna", 2), (FoundNames{"anja", "anna"}));
  EXPECT_EQ(this->found("anna", 0), FoundNames{});
}

TYPED_TEST_P(ContactSearchContract, ChangesAreFoundAtOnceAndNobodyIsWhileNothingCanBeRead) {
  this->_contacts.change(this->guidOf("zoe"), {.first = "Chloé"});
  this->_contacts.remove(this->guidOf("reka"));
  EXPECT_TRUE(this->_contacts.runUntil([&] { return this->found("chloe") == FoundNames{"zoe"}; }));
  EXPECT_TRUE(this->_contacts.runUntil([&] { return this->found("reka").empty(); }));
  EXPECT_EQ(this->found("martin"), FoundNames{});
  EXPECT_EQ(this->found("0151"), FoundNames{});
  this->_contacts.breakReading();
  EXPECT_EQ(this->found("chloe"), FoundNames{});
  EXPECT_EQ(this->similar("chlo"), FoundNames{});
  this->_contacts.restoreReading();
  EXPECT_TRUE(this->_contacts.runUntil([&] { return this->found("chloe") == FoundNames{"zoe"}; }));
}

TYPED_TEST_P(ContactSearchContract, AMistypedWordFindsTheNearestName) {
  ASSERT_TRUE(this->_contacts.runUntil([&] { return this->found("sparbank") == FoundNames{"bank"}; }));
  const struct {
    const char* text;
    FoundNames found;
  } cases[] = {
      {"matrin", {"zoe"}},
      {"zoe matrin", {"zoe"}},
      {"kovasc", {"reka"}},
      {"sabien", {"mueller"}},
      {"sabine martin", {}},
      {"xylophon", {}},
      {"reak", {"reka"}},
      {"ozew", {}},
      {"", {}},
      {"zoee", {"zoe"}},
      {"Jürgne muler", {"muller"}},
  };
  for (const auto& test : cases) EXPECT_EQ(this->similar(test.text), test.found) << test.text;
}

REGISTER_TYPED_TEST_SUITE_P(ContactSearchContract, TheBestFitComesFirst, AnEntryIsWhatAUserTellsNamesakesApartBy,
                            LinkedRecordsAreOnePersonAndTheLimitCountsPeople,
                            ChangesAreFoundAtOnceAndNobodyIsWhileNothingCanBeRead, AMistypedWordFindsTheNearestName);

}  // namespace pellor
