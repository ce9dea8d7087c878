// Cards as address books write them, made from a seed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/contacts/internal/CardSurvey.h"
#include "tests/linux/ContactsFixture.h"

namespace pellor {
namespace {

struct GeneratedCard {
  std::string text;    ///< lines end with "\r\n"
  std::string name;    ///< its formatted name, in UTF-8
  std::string number;  ///< a number that no other card has
  bool hasUID = false;
  bool hasPhoto = false;
  std::string problem;  ///< what has to be said of it; empty for a card in order
};

class CardGenerator {
 public:
  explicit CardGenerator(unsigned seed) : _random(seed) {}

  std::vector<GeneratedCard> make(std::size_t count) {
    std::vector<GeneratedCard> cards;
    while (cards.size() < count) cards.push_back(next());
    return cards;
  }

 private:
  struct Name {
    std::string_view given, family;    // UTF-8
    std::string_view given1, family1;  // Latin-1, empty where that has no such letters
  };
  enum class Version { v21, v30, v40 };

  static constexpr std::array Names = {
      Name{"Anna", "Novak", "Anna", "Novak"},
      Name{"Jörg", "Müller", "J\xF6rg", "M\xFCller"},
      Name{"Zoë", "Béranger", "Zo\xEB", "B\xE9ranger"},
      Name{"Bình", "Nguyễn", "", ""},
      Name{"太郎", "山田", "", ""},
      Name{"Émile 🌻", "Dupont", "", ""},
      Name{"أحمد", "حداد", "", ""},
  };

  unsigned below(unsigned end) { return static_cast<unsigned>(_random() % end); }
  bool oneIn(unsigned count) { return below(count) == 0; }

  GeneratedCard next() {
    ++_count;
    GeneratedCard card;
    card.number = "+4930" + std::to_string(1'000'000 + _count);
    const Name& name = Names[below(Names.size())];  // many are namesakes
    card.name = std::string(name.given) + " " + std::string(name.family);
    const auto version = static_cast<Version>(below(3));
    std::string lines = versionLine(version);
    card.hasUID = oneIn(3);
    if (card.hasUID) lines += folded("UID:urn:uuid:0000-" + std::to_string(_count));
    lines += nameLines(version, name, card.name);
    lines += numberLine(version, card.number);
    if (oneIn(2)) lines += folded("NOTE:" + std::string(below(200), 'n') + " END:VCARD");
    if (oneIn(4)) lines += "CATEGORIES:friends,work\r\nX-ODD;X-P=\"a:b;c\":1\r\n";
    card.hasPhoto = oneIn(4);
    if (card.hasPhoto) lines += photoLines(version);
    if (version == Version::v21 && oneIn(5)) lines += "AGENT:\r\nBEGIN:VCARD\r\nVERSION:2.1\r\nEND:VCARD\r\n";
    card.text = (oneIn(4) ? "begin:vcard\r\n" : "BEGIN:VCARD\r\n") + lines + "END:VCARD\r\n";
    if (oneIn(12)) damage(card);
    return card;
  }

  static std::string versionLine(Version version) {
    constexpr std::array numbers = {"2.1", "3.0", "4.0"};
    return std::string("VERSION:") + numbers[static_cast<std::size_t>(version)] + "\r\n";
  }

  std::string nameLines(Version version, const Name& name, const std::string& formatted) {
    const bool isLatin1 = version == Version::v21 && !name.given1.empty();
    const std::string given(isLatin1 ? name.given1 : name.given), family(isLatin1 ? name.family1 : name.family);
    if (version != Version::v21) {
      const std::string parts = oneIn(3) && version == Version::v40 ? "" : folded("N:" + family + ";" + given + ";;;");
      return parts + folded((oneIn(3) ? "item1.FN:" : "FN:") + formatted);
    }
    const std::string charset = isLatin1 ? ";CHARSET=ISO-8859-1" : ";CHARSET=UTF-8";
    const bool isQuoted = oneIn(2);
    const auto value = [&](const std::string& text) { return isQuoted ? quotedPrintable(text) : text; };
    const std::string encoding = isQuoted ? ";ENCODING=QUOTED-PRINTABLE" : "";
    return "N" + charset + encoding + ":" + value(family) + ";" + value(given) + "\r\nFN" + charset + encoding + ":" +
           value(given + " " + family) + "\r\n";
  }

  std::string numberLine(Version version, const std::string& number) {
    if (version == Version::v40) return "TEL;VALUE=uri;TYPE=\"voice,cell\":tel:" + number + "\r\n";
    if (version == Version::v21) return "TEL;CELL;VOICE:" + number + "\r\n";
    return (oneIn(2) ? "item2.TEL;type=CELL;type=pref:" : "TEL;TYPE=HOME:") + number +
           "\r\nitem2.X-ABLabel:_$!<M>!$_\r\n";
  }

