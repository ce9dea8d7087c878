// The identity of this device, and the other device that it is paired to.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "pellor/linux/mosquitto/DeviceError.h"
#include "pellor/linux/mosquitto/MQTTOptions.h"
#include "pellor/linux/mosquitto/SealingKeys.h"

namespace pellor {

/// Whether a text can name a device: 1 to 64 letters, digits, "-" and "_" of ASCII.
bool isDeviceName(std::string_view name);

/// The device folder: `device` in the data folder, mode 0700, with files of mode 0600. Two things are in it that have
/// nothing to do with each other:
///
///   - a certificate with its private key, by which the broker knows the device and what it may read and write. The
///     common name of the certificate is the name of the device.
///   - a sealing key pair and the public key of the one paired device. What is sent is sealed for that key and taken
///     from it alone, so that the broker and other holders of a certificate can neither read nor write anything.
///
/// To pair, each device gets the other's invitation, a line of text with its name and public key; the way there need
/// not be secret, but it has to be the right key: the users compare the fingerprint, which both devices show.
///
/// Each call looks at the files, so that processes see what another one did. Any thread.
class DevicePairing {
 public:
  /// Touches no file.
  explicit DevicePairing(std::filesystem::path folder) : _folder(std::move(folder)) {}
  const std::filesystem::path& folder() const { return _folder; }

  /// Makes a private key, unless there is one, and a certificate request for that name; gives the request's file, for
  /// the authority of the broker to sign. Throws DeviceError.
  std::filesystem::path requestCertificate(const std::string& name) const;
  /// Takes over a certificate, the authority that issued it and the broker's own (one file), and the private key; an
  /// empty `key` stands for the one that the request was made with. Throws DeviceError when they do not fit together.
  void importCertificate(const std::filesystem::path& certificate, const std::filesystem::path& ca,
                         const std::filesystem::path& key) const;
  /// The name by the certificate, else by the request; absent without either.
  std::optional<std::string> name() const;
  bool hasCertificate() const;
  /// Whether they are there or not.
  MQTTCredentials credentials() const;

  /// What the other device needs to know of this one; makes a sealing key pair, unless there is one. Throws DeviceError
  /// without a name.
  std::string invitation() const;
  /// Pairs with the device of that invitation, and begins at generation 1. An invitation that is given again changes
  /// nothing. Throws DeviceError for a damaged one, this device's own, and while another device is paired.
  void pair(std::string_view invitation) const;
  /// The name of the paired device; absent without one.
  std::optional<std::string> peer() const;
  /// What to compare (see fingerprintOf); absent without a paired device.
  std::optional<std::string> fingerprint() const;
  /// The keys for talking to the paired device; absent without one.
  std::optional<SealingKeys> sealingKeys() const;
  /// Ends the pairing: the paired device is forgotten and so is the own sealing key pair, so that nothing that either
  /// has sealed is of use any more, and the topics that hold it are marked to be emptied (see PairedDevice). Waits for
  /// a push that is under way. Throws DeviceError when nothing is paired.
  void revoke() const;

 private:
  struct Peer;
  std::optional<Peer> storedPeer() const;
  std::optional<SealingKeyPair> keyPair() const;
  void markTopicsEmptied(const Peer& peer) const;
  void write(const char* file, std::string_view content) const;

  const std::filesystem::path _folder;
};

}  // namespace pellor
