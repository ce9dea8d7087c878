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
  const auto valueOf = [](Kind kind, const char* text) {
    return PLDomainSetting{"key", "name", kind, "1", 20, "meaning"}.valueOf(text);
  };
  EXPECT_EQ(valueOf(Kind::count, "1"), Value(1));
  EXPECT_EQ(valueOf(Kind::count, "20"), Value(20));
  for (const char* text : {"0", "21", "-1", "", "3 pages", "99999999999999999999"})
    EXPECT_EQ(valueOf(Kind::count, text), std::nullopt) << text;
  for (const char* text : {"true", "on"}) EXPECT_EQ(valueOf(Kind::flag, text), Value(true)) << text;
  for (const char* text : {"false", "off"}) EXPECT_EQ(valueOf(Kind::flag, text), Value(false)) << text;
  for (const char* text : {"yes", ""}) EXPECT_EQ(valueOf(Kind::flag, text), std::nullopt) << text;
  EXPECT_EQ(valueOf(Kind::name, "a name"), Value("a name"));
  EXPECT_EQ(valueOf(Kind::name, ""), std::nullopt);
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
