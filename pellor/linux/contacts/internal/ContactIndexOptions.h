// What the index of contacts is made with.
#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace pellor {

/// All have to be set but `progress` and `lockLimit`.
struct ContactIndexOptions {
  std::filesystem::path dataFolder;
  /// The form in which two spellings of one phone number or e-mail address are equal.
  std::function<std::string(std::string_view)> canonicalDestination;
  /// Names what that form depends on, such as the region: when it is another one the stored forms are made anew.
  std::function<std::string()> canonicalForm;
  /// Called while cards are read, with how many of how many are done: every hundredth and the last one.
  std::function<void(std::size_t done, std::size_t total)> progress;
  /// How long to wait for locks of others (see LockPatience).
  std::chrono::milliseconds lockLimit{4000};
};

}  // namespace pellor
