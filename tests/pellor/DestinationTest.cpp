#include "Pellor/PLDestination.h"

#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

using Destination = OneProcess;

TEST_F(Destination, KindsAreToldByWhatTheTextHoldsAnywhere) {
  const struct {
    std::string text;
    int type;
    bool isIdentifier;
    bool isRawAddress;
  } cases[] = {
      {"ann@example.org", 2, false, true},
      {"mailto:ann@example.org", 2, true, false},
      {"mailto:", 2, true, false},
      {"+49 30 1234567", 1, false, true},
      {"tel:+49301234567", 1, true, false},
      {"tel:", 1, true, false},
      {"call tel:Ann", 1, true, false},
      {"tel:ann@example.org", 2, true, false},
      {"mailto:tel:", 2, true, false},
      {"ring 3 times", 1, false, true},
      {"٣", 1, false, true},
      {"Ⅷ", 0, false, false},
      {"Ann", 0, false, false},
      {"TEL:", 0, false, false},
      {"", 0, false, false},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.text);
    EXPECT_EQ(plMessageDestinationType(one.text), one.type);
    EXPECT_EQ(plMessageIsRelayIdentifier(one.text), one.isIdentifier);
    EXPECT_EQ(plMessageIsRawAddress(one.text), one.isRawAddress);
  }
}

TEST_F(Destination, KindsAreToldByACharacterWhereverItStands) {
  for (std::size_t size = 1; size <= 20; ++size) {
    for (std::size_t at = 0; at < size; ++at) {
      // "A" and ";" are the characters behind "@" and ":".
      std::string text(size, at % 2 ? 'A' : ';');
      EXPECT_EQ(plMessageDestinationType(text), PLMessageDestinationTypeUnknown) << text;
      EXPECT_EQ(plMessageDestinationType(text.replace(at, 1, "@")), PLMessageDestinationTypeEmail) << text;
      EXPECT_EQ(plMessageDestinationType(text.replace(at, 1, "tel:")), PLMessageDestinationTypePhoneNumber) << text;
    }
  }
}

TEST_F(Destination, IsConvertedBetweenItsForms) {
  const struct {
    std::string text;
    std::optional<std::string> identifier;
    std::string rawAddress;
    std::string canonical;
  } cases[] = {
      {"030 1234567", "tel:+49301234567", "030 1234567", "+49301234567"},
      {"+49 (30) 123-4567", "tel:+49301234567", "+49 (30) 123-4567", "+49301234567"},
      {"tel:+49301234567", "tel:+49301234567", "+49301234567", "+49301234567"},
      {"Ann@Example.org", "mailto:ann@example.org", "Ann@Example.org", "Ann@Example.org"},
      {"mailto:Ann@Example.org", "mailto:Ann@Example.org", "Ann@Example.org", "Ann@Example.org"},
      {"Ann", std::nullopt, "Ann", "Ann"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.text);
    EXPECT_EQ(plMessageRelayIdentifier(one.text), one.identifier);
    EXPECT_EQ(plMessageRawAddress(one.text), one.rawAddress);
    EXPECT_EQ(plMessageCanonicalRawAddress(one.text), one.canonical);
  }
}

TEST_F(Destination, SetsKeepOneCanonicalFormOfEach) {
  const Array mixed{"030 1234567", 301234567, "Ann", Array{"+49301234567"}, "+49 30 1234567", "b@example.org"};
  EXPECT_THAT(plSanitizedDestinationSet(mixed), testing::ElementsAre("+49301234567", "b@example.org"));
  EXPECT_THAT(plSanitizedDestinationSet(DestinationSet{"Ann", "nobody"}), testing::IsEmpty());
}

/// Has no identifier for any number.
struct UnableService : SimulatedIdentityService {
  using SimulatedIdentityService::SimulatedIdentityService;
  std::optional<std::string> identifierForPhoneNumber(std::string_view) override { return std::nullopt; }
  std::optional<std::string> identifierForPhoneNumberWithOptions(std::string_view, std::optional<std::string> country,
                                                                 std::uint32_t options) override {
    EXPECT_EQ(country, std::nullopt);
    EXPECT_EQ(options, 1U);
    return std::nullopt;
  }
};

TEST(DestinationWithoutIdentifier, IsAbsentAndNoMemberOfASet) {
  SimulatedWorld world;
  Process process(std::make_shared<SimulatedScheduler>(1), nullptr);
  Platform platform = world.makePlatform(process);
  platform.reachability = std::make_shared<UnableService>(std::make_shared<SimulatedPhoneNumbers>());
  installPlatform(process, platform);
  EXPECT_EQ(plMessageRelayIdentifier("030 1234567"), std::nullopt);
  EXPECT_EQ(plMessageCanonicalRawAddress("030 1234567"), std::nullopt);
  EXPECT_EQ(plMessageCanonicalRawAddress("b@example.org"), "b@example.org");
  EXPECT_DEATH(plSanitizedDestinationSet(DestinationSet{"030 1234567"}), "an identifier for every phone number");
}

}  // namespace
}  // namespace pellor
