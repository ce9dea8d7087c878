#include "pellor/linux/preferences/StoreRegion.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "pellor/testing/contract/ChildProcess.h"
#include "tests/linux/SQLiteStores.h"

namespace pellor {
namespace {

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

}  // namespace
}  // namespace pellor
