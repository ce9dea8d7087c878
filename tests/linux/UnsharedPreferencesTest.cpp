// The store of a dry run.
#include "pellor/linux/preferences/internal/UnsharedPreferences.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <optional>
#include <string>

#include "tests/linux/SQLiteStores.h"

namespace pellor {
namespace {

constexpr std::string_view Domain = "org.tapnote.TN";

class UnsharedPreferencesTest : public testing::Test {
 protected:
  VersionedPreference read(PreferencesStore& store, const std::string& key) {
    return store.read(std::array{key}, Domain).value()->at(key);
  }
  PreferenceWriteOutcome write(PreferencesStore& store, const std::string& key, std::optional<Value> value,
                               const std::optional<PreferenceVersion>& madeFrom = {}) {
    const auto kind = value ? PreferenceChange::Kind::set : PreferenceChange::Kind::remove;
    return store.write({{key, {kind, std::move(value), madeFrom}}}, {}, Domain).outcome;
  }

  const TemporaryFolder _folder;
  const std::shared_ptr<SharedPreferences> _shared = openIn(_folder.path());
  UnsharedPreferences _own{_shared};
};

TEST_F(UnsharedPreferencesTest, WhatIsWrittenIsSeenHereAloneAndRemembersWhatItWasMadeFrom) {
  ASSERT_EQ(write(*_shared, "kept", Value("before")), PreferenceWriteOutcome::written);
  const PreferenceVersion stored = read(_own, "kept").version;
  EXPECT_EQ(stored, read(*_shared, "kept").version);
  EXPECT_EQ(write(_own, "kept", Value("after"), stored), PreferenceWriteOutcome::written);
  EXPECT_EQ(write(_own, "kept", Value("late"), stored), PreferenceWriteOutcome::overtaken);
  EXPECT_EQ(read(_own, "kept").value, Value("after"));
  EXPECT_EQ(_own.copyValue("kept", Domain).value(), Value("after"));
  EXPECT_EQ(write(_own, "kept", std::nullopt, read(_own, "kept").version), PreferenceWriteOutcome::written);
  EXPECT_EQ(_own.copyValue("kept", Domain).value(), std::nullopt);
  EXPECT_EQ(read(*_shared, "kept").value, Value("before"));
}

TEST_F(UnsharedPreferencesTest, SettingsAndFirstValuesStayItsOwn) {
  _own.setValue("setting", Value(true), Domain);
  EXPECT_EQ(_own.copyValue("setting", Domain).value(), Value(true)) << "a process sees its own values";
  EXPECT_FALSE(read(_own, "setting").value) << "not synchronised yet";
  ASSERT_TRUE(_own.synchronize(Domain));
  EXPECT_EQ(read(_own, "setting").value, Value(true));
  ASSERT_EQ(write(*_shared, "there", Value(1)), PreferenceWriteOutcome::written);
  ASSERT_TRUE(_own.insertIfAbsent({{"there", 2}, {"setting", 2}, {"new", 2}}, Domain));
  EXPECT_EQ(read(_own, "there").value, Value(1));
  EXPECT_EQ(read(_own, "setting").value, Value(true));
  EXPECT_EQ(read(_own, "new").value, Value(2));
  ASSERT_TRUE(_shared->synchronize(Domain));
  for (const char* key : {"setting", "new"}) EXPECT_FALSE(read(*_shared, key).value) << key;
}

}  // namespace
}  // namespace pellor
