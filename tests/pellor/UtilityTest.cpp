#include "Pellor/PLUtility.h"

#include "Pellor/PLBundle.h"
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
  const struct {
    std::optional<std::string> text;
    std::optional<std::string> initial;
  } cases[] = {
      {"ann", "A"},
      {"éric", "É"},
      {"ß", "SS"},
      {"\u0301a", "\u0301"},  // a mark counts as a letter
      {"3M", std::nullopt},
      {"-ann", std::nullopt},
      {" ann", std::nullopt},
      {"Ann 😀", std::nullopt},
      {"𝐀nn", std::nullopt},  // half of a pair is no letter
      {"Жан", std::nullopt},
      {"Ann Жан", std::nullopt},
      {"\xC3", std::nullopt},
      {"\xFF", std::nullopt},
      {"", std::nullopt},
      {std::nullopt, std::nullopt},
  };
  for (const auto& one : cases) EXPECT_EQ(PLUtility::initialForString(one.text), one.initial) << one.text.value_or("-");
}

TEST_F(Utility, RomanIsWhatHoldsNothingElse) {
  EXPECT_TRUE(PLUtility::isRomanString(std::nullopt));
  EXPECT_TRUE(PLUtility::isRomanString(""));
  EXPECT_TRUE(PLUtility::isRomanString("Éric 3"));
  EXPECT_FALSE(PLUtility::isRomanString("Eric Ж"));
  EXPECT_FALSE(PLUtility::isRomanString("Eric 😀"));
}

TEST_F(Utility, NumbersAreShownWithoutTheCountryCodeAtHome) {
  EXPECT_EQ(PLUtility::compressPhoneNumberString("+49 30 1234567"), "0301234567");
  EXPECT_EQ(PLUtility::compressPhoneNumberString("+33 1 23 45 67 89"), "+33 123456789");
  EXPECT_EQ(PLUtility::compressPhoneNumberString("ask Ann"), "ask Ann");
}

TEST_F(Utility, HashesAreTheDigestInBase64) {
  const auto hash = [](std::string_view text) {
    return PLUtility::hashFromData({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  };
  EXPECT_EQ(hash(""), "2jmj7l5rSw0yVb/vlWAYkK/YBwk=");
  EXPECT_EQ(hash("abc"), "qZk+NkcGgWq6PiVxeFDCbJzQ2J0=");
}

TEST_F(Utility, LinesNameTheLibrary) {
  _PLGetLogSystem().log("hello %@", redactable("Ann"));
  const auto line = log->entries().at(0);
  EXPECT_EQ(line.subsystem, "org.tapnote.Pellor");
  EXPECT_EQ(line.category, "main");
  EXPECT_THAT(line.text(LogEntry::Private::hidden), testing::HasSubstr("TestBody ("));
  EXPECT_THAT(line.text(LogEntry::Private::hidden), testing::HasSubstr("\"hello <private>\""));

  world.strings().setHasBundle(false);
  EXPECT_NE(PellorBundle(), nullptr) << "looked up once";
  Process second(scheduler, log);
  installPlatform(second, world.makePlatform(second));
  const Process::Scope scope(second);
  EXPECT_EQ(PellorBundle(), nullptr);
  EXPECT_EQ(_PLGetLogSystem().subsystem(), "org.tapnote.Pellor") << "also without the library's strings";
}

bool mayAdd(std::int32_t recordID, AddressBook* book, PersonValueCache& cache) {
  return PLUtility::shouldAllowAddingFriendWithRecordIDWithFriendListManagerAddressBookPersonValueCache(
      recordID, nullptr, book, cache);
}

TEST_F(Utility, OnlyWhoCanBeReachedMayBeAdded) {
  const std::string ann = world.addressBook().add({.first = "Ann", .phones = {{"home", "030 1234567"}}});
  const std::string bob = world.addressBook().add({.first = "Bob"});
  const std::int32_t annID = record(ann)->recordID();
  const std::int32_t bobID = record(bob)->recordID();
  PersonValueCache cache;
  EXPECT_TRUE(mayAdd(annID, book(), cache));
  EXPECT_FALSE(mayAdd(bobID, book(), cache));
  EXPECT_FALSE(mayAdd(4711, book(), cache)) << "no such record";
  EXPECT_EQ(cache, (PersonValueCache{{annID, 1}, {bobID, 0}, {4711, 0}}));

  world.addressBook().change(ann, [](TestContact& contact) { contact.phones.clear(); });
  EXPECT_TRUE(mayAdd(annID, book(), cache)) << "the cache is never refreshed";
  PersonValueCache untouched;
  EXPECT_TRUE(mayAdd(bobID, nullptr, untouched)) << "without a handle nothing is counted";
  EXPECT_TRUE(untouched.empty());
}

}  // namespace
}  // namespace pellor
