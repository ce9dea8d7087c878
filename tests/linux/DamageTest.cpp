// Single bits and lengths of the files of the store and of the contact index: what was stored is given, or the log says
// what became of it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "pellor/testing/LogCollector.h"
#include "pellor/testing/contract/VersionedWriter.h"
#include "tests/linux/ContactsFixture.h"
#include "tests/linux/SQLiteStores.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

bool everyBit() { return std::getenv("PELLOR_EVERY_BIT") != nullptr; }

/// Calls `use` with the content in which one bit is another one: each, or some of them. A part of these is among bytes
/// that are not zero.
template <class Use>
void forBitsOf(const std::string& content, std::size_t count, std::size_t anywhereEvery, Use use) {
  std::mt19937_64 random(20261122);
  std::uniform_int_distribution<std::size_t> anywhere(0, content.size() * 8 - 1);
  for (std::size_t number = 0; number < (everyBit() ? content.size() * 8 : count); ++number) {
    std::size_t bit = everyBit() ? number : anywhere(random);
    while (!everyBit() && number % anywhereEvery != 0 && content[bit / 8] == 0) bit = anywhere(random);
    std::string damaged = content;
    damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << (bit % 8)));
    SCOPED_TRACE(testing::Message() << "bit " << bit);
    use(damaged, number);
    if (testing::Test::HasFatalFailure()) return;
  }
}

// The store

const std::vector<std::pair<std::string, std::vector<std::string>>> KeysOfDomains = {
    {"org.tapnote.TN", {"FriendList", "Titles", "Enabled", "Number", "Removed", "Short"}},
    {"org.tapnote.Pellor", {"Region", "Other list"}}};

using Contents = std::map<std::pair<std::string, std::string>, VersionedPreference>;

std::optional<Contents> read(PreferencesStore& store) {
  Contents contents;
  for (const auto& [domain, keys] : KeysOfDomains) {
    const auto found = store.read(keys, domain);
    if (!found.isReadable()) return std::nullopt;
    for (const auto& [key, preference] : *found.value()) contents[{domain, key}] = preference;
  }
  return contents;
}

bool areSame(const Contents& one, const Contents& other) {
  return std::ranges::equal(one, other, [](const auto& left, const auto& right) {
    return left.first == right.first && isSame(left.second, right.second);
  });
}

/// A small store, as its one file is after all programs have ended.
class SmallStore : public testing::Test {
 protected:
  void SetUp() override {
    const std::string& domain = KeysOfDomains[0].first;
    const auto store = open();
    auto write = [&](std::string_view key, Value value, std::string_view where) {
      const PreferenceChange change{PreferenceChange::Kind::set, std::move(value), std::nullopt};
      ASSERT_EQ(store->write({{std::string(key), change}}, {77, ++_writes}, where).outcome,
                PreferenceWriteOutcome::written);
    };
    write("FriendList", persons(70), domain);
    write("Titles", Array{"Family", "Work"}, domain);
    write("Enabled", true, domain);
    write("Number", 5, domain);
    write("Removed", "", domain);
    write("Short", persons(2), domain);
    write("Region", "DE", KeysOfDomains[1].first);
    write("Other list", persons(40), KeysOfDomains[1].first);
    write("FriendList", withElement(LongArray(persons(70)), 40, person(400)), domain);
    ASSERT_EQ(
        store->write({{"Removed", {PreferenceChange::Kind::remove, std::nullopt, std::nullopt}}}, {77, 50}, domain)
            .outcome,
        PreferenceWriteOutcome::written);
    _contents = *read(*store);
  }
  std::shared_ptr<SQLitePreferences> open() { return openIn(_folder / "store", _log); }
  fs::path file() const { return _folder / "store" / SQLiteStoreFile; }

  /// Into the same file: a copy would be another store.
  void put(const std::string& content) {
    for (const char* suffix : {"-wal", "-shm"}) fs::remove(file().string() + suffix);
    fs::remove_all(_folder / "store/aside");
    writeFile(file(), content);
    _log->clear();
  }

  /// What was damaged is seen: every value is what was stored, in the version that it had or in a store with another
  /// number, or the store is refused; else it is data that was found, and the log says so.
  bool isHonest(const std::optional<Contents>& found) {
    if (!found) return !_log->messages().empty();
    if (areSame(*found, _contents)) return true;
    if (_log->messages().empty()) return false;
    return std::ranges::all_of(*found, [&](const auto& entry) {
      const auto& [name, preference] = entry;
      VersionedPreference stored = _contents.at(name);
      if (preference.version.store != stored.version.store) stored.version.store = preference.version.store;
      return isSame(preference, stored);
    });
  }

