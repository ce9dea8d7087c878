#include "tests/linux/GeneratedCards.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "pellor/linux/contacts/internal/CardSurvey.h"
#include "tests/linux/ContactsFixture.h"

namespace pellor {
namespace {

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
  std::map<std::string, std::string> guidsByNumber(ContactIndex& index, const std::vector<GeneratedCard>& cards) {
    std::map<std::string, std::string> guids;
    for (const GeneratedCard& card : cards) {
      for (const std::int32_t id : index.recordIDsForDestination(card.number))
        guids[card.number] = index.contactWithID(id)->guid;
    }
    return guids;
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

TEST_F(GeneratedCardsTest, TheOrderOfAFileIsNobodysName) {
  std::vector<GeneratedCard> cards = CardGenerator(4).make(250);
  std::erase_if(cards, [](const GeneratedCard& card) { return !card.problem.empty(); });
  write(cards, cards.size(), "\r\n");
  const auto index = openIndex();
  const auto guids = guidsByNumber(*index, cards);
  ASSERT_EQ(guids.size(), cards.size());
  const std::int32_t sequence = index->sequenceNumber();
  std::ranges::reverse(cards);
  write(cards, cards.size(), "\n");  // every text is another one
  index->update(FolderChange::all());
  EXPECT_EQ(guidsByNumber(*index, cards), guids);
  std::ranges::shuffle(cards, std::mt19937(5));
  const std::int32_t before = index->sequenceNumber();
  EXPECT_EQ(before, sequence + 1);
  write(cards, cards.size(), "\n");
  index->update(FolderChange::all());
  EXPECT_EQ(index->sequenceNumber(), before) << "nothing is stored anew for another order";
  EXPECT_EQ(guidsByNumber(*index, cards), guids);
}

}  // namespace
}  // namespace pellor
