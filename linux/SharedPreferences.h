// What the Linux platform needs of the preferences beyond the interface.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/PreferencesStore.h"

namespace pellor {

/// A store of the user's processes. Any thread.
class SharedPreferences : public PreferencesStore {
 public:
  PreferenceAnswer<std::int64_t> integerValue(std::string_view key, std::string_view domain) override;
  PreferenceAnswer<bool> booleanValue(std::string_view key, std::string_view domain) override;

  /// Writes those values at once whose keys are not in the store yet, in one transaction, so that of several processes
  /// one decides. True when every key is stored afterwards.
  virtual bool insertIfAbsent(const Dictionary& values, std::string_view domain) = 0;

  /// Whether the store is open and may be written; if not, `lastError` says why.
  virtual bool isWritable() = 0;
  /// What went wrong last and has not worked since, for the user; empty when all is well.
  virtual std::string lastError() const = 0;
  /// What happened to the store that the user should know, each once.
  virtual std::vector<std::string> takeRemarks() { return {}; }
};

}  // namespace pellor
