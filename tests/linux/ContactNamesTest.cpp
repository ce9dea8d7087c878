#include "pellor/linux/contacts/internal/ContactNames.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "pellor/linux/contacts/NameSearchKey.h"
#include "pellor/linux/contacts/internal/ContactLinks.h"

namespace pellor {
namespace {

TEST(NameSearchKey, FindsANameHoweverItIsWritten) {
  const struct {
    const char* one;
    const char* other;
    bool areSame;
  } cases[] = {
      {"Müller, Jörg", "Jörg Müller", true},
      {"Anne-Marie O'Neill", "o neill marie anne", true},
      {"Straße", "STRASSE", true},
      {"Ångström", "A\u030Angstro\u0308m", true},
      {"أحمد", "احمد", true},
      {"山田 太郎", "太郎 山田", true},
      {"Anna", "Anna Novak", false},
      {"Anna Anna", "Anna", false},
      {"कवि", "कव", false},
  };
  for (const auto& each : cases)
    EXPECT_EQ(nameSearchKey(each.one) == nameSearchKey(each.other), each.areSame) << each.one << " / " << each.other;
  EXPECT_EQ(nameSearchKey(" -,. "), "");
}

TEST(ContactNames, ACardWithoutNamePartsGoesByWhatItHas) {
  ContactCard card;
  EXPECT_EQ(compositeName(card, false), std::nullopt);
  card.organization = "Club";
  EXPECT_EQ(compositeName(card, false), "Club");
  card.nickname = "Bee";
  for (const CardKind kind : {CardKind::person, CardKind::organization}) {
    card.kind = kind;
    EXPECT_EQ(compositeName(card, false), "Bee");
    EXPECT_EQ(searchableNames(card), (std::vector<std::string>{"Club", "Bee"}));
  }
  card.formattedName = "The keeper";
  EXPECT_EQ(compositeName(card, true), "The keeper");
}

using Sets = std::map<std::int32_t, std::int32_t>;

/// The rules taken literally: for each link all members of both sets are looked at.
Sets setsByTheRules(const std::vector<LinkStatement>& statements) {
  std::set<std::pair<std::int32_t, std::int32_t>> links, refused;
  for (const auto& [record, linked, antiLinked] : statements) {
    for (const std::int32_t other : linked) links.insert(std::minmax(record, other));
    for (const std::int32_t other : antiLinked) refused.insert(std::minmax(record, other));
  }
  std::map<std::int32_t, std::set<std::int32_t>> sets;
  const auto setOf = [&](std::int32_t record) { return sets.try_emplace(record, std::set{record}).first->second; };
  for (const auto& [one, other] : links) {
    std::set<std::int32_t> joined = setOf(one);
    const std::set<std::int32_t> others = setOf(other);
    if (joined == others) continue;
    const auto refuse = [&](std::int32_t left) {
      return std::ranges::any_of(others,
                                 [&](std::int32_t right) { return refused.contains(std::minmax(left, right)); });
    };
    if (std::ranges::any_of(joined, refuse)) continue;
    joined.insert(others.begin(), others.end());
    for (const std::int32_t member : joined) sets[member] = joined;
  }
  Sets lowest;
  for (const auto& [record, set] : sets) {
    if (set.size() > 1) lowest[record] = *set.begin();
  }
  return lowest;
}

TEST(ContactLinks, AnyCardsGiveTheSetsOfTheRules) {
  for (unsigned seed = 0; seed < 500; ++seed) {
    std::mt19937 random(seed);
    const auto below = [&](unsigned end) { return static_cast<std::int32_t>(random() % end); };
    std::vector<LinkStatement> statements;
    for (std::int32_t record = 1; record < 2 + below(30); ++record) {
      statements.push_back({record, {}, {}});
      for (std::int32_t left = below(4); left > 0; --left) statements.back().links.push_back(1 + below(30));
      for (std::int32_t left = below(3); left > 0; --left) statements.back().antiLinks.push_back(1 + below(30));
    }
    EXPECT_EQ(linkedSets(statements), setsByTheRules(statements)) << "seed " << seed;
  }
}

// A card that names 100,000 others, and refuses as many: one look at each refusal for each link would take days.
TEST(ContactLinks, ACardMayNameAllOthers) {
  constexpr std::int32_t many = 100'000;
  LinkStatement statement{1, {}, {}};
  for (std::int32_t number = 1; number < many; ++number) {
    statement.links.push_back(2 * number);
    statement.antiLinks.push_back(2 * number + 1);
  }
  const Sets sets = linkedSets({statement, {2, {3}, {}}});
  EXPECT_EQ(sets.size(), static_cast<std::size_t>(many));
  EXPECT_FALSE(sets.contains(3));
}

}  // namespace
}  // namespace pellor
