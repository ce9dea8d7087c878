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

}  // namespace pellor
