// Settings of a store that its processes share: region and locale, and how names are written.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pellor/linux/contacts/internal/ContactFile.h"
#include "pellor/linux/contacts/internal/IndexedAddressBook.h"
#include "pellor/linux/preferences/StoreNameSettings.h"
#include "pellor/linux/preferences/StoreRegion.h"
#include "pellor/runtime/BundleIdentifier.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/contract/ChildProcess.h"
#include "tests/linux/SQLiteStores.h"

namespace pellor {
namespace {

// Region and locale

StoreRegion::Proposal proposing(std::string region, std::string locale) {
  return [proposal = RegionProposal{{std::move(region), std::move(locale)}}] { return proposal; };
}

TEST(StoreRegionTest, TheProposalComesFromTheOptionAndTheEnvironment) {
  struct Case {
    std::optional<std::string> region;
    std::map<std::string, std::string> variables;
    RegionAndLocale proposal;
  };
  const std::vector<Case> cases = {
      {{}, {}, {"US", "en_US"}},
      {{}, {{"LANG", "de_DE.UTF-8"}}, {"DE", "de_DE"}},
      {{}, {{"LANG", "de_DE.UTF-8"}, {"LC_TELEPHONE", "fr_CH@euro"}}, {"CH", "de_CH"}},
      {{}, {{"LANG", "de_DE"}, {"LC_ALL", "es_MX"}}, {"MX", "es_MX"}},
      {{}, {{"LANG", "eo"}}, {"US", "eo_US"}},
      {"FR", {{"LANG", "de_DE"}}, {"FR", "de_FR"}},
  };
  for (const Case& test : cases) {
    const auto environment = [&test](const char* name) {
      const auto found = test.variables.find(name);
      return found == test.variables.end() ? std::nullopt : std::optional(found->second);
    };
    EXPECT_EQ(proposedRegion(test.region, environment), test.proposal) << test.proposal.locale;
  }
  for (const char* wrong : {"", "de", "DEU", "XX", "001"}) EXPECT_FALSE(isRegion(wrong)) << wrong;
  EXPECT_TRUE(isRegion("DE"));
}

TEST(StoreRegionTest, TheFirstProcessDecidesUntilItIsChanged) {
  const TemporaryFolder folder;
  StoreRegion first(openIn(folder / "store"), proposing("DE", "de_DE"));
  StoreRegion second(openIn(folder / "store"), proposing("US", "en_US"));
  EXPECT_EQ(second.region(), "DE");
  EXPECT_EQ(second.locale(), "de_DE");

  ASSERT_TRUE(StoreRegion::change(*openIn(folder / "store"), {"FR", "fr_FR"}));
  EXPECT_EQ(first.region(), "DE") << "the same as long as it lives";
  EXPECT_EQ(StoreRegion(openIn(folder / "store"), proposing("DE", "de_DE")).locale(), "fr_FR");
}

TEST(StoreRegionTest, AnUnreadableStoreIsAskedAgain) {
  const TemporaryFolder folder;
  writeFile(folder / "store", "in the way");
  StoreRegion region(openIn(folder / "store"), proposing("DE", "de_DE"));
  EXPECT_EQ(region.region(), "DE");
  std::filesystem::remove(folder / "store");
  ASSERT_TRUE(StoreRegion::change(*openIn(folder / "store"), {"FR", "fr_FR"}));
  EXPECT_EQ(region.region(), "FR");
}

TEST(StoreRegionTest, ProcessesThatStartAtOnceAgree) {
  const std::vector<std::string> proposals = {"DE", "FR", "US", "IT"};
  const TemporaryFolder folder;
  std::vector<std::unique_ptr<ChildProcess>> children;
  for (const std::string& proposal : proposals) {
    children.push_back(std::make_unique<ChildProcess>([&](const ChildProcess::Report& report) {
      StoreRegion region(openIn(folder / "store"), proposing(proposal, "en_" + proposal));
      report.send(std::find(proposals.begin(), proposals.end(), region.region()) - proposals.begin());
      return region.locale() == "en_" + region.region() ? 0 : 1;
    }));
  }
  const auto agreed = children.front()->receive();
  ASSERT_TRUE(agreed && *agreed < static_cast<std::int64_t>(proposals.size()));
  for (std::size_t index = 1; index < children.size(); ++index) EXPECT_EQ(children[index]->receive(), agreed);
  for (const auto& child : children) EXPECT_EQ(child->exitCode(), 0);
}

// Names, as the address book gives them to the library

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
