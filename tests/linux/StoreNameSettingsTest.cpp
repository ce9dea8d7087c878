// The settings of a store for names, as the address book gives them to the library.
#include "pellor/linux/preferences/StoreNameSettings.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "pellor/linux/contacts/internal/ContactFile.h"
#include "pellor/linux/contacts/internal/IndexedAddressBook.h"
#include "pellor/runtime/BundleIdentifier.h"
#include "pellor/runtime/Process.h"
#include "tests/linux/SQLiteStores.h"

namespace pellor {
namespace {

class StoreNameSettingsTest : public testing::Test {
 protected:
  // As another process does.
  void store(std::string_view key, const Value& value) {
    const auto other = openIn(_folder.path());
    other->setValue(key, value, BundleIdentifier);
    ASSERT_TRUE(other->synchronize(BundleIdentifier));
  }
  std::string settings() const {
    return std::string(_book->shortNameFormatEnabled() ? "short" : "full") +
           (_book->shortNamePreferNicknames() ? ", nicknames" : "");
  }

  const TemporaryFolder _folder;
  Process _process;
  const std::shared_ptr<IndexedAddressBook> _book =
      bookWith(std::make_shared<StoreNameSettings>(openIn(_folder.path())));

 private:
  std::shared_ptr<IndexedAddressBook> bookWith(const std::shared_ptr<StoreNameSettings>& settings) {
    IndexedAddressBookOptions options;
    options.index.dataFolder = _folder / "data";
    options.nameSettings = [settings] { return settings->current(); };
    options.noticesChanges = false;
    return IndexedAddressBook::make(_process, contactsAt(_folder / "contacts"), std::move(options));
  }
};

TEST_F(StoreNameSettingsTest, WhatAnotherProcessSetsHoldsAtOnceAndWhatIsNoFlagIsOff) {
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
TEST_F(StoreNameSettingsTest, OnePieceOfWorkHasOneStateOfTheSettings) {
  _book->performWithAddressBook([&](AddressBook&) {
    EXPECT_EQ(settings(), "full");
    store(ShortNamesKey, true);
    _book->performWithAddressBook([&](AddressBook&) { EXPECT_EQ(settings(), "full"); });
    EXPECT_EQ(settings(), "full");
  });
  EXPECT_THROW(_book->performWithAddressBook([&](AddressBook&) {
    settings();
    throw std::runtime_error("work that fails");
  }),
               std::runtime_error);
  store(ShortNamesKey, false);
  EXPECT_EQ(settings(), "full");
  store(ShortNamesKey, true);
  EXPECT_EQ(settings(), "short");
}

TEST_F(StoreNameSettingsTest, AStoreThatCannotBeReadRenamesNobody) {
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
