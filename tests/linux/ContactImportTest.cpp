// Cards that are copied into the contacts folder.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <map>
#include <string>
#include <vector>

#include "pellor/linux/contacts/ContactImport.h"
#include "pellor/linux/contacts/internal/CardFile.h"
#include "tests/linux/ContactsFixture.h"

namespace pellor {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Texts = std::vector<std::string>;

struct ContactImportTest : testing::Test, ContactsFixture {
  ContactImportOptions target(bool replacesKnown = false) const { return {contacts, false, replacesKnown}; }
  ContactImportResult importing(const std::string& bytes, bool replacesKnown = false) const {
    ContactImport import(target(replacesKnown));
    import.add("in.vcf", bytes);
    return import.result();
  }
  /// What is in the folder, by the names of the files.
  std::map<std::string, std::string> files() const {
    std::map<std::string, std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(contacts))
      found[entry.path().filename().string()] = contentOf(entry.path());
    return found;
  }
};

/// "i Anna, k* Boris, l3 Clara": imported, known and with other content, left out with its number or line.
Texts shortForm(const ContactImportResult& result) {
  Texts all;
  for (const ImportedCard& card : result.imported) all.push_back((card.isReplaced ? "i* " : "i ") + card.origin.name);
  for (const KnownCard& card : result.known) all.push_back((card.differs ? "k* " : "k ") + card.origin.name);
  for (const LeftOutCard& card : result.leftOut)
    all.push_back("l" + std::to_string(card.origin.number + card.origin.line) + " " + card.origin.name);
  return all;
}

TEST_F(ContactImportTest, OneFileACardWithItsBytesAndAUid) {
  const std::string photo(3000, 'A');
  const std::string rest =
      "item1.X-ABLABEL:_$!<Home>!$_\r\nNOTE:a\\nb\r\nPHOTO;ENCODING=b;TYPE=JPEG:" + photo.substr(0, 50) + "\r\n " +
      photo + "\r\nX-UNKNOWN;A=b:c\r\nEND:VCARD\r\n";
  const std::string head = "BEGIN:VCARD\r\nVERSION:3.0\r\n";
  const auto result = importing(head + "UID:abc\r\nFN:Anna\r\n" + rest + head + "FN:Boris\r\n" + rest);
  EXPECT_THAT(shortForm(result), ElementsAre("i Anna", "i Boris"));
  const auto found = files();
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found.at("abc.vcf"), head + "UID:abc\r\nFN:Anna\r\n" + rest);
  const ImportedCard& boris = result.imported.at(1);
  EXPECT_THAT(boris.guid, StartsWith("urn:uuid:"));
  EXPECT_EQ(found.at(boris.file), head + "UID:" + boris.guid + "\r\nFN:Boris\r\n" + rest);
  for (const auto& [name, text] : found) EXPECT_EQ(modeOf(contacts / name), 0600U);
}

TEST_F(ContactImportTest, VersionsAndEncodingsAreReadAlikeEachTime) {
  const auto cardOf = [](const std::string& version, const std::string& lines, const std::string& end) {
    std::string text;
    for (const std::string& line : {std::string("BEGIN:VCARD"), "VERSION:" + version, lines, std::string("END:VCARD")})
      text += line + end;
    return text;
  };
  std::string utf16 = "\xFE\xFF";
  for (const char c : cardOf("3.0", "FN:Utf", "\r\n")) (utf16 += '\0') += c;
  const struct {
    std::string bytes, name;
  } rows[] = {
      {cardOf("2.1", "N;CHARSET=ISO-8859-1:M\xFCller;Jan", "\n"), "Jan"},
      {cardOf("2.1", "FN;ENCODING=QUOTED-PRINTABLE;CHARSET=UTF-8:J=C3=B6rg=\r\n=20Ott", "\r\n"), "Jörg Ott"},
      {cardOf("3.0", "FN:Return", "\r"), "Return"},
      {utf16, "Utf"},
      {"Vorname;Nachname;E-Mail-Adresse\nJ\xF6rg;Tisch;t@example.org\n", "Jörg Tisch"},
  };
  for (const auto& row : rows) EXPECT_THAT(shortForm(importing(row.bytes)), ElementsAre("i " + row.name));
  const auto before = files();
  EXPECT_EQ(before.size(), std::size(rows));
  for (const auto& row : rows) EXPECT_THAT(shortForm(importing(row.bytes)), ElementsAre("k " + row.name));
  EXPECT_EQ(files(), before);
  for (const auto& [name, text] : before) {
    const auto reading = readCardFile(text, name, {});
    ASSERT_EQ(reading.cards.size(), 1U) << text;
    EXPECT_TRUE(reading.cards[0].hasUID) << text;
  }
}

