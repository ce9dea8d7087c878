#include "pellor/friends/PLPerson.h"

#include "pellor/friends/detail/PLPersonForm.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

using testing::ElementsAre;

class Person : public OneProcess {
 protected:
  std::shared_ptr<PLPerson> fromForm(const PersonDictionary& form) {
    return PLPerson::initWithDictionaryRepresentationAddressBook(form, nullptr);
  }

  const PersonDictionary fullForm{{"ABRecordID", 7},
                                  {"ABRecordGUID", "guid-7"},
                                  {"ABDatabaseUID", "db"},
                                  {"Name", "Ann Bee"},
                                  {"AllValues", Array{"+49301234567", "ann@example.org"}},
                                  {"ReplyAs", "me@example.org"},
                                  {"PreferredDestination", "ann@example.org"},
                                  {"Monogram", "AB"},
                                  {"Metadata", Dictionary{{"color", "red"}}}};
  const PersonDictionary emptyForm{{"ABRecordID", 0}, {"AllValues", Array{}}, {"Monogram", ""}};
};

// Two processes that read one card have records of their own: each part counts, and nothing else does.
TEST_F(Person, RecordsAreEqualWhenAllTheirPartsAre) {
  const auto entries = [](const char* value) {
    return std::make_shared<const Dictionary>(Dictionary{{"later", value}});
  };
  const auto made = [&] {
    return PLPersonRecord()
        .withRecordID(7)
        .with(PLPersonRecord::_name, "Ann Bee")
        .with(PLPersonRecord::_abRecordGUID, "guid-7")
        .withDestinations({"+49301234567", "ann@example.org"})
        .withUnknownEntries(entries("x"));
  };
  const PLPersonRecord record = made();
  EXPECT_EQ(record, made());
  const PLPersonRecord others[] = {
      PLPersonRecord(),
      record.withRecordID(8),
      record.with(PLPersonRecord::_name, "Ann"),
      record.with(PLPersonRecord::_name, std::nullopt),
      record.with(PLPersonRecord::_abDatabaseUID, "db"),
      record.with(PLPersonRecord::_abRecordGUID, "guid-8"),
      record.withDestinations({"+49301234567"}),
      record.withDestinations({"+49301234567", "bea@example.org"}),
      record.withUnknownEntries(entries("y")),
      record.withUnknownEntries(nullptr),
  };
  for (const PLPersonRecord& other : others) EXPECT_NE(record, other) << &other - others;
  EXPECT_EQ(record.withUnknownEntries(nullptr), made().withUnknownEntries(nullptr));
}

TEST_F(Person, WhatAFormLacksOrMistypesIsCleared) {
  const PersonDictionary mistyped{{"ABRecordID", "7"}, {"ABRecordGUID", 7},   {"ABDatabaseUID", true},
                                  {"Name", 1.5},       {"AllValues", "x@y"},  {"ReplyAs", Array{}},
                                  {"Monogram", 3},     {"Metadata", Array{}}, {"PreferredDestination", 5}};
  for (const PersonDictionary& form : {PersonDictionary(), mistyped}) {
    const auto person = fromForm(fullForm);
    EXPECT_TRUE(person->updateFromDictionaryRepresentation(form));
    EXPECT_EQ(person->dictionaryRepresentation(), emptyForm) << "the record identifier is 0, not -1";
    EXPECT_FALSE(person->updateFromDictionaryRepresentation(form));
  }
}

TEST_F(Person, LosingALinkIsAnnounced) {
  Posts posts(process, PLPersonUnlinkedFromAddressBookNotification);
  const auto person = fromForm({{"ABRecordGUID", "old"}});
  person->updateFromDictionaryRepresentation({{"ABRecordGUID", "new"}});
  EXPECT_EQ(posts.count(), 0U) << "later, on the main queue";
  settle();
  ASSERT_EQ(posts.count(), 1U);
  EXPECT_EQ(posts.all()[0].object, person);
  EXPECT_EQ(*posts.all()[0].userInfoAs<Dictionary>(), (Dictionary{{"UnlinkedABGUID", "old"}}));

  person->updateFromDictionaryRepresentation({{"ABRecordGUID", ""}});
  person->updateFromDictionaryRepresentation({});
  settle();
  ASSERT_EQ(posts.count(), 2U) << "from an empty one to none nothing is lost";
}

