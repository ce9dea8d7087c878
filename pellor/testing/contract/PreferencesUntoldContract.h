// What a preferences store must do when it cannot tell what became of a write. Needs GoogleTest.
//
// A factory of PreferencesStoreContract.h that can cut off the answer says in which ways:
//
//   struct MyStores {
//     ...
//     static std::vector<UntoldWrite> untoldWrites();  // the ways that it has
//     void leaveUntold(UntoldWrite way);               // happens to the next versioned write of any store
//     void becomeUsable();                             // waits for stores whose server was cut off; may be missing
//     void deliver();                                  // lets the delayed ones arrive, and waits for that
//   };
//   INSTANTIATE_TYPED_TEST_SUITE_P(Mine, PreferencesUntoldContract, MyStores);
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "pellor/testing/contract/PreferencesStoreContract.h"
#include "pellor/testing/contract/VersionedWriter.h"

namespace pellor {

/// What becomes of a write whose caller is not told.
enum class UntoldWrite { stored, lost, delayed };

template <class Factory>
class PreferencesUntoldContract : public testing::Test {
 protected:
  Factory _stores;
};

TYPED_TEST_SUITE_P(PreferencesUntoldContract);

TYPED_TEST_P(PreferencesUntoldContract, AnUntoldWriteIsWholeOrNotAtAllAndIsKnownByItsName) {
  using Outcome = PreferenceWriteOutcome;
  const auto ways = TypeParam::untoldWrites();
  ASSERT_FALSE(ways.empty());
  VersionedWriter writer(this->_stores.open(), 7), other(this->_stores.open(), 8);
  const auto passOver = [&](UntoldWrite way, bool isTriedAgain) {
    ASSERT_EQ(other.write({{"key", setTo("before")}, {"further", setTo("before")}}).outcome, Outcome::written);
    const auto before = writer.read("key");
    this->_stores.leaveUntold(way);
    const auto answer = writer.write({{"further", setTo("untold")}, {"key", setTo("untold", before.version)}});
    if constexpr (requires { this->_stores.becomeUsable(); }) this->_stores.becomeUsable();
    const auto untold = writer.id();
    EXPECT_EQ(answer.outcome, Outcome::unknown);
    EXPECT_TRUE(answer.written.empty());
    EXPECT_EQ(other.read("key").version.write, way == UntoldWrite::stored ? untold : before.version.write);

    const bool arrives = way == UntoldWrite::stored || (way == UntoldWrite::delayed && !isTriedAgain);
    if (isTriedAgain) {
      const auto again = writer.write({{"further", setTo("again")}, {"key", setTo("again", before.version)}});
      EXPECT_EQ(again.outcome, arrives ? Outcome::overtaken : Outcome::written);
    }
    const PreferenceWriteID last = arrives ? untold : isTriedAgain ? writer.id() : before.version.write;
    if (way == UntoldWrite::delayed) this->_stores.deliver();
    ASSERT_TRUE(writer.store().synchronize(ContractDomain));
    for (const char* key : {"key", "further"}) {
      SCOPED_TRACE(key);
      const auto stored = other.read(key);
      EXPECT_EQ(stored.value, Value(arrives ? "untold" : isTriedAgain ? "again" : "before"));
      EXPECT_EQ(stored.version.write, last);
      EXPECT_EQ(writer.store().copyValue(key, ContractDomain).value(), stored.value);
    }
    writer.store("key", setTo("after", writer.read("key").version));
  };
  for (const UntoldWrite way : ways) {
    for (const bool isTriedAgain : {false, true}) {
      SCOPED_TRACE(testing::Message() << "way " << static_cast<int>(way) << ", tried again: " << isTriedAgain);
      passOver(way, isTriedAgain);
    }
  }
}

REGISTER_TYPED_TEST_SUITE_P(PreferencesUntoldContract, AnUntoldWriteIsWholeOrNotAtAllAndIsKnownByItsName);

}  // namespace pellor
