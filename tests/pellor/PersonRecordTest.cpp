// What is persisted of a person: the record, the form that is read, and until when a copy of it holds.
#include <algorithm>
#include <atomic>
#include <thread>

#include "Pellor/PLPerson.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

struct Content {
  std::int32_t recordID = 0;
  std::array<std::optional<std::string_view>, PLPersonRecord::TextCount> texts;
  std::optional<std::vector<std::string_view>> destinations;
};

// All of them different, some only in where a text ends and in what is absent and what empty.
const Content contents[] = {
    {},
    {-1, {}, {}},
    {0, {}, {{}}},
    {0, {}, {{""}}},
    {0, {""}, {}},
    {0, {std::nullopt, ""}, {}},
    {0, {"ab", "c", "", "", ""}, {{}}},
    {0, {"a", "bc", "", "", ""}, {{}}},
    {0, {"a", "b", std::nullopt, "", ""}, {{"c"}}},
    {0, {"a", "b", "", "", ""}, {{"c", "d"}}},
    {0, {"a", "b", "", "", ""}, {{"cd"}}},
    {0, {"a"}, {{"a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k"}}},
    {0, {"b"}, {{"0", "a1", "bb", "cc", "dd", "e", "k1"}}},
    {0, {"b"}, {{"0", "a1", "bb", "cc", "dd", "ee", "k1"}}},
    {7, {"guid", "database", "name", "initials", "reply"}, {{"+49301234567", "ann@example.org"}}},
};

PLPersonRecord recordOf(const Content& content) {
  return PLPersonRecord(PLPersonRecord::Content{content.recordID, content.texts, content.destinations});
}

TEST(PersonRecord, HasWhatItWasMadeOfAndNothingElseIsEqual) {
  for (const Content& from : contents) {
    for (const Content& to : contents) {
      const PLPersonRecord before = recordOf(from), target = recordOf(to);
      EXPECT_EQ(before == target, &from == &to);
      EXPECT_EQ(before.hasIdentityOf(target), from.texts[0] == to.texts[0] && from.destinations == to.destinations);
      const auto isTheirs = [&](std::string_view one) { return target.containsDestination(one); };
      const auto mine = from.destinations.value_or(std::vector<std::string_view>());
      EXPECT_EQ(before.sharesDestination(target), std::ranges::any_of(mine, isTheirs));

      PLPersonRecord changed = before.withRecordID(to.recordID);
      for (std::size_t index = 0; index < PLPersonRecord::TextCount; ++index) {
        const auto which = static_cast<PLPersonRecord::Text>(index);
        EXPECT_EQ(before.text(which), from.texts[index]);
        changed = changed.with(which, to.texts[index]);
      }
      const auto set = before.destinations();
      EXPECT_EQ(set ? std::optional(std::vector<std::string_view>(set->begin(), set->end())) : std::nullopt,
                from.destinations);
      if (to.destinations) changed = changed.withDestinations(*target.destinations());
      EXPECT_EQ(changed == target, to.destinations || !from.destinations) << "nothing takes destinations away";
    }
  }
}

using PersonForm = OneProcess;

TEST_F(PersonForm, IsAsWrittenExactlyIfThePersonIsStoredSo) {
  const Value number = "+49301234567", address = "ann@example.org";
  const PersonDictionary written{{"ABRecordID", 7},       {"ABRecordGUID", "guid-7"},
                                 {"ABDatabaseUID", "db"}, {"Name", "Ann Bee"},
                                 {"ReplyAs", "me"},       {"AllValues", Array{number, address}},
                                 {"Monogram", "AB"},      {"Metadata", Dictionary{{"color", "red"}}}};
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
  for (const char* key : {"ABRecordID", "ABRecordGUID", "ABDatabaseUID", "Name", "ReplyAs", "AllValues", "Monogram",
                          "Metadata", "Nickname"}) {
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

TEST(PersonChanges, ACopyIsKeptNoLongerThanItHolds) {
  constexpr std::uint64_t rounds = 20'000;
  PLPersonChanges changes;
  PLChangeNumber number;
  number.begin(changes);
  number.begin(changes);
  number.end(changes);
  EXPECT_EQ(number.number(), PLChangeNumber::Changing) << "the other one has not ended";
  number.end(changes);

  std::atomic<std::uint64_t> content{2};
  std::atomic<int> writerCount{2};
  const auto write = [&] {
    for (std::uint64_t round = 0; round < rounds; ++round) {
      number.begin(changes);
      content.fetch_add(1, std::memory_order_acq_rel);
      number.end(changes);
    }
    --writerCount;
  };
  std::thread first(write), second(write);
  std::uint64_t count = 0, copy = 0, staleCount = 0;
  do {
    const std::uint64_t present = content.load(std::memory_order_acquire);
    if (number.number() <= count) {
      staleCount += copy != present;
    } else {
      count = changes.changes.load(std::memory_order_acquire);
      copy = content.load(std::memory_order_acquire);
    }
  } while (writerCount > 0);
  first.join();
  second.join();
  EXPECT_EQ(staleCount, 0U);
  EXPECT_EQ(content, 2 + 2 * rounds);
  EXPECT_EQ(number.number(), changes.changes) << "a copy that is made now holds";
}

}  // namespace
}  // namespace pellor
