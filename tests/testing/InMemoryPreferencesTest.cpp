#include "testing/InMemoryPreferences.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "testing/SimulatedScheduler.h"
#include "tests/contract/VersionedWriter.h"

namespace pellor {

using Renewal = InMemoryPreferences::Renewal;

// A count that comes again in the renewed store is another version, whether or not the value is the same.
TEST(InMemoryPreferencesTest, ARenewedStoreIsAnotherOne) {
  const auto preferences = std::make_shared<InMemoryPreferences>();
  Process process(std::make_shared<SimulatedScheduler>(1), nullptr);
  VersionedWriter writer(preferences->storeFor(process), 1);
  const auto first = writer.store("key", setTo("value"));
  const auto expectAnother = [&](const VersionedPreference& known, std::uint64_t count, std::optional<Value> value) {
    const auto stored = writer.read("key");
    EXPECT_EQ(stored.value, value);
    EXPECT_EQ(stored.version.count, count);
    EXPECT_EQ(stored.version.store, preferences->storeNumber());
    EXPECT_NE(stored.version.store, known.version.store);
    EXPECT_EQ(writer.write({{"key", setTo("late", known.version)}}).outcome, PreferenceWriteOutcome::overtaken);
    EXPECT_EQ(writer.store().copyValue("key", ContractDomain).value(), Value("value")) << "until it is synchronized";
    EXPECT_TRUE(writer.store().synchronize(ContractDomain));
    EXPECT_EQ(writer.store().copyValue("key", ContractDomain).value(), value);
    return stored;
  };
  preferences->renew(Renewal::fromCopy);
  const auto copied = expectAnother(first, first.version.count, Value("value"));
  EXPECT_EQ(copied.version.write, first.version.write);
  preferences->renew(Renewal::empty);
  const auto none = expectAnother(copied, 0, std::nullopt);
  EXPECT_EQ(preferences->lastGoodValue("key", ContractDomain), std::nullopt);
  const auto again = writer.store("key", setTo("value", none.version));
  EXPECT_EQ(again.version.count, first.version.count);
  preferences->setStoreNumber(first.version.store);
  EXPECT_EQ(writer.read("key").version.store, first.version.store);
}

// What a test reads of writes that ended in different ways.
TEST(InMemoryPreferencesTest, RecordsTellWhatWasStoredAndWhatWasNot) {
  const auto preferences = std::make_shared<InMemoryPreferences>();
  Process process(std::make_shared<SimulatedScheduler>(1), nullptr);
  VersionedWriter writer(preferences->storeFor(process), 1);
  const auto first = writer.write({{"changed", setTo(1)}, {"kept", kept()}, {"removed", removed()}});
  const auto firstID = writer.id();
  writer.write({{"kept", kept()}});
  preferences->failWrites(1);
  writer.write({{"changed", setTo(2, PreferenceVersion{9, 9, {}})}});
  writer.write({{"changed", setTo(3)}});
  preferences->leaveUntold(InMemoryPreferences::Untold::delayed, 2);
  writer.write({{"changed", setTo(4, first.written.at("changed").version)}});
  const auto delayedID = writer.id();
  writer.write({{"changed", setTo(5, first.written.at("changed").version)}});
  EXPECT_EQ(preferences->writeCount(), 1U);
  EXPECT_EQ(preferences->storeDelayedWrites(), 1U) << "the other one was overtaken by it";
  EXPECT_EQ(preferences->storeDelayedWrites(), 0U);

  const auto writes = preferences->writes();
  ASSERT_EQ(writes.size(), 2U);
  EXPECT_EQ(writes[0].keys, (std::vector<std::string>{"changed", "removed"}));
  EXPECT_EQ(writes[0].id, firstID);
  EXPECT_EQ(writes[0].process, &process);
  EXPECT_EQ(writes[1].id, delayedID);
  EXPECT_EQ(preferences->failedWriteCount(), 1U) << "a write that is overtaken does not use up the fault";
  EXPECT_EQ(preferences->overtakenWriteCount(), 2U);
}

}  // namespace pellor
