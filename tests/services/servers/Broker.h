// A real MQTT broker, with the authority that issues its devices' certificates.
#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>

#include "pellor/linux/mosquitto/DevicePairing.h"
#include "pellor/linux/mosquitto/MQTTOptions.h"
#include "tests/services/servers/Server.h"

namespace pellor {

/// Issues certificates of devices.
struct Authority : Certificate {
  /// Makes the device's key and request, signs it, and imports the certificate together with the authority of
  /// `trusted`.
  void issue(const DevicePairing& device, const std::string& name, const Authority& trusted) const;
  void issue(const DevicePairing& device, const std::string& name) const { issue(device, name, *this); }
  void sign(const std::filesystem::path& request, const std::filesystem::path& certificate) const;
};

/// On loopback, over TLS, with a certificate a device and an ACL a device: each reads below its own name and writes
/// behind it. Retained messages survive a crash.
class Broker {
 public:
  /// Started.
  explicit Broker(const std::set<std::string>& allowed);

  const Authority& authority() const { return _authority; }
  MQTTOptions options() const;
  void start();
  void kill() { _server.reset(); }
  /// Loses what is retained. While it does not run.
  void forget() const { std::filesystem::remove(_folder / "mosquitto.db"); }
  /// The devices that may read and write from now on; connections stay.
  void allow(const std::set<std::string>& names);

 private:
  void writeRules(const std::set<std::string>& names) const;

  TemporaryFolder _folder;
  Authority _authority;
  int _port = freePort();
  std::optional<Server> _server;
};

}  // namespace pellor