  std::string photoLines(Version version) {
    std::string data = "/9j/";
    for (unsigned left = 200 + below(3000); left > 0; --left) data += "ABCDefgh0123+/"[below(14)];
    data.resize(data.size() / 4 * 4);
    if (version == Version::v40) return folded("PHOTO:data:image/jpeg;base64," + data);
    if (version == Version::v30) return folded("PHOTO;ENCODING=b;TYPE=JPEG:" + data);
    return folded("PHOTO;ENCODING=BASE64;JPEG:" + data) + "\r\n";  // ended by an empty line
  }

  void damage(GeneratedCard& card) {
    if (card.text.find("AGENT:") != std::string::npos) return;  // half of it would be a card
    const auto replace = [&](std::string_view what, const std::string& with) {
      card.text.replace(card.text.rfind(what), what.size(), with);
    };
    switch (below(4)) {
      case 0:
        replace("END:VCARD\r\n", "");
        card.problem = "no END:VCARD";
        return;
      case 1:
        card.text.erase(0, card.text.find('\n') + 1);
        card.problem = "no BEGIN:VCARD";
        return;
      case 2:
        replace("END:VCARD", std::string("X-ZERO:") + '\0' + "\r\nEND:VCARD");
        card.problem = "holds a zero byte";
        return;
      default:
        card.text += card.text;
        card.problem = "says the same as card";
        return;
    }
  }

  /// Folded at 75 bytes, not inside a character.
  static std::string folded(const std::string& line) {
    std::string result;
    std::size_t length = 0;
    for (const char c : line) {
      if (length >= 70 && (static_cast<unsigned char>(c) & 0xC0) != 0x80) {
        result += "\r\n ";
        length = 0;
      }
      result += c;
      ++length;
    }
    return result + "\r\n";
  }

  static std::string quotedPrintable(const std::string& text) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string result;
    for (const char c : text) {
      const auto byte = static_cast<unsigned char>(c);
      if (byte < 0x80) {
        result += c;
      } else {
        result += '=';
        result += digits[byte >> 4U];
        result += digits[byte & 15U];
        if (result.size() % 60 > 50) result += "=\r\n";
      }
    }
    return result;
  }

  std::mt19937 _random;
  unsigned _count = 0;
};

struct GeneratedCardsTest : testing::Test, ContactsFixture {
  /// Into files of `perFile` cards. Damage that reaches into the next card ends with its file.
  void write(const std::vector<GeneratedCard>& cards, std::size_t perFile, const std::string& lineEnd) const {
    std::size_t number = 0;
    std::string text;
    const auto end = [&] {
      put("f" + std::to_string(number) + ".vcf", text);
      text.clear();
    };
    for (const GeneratedCard& card : cards) {
      for (const char c : card.text) {
        if (c != '\r') text += c == '\n' ? lineEnd : std::string(1, c);
      }
      if (++number % perFile == 0) end();
    }
    if (!text.empty()) end();
  }
  void clear() const {
    std::filesystem::remove_all(contacts);
    std::filesystem::create_directory(contacts);
    std::filesystem::remove_all(data);
  }

  /// What is wrong with these cards in the index; by number, for the cards that have one.
  std::vector<std::string> missing(ContactIndex& index, const std::vector<GeneratedCard>& cards) {
    std::vector<std::string> missing;
    for (const GeneratedCard& card : cards) {
      const bool isContact = card.problem.empty() || card.problem.starts_with("says the same");
      const auto ids = index.recordIDsForDestination(card.number);
      const auto contact = ids.size() == 1 ? index.contactWithID(ids.front()) : std::nullopt;
      const bool isIt = contact && contact->card.formattedName == card.name;
      if (isIt != isContact || ids.size() > 1) missing.push_back(card.text);
    }
    return missing;
  }
};

TEST_F(GeneratedCardsTest, EveryCardIsAContactOrNamedWithItsReason) {
  for (unsigned seed = 1; seed <= 3; ++seed) {
    const std::vector<GeneratedCard> cards = CardGenerator(seed).make(250);
    std::map<std::string, std::size_t> problems;
    for (const GeneratedCard& card : cards) {
      if (!card.problem.empty()) ++problems[card.problem];
    }
    ASSERT_EQ(problems.size(), 4U);
    for (const std::size_t perFile : {std::size_t{1}, std::size_t{7}, std::size_t{250}}) {
      for (const char* lineEnd : {"\r\n", "\n", "\r"}) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", " << perFile << " a file, line ends of "
                                        << testing::PrintToString(lineEnd));
        clear();
        write(cards, perFile, lineEnd);
        const auto index = openIndex();
        EXPECT_THAT(missing(*index, cards), testing::IsEmpty());
        const auto source = this->source();
        const CardSurvey survey = surveyCards(*source);
        EXPECT_EQ(index->cardCount(), survey.contacts);
        EXPECT_EQ(index->unusableCards(), survey.unusable.size());
        for (const auto& [problem, count] : problems) {
          const auto says = [&problem = problem](const std::string& line) {
            return line.find(problem) != std::string::npos;
          };
          EXPECT_EQ(std::ranges::count_if(survey.unusable, says), static_cast<std::ptrdiff_t>(count)) << problem;
        }
      }
    }
  }
}

}  // namespace
}  // namespace pellor
