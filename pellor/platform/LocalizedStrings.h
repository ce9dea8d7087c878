// The localised strings of bundles.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace pellor {

/// Resources found by identifier. Any thread.
class Bundle {
 public:
  virtual ~Bundle() = default;
  virtual std::string identifier() const = 0;
  /// The text under `key` in the user's language; `defaultValue` when there is none, and the key itself when that is
  /// empty.
  virtual std::string localizedString(std::string_view key, std::string_view defaultValue) const = 0;
  /// The text under `key` in the form that the user's language has for `count` things; its placeholders are the
  /// caller's to fill. Where there is none: `one` for a count of 1, else `other`, and the key where that is empty. A
  /// bundle that does not override this has one form for all counts.
  virtual std::string localizedStringForCount(std::string_view key, std::string_view one, std::string_view other,
                                              std::uint64_t count) const {
    return localizedString(key, count == 1 ? one : other);
  }
};

/// Any thread.
class LocalizedStrings {
 public:
  virtual ~LocalizedStrings() = default;
  /// The bundle with that identifier; null when there is none.
  virtual std::shared_ptr<const Bundle> bundleWithIdentifier(std::string_view identifier) = 0;
};

}  // namespace pellor
