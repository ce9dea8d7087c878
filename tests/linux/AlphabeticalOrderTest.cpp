#include "pellor/linux/contacts/AlphabeticalOrder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace pellor {
namespace {

std::vector<std::string> sorted(std::vector<std::string> names, const std::string& locale) {
  const AlphabeticalOrder order(locale);
  std::ranges::sort(names, {}, [&](const std::string& name) { return order.key(name); });
  return names;
}

TEST(AlphabeticalOrder, EachLanguageHasItsOwn) {
  const struct {
    const char* locale;
    std::vector<std::string> names;
  } cases[] = {
      // Svenska Akademiens ordlista: å, ä and ö are letters behind z; since 2006 w is one behind v.
      {"sv_SE", {"Andersson", "Vulf", "Wahl", "Zorn", "Åberg", "Äng", "Öberg"}},
      // Kielitoimiston sanakirja: å, ä and ö behind z.
      {"fi_FI", {"Aalto", "Zitting", "Åkerlund", "Äijälä", "Öhman"}},
      // Retskrivningsordbogen: æ, ø and å behind z; aa is sorted as å.
      {"da_DK", {"Abel", "Zahle", "Æbelø", "Ørsted", "Aagaard", "Åkjær"}},
      // DIN 5007, variant 1, of dictionaries: umlauts as their plain letters, ß as ss.
      {"de_DE", {"Ärger", "Arndt", "Assmann", "Mugler", "Müller", "Munz", "Straße", "Strauß"}},
      // A magyar helyesírás szabályai, 12th edition, 14-15: cs, gy, ny, sz and zs are letters behind c, g, n, s and z;
      // ö and ü follow o and u; long vowels count as short ones.
      {"hu_HU",
       {"Cukor", "Czifra", "Csaba", "Guba", "Gyenes", "Ódor", "Orosz", "Ötvös", "Sütő", "Szabó", "Zúgó", "Zsolt"}},
      // Türk Dil Kurumu, Yazım Kılavuzu: ç, ğ, ı, ö, ş, ü behind c, g, h, o, s, u; ı before i.
      {"tr_TR", {"Cuma", "Çağlar", "Hür", "Ilgın", "Işık", "İnan", "Jale", "Oya", "Öz", "Su", "Şen", "Tan"}},
      // The Vietnamese alphabet of 29 letters: ă and â behind a, đ behind d, ê behind e, ô and ơ behind o, ư behind u;
      // tones matter only where the letters are the same.
      {"vi_VN", {"An", "Ánh", "Ăng", "Ân", "Duy", "Đào", "Em", "Ên", "Hoa", "Hòa", "Oanh", "Ông", "Ơn", "Uyên", "Ưng"}},
      // The order of the syllables (gojūon, JIS X 4061): in whichever kana, voiced ones beside their plain ones.
      {"ja_JP", {"あべ", "イトウ", "うえだ", "かとう", "ガモウ", "きた", "サトウ", "たなか", "わだ"}},
      // Ortografía de la lengua española (2010): ñ behind n; ch and ll are two letters each.
      {"es_ES", {"Calvo", "Chacón", "Cid", "Núñez", "Nuria", "Ñáñez", "Oca"}},
      // ČSN 97 6030: ch behind h; č, ř, š and ž are letters.
      {"cs_CZ", {"Cibulka", "Čapek", "Hynek", "Chalupa", "Ibl", "Rys", "Řehák"}},
      // PWN, Wielki słownik ortograficzny: ł behind l, ż behind ź.
      {"pl_PL", {"Lubicz", "Łoś", "Maj", "Zych", "Źrebiec", "Żak"}},
      // Eesti õigekeelsussõnaraamat: š, z and ž behind s; õ, ä, ö and ü at the end.
      {"et_EE", {"Saar", "Zirk", "Tamm", "Vaher", "Õun", "Ärm", "Ööbik", "Ülle"}},
      // Russian dictionaries sort ё as е, after it where all else is the same; names in Cyrillic before Latin ones.
      {"ru_RU", {"Ежов", "Ёлкин", "Ерёмин", "Жук", "Adams"}},
      // The hija'i order; the carriers of a hamza count as the plain letter.
      {"ar_EG", {"إبراهيم", "أحمد", "بدر", "تامر", "Adams"}},
      // What has no rules of its own: accents count where the letters are the same, and case behind them.
      {"en_US", {"Åberg", "Adams", "anna", "Anna", "Ánna", "Zorn"}},
      {"", {"Åberg", "Adams", "Zorn"}},
      {"xx_XX", {"Åberg", "Adams", "Zorn"}},
  };
  for (const auto& [locale, names] : cases) {
    std::vector<std::string> mixed(names.rbegin(), names.rend());
    EXPECT_EQ(sorted(mixed, locale), names) << locale;
  }
}

// What hardly ends is no name.
TEST(AlphabeticalOrder, ALongTextCountsAsFarAsANameGoes) {
  const AlphabeticalOrder order("de_DE");
  const std::string name(1000, 'n');
  EXPECT_EQ(order.key(name + "a"), order.key(name + "b"));
  EXPECT_LT(order.key(std::string(999, 'n') + "a"), order.key(name));
}

}  // namespace
}  // namespace pellor
