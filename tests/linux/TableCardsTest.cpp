// Rows of tables, and the cards that are made of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pellor/linux/contacts/internal/EVCardContact.h"
#include "pellor/linux/contacts/internal/OfferedCards.h"
#include "pellor/linux/text/CsvRows.h"

namespace pellor {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Fields = std::vector<std::string>;

struct ReadRow {
  std::size_t line;
  Fields fields;
  bool operator==(const ReadRow&) const = default;
};

void PrintTo(const ReadRow& row, std::ostream* stream) { *stream << row.line << testing::PrintToString(row.fields); }

TEST(CsvRows, FieldsRowsAndTheirLines) {
  const struct {
    std::string text;
    std::vector<ReadRow> rows;
  } cases[] = {
      {"", {}},
      {"\r\n\n", {}},
      {"a,b\nc,d", {{1, {"a", "b"}}, {2, {"c", "d"}}}},
      {"a;b,c;d\r\ne;;\r\n", {{1, {"a", "b,c", "d"}}, {2, {"e", "", ""}}}},
      {"a\tb\rc\td\r", {{1, {"a", "b"}}, {2, {"c", "d"}}}},
      {"\"a,b;c;d;e\",f\nx,y", {{1, {"a,b;c;d;e", "f"}}, {2, {"x", "y"}}}},
      {"a,\"b\r\n\r\nc\"\n\n\nd,\"say \"\"hi\"\"\"\n", {{1, {"a", "b\n\nc"}}, {6, {"d", "say \"hi\""}}}},
      {"a,\"\",\"\"\"\"\n", {{1, {"a", "", "\""}}}},
      {"a,b \"c\" d,\"e\" f\n", {{1, {"a", "b \"c\" d", "e f"}}}},
      {"a,\"b\nc,d\n", {{1, {"a", "b\nc,d\n"}}}},
  };
  for (const auto& each : cases) {
    CsvRows rows(each.text);
    std::vector<ReadRow> read;
    while (auto row = rows.next()) read.push_back({row->line, row->fields});
    EXPECT_EQ(read, each.rows) << each.text;
  }
}

ContactCard contactOf(const OfferedCard& card) {
  EXPECT_EQ(card.problem, "");
  return readContactCard(card.text).card.value_or(ContactCard());
}

std::vector<std::string> textsOf(const std::vector<CardValue>& values) {
  std::vector<std::string> texts;
  for (const CardValue& value : values) texts.push_back(value.label + ":" + value.value);
  return texts;
}

TEST(TableCards, ColumnsOfEitherExporterInEitherLanguage) {
  const struct {
    const char* what;
    std::string text;
    Fields phones, emails;
  } tables[] = {
      {"numbered columns",
       "Name,Given Name,Additional Name,Family Name,Name Prefix,Name Suffix,Nickname,Notes,Photo,E-mail 1 - Type,"
       "E-mail 1 - Value,E-mail 2 - Type,E-mail 2 - Value,Phone 1 - Type,Phone 1 - Value,Phone 2 - Type,"
       "Phone 2 - Value,Organization 1 - Name,Organization 1 - Title\n"
       "Dr. Zoë Ann Marsh Jr.,Zoë,Ann,Marsh,Dr.,Jr.,Zo,\"one; two\nthree, four\\\",x,* Home,z@example.org ::: "
       "y@example.org,Work,w@example.org,Mobile,+49 151 1,Work Fax,+49 30 2,\"Ink, Paper; Co\",Owner\n",
       {"cell:+49 151 1", "work:+49 30 2"},
       {"home:z@example.org", "home:y@example.org", "work:w@example.org"}},
      {"numbered columns with labels",
       "First Name,Middle Name,Last Name,Name Prefix,Name Suffix,Nickname,Organization Name,Notes,"
       "E-mail 1 - Label,E-mail 1 - Value,Phone 1 - Label,Phone 1 - Value\r\n"
       "Zoë,Ann,Marsh,Dr.,Jr.,Zo,\"Ink, Paper; Co\",\"one; two\r\nthree, four\\\",Work,w@example.org,Family,1 ::: "
       "2\r\n",
       {":1", ":2"},
       {"work:w@example.org"}},
      {"named columns",
       "Title,First Name,Middle Name,Last Name,Suffix,Company,Business Fax,Business Phone,Business Phone 2,Home Phone,"
       "Mobile Phone,Assistant's Phone,E-mail Address,E-mail Type,E-mail Display Name,E-mail 2 Address,Nickname,Notes\n"
       "Dr.,Zoë,Ann,Marsh,Jr.,\"Ink, Paper; Co\",5,1,2,3,4,9,a@example.org,SMTP,Zoe (a),b@example.org,Zo,"
       "\"one; two\nthree, four\\\"\n",
       {"work:5", "work:1", "work:2", "home:3", "cell:4"},
       {":a@example.org", ":b@example.org"}},
      {"named columns in German, as a spreadsheet saves them",
       "Anrede;Vorname;Weitere Vornamen;Nachname;Suffix;Firma;Fax geschäftlich;Telefon geschäftlich;"
       "Telefon geschäftlich 2;Telefon (privat);Mobiltelefon;Telefon Assistent;E-Mail-Adresse;E-Mail-Typ;"
       "E-Mail 2: Adresse;E-Mail 2: Angezeigter Name;Spitzname;Notizen\r\n"
       "Dr.;Zoë;Ann;Marsh;Jr.;\"Ink, Paper; Co\";5;1;2;3;4;9;a@example.org;SMTP;b@example.org;Zoe;Zo;"
       "\"one; two\nthree, four\\\"\r\n",
       {"work:5", "work:1", "work:2", "home:3", "cell:4"},
       {":a@example.org", ":b@example.org"}},
      {"numbered columns in German",
       "Vorname,Zweiter Vorname,Nachname,Namenspräfix,Namenssuffix,Spitzname,Name der Organisation,Notizen,"
       "E-Mail 1 - Typ,E-Mail 1 - Wert,Telefon 1 - Typ,Telefon 1 - Wert\n"
       "Zoë,Ann,Marsh,Dr.,Jr.,Zo,\"Ink, Paper; Co\",\"one; two\nthree, four\\\",Geschäftlich,w@example.org,Privat,1\n",
       {"home:1"},
       {"work:w@example.org"}},
  };
  for (const auto& table : tables) {
    SCOPED_TRACE(table.what);
    const auto cards = offeredCards(table.text);
    ASSERT_EQ(cards.size(), 1U);
    EXPECT_EQ(cards[0].line, 2U);
    const ContactCard contact = contactOf(cards[0]);
    EXPECT_EQ(contact.formattedName, "Dr. Zoë Ann Marsh Jr.");
    EXPECT_EQ(contact.givenName, "Zoë");
    EXPECT_EQ(contact.additionalNames, "Ann");
    EXPECT_EQ(contact.familyName, "Marsh");
    EXPECT_EQ(contact.namePrefix, "Dr.");
    EXPECT_EQ(contact.nameSuffix, "Jr.");
    EXPECT_EQ(contact.nickname, "Zo");
    EXPECT_EQ(contact.organization, "Ink, Paper; Co");
    EXPECT_THAT(cards[0].text, HasSubstr("\r\nNOTE:one\\; two\\nthree\\, four\\\\\r\n"));
    EXPECT_EQ(textsOf(contact.phones), table.phones);
    EXPECT_EQ(textsOf(contact.emails), table.emails);
  }
}

TEST(TableCards, EveryRowIsACardOrSaysWhyItIsNone) {
  const auto cards = offeredCards(
      "Vorname;Nachname;Firma;Notizen;Telefon\n"
      "Anna;;;;\n"
      ";;Ink;;\n"
      ";;;;030 1\n"
      ";;;only a note;\n"
      "\n"
      "Boris;Berg;;;1;\n"
      "Boris;Berg;;;1;2\n"
      "Clara\n"
      "Dora;\"Dahl;;;\nEmma;;;;\n");
  std::vector<std::string> told;
  for (const OfferedCard& card : cards)
    told.push_back(std::to_string(card.line) + " " + card.name + (card.problem.empty() ? "" : ": " + card.problem));
  EXPECT_THAT(told, ElementsAre("2 Anna", "3 Ink", "4 ", "5 : the row has neither a name nor a number or address",
                                "7 Boris Berg", "8 : the row has more fields than the first one", "9 Clara",
                                "10 : its quotation mark is not closed, so that the rest of the file belongs to it"));
  EXPECT_EQ(contactOf(cards[1]).kind, CardKind::organization);
  EXPECT_EQ(contactOf(cards[2]).formattedName, std::nullopt);
  EXPECT_EQ(textsOf(contactOf(cards[2]).phones), Fields{":030 1"});
}

TEST(TableCards, EncodingsAndLongLines) {
  std::string name;
  for (int count = 0; count < 60; ++count) name += "é";
  const std::string table = "Vorname;Nachname;Telefon geschäftlich\nJörg;" + name + ";1\n";
  std::string latin1, utf16 = "\xFF\xFE";
  for (std::size_t at = 0; at < table.size(); ++at) {
    const auto byte = static_cast<unsigned char>(table[at]);
    const bool isPair = byte >= 0xC2;
    const auto code =
        static_cast<char>(isPair ? ((byte & 3U) << 6U) | (static_cast<unsigned char>(table[++at]) & 0x3FU) : byte);
    latin1 += code;
    (utf16 += code) += '\0';
  }
  for (const std::string& bytes : {table, "\xEF\xBB\xBF" + table, latin1, utf16}) {
    const auto cards = offeredCards(bytes);
    ASSERT_EQ(cards.size(), 1U);
    const ContactCard contact = contactOf(cards[0]);
    EXPECT_EQ(contact.givenName, "Jörg");
    EXPECT_EQ(contact.familyName, name);
    EXPECT_EQ(textsOf(contact.phones), Fields{"work:1"});
    for (std::size_t start = 0; start < cards[0].text.size();) {
      const std::size_t end = cards[0].text.find("\r\n", start);
      EXPECT_LE(end - start, 75U);
      start = end + 2;
    }
  }
}

TEST(OfferedCards, AFileOfNeitherKindSaysSo) {
  for (const char* bytes : {"", "hello\n", "Title,Price\nBook,3\n", "Name\nAnna\n", "\x01\x02"}) {
    const auto cards = offeredCards(bytes);
    ASSERT_EQ(cards.size(), 1U) << bytes;
    EXPECT_EQ(cards[0].number + cards[0].line, 0U);
    EXPECT_NE(cards[0].problem, "") << bytes;
  }
}

}  // namespace
}  // namespace pellor