  /// A damaged store can be written, or says that it cannot, and then shows what was written beside the rest.
  bool isHonestAfterAWrite() {
    const std::string& domain = KeysOfDomains[0].first;
    const auto store = open();
    const Value changed = withElement(LongArray(persons(70)), 3, person(33));
    const auto answer = store->write({{"FriendList", setTo(changed)}, {"Titles", setTo("new")}}, {78, 1}, domain);
    const bool isWritten = answer.outcome == PreferenceWriteOutcome::written;
    if (!isWritten) return store->lastError() != "";
    const auto found = read(*open());
    if (!found) return store->lastError() != "" || !_log->messages().empty();
    Contents expected = _contents;
    expected[{domain, "FriendList"}].value = changed;
    expected[{domain, "Titles"}].value = "new";
    return std::ranges::all_of(*found,
                               [&](const auto& entry) { return entry.second.value == expected.at(entry.first).value; });
  }

  const TemporaryFolder _folder{TemporaryFolder::memory()};
  const std::shared_ptr<LogCollector> _log = std::make_shared<LogCollector>();
  Contents _contents;
  std::uint64_t _writes = 0;
};

TEST_F(SmallStore, ASingleBitNeverMakesAnotherListWithoutAWord) {
  const std::string whole = contentOf(file());
  std::map<std::string, int> outcomes;
  forBitsOf(whole, 1000, 10, [&](const std::string& content, std::size_t number) {
    put(content);
    const auto found = read(*open());
    ASSERT_TRUE(isHonest(found)) << testing::PrintToString(_log->messages());
    ++outcomes[!found ? "refused" : _log->messages().empty() ? "same" : "same, said"];
    if (number % 10 != 0) return;
    ASSERT_TRUE(isHonestAfterAWrite()) << testing::PrintToString(_log->messages());
  });
  for (const auto& [outcome, count] : outcomes) RecordProperty(outcome, count);
  EXPECT_GT(outcomes["same, said"], 0);
}

TEST_F(SmallStore, AFileThatWasCutIsNeverTakenForANewOneWhereverItWasCut) {
  const std::string whole = contentOf(file());
  const std::size_t step = everyBit() ? 1 : 509;
  for (std::size_t length = 0; length < whole.size(); length += step) {
    put(whole.substr(0, length));
    const auto found = read(*open());
    ASSERT_TRUE(isHonest(found)) << length;
    ASSERT_TRUE(found || contentOf(file()) == whole.substr(0, length)) << length << ": left as it is";
  }
}

TEST_F(SmallStore, WhatIsDamagedIsPutAsideReplacedAndWrittenAnewWithTheNextWrite) {
  struct Case {
    const char* damage;
    const char* key;
    bool isKept;
  };
  const std::vector<Case> cases = {
      {"UPDATE stored_values SET value = x'F4' WHERE key = 'Enabled'", "Enabled", true},
      {"UPDATE stored_values SET revision = revision + 1 WHERE key = 'Enabled'", "Enabled", true},
      {"UPDATE stored_values SET key = 'Enabler' WHERE key = 'Enabled'", "Enabled", false},
      {"DELETE FROM stored_values WHERE key = 'Enabled'", "Enabled", false},
      {"UPDATE stored_values SET count = 69 WHERE key = 'FriendList'", "FriendList", true},
      {"DELETE FROM stored_values WHERE key = 'FriendList'", "FriendList", false},
      {"DELETE FROM stored_runs WHERE id & 16777215 = 1", "FriendList", true},
      {"UPDATE stored_runs SET id = id + 7 WHERE id & 16777215 = 2", "FriendList", true},
      {"UPDATE stored_runs SET writer = 5 WHERE id & 16777215 = 2", "FriendList", true},
  };
  const std::string whole = contentOf(file()), &domain = KeysOfDomains[0].first;
  for (const Case& each : cases) {
    SCOPED_TRACE(each.damage);
    put(whole);
    executeIn(_folder / "store", each.damage);
    EXPECT_TRUE(areSame(*read(*open()), _contents));
    EXPECT_EQ(_log->count(std::string(each.key) + " of " + domain + " is "), 1U);
    const auto isAside = [&](const auto& entry) { return entry.path().filename().string().starts_with(each.key); };
    EXPECT_EQ(fs::exists(_folder / "store/aside") &&
                  std::ranges::any_of(fs::directory_iterator(_folder / "store/aside"), isAside),
              each.isKept);
    const auto writer = open();
    ASSERT_EQ(writer->write({{"Titles", setTo("new")}}, {78, 1}, domain).outcome, PreferenceWriteOutcome::written);
    _log->clear();
    Contents after = *read(*open());
    EXPECT_EQ((after[{domain, "Titles"}].value), Value("new"));
    after[{domain, "Titles"}] = _contents[{domain, "Titles"}];
    EXPECT_TRUE(areSame(after, _contents));
    EXPECT_EQ(_log->count(std::string(each.key) + " of "), 0U) << testing::PrintToString(_log->messages());
  }
}

// The contact index

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
  std::size_t madeAnew = 0, count = 0;
  forBitsOf(content, 250, 1, [&](const std::string& damaged, std::size_t) {
    ++count;
    fs::remove_all(data);
    fs::create_directory(data);
    writeFile(file, damaged);
    log->clear();
    ASSERT_EQ(told(*openIndex()), whole);
    madeAnew += log->count("is made anew");
  });
  EXPECT_GT(madeAnew, count / 3) << "the pages that a look-up needs were looked at";
}

}  // namespace

}  // namespace pellor
