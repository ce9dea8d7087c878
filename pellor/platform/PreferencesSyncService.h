// Pushing preferences to the paired device.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "pellor/platform/PreferencesStore.h"

namespace pellor {

/// Writers whose number begins with this byte store what the paired device sent; no other writer takes such a number.
inline constexpr std::uint64_t PairedDeviceWriterByte = 1;
constexpr bool isPairedDeviceWriter(std::uint64_t writer) { return writer >> 56U == PairedDeviceWriterByte; }
/// Whether a write stored what the paired device sent.
constexpr bool isWriteOfPairedDevice(const PreferenceWriteID& write) { return isPairedDeviceWriter(write.writer); }

/// Called on save queues. A push that fails is kept and tried again by the service.
class PreferencesSyncService {
 public:
  virtual ~PreferencesSyncService() = default;
  /// Whether the first full sync with the paired device has completed. Without a paired device it has not.
  virtual bool hasCompletedInitialSync() = 0;
  /// Pushes the current stored values of those keys of the domain to the paired device.
  virtual void synchronizeDomainKeys(std::string_view domain, const std::set<std::string>& keys) = 0;
};

}  // namespace pellor
