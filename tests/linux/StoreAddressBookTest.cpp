// The settings of a store for names, as the address book gives them to the library.
#include "pellor/linux/internal/StoreAddressBook.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "pellor/runtime/BundleIdentifier.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/InMemoryAddressBook.h"
#include "tests/linux/SQLiteStores.h"

namespace pellor {
namespace {

class StoreAddressBookTest : public testing::Test {
 protected:
  // As another process does.
  void store(std::string_view key, const Value& value) {
    const auto other = openIn(_folder.path());
    other->setValue(key, value, BundleIdentifier);
    ASSERT_TRUE(other->synchronize(BundleIdentifier));
  }
  std::string settings() const {
    return std::string(_book.shortNameFormatEnabled() ? "short" : "full") +
           (_book.shortNamePreferNicknames() ? ", nicknames" : "");
  }

  const TemporaryFolder _folder;
  Process _process;
  const std::shared_ptr<InMemoryAddressBook> _contacts = std::make_shared<InMemoryAddressBook>();
  StoreAddressBook _book{_contacts->storeFor(_process), openIn(_folder.path())};
};

TEST_F(StoreAddressBookTest, WhatAnotherProcessSetsHoldsAtOnceAndWhatIsNoFlagIsOff) {
  EXPECT_EQ(settings(), "full");
  store(ShortNamesKey, true);
  EXPECT_EQ(settings(), "short");
  store(PreferNicknamesKey, true);
  store(ShortNamesKey, false);
  EXPECT_EQ(settings(), "full, nicknames");
  store(ShortNamesKey, 1);
  store(PreferNicknamesKey, "on");
  EXPECT_EQ(settings(), "full");
}

// A refresh names all friends alike.
TEST_F(StoreAddressBookTest, OnePieceOfWorkHasOneStateOfTheSettings) {
  _book.performWithAddressBook([&](AddressBook&) {
    EXPECT_EQ(settings(), "full");
    store(ShortNamesKey, true);
    _book.performWithAddressBook([&](AddressBook&) { EXPECT_EQ(settings(), "full"); });
    EXPECT_EQ(settings(), "full");
  });
  EXPECT_THROW(_book.performWithAddressBook([&](AddressBook&) {
    settings();
    throw std::runtime_error("work that fails");
  }),
               std::runtime_error);
  store(ShortNamesKey, false);
  EXPECT_EQ(settings(), "full");
  store(ShortNamesKey, true);
  EXPECT_EQ(settings(), "short");
}

TEST_F(StoreAddressBookTest, AStoreThatCannotBeReadRenamesNobody) {
  store(ShortNamesKey, true);
  EXPECT_EQ(settings(), "short");
  std::filesystem::rename(_folder / SQLiteStoreFile, _folder / "elsewhere");
  std::filesystem::create_directory(_folder / SQLiteStoreFile);
  EXPECT_EQ(settings(), "short");
  std::filesystem::remove(_folder / SQLiteStoreFile);
  std::filesystem::rename(_folder / "elsewhere", _folder / SQLiteStoreFile);
  store(ShortNamesKey, false);
  EXPECT_EQ(settings(), "full");
}

}  // namespace
}  // namespace pellor
