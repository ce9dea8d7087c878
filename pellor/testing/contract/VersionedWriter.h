// What the suites about versioned reads and writes have in common. Needs GoogleTest.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "pellor/platform/PreferencesStore.h"
#include "pellor/testing/contract/PreferencesStoreContract.h"

namespace pellor {

inline PreferenceChange setTo(Value value, std::optional<PreferenceVersion> madeFrom = std::nullopt) {
  return {PreferenceChange::Kind::set, std::move(value), madeFrom};
}
inline PreferenceChange removed(std::optional<PreferenceVersion> madeFrom = std::nullopt) {
  return {PreferenceChange::Kind::remove, std::nullopt, madeFrom};
}
inline PreferenceChange kept(std::optional<PreferenceVersion> madeFrom = std::nullopt) {
  return {PreferenceChange::Kind::keep, std::nullopt, madeFrom};
}

inline bool isSame(const VersionedPreference& left, const VersionedPreference& right) {
  return left.value == right.value && left.version == right.version;
}

/// One caller of a store, in the domain of the contract. It counts its writes.
class VersionedWriter {
 public:
  VersionedWriter(std::shared_ptr<PreferencesStore> store, std::uint64_t writer)
      : _store(std::move(store)), _id{writer, 0} {}

  PreferencesStore& store() const { return *_store; }
  /// Names the last write.
  PreferenceWriteID id() const { return _id; }

  /// Absent when the store cannot be read.
  std::optional<VersionedPreferences> readIfPossible(const std::vector<std::string>& keys) const {
    return _store->read(keys, ContractDomain).value();
  }
  VersionedPreference read(const std::string& key) const {
    const auto found = readIfPossible({key});
    EXPECT_TRUE(found && found->size() == 1 && found->contains(key)) << key;
    return found ? found->at(key) : VersionedPreference{};
  }
  PreferenceWriteAnswer write(const PreferenceChanges& changes) {
    ++_id.number;
    return _store->write(changes, _id, ContractDomain);
  }
  /// Expects that it is written, and gives what is stored then.
  VersionedPreference store(const std::string& key, const PreferenceChange& change) {
    const auto answer = write({{key, change}});
    EXPECT_EQ(answer.outcome, PreferenceWriteOutcome::written) << key;
    return answer.written.contains(key) ? answer.written.at(key) : VersionedPreference{};
  }

  /// One more: a number under the first key and as many persons under the second one, tried until it is written; what
  /// is stored then. Absent when the store failed.
  std::optional<std::int64_t> countUp(const std::string& key, const std::string& second) {
    for (;;) {
      const auto found = readIfPossible({key, second});
      if (!found) return std::nullopt;
      const auto &number = found->at(key), &list = found->at(second);
      const std::int64_t next = number.value ? number.value->integer().value_or(-1) + 1 : 1;
      const std::size_t count = list.value ? list.value->array()->size() + 1 : 1;
      if (static_cast<std::size_t>(next) != count) return std::nullopt;
      const auto answer = write({{key, setTo(next, number.version)}, {second, setTo(persons(count), list.version)}});
      if (answer.outcome == PreferenceWriteOutcome::written) return next;
      if (answer.outcome != PreferenceWriteOutcome::overtaken) return std::nullopt;
    }
  }

 private:
  std::shared_ptr<PreferencesStore> _store;
  PreferenceWriteID _id;
};

}  // namespace pellor
