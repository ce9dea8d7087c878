// Texts that depend on a count.
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "pellor/linux/text/GettextStrings.h"
#include "pellor/linux/text/PluralForms.h"
#include "tests/linux/TemporaryFolder.h"

namespace pellor {
namespace {

using namespace std::string_literals;

std::string repeated(const std::string& text, int times) {
  std::string result;
  for (int time = 0; time < times; ++time) result += text;
  return result;
}

TEST(PluralFormsTest, CountsTakeTheFormsOfTheirLanguages) {
  struct Case {
    const char* language;
    const char* field;
    std::vector<std::pair<std::uint64_t, std::size_t>> forms;
  };
  const Case cases[] = {
      {"Japanese", " nplurals=1; plural=0;", {{0, 0}, {1, 0}, {2, 0}, {1000, 0}}},
      {"German", "nplurals=2; plural=n != 1", {{0, 1}, {1, 0}, {2, 1}, {UINT64_MAX, 1}}},
      {"French", " nplurals = 2 ;plural = (n > 1) ;\r", {{0, 0}, {1, 0}, {2, 1}}},
      {"Russian",
       " nplurals=3; plural=n%10==1 && n%100!=11 ? 0 : n%10>=2 && n%10<=4 && (n%100<10 || n%100>=20) ? 1 : 2;",
       {{1, 0}, {2, 1}, {4, 1}, {5, 2}, {0, 2}, {11, 2}, {12, 2}, {21, 0}, {22, 1}, {101, 0}, {111, 2}, {112, 2}}},
  };
  for (const Case& test : cases) {
    const auto forms = PluralForms::read(test.field);
    ASSERT_TRUE(forms) << test.language;
    for (const auto& [count, form] : test.forms) EXPECT_EQ(forms->formFor(count), form) << test.language << count;
  }
}

// What gives no form, such as a division by zero, gives the first one.
TEST(PluralFormsTest, ExpressionsAreWorkedOutAsInC) {
  const std::pair<const char*, std::size_t> cases[] = {
      {"1 + 2 * 3", 7},     {"(1 + 2) * 3", 9},       {"9 - 3 - 2", 4},         {"1 || 0 && 0", 1}, {"2 == 2 > 1", 0},
      {"!5 + !!7 + !0", 2}, {"0 ? 2 : 1 ? 3 : 4", 3}, {"0 ? 1 ? 2 : 3 : 4", 4}, {"n - 6 > n", 1},  // without a sign
      {"1 / 0", 0},         {"1 % (n - 5)", 0},       {"1 / 0 ? 1 : 1", 0},     {"0 - 1", 0},       {"1 / 0 || 1", 0},
      {"1 || 1 / 0", 1},    {"!(0 && 1 / 0)", 1},     {"1 ? 1 : 1 / 0", 1},
  };
  for (const auto& [expression, value] : cases) {
    const auto forms = PluralForms::read("nplurals=16; plural="s + expression);
    ASSERT_TRUE(forms) << expression;
    EXPECT_EQ(forms->formFor(5), value) << expression;
  }
}

TEST(PluralFormsTest, WhatIsNoExpressionOrTooMuchOfOneIsRefused) {
  const auto nested = [](const std::string& open, int times, const std::string& close) {
    return "nplurals=2; plural=" + repeated(open, times) + "n" + repeated(close, times);
  };
  for (const std::string& field :
       {nested("(", 49, ")"), nested("n ? 1 : ", 49, ""), "nplurals=2; plural=" + repeated("n+", 499) + "n"}) {
    EXPECT_TRUE(PluralForms::read(field)) << field;
  }
  for (const std::string& field :
       {nested("(", 50, ")"), nested("(", 400, ")"), nested("n ? 1 : ", 50, ""), nested("1 ? ", 50, " : 0"),
        "nplurals=2; plural=" + repeated("n+", 500) + "n", nested("!", 1000, ""), nested("(", 1'000'000, ")")}) {
    EXPECT_FALSE(PluralForms::read(field)) << field.substr(0, 100);
  }
  for (const char* field : {"", "nplurals=INTEGER; plural=EXPRESSION;", "nplurals=0; plural=0;",
                            "nplurals=17; plural=0;", "nplurals=-1; plural=0;", "nplurals=2",
                            "nplurals=2; plural=", "nplurals=2; plural=;", "plural=n; nplurals=2;"}) {
    EXPECT_FALSE(PluralForms::read(field)) << field;
  }
  for (const char* expression : {"n n", "(n", "n)", "n ?", "n ? 1", "n ? 1 :", "n +", "== n", "n = 1", "n & 1", "n ! 1",
                                 "-1", "m", "system(1)", "18446744073709551616", "n, 1", "'n'", "0x1", "1.5"}) {
    EXPECT_FALSE(PluralForms::read("nplurals=2; plural="s + expression + ";")) << expression;
  }
  EXPECT_FALSE(PluralForms::read("nplurals=2; plural=n\0n"s));
}

// Catalogs

std::string word(std::size_t value) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(value >> shift & 0xFF);
  return bytes;
}

std::string compiledCatalog(const std::vector<std::pair<std::string, std::string>>& entries) {
  constexpr std::size_t start = 28;
  const std::size_t tableSize = entries.size() * 8;
  std::string keys, texts, strings;
  const auto append = [&](std::string& table, const std::string& text) {
    table += word(text.size()) + word(start + 2 * tableSize + strings.size());
    strings += text + '\0';
  };
  for (const auto& [key, text] : entries) {
    append(keys, key);
    append(texts, text);
  }
  return word(0x950412de) + word(0) + word(entries.size()) + word(start) + word(start + tableSize) + word(0) + word(0) +
         keys + texts + strings;
}

const std::string Polish =
    "Language: pl\nPlural-Forms: nplurals=3; plural=n==1 ? 0 : n%10>=2 && n%10<=4 && (n%100<10 ||"
    " n%100>=20) ? 1 : 2;\nMIME-Version: 1.0\n";
const std::pair<std::string, std::string> Friends = {"%u friend\0%u friends"s, "%u znajomy\0%u znajomi\0%u znajomych"s};

class PluralCatalogTest : public testing::Test {
 protected:
  std::shared_ptr<const Bundle> bundleOf(const std::vector<std::pair<std::string, std::string>>& entries) {
    std::filesystem::create_directories(_folder / "pl/LC_MESSAGES");
    writeFile(_folder / "pl/LC_MESSAGES/pellor.mo", compiledCatalog(entries));
    const auto environment = [](std::string_view name) {
      return name == "LANG" ? std::optional<std::string>("pl_PL.UTF-8") : std::nullopt;
    };
    GettextStrings strings([this] { return std::vector{_folder.path()}; }, environment);
    return strings.bundleWithIdentifier("org.tapnote.Pellor");
  }