TEST_F(Person, PreferencesAreEditsUntilASaveHasSeenThem) {
  Posts posts(process, PLPersonValuesChangedNotification);
  const auto person = fromForm(fullForm);
  person->setPreferredReplyAs("me@example.org");
  person->setPreferredDestination("ann@example.org");
  EXPECT_FALSE(person->needsSave());
  person->setPreferredReplyAs(std::nullopt);
  person->setPreferredDestination("+33123456789");
  settle();
  EXPECT_EQ(posts.count(), 2U);
  EXPECT_EQ(process.local<PLPersonChanges>().marks, 2U);
  EXPECT_FALSE(person->dictionaryRepresentation().contains("ReplyAs"));
  EXPECT_EQ(person->dictionaryRepresentation().at("PreferredDestination"), Value("+33123456789"))
      << "nobody's, and kept";
  person->updateFromDictionaryRepresentation({{"AllValues", Array{"clean@example.org"}}});
  EXPECT_TRUE(person->takeNeedsSave());
  EXPECT_FALSE(person->takeNeedsSave());
}

TEST_F(Person, WhatAFormSaysThatThisVersionDoesNotKnowIsWrittenBack) {
  PersonDictionary form = fullForm;
  form.insert({{"Nickname", "Annie"}, {"Seen", Array{1, "x", Array{2.5}}}, {"Face", Dictionary{{"eyes", 2}}}});
  const auto person = fromForm(form);
  EXPECT_EQ(person->dictionaryRepresentation(), form);
  person->setPreferredReplyAs("other@example.org");
  person->refreshWithAddressBook(book());
  for (const char* key : {"Nickname", "Seen", "Face"}) {
    EXPECT_EQ(person->dictionaryRepresentation().at(key), form.at(key)) << "edits leave it alone";
  }
  form.insert_or_assign("Seen", Array{});
  EXPECT_TRUE(person->updateFromDictionaryRepresentation(form));
  EXPECT_EQ(person->dictionaryRepresentation(), form);
  EXPECT_FALSE(person->updateFromDictionaryRepresentation(form));

  const auto lookedUp = fromForm({{"AllValues", Array{"ann@example.org"}}});
  PLPersonForm stored(form);
  lookedUp->adoptPreferencesFromForm(stored);
  for (const char* key : {"ReplyAs", "PreferredDestination", "Nickname", "Seen"}) {
    EXPECT_EQ(lookedUp->dictionaryRepresentation().at(key), form.at(key));
  }
  EXPECT_TRUE(person->updateFromDictionaryRepresentation(fullForm));
  EXPECT_EQ(person->dictionaryRepresentation(), fullForm);
}

TEST_F(Person, AStoredFormIsSomebodysByGUIDAndWithoutOneByDestination) {
  // An empty GUID counts as absent.
  const struct {
    std::optional<std::string> guid;
    Array values;
    PersonDictionary form;
    bool isEqual;
  } cases[] = {
      {"g", {"a@x"}, {{"ABRecordGUID", "g"}}, true},
      {"g", {"a@x"}, {{"ABRecordGUID", "h"}, {"AllValues", Array{"a@x"}}}, false},
      {std::nullopt, {"a@x"}, {{"ABRecordGUID", "g"}, {"AllValues", Array{"a@x"}}}, false},
      {std::nullopt, {"a@x", "b@x"}, {{"AllValues", Array{7, "c@x", "b@x"}}}, true},
      {"", {"a@x"}, {{"AllValues", Array{"a@x"}}}, true},
  };
  for (const auto& one : cases) {
    PersonDictionary form{{"AllValues", one.values}};
    if (one.guid) form.emplace("ABRecordGUID", *one.guid);
    EXPECT_EQ(fromForm(form)->isEqualToDictionaryRepresentation(one.form), one.isEqual)
        << Value(form).description() << " and " << Value(one.form).description();
  }
}

TEST_F(Person, PersonsAreAlikeByGUIDOrByDestination) {
  const auto person = [&](std::string guid, const Array& values) {
    return fromForm({{"ABRecordGUID", std::move(guid)}, {"AllValues", values}});
  };
  EXPECT_TRUE(person("g", {})->isLikePerson(person("g", {})));
  EXPECT_TRUE(person("g", {"a@x", "b@x"})->isLikePerson(person("h", {"b@x", "c@x"}))) << "GUIDs do not rule it out";
  EXPECT_FALSE(person("", {"a@x"})->isLikePerson(person("", {"b@x"}))) << "strangers are nobody's duplicates";
}

