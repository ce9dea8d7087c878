// What an earlier version of the program answered.
#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

namespace pellor {

/// The answer of `pellor list --json` without the members that version 0.1 had not.
inline nlohmann::json asVersion01Said(const std::string& list) {
  auto json = nlohmann::json::parse(list, nullptr, false);
  EXPECT_EQ(json.erase("version"), 1U);
  for (auto& page : json["pages"]) {
    for (auto& slot : page["slots"]) {
      if (!slot.is_object()) continue;
      for (const char* later : {"preferredDestination", "shownDestination"}) EXPECT_EQ(slot.erase(later), 1U);
    }
  }
  return json;
}

}  // namespace pellor
