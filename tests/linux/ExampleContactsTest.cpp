// The sample contacts are what users see first: each of the cases that they are there for has to be in them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "linux/FavoritesFile.h"
#include "linux/IcuText.h"
#include "linux/LibPhoneNumber.h"
#include "tests/linux/ContactsFixture.h"

namespace pellor {
namespace {

struct ExampleContacts : testing::Test, ContactsFixture {
  ExampleContacts() : process(log) {
    std::filesystem::copy(PELLOR_EXAMPLE_CONTACTS, contacts, std::filesystem::copy_options::recursive);
    store = VdirAddressBook::make(process, {options(), {}, false, false});
  }

  Process process;
  std::shared_ptr<VdirAddressBook> store;
};

TEST_F(ExampleContacts, AreAllReadAndReachable) {
  std::set<std::string> guids;
  std::map<std::string, int> cases;
  store->performWithAddressBook([&](AddressBook& book) {
    for (const RecordRef& person : book.allPeople()) {
      guids.insert(person->recordGUID());
      const std::string name = person->compositeName().value_or("");
      EXPECT_NE(name, "") << person->recordGUID();
      cases["organisation"] += !person->isPersonKind();
      cases["nickname"] += person->nickname().has_value();
      cases["linked"] += person->linkID() != InvalidRecordID;
      cases["unreachable"] += !person->phoneValues() && !person->emailValues();
      cases["other script"] += containsNonLatinCharacters(name);
      cases["emoji"] += containsEmojiCharacters(name);
      cases["without UID"] += person->recordGUID().ends_with(".vcf");
      for (const std::string& number : person->phoneValues().value_or(std::vector<std::string>()))
        EXPECT_TRUE(internationalPhoneNumber(number, "US")) << name << " " << number;
    }
  });
  EXPECT_GE(guids.size(), 24U);
  EXPECT_GE(cases["other script"], 8);
  for (const char* each : {"organisation", "nickname", "linked", "unreachable", "emoji", "without UID"})
    EXPECT_GT(cases[each], 0) << each;
  EXPECT_THAT(log->messages(), testing::IsEmpty());
}

TEST_F(ExampleContacts, FavoritesHoldADuplicateAndAStranger) {
  FavoritesFile favorites(store);
  std::map<std::int32_t, int> records;
  for (const FavoriteEntry& entry : favorites.favoriteEntries()) {
    ++records[entry.abRecordID];
    EXPECT_NE(entry.displayName, "");
    EXPECT_NE(entry.value, "");
  }
  EXPECT_EQ(records[InvalidRecordID], 1);
  EXPECT_EQ(std::count_if(records.begin(), records.end(), [](const auto& record) { return record.second == 2; }), 1);
  EXPECT_GT(records.size(), 12U) << "more than a page";
}

}  // namespace
}  // namespace pellor