TEST_F(Person, ArchiveKeepsAllButTheReplyPreference) {
  const Dictionary content{{"pd", "a@x"},     {"i", "AB"},  {"pnc", 2},
                           {"eac", 1.5},      {"abid", -1}, {"abguid", "g"},
                           {"abdbuid", "db"}, {"n", "Ann"}, {"m", Dictionary{{"born", Date{5}}}}};
  KeyedArchive archive(content);
  archive.encodeSet("av", {"a@x", "b@x"});
  const auto person = PLPerson::initWithCoder(archive);
  EXPECT_EQ(person->primaryDestination(), "a@x");
  EXPECT_EQ(person->dictionaryRepresentation(), (Dictionary{{"ABRecordID", -1},
                                                            {"ABRecordGUID", "g"},
                                                            {"ABDatabaseUID", "db"},
                                                            {"Name", "Ann"},
                                                            {"AllValues", Array{"a@x", "b@x"}},
                                                            {"Monogram", "AB"},
                                                            {"Metadata", Dictionary{{"born", Date{5}}}}}));
  person->setPreferredReplyAs("me@x");
  person->setPreferredDestination("a@x");
  KeyedArchive again;
  person->encodeWithCoder(again);
  EXPECT_EQ(again.content(), archive.content());
  const auto copy = PLPerson::initWithCoder(again);
  EXPECT_EQ(copy->preferredReplyAs(), std::nullopt);
  EXPECT_EQ(copy->preferredDestination(), std::nullopt);
  EXPECT_FALSE(copy->needsSave());
}

TEST_F(Person, ArchiveMayLackEverythingAndHoldAnything) {
  const Dictionary nobody{{"ABRecordID", 0}, {"Monogram", ""}};
  EXPECT_EQ(PLPerson::initWithCoder(KeyedArchive())->dictionaryRepresentation(), nobody) << "0, not -1";
  const KeyedArchive mistyped(
      {{"pd", 1}, {"i", true}, {"pnc", "2"}, {"abguid", 1}, {"n", Array{}}, {"av", "a@x"}, {"m", 3}});
  EXPECT_EQ(PLPerson::initWithCoder(mistyped)->dictionaryRepresentation(), nobody);
}

TEST_F(Person, DestinationsThatNeedCorrectionAskToBeSaved) {
  const struct {
    Array stored;
    bool needsSave;
  } cases[] = {{{"030 1234567"}, true}, {{"+49301234567", 5}, true}, {{"+49301234567", "+49301234567"}, false}};
  for (const auto& one : cases) {
    const auto person = fromForm({{"AllValues", one.stored}});
    EXPECT_THAT(*person->allValues(), ElementsAre("+49301234567"));
    EXPECT_EQ(person->takeNeedsSave(), one.needsSave) << Value(one.stored).description();
    person->updateFromDictionaryRepresentation({{"AllValues", one.stored}});
    EXPECT_FALSE(person->needsSave()) << "they were corrected already";
  }
}

using PersonForm = OneProcess;

TEST_F(PersonForm, IsAsWrittenExactlyIfThePersonIsStoredSo) {
  const Value number = "+49301234567", address = "ann@example.org";
  const PersonDictionary written{{"ABRecordID", 7},
                                 {"ABRecordGUID", "guid-7"},
                                 {"ABDatabaseUID", "db"},
                                 {"Name", "Ann Bee"},
                                 {"ReplyAs", "me"},
                                 {"AllValues", Array{number, address}},
                                 {"Monogram", "AB"},
                                 {"Metadata", Dictionary{{"color", "red"}}},
                                 {"PreferredDestination", "0"}};
  const Value others[] = {"",
                          "Ann",
                          0,
                          std::int64_t{1} << 40U,
                          true,
                          Dictionary{},
                          Dictionary{{"a", 1}},
                          Array{},
                          Array{address},
                          Array{address, number},
                          Array{address, address},
                          Array{"mailto:ann@example.org"},
                          Array{"030 1234567"},
                          Array{"nobody"},
                          Array{number, 7}};
  std::size_t asWritten = 0, all = 0;
  const auto check = [&](const PersonDictionary& dictionary) {
    PLPersonForm form(dictionary);
    const auto person = PLPerson::initWithForm(form);
    const auto stored = person->dictionaryRepresentation();
    EXPECT_EQ(stored.at("AllValues").array()->size(), person->allValues()->size()) << "each destination once";
    const bool isAsWritten = stored == dictionary;
    EXPECT_EQ(form.isAsWritten(), isAsWritten) << Value(dictionary).description();
    EXPECT_EQ(PLPersonForm(dictionary).written(), stored) << Value(dictionary).description();
    asWritten += isAsWritten;
    ++all;
  };
  for (const char* key : {"ABRecordID", "ABRecordGUID", "ABDatabaseUID", "Name", "ReplyAs", "PreferredDestination",
                          "AllValues", "Monogram", "Metadata", "Nickname"}) {
    auto form = written;
    form.erase(key);
    check(form);
    for (const Value& other : others) {
      form.insert_or_assign(key, other);
      check(form);
    }
  }
  check({});
  EXPECT_GT(asWritten, 15U);
  EXPECT_GT(all - asWritten, 15U);
}

}  // namespace
}  // namespace pellor
