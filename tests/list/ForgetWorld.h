// Somebody who is forgotten, and what the store tells of him.
#pragma once

#include <gmock/gmock.h>

#include <set>
#include <string>

#include "pellor/list/internal/FriendIdentity.h"
#include "tests/list/SeededWorld.h"

namespace pellor {

class ForgetWorld : public SeededWorld {
 public:
  using SeededWorld::SeededWorld;
  ForgetWorld() : SeededWorld(1) {}

  static std::string secretOf(const std::string& name) { return "secret-of-" + name; }
  /// Edits that give a friend something of all kinds.
  static std::string carrying(const std::string& name) {
    return "reply " + name + " " + secretOf(name) + ";choose " + name + " " + mailOf(name) + ";meta " + name + " key " +
           secretOf(name);
  }

  /// All that is stored under any key that was ever written.
  Dictionary valuesStored() {
    Dictionary values;
    for (const std::string& key : keysWritten())
      if (auto value = storedValue(key)) values.emplace(key, *std::move(value));
    return values;
  }
  static std::string textOf(const Dictionary& values) {
    std::string text;
    for (const auto& [key, value] : values) text += key + ": " + textOfAll(value) + "\n";
    return text;
  }
  /// The values and their last good copies, as text.
  std::string everythingStored() {
    std::string text = textOf(valuesStored());
    for (const std::string& key : keysWritten())
      if (const auto value = world.preferences().lastGoodValue(key, TapnoteDomain)) text += textOfAll(*value) + "\n";
    return text;
  }
  static std::string fingerprintOf(const std::string& name) {
    return std::to_string(pellor::fingerprintOf({guidOf(name), name, {mailOf(name)}}));
  }
  void expectNoTraceOf(const std::string& name) { expectNoTraceOf(name, everythingStored()); }
  static void expectNoTraceOf(const std::string& name, const std::string& text) {
    for (const std::string& trace :
         {mailOf(name), guidOf(name), secretOf(name), "\"" + name + "\"", fingerprintOf(name)})
      EXPECT_THAT(text, ::testing::Not(::testing::HasSubstr(trace))) << name;
  }

 private:
  std::set<std::string> keysWritten() {
    std::set<std::string> keys = {std::string(PLFriendListKey), std::string(PLGroupTitlesKey)};
    for (const auto& write : world.preferences().writes()) keys.insert(write.keys.begin(), write.keys.end());
    return keys;
  }
  static std::string textOfAll(const Value& value) {
    if (value.longArray()) return Value(value.longArray()->elements()).description();
    return value.description();
  }
};

}  // namespace pellor
