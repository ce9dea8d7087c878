#include "pellor/linux/contacts/internal/EVCardContact.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pellor/linux/text/CardText.h"

namespace pellor {
namespace {

std::string card(const std::string& lines) { return "BEGIN:VCARD\r\n" + lines + "END:VCARD\r\n"; }

/// A card in one line, for tables.
std::string described(const ContactCard& contact) {
  std::string text;
  const auto add = [&](const char* name, const std::optional<std::string>& value) {
    if (value) text += std::string(text.empty() ? "" : " ") + name + "=" + *value;
  };
  add("uid", contact.uid);
  add("given", contact.givenName);
  add("family", contact.familyName);
  add("more", contact.additionalNames);
  add("prefix", contact.namePrefix);
  add("suffix", contact.nameSuffix);
  add("fn", contact.formattedName);
  add("nick", contact.nickname);
  add("org", contact.organization);
  for (const CardValue& phone : contact.phones) add(("tel[" + phone.label + "]").c_str(), phone.value);
  for (const CardValue& email : contact.emails) add(("mail[" + email.label + "]").c_str(), email.value);
  for (const std::string& link : contact.links) add("link", link);
  for (const std::string& link : contact.antiLinks) add("never", link);
  if (contact.isFavorite) add("favorite", std::to_string(contact.favoriteOrder));
  if (contact.kind != CardKind::person) add("kind", contact.kind == CardKind::organization ? "org" : "other");
  return text;
}

TEST(EVCardContact, ReadsWhatCardsInTheWildLookLike) {
  const struct {
    const char* what;
    std::string text;
    std::string expected;
  } cases[] = {
      {"version 3", card("VERSION:3.0\r\nUID:u1\r\nN:Novak;Anna;Maria,Eva;Dr.;MSc\r\nFN:Dr. Anna Novak\r\n"),
       "uid=u1 given=Anna family=Novak more=Maria Eva prefix=Dr. suffix=MSc fn=Dr. Anna Novak"},
      {"version 2.1 with quoted-printable, another character set and bare types",
       card("VERSION:2.1\r\nN;CHARSET=ISO-8859-1;ENCODING=QUOTED-PRINTABLE:M=FCller;J=F6rg\r\n"
            "TEL;HOME;VOICE:+49 30 23125 001\r\nNOTE;ENCODING=QUOTED-PRINTABLE:one=\r\ntwo\r\n"),
       "given=Jörg family=Müller tel[home]=+49 30 23125 001"},
      {"bytes of Windows-1252 in a card that names no character set",
       card("VERSION:2.1\r\nFN:\x84"
            "J\xF6rg\x93 \x96 \x80 \x8A\r\n N\x9F\r\nORG:A\x85\r\n"),
       "given=„Jörg“ – € family=ŠNŸ fn=„Jörg“ – € ŠNŸ org=A…"},
      {"in one that names that or Latin-1, and in one that names UTF-8",
       card("VERSION:3.0\r\nFN;CHARSET=ISO-8859-1:\x91"
            "Ann\x92\r\nN;CHARSET=WINDOWS-1252:;\x91"
            "Ann\x92;;;\r\n"
            "ORG;CHARSET=UTF-8:A \x97 B\r\n"),
       "given=‘Ann’ fn=‘Ann’ org=A — B"},
      {"another character set, over two lines",
       card("VERSION:2.1\r\nN;CHARSET=SHIFT_JIS:\x93\x63\x92\x86;\x89\xD4\r\n \x8E\x71\r\n"
            "FN;CHARSET=\"koi8-r\":\xE1\xCE\xCE\xC1\r\nORG;CHARSET=NO-SUCH:\x80\r\n"),
       "given=花子 family=田中 fn=Анна org=€"},
      {"version 2.1 with soft line breaks, as telephones write them",
       card("VERSION:2.1\r\nN;CHARSET=UTF-8;ENCODING=QUOTED-PRINTABLE:=4D=C3=BC=6C=\r\n=6C=65=72=\r\n;J=C3=B6=\r\n"
            "rg;;;\r\nFN;CHARSET=UTF-8;ENCODING=QUOTED-PRINTABLE:=4A=C3=B6rg=\n=20=4D\nTEL;CELL:1\r\n"
            "EMAIL:a@example.org=\r\nORG:Club\r\n"),
       "given=Jörg family=Müller fn=Jörg M org=Club tel[cell]=1 mail[]=a@example.org="},
      {"version 4 without N", card("VERSION:4.0\r\nFN:Anna Maria Novak\r\n"),
       "given=Anna Maria family=Novak fn=Anna Maria Novak"},
      {"a number as URI with an extension",
       card("VERSION:4.0\r\nFN:A\r\nTEL;VALUE=uri;TYPE=\"voice,cell\":tel:+44-20-7946-0001;ext=5\r\n"),
       "given=A fn=A tel[cell]=+44-20-7946-0001;ext=5"},
      {"addresses in URI form and without a value",
       card("FN:A\r\nEMAIL:MAILTO:a@example.org\r\nEMAIL:\r\nEMAIL;TYPE=INTERNET:  b@example.org \r\n"),
       "given=A fn=A mail[]=a@example.org mail[]=b@example.org"},
      {"a preferred number of version 3", card("FN:A\r\nTEL:1\r\nTEL;TYPE=home,PREF:2\r\nTEL:3\r\n"),
       "given=A fn=A tel[home]=2 tel[]=1 tel[]=3"},
      {"of version 2.1", card("VERSION:2.1\r\nFN:A\r\nTEL;CELL:1\r\nTEL;HOME;PREF:2\r\n"),
       "given=A fn=A tel[home]=2 tel[cell]=1"},
      {"ranks of version 4",
       card("VERSION:4.0\r\nFN:A\r\nEMAIL:1@x\r\nEMAIL;PREF=100:2@x\r\nEMAIL;PREF=7:3@x\r\nEMAIL;PREF=0:4@x\r\n"),
       "given=A fn=A mail[]=3@x mail[]=2@x mail[]=1@x mail[]=4@x"},
      {"a nickname with a comma", card("FN:A\r\nNICKNAME:Bee\\, t\r\n he first\r\n"),
       "given=A fn=A nick=Bee, the first"},
      {"an organisation by its kind", card("VERSION:4.0\r\nKIND:ORG\r\nFN:Club\r\nN:;;;;\r\n"), "fn=Club kind=org"},
      {"a person at an organisation without N", card("FN:Anna Novak\r\nORG:Club\r\n"),
       "given=Anna family=Novak fn=Anna Novak org=Club"},
      {"a list of addresses", card("X-EVOLUTION-LIST:TRUE\r\nFN:Friends\r\n"), "fn=Friends kind=other"},
      {"a mark with a place", card("FN:A\r\nX-QTPROJECT-FAVORITE:true;3\r\nX-FOLKS-FAVOURITE:true\r\n"),
       "given=A fn=A favorite=3"},
      {"a mark with a place that is none", card("FN:A\r\nX-QTPROJECT-FAVORITE:true;many\r\n"),
       "given=A fn=A favorite=0"},
      {"links",
       card("FN:A\r\nX-FOLKS-CONTACTS-IDS:a,b;c\r\nX-FOLKS-CONTACTS-IDS:d\r\nX-FOLKS-ANTI-LINKS:e\r\n"
            "RELATED:f\r\n"),
       "given=A fn=A link=a link=b link=c link=d never=e"},
      {"only the first card", card("FN:A\r\n") + card("FN:B\r\nTEL:1\r\n"), "given=A fn=A"},
      {"properties without value, colon or sense", card("FN;X=:\r\nN:\r\nTEL;TYPE=HOME\r\n:::;\r\nTEL:1\r\nFN:A\r\n"),
       "given=A fn=A tel[]=1"},
      {"control characters",
       card("FN:A\x01"
            "B\\nC\r\n"),
       "given=A B family=C fn=A B C"},
  };
  for (const auto& each : cases) {
    const CardReading reading = readContactCard(each.text);
    ASSERT_TRUE(reading.card) << each.what << ": " << reading.problem;
    EXPECT_EQ(described(*reading.card), each.expected) << each.what;
  }
}

TEST(EVCardContact, RefusesWhatIsNoCardOrHalfOfOne) {
  const std::string texts[] = {"", "A letter\n", "BEGIN:VCARD\nFN:A\n", "END:VCARD\nBEGIN:VCARD\n",
                               card("FN:A" + std::string(1, '\0') + "\r\n")};
  for (const std::string& text : texts) {
    const CardReading reading = readContactCard(text);
    EXPECT_FALSE(reading.card) << text;
    EXPECT_FALSE(reading.problem.empty()) << text;
  }
}

TEST(EVCardContact, KeepsTheParsersWarningsOffStandardError) {
  testing::internal::CaptureStderr();
  const CardReading reading = readContactCard(card("FN:A\r\nNOTE;ENCODING=zzz:hello\r\n") + card("FN:B\r\n"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  ASSERT_EQ(reading.remarks.size(), 1U);
  EXPECT_NE(reading.remarks[0].find("zzz"), std::string::npos);
}

TEST(CardText, KnowsUtf8) {
  const char* good[] = {"", "a", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x8C\xBB", "\xEF\xBF\xBF", "\xF4\x8F\xBF\xBF"};
  const char* bad[] = {"\x80",         "\xC3",         "\xC0\xAF",         "\xE0\x9F\xBF",
                       "\xED\xA0\x80", "\xE2\x82\x61", "\xF4\x90\x80\x80", "\xF0\x8F\xBF\xBF",
                       "\xFF"};
  for (const char* text : good) EXPECT_TRUE(isUtf8(text)) << testing::PrintToString(text);
  for (const char* text : bad) EXPECT_FALSE(isUtf8(text)) << testing::PrintToString(text);
}

}  // namespace
}  // namespace pellor
