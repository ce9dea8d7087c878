// Single bits of the contact index: what it tells of the contacts is what their cards say.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/linux/ContactsFixture.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

/// An index of some contacts, linked ones and favorites among them, in its one file.
class SmallIndex : public testing::Test, public ContactsFixture {
 protected:
  SmallIndex() : ContactsFixture(TemporaryFolder::memory()) {
    for (int number = 0; number < 12; ++number) {
      const std::string digit = std::to_string(number % 10), uid = "u" + std::to_string(number);
      put(uid + ".vcf", card(uid, "Name " + std::to_string(number),
                             "TEL:+493012345" + std::to_string(10 + number) + "\nEMAIL:" + uid + "@example.org\n" +
                                 (number % 4 == 1 ? "RELATED;TYPE=x-link:u" + std::to_string(number - 1) + "\n" : "")));
    }
  }

  /// All that the index is asked for, but its numbers of records, which a new index may give anew.
  static std::string told(ContactIndex& index) {
    std::string text;
    const auto add = [&](const std::string& question, const std::vector<std::int32_t>& records) {
      text += question + ":";
      for (const std::int32_t record : records) {
        const auto contact = index.contactWithID(record);
        if (!contact) return void(text += " nobody");
        text += " " + contact->guid + " " + contact->card.formattedName.value_or("");
        for (const CardValue& phone : contact->card.phones) text += " " + phone.value;
        for (const CardValue& email : contact->card.emails) text += " " + email.value;
        if (contact->linkID >= 0) text += " of " + std::to_string(index.recordIDsOfLinkedSet(contact->linkID).size());
      }
      text += "\n";
    };
    index.beginReading();
    for (int number = 0; number < 12; ++number) {
      const std::string uid = "u" + std::to_string(number);
      text += index.contactWithGUID(uid) ? uid + "\n" : "";
      add("name", index.recordIDsMatchingName("Name " + std::to_string(number)));
      add("phone", index.recordIDsForDestination("030 12345" + std::to_string(10 + number)));
      add("email", index.recordIDsForDestination(uid + "@example.org"));
    }
    add("all", index.allRecordIDs());
    index.endReading();
    return text;
  }
};

TEST_F(SmallIndex, ASingleBitNeverMakesOtherContacts) {
  const std::string whole = told(*openIndex());
  const fs::path file = data / "contacts-index.sqlite";
  const std::string content = contentOf(file);
  ASSERT_GT(content.size(), 0U);
  const bool isEvery = std::getenv("PELLOR_EVERY_BIT") != nullptr;
  std::mt19937_64 random(20261122);
  std::uniform_int_distribution<std::size_t> anywhere(0, content.size() * 8 - 1);
  const std::size_t count = isEvery ? content.size() * 8 : 250;
  std::size_t madeAnew = 0;
  for (std::size_t number = 0; number < count; ++number) {
    const std::size_t bit = isEvery ? number : anywhere(random);
    std::string damaged = content;
    damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << (bit % 8)));
    fs::remove_all(data);
    fs::create_directory(data);
    writeFile(file, damaged);
    log->clear();
    ASSERT_EQ(told(*openIndex()), whole) << "bit " << bit;
    madeAnew += log->count("is made anew");
  }
  EXPECT_GT(madeAnew, count / 3) << "the pages that a look-up needs were looked at";
}

}  // namespace
}  // namespace pellor