TEST_F(ContactImportTest, NobodyIsDoubled) {
  put("mine.vcf", card("u1", "Anna", "TEL:1\n") + card("", "Boris", "TEL:2\n"));
  put("other.vcf", card("u2", "Clara", "TEL:3\nREV:20260101T000000Z\n"));
  const struct {
    const char* what;
    std::string text;
    Texts result;
  } rows[] = {
      {"its UID, written otherwise", card("urn:uuid:u2", "Clara", "TEL:3\n"), {"k* Clara"}},
      {"but for its date", card("u2", "Clara", "TEL:3\nREV:20261122T000000Z\n"), {"k Clara"}},
      {"other content", card("u1", "Anna", "TEL:9\n"), {"k* Anna"}},
      {"without UID, the values of one with", card("", "Anna", "TEL;TYPE=home:1\n"), {"k Anna"}},
      {"without UID, the values of one without", card("", "Boris", "NOTE:x\nTEL:2\n"), {"k Boris"}},
      {"with a UID, the values of one without", card("u3", "Boris", "TEL:2\n"), {"k Boris"}},
      {"with another UID: a namesake on one line", card("u4", "Clara", "TEL:3\n"), {"i Clara"}},
      {"without UID, another number", card("", "Boris", "TEL:4\n"), {"i Boris"}},
      {"twice in a file",
       card("", "Dora") + card("", "Dora") + card("d", "Dahl") + card("d", "Dahl"),
       {"i Dora", "i Dahl", "k Dora", "k Dahl"}},
      {"two with one UID", card("e", "Emma") + card("e", "Emil"), {"i Emma", "l2 Emil"}},
  };
  for (const auto& row : rows) EXPECT_EQ(shortForm(importing(row.text)), row.result) << row.what;
  EXPECT_THAT(contentOf(contacts / "mine.vcf"), HasSubstr("TEL:1\n"));
}

TEST_F(ContactImportTest, AnImportedContactMayBeEditedAndIsStillKnown) {
  const ImportedCard first = importing(card("", "Anna", "TEL:1\n")).imported.at(0);
  put(first.file, card(first.guid, "Anna Berg", "TEL:2\n"));
  EXPECT_THAT(shortForm(importing(card("", "Anna", "TEL:1\n"))), ElementsAre("k* Anna"));
  EXPECT_EQ(files().size(), 1U);
}

TEST_F(ContactImportTest, ReplacingRewritesTheFilesOfSingleCardsAlone) {
  put("mine.vcf", card("u1", "Anna", "TEL:1\n"));
  put("many.vcf", card("u2", "Boris") + card("u3", "Clara"));
  const std::string text = card("u1", "Anna", "TEL:2\n") + card("u1", "Anna", "TEL:3\n") +
                           card("u1", "Anna", "TEL:2\nNOTE:n\n") + card("u2", "Bert") + card("u3", "Clara");
  const auto result = importing(text, true);
  EXPECT_THAT(shortForm(result), ElementsAre("i* Anna", "k* Anna", "k Clara", "l2 Anna", "l4 Bert"));
  EXPECT_THAT(result.leftOut.at(1).reason, HasSubstr("many.vcf"));
  EXPECT_THAT(contentOf(contacts / "mine.vcf"), HasSubstr("TEL:2\r\nEND")) << "the first of the import";
  EXPECT_EQ(modeOf(contacts / "mine.vcf"), 0600U);
  EXPECT_EQ(files().size(), 2U);
}

