// The place of the broker, and the identity of this device to it.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

#include "pellor/linux/Configuration.h"

namespace pellor {

/// The most bytes of a message of a device, sealed.
inline constexpr std::size_t LargestDeviceMessage = std::size_t{64} << 20;

/// Always over TLS.
struct MQTTOptions {
  std::string host = "localhost";                     ///< a name or address that the broker's certificate is valid for
  int port = 8883;                                    ///< 1 to 65,535
  std::size_t largestMessage = LargestDeviceMessage;  ///< up to this; others are neither taken nor sent

  /// What the keys `mqtt.host` and `mqtt.port` say.
  static MQTTOptions from(const Configuration& configuration);
};

/// What a device shows the broker, and asks of it: PEM files.
struct MQTTCredentials {
  std::filesystem::path ca;           ///< the authority that has to have issued the broker's certificate
  std::filesystem::path certificate;  ///< of this device
  std::filesystem::path key;          ///< its private key
};

}  // namespace pellor
