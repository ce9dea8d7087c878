// The answers of the services that compute: text, numbers, identifiers, digests.
#include <gtest/gtest.h>

#include <cstdio>

#include "testing/SimulatedWorld.h"

namespace pellor {
namespace {

TEST(SimulatedTextTest, Uppercase) {
  SimulatedText text;
  const std::pair<const char*, const char*> cases[] = {
      {"straße", "STRASSE"},  {"éÿ÷", "ÉŸ÷"},   {"łódź ľ", "ŁÓDŹ Ľ"}, {"ıſŉĸ", "ISʼNĸ"},
      {"e\u0301", "E\u0301"}, {"σς ё", "ΣΣ Ё"}, {"漢😀", "漢😀"},       {"Iİ", "Iİ"}};
  for (const auto& [given, upper] : cases) EXPECT_EQ(text.uppercase(given), upper);
  EXPECT_EQ(text.uppercase("i\xFF"), "I\uFFFD") << "a byte that does not decode";
  text.setTurkish(true);
  EXPECT_EQ(text.uppercase("iı"), "İI");
}

TEST(SimulatedTextTest, Classes) {
  SimulatedText text;
  for (const char* digits : {"room 3", "٣", "३", "๓", "３", "𝟛"})
    EXPECT_TRUE(text.containsDecimalDigit(digits)) << digits;
  for (const char* none : {"", "three", "Ⅲ", "²", "三", "①"}) EXPECT_FALSE(text.containsDecimalDigit(none)) << none;
  for (const char16_t letter : std::u16string_view(u"aZßéłΩжאم漢あ한\u0301")) {
    EXPECT_TRUE(text.isLetterOrMark(letter)) << std::hex << static_cast<int>(letter);
  }
  for (const char16_t none : std::u16string_view(u"3 -×÷٣。♥\U0001F600\U00020000")) {
    EXPECT_FALSE(text.isLetterOrMark(none)) << std::hex << static_cast<int>(none);
  }
}

TEST(SimulatedTextTest, ScriptsAndEmoji) {
  const auto book = std::make_shared<InMemoryAddressBook>();
  Process process(nullptr);
  const auto store = book->storeFor(process);
  for (const char* latin : {"", "Ada 3!", "Łódź", "e\u0301", "Nguyễn", "O’Neill", "♥"}) {
    EXPECT_FALSE(store->containsNonLatinCharacters(latin)) << latin;
  }
  for (const char* other : {"Ada Жук", "Ω", "אבג", "漢", "한"})
    EXPECT_TRUE(store->containsNonLatinCharacters(other)) << other;
  for (const char* emoji : {"a😀", "❤", "🇩🇪", "1️⃣🎉"})
    EXPECT_TRUE(store->containsEmojiCharacters(emoji)) << emoji;
  for (const char* none : {"", "123 #*", "é漢", "→"}) EXPECT_FALSE(store->containsEmojiCharacters(none)) << none;
}

TEST(SimulatedPersonNamesTest, InitialsInTheOrderOfTheLocale) {
  SimulatedPersonNames names;
  EXPECT_EQ(names.abbreviatedName("ada", "Łow"), "aŁ");
  EXPECT_EQ(names.abbreviatedName("", "Жук"), "Ж");
  EXPECT_EQ(names.abbreviatedName(std::nullopt, std::nullopt), "");
  EXPECT_EQ(names.abbreviatedName("Ada", "山田"), "") << "no initials in that script";
  EXPECT_EQ(names.abbreviatedName("(Ada)", "Low"), "");
  names.setFamilyNameFirst(true);
  EXPECT_EQ(names.abbreviatedName("Ada", "Low"), "LA");
}

TEST(SimulatedIdentityServiceTest, CanonicalFormsAreTotalAndIdempotent) {
  SimulatedWorld world;
  SimulatedIdentityService& service = world.identityService();
  const auto canonical = [&](const std::string& text) {
    return service.rawAddressForDestination(service.identifierForPhoneNumberWithOptions(text, std::nullopt, 1).value());
  };
  const std::pair<const char*, const char*> german[] = {{"030 / 1234-567", "+49301234567"},
                                                        {"+49 (30) 1234567", "+49301234567"},
                                                        {"tel:0049301234567", "+49301234567"},
                                                        {"٠٣٠١٢٣٤٥٦٧", "+49301234567"},
                                                        {"110", "110"},
                                                        {"0012345", "0012345"},
                                                        {"flat 3", "flat 3"},
                                                        {"030 1234567 x12", "030 1234567 x12"},
                                                        {"ttel:el:0301234567", "+49301234567"},
                                                        {"tel:", ""},
                                                        {"", ""}};
  for (const auto& [given, expected] : german) EXPECT_EQ(canonical(given), expected) << given;
  world.phoneNumbers().setHomeCountry("US");
  EXPECT_EQ(canonical("(212) 555-0100"), "+12125550100");

  // Many texts over the characters that matter, in both countries.
  for (const char* country : {"US", "DE"}) {
    world.phoneNumbers().setHomeCountry(country);
    for (std::uint32_t n = 0; n < 20'000; ++n) {
      std::string text;
      for (std::uint32_t rest = n * 2'654'435'761u; rest > 0; rest /= 7) text += "00+1 59"[rest % 7];
      const std::string once = canonical(text);
      ASSERT_EQ(canonical(once), once) << text;
    }
  }
}

TEST(SimulatedIdentityServiceTest, AddressesHoldNoScheme) {
  SimulatedWorld world;
  SimulatedIdentityService& service = world.identityService();
  EXPECT_EQ(service.identifierForEmailAddress("Ada@Example.ORG"), "mailto:ada@example.org");
  EXPECT_EQ(service.identifierForEmailAddress("MAILTO:Ada@Example.ORG"), "mailto:ada@example.org");
  EXPECT_EQ(service.rawAddressForDestination("tel:mailto:a@tel:b"), "a@b");
}

TEST(SimulatedPhoneNumbersTest, DisplayIsShorterAtHome) {
  SimulatedPhoneNumbers numbers;
  const auto number = numbers.parsePhoneNumber("0301234567", numbers.homeCountryCode());
  ASSERT_NE(number, nullptr);
  EXPECT_EQ(numbers.phoneNumberString(*number, PhoneNumberForm::canonical), "+49301234567");
  EXPECT_EQ(numbers.phoneNumberCountryCode(*number), "DE");
  EXPECT_EQ(numbers.formatPhoneNumber("+49301234567", "DE", 2, 6), "0301234567");
  EXPECT_EQ(numbers.formatPhoneNumber("+49301234567", "DE", 2, 4), "+49 301234567");
  EXPECT_EQ(numbers.formatPhoneNumber("call me", "DE", 2, 6), "call me");
  EXPECT_EQ(numbers.parsePhoneNumber("call me", "DE"), nullptr);
}

TEST(SimulatedDigestsTest, StandardVectors) {
  const auto hex = [](std::string_view text) {
    std::string result;
    const std::vector<std::uint8_t> bytes(text.begin(), text.end());
    for (const std::uint8_t byte : SimulatedDigests().sha1(bytes)) {
      char digits[3];
      std::snprintf(digits, sizeof digits, "%02x", byte);
      result += digits;
    }
    return result;
  };
  EXPECT_EQ(hex(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
  EXPECT_EQ(hex("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(hex("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
  EXPECT_EQ(hex(std::string(1'000'000, 'a')), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

}  // namespace
}  // namespace pellor
