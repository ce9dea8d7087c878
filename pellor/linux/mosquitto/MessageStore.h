// The values that two devices have exchanged, for as long as an edit of one may meet an edit of the other.
#pragma once

#include <filesystem>
#include <optional>
#include <span>
#include <vector>

#include "pellor/linux/mosquitto/SyncMessages.h"

namespace pellor {

/// Encoded key messages by digest, one file each in the device folder, for the owner alone. A file that was damaged is
/// as good as none. Any thread.
class MessageStore {
 public:
  explicit MessageStore(std::filesystem::path folder) : _folder(std::move(folder)) {}

  /// False when it is not on the disk afterwards.
  bool keep(std::span<const std::uint8_t> message) const;
  std::optional<KeyMessage> find(const Data& digest) const;
  /// Removes all that are not named.
  void retain(const std::vector<Data>& digests) const;

 private:
  std::filesystem::path fileOf(const Data& digest) const;

  const std::filesystem::path _folder;
};

}  // namespace pellor
