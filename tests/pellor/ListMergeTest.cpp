// The merge of stored lists: friends and pages are known by what they are like.
#include "pellor/friends/internal/PLListMerge.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace pellor {
namespace {

Value friendOf(const std::string& name) {
  if (name.empty()) return Dictionary{};
  return Dictionary{{"ABRecordID", 0}, {"Name", name}, {"AllValues", Array{name + "@example.org"}}, {"Monogram", ""}};
}

PLTitledList listOf(const std::vector<std::string>& names, const std::vector<std::string>& titles = {}) {
  Array list;
  for (const std::string& name : names) list.push_back(friendOf(name));
  return {LongArray(list), Array(titles.begin(), titles.end())};
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
  const PLTitledList four = listOf({"a", "b", "c", "d"}, {"A", "C"});
  const Case cases[] = {
      {"added by both", four, listOf({"a", "b", "c", "d", "t", ""}, {"A", "C"}),
       listOf({"a", "b", "c", "d", "o", ""}, {"A", "C"}), listOf({"a", "b", "c", "d", "t", "o"}, {"A", "C"})},
      {"ours removed a page, theirs renamed the one behind it", four, listOf({"a", "b", "c", "d"}, {"A", "T"}),
       listOf({"c", "d"}, {"C"}), listOf({"c", "d"}, {"T"})},
      {"nothing in common: nobody is removed", {}, listOf({"a", "b"}), listOf({"o", ""}), listOf({"a", "b", "o", ""})},
      {"the same friends on both in other places, nothing in common",
       {},
       listOf({"a", "b"}),
       listOf({"b", "a"}),
       listOf({"b", "a"})},
      {"the same friends with the numbers of other contacts, nothing in common",
       {},
       ofContacts(listOf({"a", "b"}), "X"),
       ofContacts(listOf({"a", "b", "o", ""}), "Y"),
       listOf({"a", "b", "o", ""})},
      {"ours renamed a page, theirs added to the list", four, listOf({"a", "b", "c", "d", "t", ""}, {"A", "C"}),
       listOf({"a", "b", "c", "d"}, {"A", "O"}), listOf({"a", "b", "c", "d", "t", ""}, {"A", "O"})},
      {"ours took a title away, theirs added to the list", four, listOf({"a", "b", "c", "d", "t", ""}, {"A", "C"}),
       listOf({"a", "b", "c", "d"}, {"", "C"}), listOf({"a", "b", "c", "d", "t", ""}, {"", "C"})},
      {"ours gave a title where there was none, theirs added to the list", listOf({"a", "b", "c", "d"}, {"A"}),
       listOf({"a", "b", "c", "d", "t", ""}, {"A"}), listOf({"a", "b", "c", "d"}, {"A", "O"}),
       listOf({"a", "b", "c", "d", "t", ""}, {"A", "O"})},
      {"ours has a titled page of its own, theirs another title", four, listOf({"a", "b", "c", "d"}, {"T", "C"}),
       listOf({"a", "b", "c", "d", "o", ""}, {"A", "C", "O"}), listOf({"a", "b", "c", "d", "o", ""}, {"T", "C", "O"})},
      {"no room for all", four, listOf({"a", "b", "c", "d", "t", "u"}, {"A", "C"}),
       listOf({"a", "b", "c", "d", "o", ""}, {"A", "C"}), listOf({"a", "b", "c", "d", "t", "u"}, {"A", "C"}), 1},
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
