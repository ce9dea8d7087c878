#include "pellor/friends/PLPerson.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

using ContactValues = OneProcess;

TEST_F(ContactValues, NameFollowsTheSettings) {
  auto& contacts = world.addressBook();
  const std::string ada = contacts.add({.first = "Ada", .last = "Lovelace", .nickname = "Countess"});
  const std::string bob = contacts.add({.first = "Bob", .last = "Bean"});
  const auto names = [&](bool isShort, bool prefersNicknames) {
    contacts.setShortNameFormatEnabled(isShort);
    contacts.setShortNamePreferNicknames(prefersNicknames);
    return *PLPerson::preferredNameForPerson(record(ada)) + ", " + *PLPerson::preferredNameForPerson(record(bob));
  };
  EXPECT_EQ(names(false, false), "Ada Lovelace, Bob Bean");
  EXPECT_EQ(names(true, false), "Ada, Bob");
  EXPECT_EQ(names(false, true), "Countess, Bob Bean") << "also when short names are off";
  EXPECT_EQ(names(true, true), "Countess, Bob");

  contacts.change(ada, [](TestContact& contact) { contact.nickname = ""; });
  EXPECT_EQ(PLPerson::preferredNameForPerson(record(ada)), "") << "an empty nickname is one";
  EXPECT_EQ(PLPerson::preferredNameForPerson(nullptr), std::nullopt);
  contacts.link({ada, bob});
  contacts.change(bob, [](TestContact& contact) { contact.isPreferredForName = true; });
  contacts.setShortNamePreferNicknames(false);
  EXPECT_EQ(PLPerson::preferredNameForPerson(record(ada)), "Bob") << "of the linked record that names them";
}

TEST_F(ContactValues, DestinationsOfAllLinkedRecordsAreGathered) {
  auto& contacts = world.addressBook();
  const std::string ann =
      contacts.add({.first = "Ann", .phones = {{"home", "030 1234567"}}, .emails = {{"home", "Ann@example.org"}}});
  const std::string anna =
      contacts.add({.first = "Anna", .phones = {{"work", "+49 30 1234567"}, {"fax", "none"}, {"main", "030 7654321"}}});
  EXPECT_EQ(PLPerson::allValuesForPerson(record(ann)), (DestinationSet{"+49301234567", "Ann@example.org"}));
  contacts.link({ann, anna});
  EXPECT_EQ(PLPerson::allValuesForPerson(record(anna)),
            (DestinationSet{"+49301234567", "+49307654321", "Ann@example.org"}));
  EXPECT_EQ(PLPerson::allValuesForPerson(record(contacts.add({.first = "Bob"}))), DestinationSet());
  EXPECT_EQ(PLPerson::allValuesForPerson(nullptr), std::nullopt);
}

TEST_F(ContactValues, ValuesAreAddedToTheRecordAtHand) {
  const std::string ann = world.addressBook().add({.first = "Ann", .phones = {{"home", "030 1234567"}}});
  const RecordRef handle = record(ann);
  const auto phoneID =
      PLPerson::addValueWithLabelToPersonProperty("030 7654321", "work", handle, RecordProperty::phone);
  const auto phones = handle->copyMultiValue(RecordProperty::phone)->entries;
  ASSERT_EQ(phones.size(), 2U);
  EXPECT_EQ(phones[1], (MultiValue::Entry{phoneID, "work", "030 7654321"}));
  const auto emailID =
      PLPerson::addValueWithLabelToPersonProperty("ann@example.org", "home", handle, RecordProperty::email);
  EXPECT_EQ(handle->copyMultiValue(RecordProperty::email)->entries,
            (std::vector{MultiValue::Entry{emailID, "home", "ann@example.org"}}));

  EXPECT_EQ(PLPerson::addValueWithLabelToPersonProperty("Annie", "", handle, RecordProperty::nickname), -1);
  EXPECT_EQ(handle->nickname(), "Annie");
  EXPECT_EQ(world.addressBook().contact(ann)->nickname, std::nullopt) << "nothing is saved";
}

}  // namespace
}  // namespace pellor
