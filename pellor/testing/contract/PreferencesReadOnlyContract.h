// What a preferences store must do for a process that may only read it. Needs GoogleTest.
//
// A factory of PreferencesStoreContract.h has one more operation:
//
//   struct MyStores {
//     ...
//     std::shared_ptr<PreferencesStore> openReadOnly();  // of one more process, after the stores that write
//   };
//   INSTANTIATE_TYPED_TEST_SUITE_P(Mine, PreferencesReadOnlyContract, MyStores);
#pragma once

#include <gtest/gtest.h>

#include "pellor/testing/contract/PreferencesStoreContract.h"
#include "pellor/testing/contract/VersionedWriter.h"
#include "pellor/testing/contract/WriteCases.h"

namespace pellor {

template <class Factory>
class PreferencesReadOnlyContract : public testing::Test {
 protected:
  Factory _stores;
};

TYPED_TEST_SUITE_P(PreferencesReadOnlyContract);

TYPED_TEST_P(PreferencesReadOnlyContract, AStoreThatMayOnlyBeReadSaysSoAndIsRead) {
  VersionedWriter writer(this->_stores.open(), 7);
  const auto stored = writer.store("key", setTo("stored"));
  EXPECT_FALSE(writer.store().isReadOnly());
  this->_stores.failWrites(true);
  EXPECT_EQ(writer.write({{"key", setTo("lost")}}).outcome, PreferenceWriteOutcome::failed);
  EXPECT_FALSE(writer.store().isReadOnly()) << "another try may succeed";
  this->_stores.failWrites(false);

  VersionedWriter reader(this->_stores.openReadOnly(), 8);
  EXPECT_EQ(reader.read("key").version, stored.version);
  EXPECT_TRUE(reader.store().isReadOnly());
  EXPECT_NE(reader.store().lastError(), "") << "what stands in the way";
  EXPECT_EQ(reader.write({{"key", setTo("changed")}}).outcome, PreferenceWriteOutcome::failed);
  EXPECT_TRUE(reader.store().isReadOnly());
  EXPECT_EQ(reader.read("key").value, Value("stored"));
}

REGISTER_TYPED_TEST_SUITE_P(PreferencesReadOnlyContract, AStoreThatMayOnlyBeReadSaysSoAndIsRead);

}  // namespace pellor
