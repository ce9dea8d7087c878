// Texts that are much longer than any of a person's: what is left of them, and how much of them is looked at.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "pellor/linux/contacts/internal/CardBounds.h"
#include "pellor/linux/contacts/internal/EVCardContact.h"
#include "pellor/linux/reachability/IdentityService.h"
#include "pellor/linux/text/CardText.h"
#include "pellor/linux/text/IcuText.h"
#include "pellor/linux/text/TextLimits.h"
#include "tests/linux/ContactsFixture.h"

namespace pellor {
namespace {

using testing::HasSubstr;

constexpr std::size_t Many = 1'000'000;

std::string times(std::size_t count, std::string_view text) {
  std::string result;
  result.reserve(count * text.size());
  for (std::size_t index = 0; index < count; ++index) result += text;
  return result;
}

std::string card(const std::string& lines) { return "BEGIN:VCARD\r\n" + lines + "END:VCARD\r\n"; }

TEST(LongTexts, NamesAreCutWhereACharacterEnds) {
  const std::string family = "👨\u200D👩\u200D👧";  // five code points
  const struct {
    const char* what;
    std::string name, cut;
  } cases[] = {
      {"nothing", "", ""},
      {"a name of just the length", times(1000, "é"), times(1000, "é")},
      {"characters of four bytes", times(Many, "🌻"), times(1000, "🌻")},
      {"a mark behind the last one", times(999, "x") + "e\u0301" + "y", times(999, "x")},
      {"pictures of several", times(Many / 10, family), times(200, family)},
      {"one character of a million marks", "a" + times(Many, "\u0301"), "a" + times(999, "\u0301")},
      {"a blank at the cut", times(999, "x") + " yy", times(999, "x")},
  };
  for (const auto& each : cases) {
    const std::uint64_t before = segmentedTextUnits();
    EXPECT_EQ(nameWithinLimit(each.name), each.cut) << each.what;
    EXPECT_LE(segmentedTextUnits() - before, 2 * (LongestName + 1)) << each.what;
  }
}

// Narrow sound marks stand in a column of their own, unlike those that are set above a letter.
TEST(LongTexts, MarksThatTerminalsSetBesideALetterTakeAColumn) {
  EXPECT_EQ(displayWidth("ｽｽﾞｷ"), 4U);
  EXPECT_EQ(displayWidth("ﾊﾟ"), 2U);
  EXPECT_EQ(displayWidth("か\u3099"), 2U);
  EXPECT_EQ(displayWidth("e\u0301"), 1U);
  EXPECT_EQ(prefixOfWidth("ｽﾞｷ", 2), "ｽﾞ");
}

TEST(LongTexts, TheBeginningOfATextIsFoundInOnePass) {
  const struct {
    std::string text, beginning;
  } cases[] = {
      {times(Many, "x"), "xxxxx"},
      {times(Many, "e\u0301"), times(5, "e\u0301")},
      {times(Many / 10, "👨\u200D👩 "), "👨\u200D👩 👨\u200D👩"},
  };
  for (const auto& each : cases) {
    const std::uint64_t before = segmentedTextUnits();
    EXPECT_EQ(prefixOfWidth(each.text, 5), each.beginning);
    EXPECT_LE(segmentedTextUnits() - before, each.text.size());
  }
}

TEST(LongTexts, CardsGiveWhatIsLeftOfThem) {
  const std::string tel = "TEL:+4930123\r\n";
  const struct {
    const char* what;
    std::string lines;
    std::size_t nameSize;
    std::size_t phones;
    const char* remark;
  } cases[] = {
      {"a name", "FN:" + times(Many, "x") + "\r\n" + tel, 1000, 1, "holds texts that are too long: 1 name is cut"},
      {"name parts", "FN:Ann\r\nN:" + times(Many, "x") + ";" + times(Many, "y") + "\r\n" + tel, 3, 1,
       "2 names are cut"},
      {"the longest number, and a longer one",
       "FN:Ann\r\nTEL:" + times(64, "１") + "\r\nTEL:" + times(65, "1") + "\r\n" + tel, 3, 2, "1 number"},
      {"an address",
       "FN:Ann\r\nEMAIL:" + times(Many, "x") + "@example.org\r\nEMAIL:" + times(400, "x") + "@x\r\n" + tel, 3, 1,
       "2 numbers and addresses are left out"},
      {"a folded name", "FN:" + times(Many, "x\r\n ") + "\r\n" + tel, 1000, 1, "1 name is cut"},
      {"quoted-printable, four bytes", "FN;ENCODING=QUOTED-PRINTABLE:" + times(Many, "=F0=9F=8C=BB") + "\r\n" + tel,
       4000, 1, "1 name"},
      {"soft breaks alone", "FN;ENCODING=QUOTED-PRINTABLE:An" + times(Many, "=\r\n") + "n\r\n" + tel, 3, 1, ""},
      {"a picture", "PHOTO;ENCODING=b:" + times(Many, "AAAA\r\n ") + "\r\nFN:Ann\r\n" + tel, 3, 1, ""},
      {"parameters", "FN:Ann\r\nTEL" + times(Many, ";X=a") + ";TYPE=\"a:b\":+4930123\r\n", 3, 1, ""},
      {"quotes that do not end", "FN:Ann\r\nTEL;TYPE=\"" + times(Many, "a") + ":+49\r\n" + tel, 3, 1, ""},
      {"many numbers", "FN:Ann\r\n" + times(10'000, tel), 3, 10'000, ""},
  };
  for (const auto& each : cases) {
    const CardReading reading = readContactCard(card(each.lines));
    ASSERT_TRUE(reading.card) << each.what;
    EXPECT_EQ(reading.card->formattedName.value_or("").size(), each.nameSize) << each.what;
    EXPECT_EQ(reading.card->phones.size(), each.phones) << each.what;
    EXPECT_LE(reading.remarks.size(), 11U) << each.what;
    const auto isAboutLength = [](const std::string& remark) {
      return remark.starts_with("holds texts that are too long");
    };
    EXPECT_EQ(std::ranges::count_if(reading.remarks, isAboutLength), *each.remark ? 1 : 0) << each.what;
    if (!*each.remark) continue;
    EXPECT_THAT(reading.remarks.back(), HasSubstr(each.remark)) << each.what;
  }
}

/// The largest number of separators on one line of what goes to the parser, escaped ones not counted.
std::size_t mostOnALine(const std::string& text, std::string_view separators) {
  std::size_t most = 0;
  std::size_t count = 0;
  char before = 0;
  for (const char character : text) {
    if (character == '\n') count = 0;
    if (before != '\\' && separators.find(character) != std::string_view::npos) most = std::max(most, ++count);
    before = character;
  }
  return most;
}

// The parser appends each value to a list whose end it looks for.
TEST(LongTexts, ThePropertiesThatTheParserGetsAreShort) {
  const char* const lines[] = {
      "ADR:", "N:", "NOTE:", "FN:", "TEL;TYPE=", "X-FOLKS-CONTACTS-IDS:", "UID:", "PHOTO:", "ORG:"};
  for (const std::string line : lines) {
    for (const std::string_view separator : {";", ",", "a,", "a;"}) {
      const std::string text = boundedCard(card(line + times(Many, separator) + ":1\r\n")).text;
      EXPECT_LE(mostOnALine(text, line.starts_with("TEL") ? ";," : ";"), 2048U) << line << separator;
    }
  }
  const std::string usual =
      card("FN:Ann\r\n Lee\r\nPHOTO:" + times(2000, "A") + "\r\nTEL;TYPE=x:1\nNOTE;ENCODING=QUOTED-PRINTABLE:a=\nb\n");
  EXPECT_EQ(boundedCard(usual).text, usual) << "a card as there are many was changed";
}

TEST(LongTexts, AnyTextIsBoundedAndAShortOneStaysAsItIs) {
  const std::vector<std::string> pieces = {
      "N:",  ";TYPE=a", ";ENCODING=QUOTED-PRINTABLE", ":", "\"", "\\", "=\n", "\n ", ";", ",", "=C3", "é",
      "FN:", "\r\n"};
  std::mt19937 random(1);
  for (int round = 0; round < 100; ++round) {
    std::string text;
    for (std::size_t left = random() % 60; left > 0; --left) text += pieces[random() % pieces.size()];
    EXPECT_EQ(boundedCard(text).text, text);
    std::string longer;
    for (std::size_t left = 1 + random() % 8; left > 0; --left) {
      const std::string& piece = pieces[random() % pieces.size()];
      longer += times(random() % 3, text);
      longer += times(random() % 60'000, piece);
    }
    const std::string bounded = boundedCard(longer).text;
    EXPECT_LE(bounded.size(), 2 * longer.size() + 1000) << round;
    EXPECT_TRUE(isUtf8(bounded)) << round << ": a character was cut";
  }
}

TEST(LongTexts, LongListsOfLinksStayWhole) {
  std::string names;
  for (int number = 0; number < 10'000; ++number) names += (number ? "," : "") + ("card" + std::to_string(number));
  const CardReading reading =
      readContactCard(card("UID:" + times(5000, ";x") + "\r\nX-FOLKS-CONTACTS-IDS:" + names + "\r\n"));
  ASSERT_TRUE(reading.card);
  EXPECT_EQ(reading.card->links.size(), 10'000U);
  EXPECT_EQ(reading.card->links.back(), "card9999");
  EXPECT_EQ(reading.card->uid, times(5000, ";x"));
}

TEST(LongTexts, NumbersThatAreTooLongAreNoneAndTheLibraryDoesNotSeeThem) {
  const std::string region = "DE";
  IdentityService service([&]() -> const std::string& { return region; });
  ASSERT_TRUE(internationalPhoneNumber("030 123456", region));
  const std::uint64_t before = phoneLibraryCalls();
  const std::string digits = times(2000, "1234567890");
  EXPECT_EQ(internationalPhoneNumber(digits, region), std::nullopt);
  EXPECT_EQ(service.comparableNumber(digits), digits);
  EXPECT_EQ(service.identifierForPhoneNumber(digits), "tel:" + digits);
  EXPECT_EQ(phoneLibraryCalls(), before);
  EXPECT_EQ(service.comparableNumber(times(Many, "tel:") + "030 123456"), "+4930123456");
  EXPECT_EQ(service.rawAddressForDestination(times(Many, "te") + times(Many, "l:")), "");
}

struct LongTextsInTheIndex : testing::Test, ContactsFixture {};

}  // namespace
}  // namespace pellor
