// Files with many cards, in the contact index.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "pellor/linux/contacts/internal/CardFile.h"
#include "pellor/linux/contacts/internal/ContactFile.h"
#include "pellor/linux/contacts/internal/ContactIndex.h"
#include "tests/linux/AddressBookProgram.h"
#include "tests/linux/ContactsFixture.h"

namespace pellor {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Texts = std::vector<std::string>;

struct ManyCardsTest : testing::Test, ContactsFixture {
  const std::string anna = card("", "Anna", "TEL:+49301\n");
  const std::string boris = card("", "Boris", "TEL:+49302\n");
  const std::string clara = card("", "Clara", "EMAIL:c@example.org\n");
  const std::string dora = card("dora", "Dora");
  std::unique_ptr<ContactIndex> index;

  /// GUIDs by formatted names, after the file of all cards was written.
  std::map<std::string, std::string> afterWriting(const std::string& text, const std::string& file = "all.vcf") {
    put(file, text);
    if (!index) index = openIndex();
    index->update(FolderChange::all());
    return guids();
  }
  std::map<std::string, std::string> guids() {
    std::map<std::string, std::string> found;
    for (const std::int32_t id : index->allRecordIDs()) {
      const auto contact = index->contactWithID(id);
      found[contact->card.formattedName.value_or("") + (found.contains(*contact->card.formattedName) ? "+" : "")] =
          contact->guid;
    }
    return found;
  }
  Texts changedSince(std::int32_t sequence) { return index->guidsChangedSince(sequence, 99).value_or(Texts{"?"}); }
  Texts names() {
    Texts names;
    for (const auto& [name, guid] : guids()) names.push_back(name);
    return names;
  }
};

TEST_F(ManyCardsTest, WhatHappensToOneCardOfAFileChangesNoOther) {
  const auto first = afterWriting(anna + boris + clara + dora);
  ASSERT_EQ(first.size(), 4U);
  EXPECT_EQ(first.at("Dora"), "dora");
  EXPECT_EQ(index->cardCount(), 4U);
  const std::string boris2 = card("", "Boris", "TEL:+49303\n");
  const std::string emma = card("", "Emma");
  const struct {
    const char* what;
    std::string text;
    Texts changed;  // names
  } rows[] = {
      {"another order", dora + clara + boris + anna, {}},
      {"written otherwise",
       "\n" + dora + "\r\n" + clara + card("", "Boris", "TEL;TYPE=home:+493\n 02\n") + anna,
       {"Boris"}},
      {"a note", dora + clara + card("", "Boris", "NOTE:n\nTEL:+49302\n") + anna, {"Boris"}},
      {"one in front", emma + dora + clara + boris + anna, {"Boris", "Emma"}},
      {"one gone", emma + dora + boris + anna, {"Clara"}},
      {"one with a UID edited", emma + card("dora", "Dora", "TEL:1\n") + boris + anna, {"Dora"}},
      {"back again", emma + card("dora", "Dora", "TEL:1\n") + boris + anna + clara, {"Clara"}},
  };
  auto known = first;
  for (const auto& row : rows) {
    const std::int32_t before = index->sequenceNumber();
    auto now = afterWriting(row.text);
    known.merge(now);
    Texts changed;
    for (const std::string& name : row.changed) changed.push_back(known.at(name));
    EXPECT_THAT(changedSince(before), testing::UnorderedElementsAreArray(changed)) << row.what;
    for (const auto& [name, guid] : guids()) EXPECT_EQ(guid, known.at(name)) << row.what;
  }
  // Other values are another card, as nobody can tell.
  EXPECT_NE(afterWriting(emma + dora + boris2 + anna).at("Boris"), first.at("Boris"));
  index = nullptr;
  remove("../data/contacts-index.sqlite");
  EXPECT_EQ(afterWriting(clara + boris + dora + anna), first) << "an index made anew";
}

// Who is a friend by the name of a file stays one when cards are added to that file; and nobody becomes that friend.
TEST_F(ManyCardsTest, TheCardOfAFileKeepsItsNameAmongOthers) {
  EXPECT_EQ(afterWriting(anna).at("Anna"), "all.vcf");
  EXPECT_EQ(afterWriting(card("", "Anna", "TEL:+49309\n")).at("Anna"), "all.vcf") << "edited";
  EXPECT_EQ(afterWriting(card("", "Ann")).at("Ann"), "all.vcf") << "renamed";
  EXPECT_EQ(afterWriting(anna).at("Anna"), "all.vcf");
  const auto both = afterWriting(boris + anna);
  EXPECT_EQ(both.at("Anna"), "all.vcf");
  EXPECT_EQ(afterWriting(clara + boris + card("", "Anna", "TEL:+49309\n")).at("Anna"), "all.vcf") << "edited";
  EXPECT_EQ(afterWriting(clara + boris + anna + dora).at("Anna"), "all.vcf");
  EXPECT_EQ(afterWriting(boris), (std::map<std::string, std::string>{{"Boris", both.at("Boris")}}));
  EXPECT_NE(afterWriting(card("", "Boris", "TEL:+49303\n")).at("Boris"), "all.vcf");
}

TEST_F(ManyCardsTest, ACardThatComesAgainIsOneContactAndSaid) {
  const std::string annaAgain = card("", "Anna", "NOTE:again\nTEL:+49301\n");
  const auto once = afterWriting(anna + boris);
  EXPECT_EQ(afterWriting(annaAgain + boris + anna + anna), once);
  EXPECT_THAT(log->takeMessages(),
              ElementsAre(HasSubstr("all.vcf holds no contact in card 1 (Anna): it says the same as card 3"),
                          HasSubstr("card 4 (Anna): ")));
  // Two persons with one UID are two contacts; which of them has it depends on no place.
  const std::string dora2 = card("dora", "Dora the second");
  const auto two = afterWriting(dora + dora2, "twice.vcf");
  EXPECT_EQ(two.at("Dora"), "dora");
  EXPECT_THAT(two.at("Dora the second"), HasSubstr("twice.vcf#"));
  EXPECT_EQ(afterWriting(dora2 + dora, "twice.vcf"), two);
  // In another file the first by name has it, as ever.
  const auto three = afterWriting(card("dora", "Dora the first") + boris, "a.vcf");
  EXPECT_EQ(three.at("Dora the first"), "dora");
  EXPECT_EQ(three.size(), 6U) << "Boris in two files is two contacts";
}

TEST_F(ManyCardsTest, ADamagedCardCostsOnlyItself) {
  const std::string half = "BEGIN:VCARD\nFN:Emma\nTEL:1\n";
  afterWriting(anna + half + boris + "TEL:2\nEND:VCARD\n" + clara);
  EXPECT_THAT(names(), ElementsAre("Anna", "Boris", "Clara"));
  EXPECT_THAT(log->takeMessages(),
              ElementsAre(HasSubstr("card 2 (Emma): it has no END:VCARD"), HasSubstr("card 4: it has no BEGIN:VCARD")));
  afterWriting(anna + half + boris);
  EXPECT_THAT(names(), ElementsAre("Anna", "Boris")) << "a card that goes while another one is damaged";
  EXPECT_THAT(log->takeMessages(), IsEmpty()) << "named once";
  // What was good of a card before stays.
  afterWriting(anna + half + "END:VCARD\n" + dora);
  afterWriting(anna + half + "BEGIN:VCARD\nFN:x\nUID:dora\nFN\xE9:\n" + boris);
  EXPECT_THAT(names(), ElementsAre("Anna", "Boris", "Dora", "Emma"));
  EXPECT_THAT(log->takeMessages(), Contains(HasSubstr("(Emma): it has no END:VCARD; its last good content")));
  // While a file is written its end is missing.
  const std::string all = anna + boris + clara + dora;
  afterWriting(all);
  for (const std::size_t size : {all.size() - 3, all.size() / 2 + 9, std::size_t{20}, std::size_t{0}}) {
    afterWriting(all.substr(0, size));
    EXPECT_THAT(names(), ElementsAre("Anna", "Boris", "Clara", "Dora")) << size;
  }
  afterWriting(std::string(CardSizeLimit + 1, 'x') + "\n" + anna);
  EXPECT_THAT(names(), ElementsAre("Anna"));
}

TEST_F(ManyCardsTest, OneFileIsReadAsItIsAndFollowed) {
  const std::filesystem::path file = contacts / "export.vcf";
  put("other.vcf", dora);
  AddressBookProgram program(log, contactsAt(file), options());
  EXPECT_EQ(program.nameOf("dora"), "(none)");
  EXPECT_EQ(program.store->sourceError(), "the contacts file " + file.string() + " does not exist");
  put("export.vcf", anna + card("emma", "Emma"));
  EXPECT_TRUE(program.waitUntil([&] { return program.nameOf("emma") == "Emma"; }));
  EXPECT_EQ(program.store->sourceError(), std::nullopt);
  put("export.vcf", anna + card("emma", "Emma Lee"));
  EXPECT_TRUE(program.waitUntil([&] { return program.nameOf("emma") == "Emma Lee"; }));
  // A file that is away is no news of the contacts.
  remove("export.vcf");
  EXPECT_TRUE(program.waitUntil([&] { return program.store->sourceError().has_value(); }));
  EXPECT_EQ(program.nameOf("emma"), "Emma Lee");
  EXPECT_EQ(program.nameOf("dora"), "(none)");
}

TEST_F(ManyCardsTest, CardsInEveryEncodingAndLineEndAreTheSameCards) {
  const std::string two = card("a", "Zo\xC3\xAB \xF0\x9F\x8C\xBB") + card("b", "Bo", "NOTE:folded\n \xE2\x82\xAC\n");
  const auto withEnds = [&](const char* end) {
    std::string text;
    for (const char c : two) text += c == '\n' ? end : std::string(1, c);
    return text;
  };
  const auto inUtf16 = [](bool isLittle, const std::string& text, bool isMarked = true) {
    std::string bytes;
    for (const char16_t unit : std::filesystem::path((isMarked ? "\xEF\xBB\xBF" : "") + text).u16string()) {
      const char high = static_cast<char>(unit >> 8U), low = static_cast<char>(unit & 0xFFU);
      bytes += isLittle ? low : high;
      bytes += isLittle ? high : low;
    }
    return bytes;
  };
  const std::string texts[] = {
      two,
      withEnds("\r"),
      withEnds("\r\n"),
      "\xEF\xBB\xBF" + withEnds("\r"),
      inUtf16(true, withEnds("\r")),
      inUtf16(false, withEnds("\r\n")),
      inUtf16(true, withEnds("\r\n"), false),
      inUtf16(false, two, false),
      card("a", "Zo\xC3\xAB \xF0\x9F\x8C\xBB") + "\xEF\xBB\xBF" + card("b", "Bo", "NOTE:folded\n \xE2\x82\xAC\n")};
  for (const std::string& text : texts) {
    index = nullptr;
    remove("../data/contacts-index.sqlite");
    EXPECT_THAT(afterWriting(text),
                ElementsAre(testing::Pair("Bo", "b"), testing::Pair("Zo\xC3\xAB \xF0\x9F\x8C\xBB", "a")))
        << testing::PrintToString(text);
    EXPECT_EQ(index->contactWithGUID("b")->card.note, "folded\xE2\x82\xAC");
  }
  EXPECT_THAT(log->takeMessages(), IsEmpty());
}

}  // namespace
}  // namespace pellor
