// What every sync service must do, written against the interface alone. Needs GoogleTest.
//
// A factory makes a service and does to it what the world does:
//
//   struct MyService {
//     static constexpr bool CanPair;  // false: nobody can ever be paired with it
//     PreferencesSyncService& service();
//     void store(const std::string& key, std::optional<Value> value);  // in ContractSyncDomain
//     void completeInitialSync();     // with what is stored then; where CanPair
//     // What the device has under the key, once everything that was pushed so far has arrived.
//     std::optional<Value> arrived(const std::string& key);
//   };
//   INSTANTIATE_TYPED_TEST_SUITE_P(Mine, PreferencesSyncServiceContract, MyService);
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "pellor/platform/PreferencesSyncService.h"
#include "pellor/runtime/Value.h"

namespace pellor {

inline constexpr const char* ContractSyncDomain = "org.tapnote.Contract";

template <class Factory>
class PreferencesSyncServiceContract : public testing::Test {
 protected:
  Factory _world;
};

TYPED_TEST_SUITE_P(PreferencesSyncServiceContract);

TYPED_TEST_P(PreferencesSyncServiceContract, PushesTheValuesOfTheMomentOnceTheInitialSyncHasCompleted) {
  auto& world = this->_world;
  world.store("list", Array{"first"});
  EXPECT_FALSE(world.service().hasCompletedInitialSync());
  if (!TypeParam::CanPair) {
    world.service().synchronizeDomainKeys(ContractSyncDomain, {"list"});
    EXPECT_FALSE(world.service().hasCompletedInitialSync());
    EXPECT_EQ(world.arrived("list"), std::nullopt);
    return;
  }
  world.completeInitialSync();
  EXPECT_TRUE(world.service().hasCompletedInitialSync());

  world.store("list", Array{"second"});
  world.store("titles", "untouched");
  world.service().synchronizeDomainKeys(ContractSyncDomain, {"list"});
  EXPECT_EQ(world.arrived("list"), Value(Array{"second"}));
  EXPECT_EQ(world.arrived("titles"), std::nullopt) << "only what was asked for";

  world.store("list", std::nullopt);
  world.service().synchronizeDomainKeys(ContractSyncDomain, {"list", "titles"});
  world.service().synchronizeDomainKeys(ContractSyncDomain, {});
  EXPECT_EQ(world.arrived("list"), std::nullopt) << "it was removed";
  EXPECT_EQ(world.arrived("titles"), Value("untouched"));
  EXPECT_TRUE(world.service().hasCompletedInitialSync());
}

REGISTER_TYPED_TEST_SUITE_P(PreferencesSyncServiceContract, PushesTheValuesOfTheMomentOnceTheInitialSyncHasCompleted);

}  // namespace pellor
