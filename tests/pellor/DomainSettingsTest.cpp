// What a manager reads of its settings, and what users are shown of them.
#include "pellor/friends/internal/PLDomainSettings.h"

#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

constexpr const char* Domain = "org.tapnote.TN";

class DomainSettingsTest : public OneProcess {
 protected:
  PreferencesStore& store() { return *platform.preferences; }
  PLDomainSettings read() { return PLDomainSettings::read(store(), Domain).value(); }
  void write(std::string_view key, Value value) {
    ASSERT_TRUE(plWriteDomainSetting(store(), key, std::move(value), Domain));
  }
};

TEST_F(DomainSettingsTest, WhatUsersAreToldHoldsWhereNothingUsableIsStored) {
  const Value wrong[] = {Value(Array{}), Value(""), Value("12"), Value(-1.5)};
  for (const Value& value : wrong) {
    for (const PLDomainSetting& setting : plDomainSettings()) {
      if (!setting.isOfKind(value)) write(setting.key, value);
    }
    const PLDomainSettings settings = read();
    const Value found[] = {settings.maxFriendGroups(),
                           settings.maxFriendsPerGroup(),
                           settings.shouldAddEmptyTrailingGroup(),
                           settings.refreshesAgainstContactsOnInit(),
                           settings.shouldDeduplicateFriendList(),
                           settings.shouldRemoveDestinationlessFriends()};
    for (std::size_t index = 0; index < std::size(found); ++index) {
      EXPECT_EQ(found[index], plDomainSettings()[index].absentValue()) << plDomainSettings()[index].name;
    }
  }
}

TEST(DomainSettingTest, WhatUsersWriteIsAValueWithinTheLimits) {
  using Kind = PLDomainSetting::Kind;
  struct Case {
    Kind kind;
    const char* text;
    std::optional<Value> value;
  };
  const Case cases[] = {
      {Kind::count, "1", Value(1)},
      {Kind::count, "20", Value(20)},
      {Kind::count, "0", std::nullopt},
      {Kind::count, "21", std::nullopt},
      {Kind::count, "-1", std::nullopt},
      {Kind::count, "", std::nullopt},
      {Kind::count, "3 pages", std::nullopt},
      {Kind::count, "99999999999999999999", std::nullopt},
      {Kind::flag, "true", Value(true)},
      {Kind::flag, "on", Value(true)},
      {Kind::flag, "false", Value(false)},
      {Kind::flag, "off", Value(false)},
      {Kind::flag, "yes", std::nullopt},
      {Kind::flag, "", std::nullopt},
      {Kind::name, "a name", Value("a name")},
      {Kind::name, "", std::nullopt},
  };
  for (const Case& each : cases) {
    const PLDomainSetting setting{"key", "name", each.kind, "1", 20, "meaning"};
    EXPECT_EQ(setting.valueOf(each.text), each.value) << each.text;
  }
}

TEST_F(DomainSettingsTest, AGroupHasAUsableSizeAndNoNameIsEmpty) {
  for (const std::int64_t size : {std::int64_t{0}, std::int64_t{-3}, PLLargestGroupSize + 1}) {
    write(PLGroupSizeKey, size);
    EXPECT_EQ(read().maxFriendsPerGroup(), 12U);
    EXPECT_EQ(takeLog().size(), 1U) << size;
  }
  for (const std::int64_t size : {std::int64_t{1}, PLLargestGroupSize}) {
    write(PLGroupSizeKey, size);
    EXPECT_EQ(read().maxFriendsPerGroup(), static_cast<std::uint64_t>(size));
  }
  write(PLFriendsChangedExternallyNotificationKey, "of both");
  write(PLFriendGroupTitleChangedExternallyNotificationKey, "of both");
  EXPECT_TRUE(read().haveOneExternalName());
  write(PLFriendGroupTitleChangedExternallyNotificationKey, "");
  EXPECT_EQ(read().friendGroupTitleChangedExternallyNotificationName(),
            PLFriendGroupTitleChangedExternallyNotification);
}

}  // namespace
}  // namespace pellor
