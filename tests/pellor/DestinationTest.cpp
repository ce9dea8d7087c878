#include "pellor/friends/PLDestination.h"

#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

using Destination = OneProcess;

TEST_F(Destination, IsToldByWhatTheTextHoldsAndConvertedBetweenItsForms) {
  enum class Kind { none, raw, identifier };
  const struct {
    std::string text;
    int type;
    Kind kind;
    std::optional<std::string> identifier;
    std::string rawAddress, canonical;
  } cases[] = {
      {"Ann@Example.org", 2, Kind::raw, "mailto:ann@example.org", "Ann@Example.org", "Ann@Example.org"},
      {"mailto:Ann@Example.org", 2, Kind::identifier, "mailto:Ann@Example.org", "Ann@Example.org", "Ann@Example.org"},
      {"+49 (30) 123-4567", 1, Kind::raw, "tel:+49301234567", "+49 (30) 123-4567", "+49301234567"},
      {"030 1234567", 1, Kind::raw, "tel:+49301234567", "030 1234567", "+49301234567"},
      {"tel:+49301234567", 1, Kind::identifier, "tel:+49301234567", "+49301234567", "+49301234567"},
      {"Ann", 0, Kind::none, std::nullopt, "Ann", "Ann"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.text);
    EXPECT_EQ(plMessageDestinationType(one.text), one.type);
    EXPECT_EQ(plMessageIsRelayIdentifier(one.text), one.kind == Kind::identifier);
    EXPECT_EQ(plMessageIsRawAddress(one.text), one.kind == Kind::raw);
    EXPECT_EQ(plMessageRelayIdentifier(one.text), one.identifier);
    EXPECT_EQ(plMessageRawAddress(one.text), one.rawAddress);
    EXPECT_EQ(plMessageCanonicalRawAddress(one.text), one.canonical);
  }
  const std::pair<std::string, int> types[] = {{"", 0}, {"tel:", 1}, {"mailto:tel:", 2}, {"٣", 1}, {"Ⅷ", 0}};
  for (const auto& [text, type] : types) EXPECT_EQ(plMessageDestinationType(text), type) << text;
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

TEST_F(Destination, SetsKeepOneCanonicalFormOfEach) {
  const Array mixed{"030 1234567", 301234567, "Ann", Array{"+49301234567"}, "+49 30 1234567", "b@example.org"};
  EXPECT_THAT(plSanitizedDestinationSet(mixed), testing::ElementsAre("+49301234567", "b@example.org"));
  EXPECT_THAT(plSanitizedDestinationSet(DestinationSet{"Ann", "nobody"}), testing::IsEmpty());
}

}  // namespace
}  // namespace pellor
