// The small services of a simulated world: favorites, counters, strings, digests.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/platform/AnalyticsCounters.h"
#include "pellor/platform/DigestService.h"
#include "pellor/platform/FavoritesSource.h"
#include "pellor/platform/LocalizedStrings.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// The one list of favorites of a world. Any thread.
class InMemoryFavorites : public FavoritesSource {
 public:
  void setEntries(std::vector<FavoriteEntry> entries);
  /// Whether they can be read, at first true.
  void setReadable(bool isReadable);
  Answer<std::vector<FavoriteEntry>> favoriteEntries() override;

 private:
  Mutex _mutex;
  std::vector<FavoriteEntry> _entries PELLOR_GUARDED_BY(_mutex);
  bool _isReadable PELLOR_GUARDED_BY(_mutex) = true;
};

/// Counters that can be read, those of all processes together. Any thread.
class RecordingCounters : public AnalyticsCounters {
 public:
  /// The value that was last set; absent when none was.
  std::optional<std::int64_t> value(std::string_view key) const;
  /// All values by key.
  std::map<std::string, std::int64_t, std::less<>> values() const;
  void setValueForScalarKey(std::string_view key, std::int64_t value) override;

 private:
  mutable Mutex _mutex;
  std::map<std::string, std::int64_t, std::less<>> _values PELLOR_GUARDED_BY(_mutex);
};

/// The strings of one bundle, "org.tapnote.Pellor". At first "FAVORITES" is "Favorites" and
/// "NUMBERED_FAVORITES_FORMAT_STRING" is "Favorites %u". Any thread.
class InMemoryStrings : public LocalizedStrings {
 public:
  InMemoryStrings();
  ~InMemoryStrings() override;

  /// Sets a text, also in bundles that were handed out; absent removes it.
  void setText(const std::string& key, std::optional<std::string> text);

  std::shared_ptr<const Bundle> bundleWithIdentifier(std::string_view identifier) override;

 private:
  class Strings;
  const std::shared_ptr<Strings> _strings;
};

/// Digests without a library behind them.
class SimulatedDigests : public DigestService {
 public:
  std::array<std::uint8_t, 20> sha1(std::span<const std::uint8_t> bytes) override;
};

}  // namespace pellor