  static std::string friends(const Bundle& bundle, std::uint64_t count) {
    return bundle.localizedStringForCount("%u friend", "%u friend", "%u friends", count);
  }

 private:
  TemporaryFolder _folder;
};

TEST_F(PluralCatalogTest, ATextIsGivenInTheFormOfItsCount) {
  const auto bundle = bundleOf({{"", Polish}, Friends, {"PLAIN", "zwykły"}, {"SHORT\0SHORTS"s, "krótki\0"s}});
  EXPECT_EQ(friends(*bundle, 1), "%u znajomy");
  EXPECT_EQ(friends(*bundle, 3), "%u znajomi");
  EXPECT_EQ(friends(*bundle, 5), "%u znajomych");
  EXPECT_EQ(bundle->localizedString("%u friend", ""), "%u znajomy") << "asked for without a count";
  EXPECT_EQ(bundle->localizedStringForCount("PLAIN", "", "", 5), "zwykły") << "one form for all counts";
  EXPECT_EQ(bundle->localizedStringForCount("SHORT", "", "", 3), "krótki") << "an empty form";
  EXPECT_EQ(bundle->localizedStringForCount("SHORT", "", "", 5), "krótki") << "a form that lacks";
  EXPECT_EQ(bundle->localizedStringForCount("FAVORITES", "", "", 5), "Favorites") << "English alone has it";
  EXPECT_EQ(bundle->localizedStringForCount("PAGE", "page", "pages", 1), "page");
  EXPECT_EQ(bundle->localizedStringForCount("PAGE", "page", "pages", 0), "pages");
  EXPECT_EQ(bundle->localizedStringForCount("PAGE", "page", "", 2), "PAGE");
}

TEST_F(PluralCatalogTest, ACatalogWhoseFormsCannotBeToldIsNone) {
  const std::pair<std::string, std::string> title = {"FAVORITES", "Ulubione"};
  const std::string broken = "Plural-Forms: nplurals=2; plural=" + repeated("(", 1000) + "\n";
  EXPECT_EQ(bundleOf({{"", broken}, title, Friends})->localizedString("FAVORITES", ""), "Favorites");
  EXPECT_EQ(bundleOf({{"", broken}, title})->localizedString("FAVORITES", ""), "Ulubione") << "nothing needs them";

  const auto silent = bundleOf({{"", "Language: pl\n"}, Friends});
  EXPECT_EQ(friends(*silent, 1), "%u znajomy") << "as in English";
  EXPECT_EQ(friends(*silent, 5), "%u znajomi");

  const auto untranslated = bundleOf({{"", Polish}, {Friends.first, "\0\0"s}});
  EXPECT_EQ(friends(*untranslated, 5), "%u friends");
}

}  // namespace
}  // namespace pellor