TEST_F(ContactImportTest, FilesStayInTheFolderAndOverwriteNobodys) {
  writeFile(contacts / "taken.vcf", card("somebody", "Else"));
  writeFile(contacts / "blank.vcf", "no card");
  const auto result = importing(card("../../evil", "Anna") + card("/etc/passwd", "Boris") + card(".hidden", "Clara") +
                                card("taken", "Dora") + card("blank", "Emma") + card(std::string(900, 'u'), "Fritz"));
  EXPECT_THAT(result.leftOut, IsEmpty());
  EXPECT_EQ(result.imported.size(), 6U);
  EXPECT_THAT(contentOf(contacts / "taken.vcf"), HasSubstr("Else"));
  EXPECT_EQ(contentOf(contacts / "blank.vcf"), "no card");
  for (const ImportedCard& imported : result.imported) {
    EXPECT_TRUE(isContactFileName(imported.file)) << imported.file;
    EXPECT_THAT(contentOf(contacts / imported.file), HasSubstr("FN:" + imported.origin.name));
  }
  EXPECT_EQ(files().size(), 8U);
}

/// A limit to the size of files, which is met as a full disk is.
class SmallDisk {
 public:
  explicit SmallDisk(rlim_t size) : _handler(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &_before);
    const rlimit small{size, _before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &small);
  }
  ~SmallDisk() {
    ::setrlimit(RLIMIT_FSIZE, &_before);
    std::signal(SIGXFSZ, _handler);
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

 private:
  rlimit _before{};
  void (*_handler)(int);
};

TEST_F(ContactImportTest, WhatIsLeftOutIsNamedWithItsReason) {
  const auto result =
      importing(card("", "Anna") + "BEGIN:VCARD\nFN:Boris\n" + card("", "", "NOTE:n\n") + "junk\n" + card("", "Clara") +
                "BEGIN:VCARD\nVERSION:2.1\nFN;CHARSET=UTF-8;ENCODING=QUOTED-PRINTABLE:D=C3=B6rte=20=\n");
  EXPECT_THAT(shortForm(result), ElementsAre("i Anna", "i Clara", "l2 Boris", "l3 ", "l4 ", "l6 Dörte ="));
  EXPECT_EQ(result.leftOut.at(0).reason, "it has no END:VCARD");
  EXPECT_EQ(result.leftOut.at(1).reason, "it has neither a name nor a number or address");
}

TEST_F(ContactImportTest, NothingIsHalfWritten) {
  put("c.vcf", card("c", "Clara", "TEL:1\n"));
  const std::string large = "NOTE:" + std::string(5000, 'n') + "\n";
  const std::string text = card("a", "Anna") + card("b", "Boris", large) + card("c", "Clara", large);
  {
    const SmallDisk disk(4096);
    const auto result = importing(text, true);
    EXPECT_THAT(shortForm(result), ElementsAre("i Anna", "l2 Boris", "l3 Clara"));
    EXPECT_THAT(result.leftOut.at(0).reason, StartsWith("it cannot be written to "));
    EXPECT_THAT(result.leftOut.at(0).reason, HasSubstr("File too large"));
  }
  EXPECT_EQ(files().size(), 2U) << "nor is a part of a file left";
  EXPECT_THAT(contentOf(contacts / "c.vcf"), HasSubstr("TEL:1"));
  EXPECT_THAT(shortForm(importing(text, true)), ElementsAre("i Boris", "i* Clara", "k Anna"));
}

TEST_F(ContactImportTest, TwoImportsAtATimeDoubleNobody) {
  ContactImport one(target()), other(target());
  one.add("in.vcf", card("a", "Anna"));
  one.add("in.vcf", card("", "Boris"));
  other.add("in.vcf", card("a", "Anna") + card("", "Boris") + card("", "Clara"));
  EXPECT_THAT(shortForm(other.result()), ElementsAre("i Clara", "k Anna", "k Boris"));
  EXPECT_EQ(files().size(), 3U);
}

}  // namespace
}  // namespace pellor
