#include "cli/WordBeginnings.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace pellor::cli {
namespace {

using Persons = std::vector<std::size_t>;

TEST(WordBeginnings, FindsWhatAnyWordBeginsWith) {
  WordBeginnings names;
  names.add(7, "ANN LEE");
  names.add(3, "ANNA BERG");
  names.add(7, "LEE ANN");
  names.add(9, "JO  ANN-LEE");
  names.add(4, "");
  const struct {
    const char* typed;
    Persons found;
  } cases[] = {
      {"ANN", {3, 7, 9}}, {"ANN ", {7}},      {"LEE", {7}},     {"EE", {}},
      {"ANN-", {9}},      {"ANNA BERGE", {}}, {"JO  ANN", {9}}, {"", {}},
  };
  for (const auto& [typed, found] : cases) EXPECT_EQ(names.find(typed), found) << typed;
}

std::size_t comparisonsFor(std::size_t count) {
  WordBeginnings names;
  for (std::size_t person = 0; person < count; ++person)
    names.add(person, "ANN LEE" + std::to_string(1'000'000 + person) + "X");
  for (std::size_t person = 0; person < count; ++person)
    EXPECT_EQ(names.find("LEE" + std::to_string(1'000'000 + person)), Persons{person});
  return names.comparisons();
}

TEST(WordBeginnings, ManyNamesAreFoundAmongManyInProportion) {
  EXPECT_LE(comparisonsFor(40'000), 6 * comparisonsFor(10'000));
}

}  // namespace
}  // namespace pellor::cli
