// The merge of stored lists: friends and pages are known by what they are like.
#include "pellor/friends/internal/PLListMerge.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace pellor {
namespace {

Value friendOf(char letter) {
  if (letter == '-') return Dictionary{};
  const std::string name(1, letter);
  return Dictionary{{"ABRecordID", 0}, {"Name", name}, {"AllValues", Array{name + "@example.org"}}, {"Monogram", ""}};
}

// Friends are letters, "-" is an empty slot.
PLTitledList listOf(const std::string& names, const Array& titles = {}) {
  Array list;
  for (const char letter : names) list.push_back(friendOf(letter));
  return {LongArray(list), titles};
}

// As a device writes it whose contacts have that identifier.
PLTitledList ofContacts(const PLTitledList& titled, const std::string& databaseUID) {
  Array list = titled.list.elements();
  for (Value& element : list) {
    Dictionary form = *element.dictionary();
    if (!form.empty()) form.insert_or_assign("ABDatabaseUID", databaseUID);
    element = form;
  }
  return {LongArray(list), titled.titles};
}

std::vector<std::string> namesIn(const LongArray& list) {
  std::vector<std::string> names;
  for (const Value& element : list.elements()) {
    names.push_back(stringForKey(*element.dictionary(), "Name").value_or(""));
  }
  return names;
}

PLMergedList merged(const PLTitledList& base, const PLTitledList& theirs, const PLTitledList& ours) {
  const auto asItIs = [](const Dictionary& form) { return form; };
  return mergedLists(base, theirs, ours, {2, 3, asItIs});
}

TEST(ListMergeTest, EditsOfBothHold) {
  struct Case {
    const char* what;
    PLTitledList base, theirs, ours;
    PLTitledList result;
    std::size_t leftOut = 0;
  };
  const Array ac = {"A", "C"};
  const PLTitledList four = listOf("abcd", ac);
  const Case cases[] = {
      {"added by both", four, listOf("abcdt-", ac), listOf("abcdo-", ac), listOf("abcdto", ac)},
      {"ours removed a page, theirs renamed the one behind it", four, listOf("abcd", {"A", "T"}), listOf("cd", {"C"}),
       listOf("cd", {"T"})},
      {"nothing in common: nobody is removed", {}, listOf("ab"), listOf("o-"), listOf("abo-")},
      {"the same friends on both in other places, nothing in common", {}, listOf("ab"), listOf("ba"), listOf("ba")},
      {"the same friends with the numbers of other contacts, nothing in common",
       {},
       ofContacts(listOf("ab"), "X"),
       ofContacts(listOf("abo-"), "Y"),
       listOf("abo-")},
      {"ours renamed a page, theirs added to the list", four, listOf("abcdt-", ac), listOf("abcd", {"A", "O"}),
       listOf("abcdt-", {"A", "O"})},
      {"ours took a title away, theirs added to the list", four, listOf("abcdt-", ac), listOf("abcd", {"", "C"}),
       listOf("abcdt-", {"", "C"})},
      {"ours gave a title where there was none, theirs added to the list", listOf("abcd", {"A"}),
       listOf("abcdt-", {"A"}), listOf("abcd", {"A", "O"}), listOf("abcdt-", {"A", "O"})},
      {"ours has a titled page of its own, theirs another title", four, listOf("abcd", {"T", "C"}),
       listOf("abcdo-", {"A", "C", "O"}), listOf("abcdo-", {"T", "C", "O"})},
      {"no room for all", four, listOf("abcdtu", ac), listOf("abcdo-", ac), listOf("abcdtu", ac), 1},
  };
  for (const Case& test : cases) {
    const PLMergedList both = merged(test.base, test.theirs, test.ours);
    EXPECT_EQ(namesIn(both.merged.list), namesIn(test.result.list)) << test.what;
    EXPECT_EQ(both.merged.titles, test.result.titles) << test.what;
    EXPECT_EQ(both.leftOutCount, test.leftOut) << test.what;
    // At rest: what came of it is not merged again into something else.
    EXPECT_EQ(merged(test.theirs, both.merged, test.theirs).merged, both.merged) << test.what;
    EXPECT_EQ(merged(test.base, both.merged, both.merged).merged, both.merged) << test.what;
    EXPECT_EQ(merged(test.base, test.base, test.ours).merged, test.ours) << test.what;
  }
}

}  // namespace
}  // namespace pellor
