// How a store names people.
#pragma once

#include <memory>
#include <string_view>
#include <utility>

#include "pellor/linux/preferences/SharedPreferences.h"

namespace pellor {

/// Booleans of the domain `BundleIdentifier`; false when absent.
inline constexpr std::string_view ShortNamesKey = "ShortNames";
inline constexpr std::string_view PreferNicknamesKey = "PreferNicknames";

struct NameSettings {
  bool shortNames = false;
  bool prefersNicknames = false;
  friend bool operator==(const NameSettings&, const NameSettings&) = default;
};

/// The names of friends are stored, so all processes and machines of a store follow one setting: two that each followed
/// their own would rename each other's friends for ever. Unlike the region it may change while a process lives, which
/// then takes it up. One thread at a time.
class StoreNameSettings {
 public:
  explicit StoreNameSettings(std::shared_ptr<SharedPreferences> store) : _store(std::move(store)) {}

  /// What is stored now; while the store cannot be read, what was stored last. Asks the store each time.
  NameSettings current();

 private:
  const std::shared_ptr<SharedPreferences> _store;
  NameSettings _known;
};

}  // namespace pellor
