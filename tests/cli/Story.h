// Commands one after the other, with what each of them answers.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/cli/Program.h"

namespace pellor {

using Arguments = std::vector<std::string>;

/// One command of a story: its exit code, and what its output (exit code 0) or its one line of error has to contain.
struct Step {
  Arguments arguments;
  int exitCode;
  std::string contains;
};

inline bool isOneLine(const std::string& text) { return std::ranges::count(text, '\n') == 1 && text.ends_with('\n'); }

inline void tell(const Home& home, const std::vector<Step>& story) {
  for (const Step& step : story) {
    const ProgramResult result = pellor(home, step.arguments);
    SCOPED_TRACE(testing::PrintToString(step.arguments) + result.errors);
    EXPECT_EQ(result.exitCode, step.exitCode);
    EXPECT_THAT(step.exitCode == 0 ? result.output : result.errors, testing::HasSubstr(step.contains));
    if (step.exitCode == 0) {
      EXPECT_THAT(result.errors, testing::IsEmpty());
    } else {
      EXPECT_TRUE(isOneLine(result.errors)) << result.errors;
      EXPECT_THAT(result.output, testing::IsEmpty());
    }
  }
}

/// A home with a contact who is the first friend.
struct HomeWithAnn : Home {
  HomeWithAnn() {
    addContact("ann", "Ann Lee", "TEL:+49301234567\n");
    EXPECT_EQ(pellor(*this, {"add", "ann"}).exitCode, 0);
  }
};

inline void addPeople(const Home& home) {
  home.addContact("ann", "Ann Lee",
                  "N:Lee;Ann;;;\nTEL:+49 30 1234567\nEMAIL:Ann@example.org\nX-FOLKS-FAVOURITE:true\n");
  home.addContact("anna", "Anna Berg", "N:Berg;Anna;;;\nTEL:030 7654321\n");
  home.addContact("zoe", "Zoë Marsh", "N:Marsh;Zoë;;;\nEMAIL:zoe@example.org\n");
  home.addContact("zoework", "Z. Marsh", "N:Marsh;Z.;;;\nTEL:030 7654399\nX-FOLKS-CONTACTS-IDS:zoe\n");
  home.addContact("nobody", "No Body", "N:Body;No;;;\n");
}

}  // namespace pellor
