// The settings of a list.
#include "pellor/list/Settings.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

class ListSettingsTest : public ManagerTest {
 protected:
  SettingValue value(std::string_view name) { return read(name)->value; }
  std::optional<CurrentSetting> read(std::string_view name) {
    return process->run([&] { return readSetting(name, domain); });
  }
  bool write(std::string_view name, const SettingValue& value) {
    return process->run([&] { return writeSetting(name, value, domain); });
  }

  const std::string domain = std::string(TapnoteDomain);
  std::unique_ptr<ManagerProcess> process = makeProcess();
};

TEST_F(ListSettingsTest, WhatIsBeyondTheLimitsIsNotWritten) {
  const SettingValue wrong[] = {std::int64_t{0}, std::int64_t{-1}, std::int64_t{65537}, true, std::string("12")};
  for (const SettingValue& each : wrong) EXPECT_FALSE(write(PageSizeSetting, each)) << each.index();
  EXPECT_FALSE(write(ListChangedNameSetting, std::string()));
  EXPECT_FALSE(write(FollowsContactsSetting, std::int64_t{1}));
  EXPECT_TRUE(read(PageSizeSetting)->isDefault);
  setSetting(PLGroupSizeKey, Value("many"));
  EXPECT_EQ(value(PageSizeSetting), SettingValue(std::int64_t{12})) << "a stored value of another kind counts as none";
}

TEST_F(ListSettingsTest, AListThatWaitsForFavoritesIsNotThereYet) {
  const auto isThere = [&] {
    const auto later = makeProcess();
    return later->run([&] { return hasStoredList(domain); });
  };
  EXPECT_FALSE(isThere());
  store("Ann,-");
  EXPECT_TRUE(isThere());
  setSetting(PLFirstListIsDueKey, Value(true));
  EXPECT_FALSE(isThere());
}

}  // namespace
}  // namespace pellor
