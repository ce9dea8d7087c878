#include "pellor/friends/PLUtility.h"

#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

using Utility = OneProcess;

TEST_F(Utility, InitialsComeFromTheNameThatIsShown) {
  auto& contacts = world.addressBook();
  const std::string ada = contacts.add({.first = "ada", .last = "lovelace"});
  EXPECT_EQ(PLUtility::initialsForPerson(record(ada)), "AL");
  EXPECT_EQ(PLUtility::initialsForPerson(nullptr), std::nullopt);

  const std::string unnamed = contacts.add({.phones = {{"home", "030 1234567"}}});
  EXPECT_EQ(PLUtility::initialsForPerson(record(unnamed)), std::nullopt) << "nobody to take a name from";
  contacts.link({unnamed, ada});
  EXPECT_EQ(PLUtility::initialsForPerson(record(unnamed)), "AL") << "linked with one who has a name";

  const std::string han = contacts.add({.first = "明", .last = "王"});
  EXPECT_EQ(PLUtility::initialsForPerson(record(han)), std::nullopt) << "a name without initials";
  const std::string works = contacts.add(
      {.kind = TestContact::Kind::organization, .first = "Ada", .last = "Works", .organization = "Ada Works"});
  EXPECT_EQ(PLUtility::initialsForPerson(record(works)), std::nullopt) << "an organisation";
}

TEST_F(Utility, InitialIsTheFirstLetterOfALatinText) {
  // A mark counts as a letter.
  const std::pair<std::string, std::string> cases[] = {{"ann", "A"}, {"ạnn", "Ạ"}, {"ß", "SS"}, {"\u0301a", "\u0301"}};
  for (const auto& [text, initial] : cases) EXPECT_EQ(PLUtility::initialForString(text), initial);
  // Half of a pair is no letter, and there is no other spelling of "A".
  for (const std::string text : {"3M", " ann", "Ann 😀", "𝐀nn", "Жан", "\xC3", "\xC1\x81", "\xC3(", ""}) {
    EXPECT_EQ(PLUtility::initialForString(text), std::nullopt) << text;
  }
  EXPECT_EQ(PLUtility::initialForString(std::nullopt), std::nullopt);
  world.text().setTurkish(true);
  EXPECT_EQ(PLUtility::initialForString("ilker"), "İ");
}

TEST_F(Utility, HashesAreTheDigestInBase64) {
  const auto hash = [](std::string_view text) {
    return PLUtility::hashFromData({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  };
  EXPECT_EQ(hash(""), "2jmj7l5rSw0yVb/vlWAYkK/YBwk=");
  EXPECT_EQ(hash("abc"), "qZk+NkcGgWq6PiVxeFDCbJzQ2J0=");
}

TEST_F(Utility, NumbersAreShortForTheHomeCountry) {
  const char* cases[][2] = {
      {"+49 (30) 123-4567", "0301234567"}, {"+33 1 23456789", "+33 123456789"}, {"ring Ann", "ring Ann"}};
  for (const auto& [number, shown] : cases) EXPECT_EQ(PLUtility::compressPhoneNumberString(number), shown);
  world.phoneNumbers().setHomeCountry("FR");
  EXPECT_EQ(PLUtility::compressPhoneNumberString("+33 1 23456789"), "0123456789");
}

}  // namespace
}  // namespace pellor
