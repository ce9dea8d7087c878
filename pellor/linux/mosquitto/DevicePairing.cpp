#include "pellor/linux/mosquitto/DevicePairing.h"

#include <algorithm>

#include "pellor/linux/files/internal/FileLock.h"
#include "pellor/linux/files/internal/PrivatePlace.h"
#include "pellor/linux/files/internal/RegularFile.h"
#include "pellor/linux/mosquitto/Certificates.h"
#include "pellor/linux/mosquitto/PushState.h"
#include "pellor/linux/mosquitto/SyncMessages.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

constexpr const char* PrivateKeyFile = "key.pem";
constexpr const char* RequestFile = "request.pem";
constexpr const char* CertificateFile = "certificate.pem";
constexpr const char* AuthorityFile = "ca.pem";
constexpr const char* SealingFile = "sealing";
constexpr const char* PeerFile = "peer";

constexpr std::string_view InvitationPrefix = "pellor-device:1:";
constexpr std::size_t LongestName = 64;
constexpr std::chrono::seconds LockLimit{3};

// Of certificates and their keys, which the user may keep elsewhere.
std::string textIn(const fs::path& file) { return readRegularFile(file).text.value_or(""); }

std::string privateTextIn(const fs::path& file) { return PrivateFile(file).read().text.value_or(""); }

std::string readable(const fs::path& file) {
  FileContent content = readRegularFile(file);
  if (!content.text) throw DeviceError(content.problem);
  if (content.text->empty()) throw DeviceError(file.string() + " is empty");
  return *std::move(content.text);
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view spaces = " \t\r\n";
  const auto first = text.find_first_not_of(spaces);
  return first == std::string_view::npos ? "" : text.substr(first, text.find_last_not_of(spaces) + 1 - first);
}

}  // namespace

struct DevicePairing::Peer {
  std::string name;
  SealingKeyPair::Key key;

  static std::optional<Peer> from(std::string_view invitation);
};

std::optional<DevicePairing::Peer> DevicePairing::Peer::from(std::string_view invitation) {
  std::string_view text = trimmed(invitation);
  if (!text.starts_with(InvitationPrefix)) return std::nullopt;
  text.remove_prefix(InvitationPrefix.size());
  const auto colon = text.find(':');
  if (colon == std::string_view::npos || !isDeviceName(text.substr(0, colon))) return std::nullopt;
  const auto key = sealingKeyOf(text.substr(colon + 1));
  return key ? std::optional(Peer{std::string(text.substr(0, colon)), *key}) : std::nullopt;
}

bool isDeviceName(std::string_view name) {
  return !name.empty() && name.size() <= LongestName && std::ranges::all_of(name, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
  });
}

void DevicePairing::write(const char* file, std::string_view content) const {
  auto error = PrivateFolder(_folder).make();
  if (!error) error = PrivateFile(_folder / file).replace(content);
  if (error) throw DeviceError(*error);
}

fs::path DevicePairing::requestCertificate(const std::string& name) const {
  if (!isDeviceName(name)) throw DeviceError("\"" + name + "\" is no name of a device: letters, digits, - and _");
  std::string key = textIn(_folder / PrivateKeyFile);
  if (key.empty()) {
    key = makePrivateKey();
    write(PrivateKeyFile, key);
  }
  write(RequestFile, makeCertificateRequest(key, name));
  return _folder / RequestFile;
}

void DevicePairing::importCertificate(const fs::path& certificate, const fs::path& ca, const fs::path& key) const {
  const std::string certificateText = readable(certificate), authorities = readable(ca);
  const std::string keyText = readable(key.empty() ? _folder / PrivateKeyFile : key);
  const std::string name = checkedCommonName(certificateText, keyText, authorities);
  if (!isDeviceName(name)) throw DeviceError("the certificate is for \"" + name + "\", which is no name of a device");
  if (peer() && this->name() != name) {
    throw DeviceError("the certificate is for another name than " + this->name().value_or("before") +
                      ", by which the paired device knows this one");
  }
  write(PrivateKeyFile, keyText);
  write(AuthorityFile, authorities);
  write(CertificateFile, certificateText);
}

std::optional<std::string> DevicePairing::name() const {
  const std::string certificate = textIn(_folder / CertificateFile), request = textIn(_folder / RequestFile);
  try {
    if (hasCertificate()) {
      return checkedCommonName(certificate, textIn(_folder / PrivateKeyFile), textIn(_folder / AuthorityFile));
    }
    if (!request.empty()) return commonNameOfRequest(request);
  } catch (const DeviceError&) {
    // Damaged files name nobody.
  }
  return std::nullopt;
}

bool DevicePairing::hasCertificate() const {
  std::error_code ignored;
  return fs::exists(_folder / CertificateFile, ignored);
}

MQTTCredentials DevicePairing::credentials() const {
  return {_folder / AuthorityFile, _folder / CertificateFile, _folder / PrivateKeyFile};
}

std::optional<SealingKeyPair> DevicePairing::keyPair() const {
  const std::string bytes = privateTextIn(_folder / SealingFile);
  SealingKeyPair pair;
  if (bytes.size() != sizeof pair.publicKey + sizeof pair.secretKey) return std::nullopt;
  std::copy_n(bytes.begin(), pair.publicKey.size(), pair.publicKey.begin());
  std::copy_n(bytes.begin() + sizeof pair.publicKey, pair.secretKey.size(), pair.secretKey.begin());
  return pair;
}

std::string DevicePairing::invitation() const {
  const auto ownName = name();
  if (!ownName) throw DeviceError("this device has no name yet: make a certificate request, or import a certificate");
  auto pair = keyPair();
  if (!pair) {
    pair = SealingKeyPair::make();
    std::string bytes(pair->publicKey.begin(), pair->publicKey.end());
    bytes.append(pair->secretKey.begin(), pair->secretKey.end());
    write(SealingFile, bytes);
  }
  return std::string(InvitationPrefix) + *ownName + ":" + textOf(pair->publicKey);
}

void DevicePairing::pair(std::string_view invitation) const {
  const auto other = Peer::from(invitation);
  if (!other) throw DeviceError("this is no invitation of a device, or a part of it is missing");
  // Makes the own key pair as well.
  this->invitation();
  if (other->name == name() || !SealingKeys::agree(*keyPair(), other->key)) {
    throw DeviceError("this is the invitation of this device, or of one with the same name");
  }
  const auto known = storedPeer();
  if (known && known->name == other->name && known->key == other->key) return;
  if (known) throw DeviceError("this device is paired with " + known->name + "; revoke that first");
  write(PeerFile, std::string(InvitationPrefix) + other->name + ":" + textOf(other->key));
}

std::optional<DevicePairing::Peer> DevicePairing::storedPeer() const {
  return Peer::from(privateTextIn(_folder / PeerFile));
}

std::optional<std::string> DevicePairing::peer() const {
  const auto known = storedPeer();
  return known ? std::optional(known->name) : std::nullopt;
}

std::optional<std::string> DevicePairing::fingerprint() const {
  const auto known = storedPeer();
  const auto pair = keyPair();
  return known && pair ? std::optional(fingerprintOf(pair->publicKey, known->key)) : std::nullopt;
}

std::optional<SealingKeys> DevicePairing::sealingKeys() const {
  const auto known = storedPeer();
  const auto pair = keyPair();
  return known && pair ? SealingKeys::agree(*pair, known->key) : std::nullopt;
}

// What is retained at the broker is sealed with keys that the other device still has.
void DevicePairing::markTopicsEmptied(const Peer& peer) const {
  const auto keys = sealingKeys();
  const auto ownName = name();
  if (!keys || !ownName) return;
  const SyncTopics topics(peer.name, *ownName);
  const auto error = OutgoingFile(_folder).update([&](OutgoingState& state) {
    OutgoingState ended;
    ended.emptied = state.emptied;
    ended.emptied.insert({topics.manifest(), topics.acknowledgement()});
    state.requestAll();
    for (const auto& [key, request] : state.due) ended.emptied.insert(topics.key(keys->nameFor(nameOf(key))));
    state = ended;
  });
  if (error) throw DeviceError(*error);
}

void DevicePairing::revoke() const {
  const auto known = storedPeer();
  if (!known) throw DeviceError("no device is paired");
  LockPatience patience(LockLimit);
  const auto sending = FileLock::take(_folder / SendingLockFile, patience);
  if (!sending) throw DeviceError(lockError(_folder / SendingLockFile));
  const auto receiving = IncomingFile(_folder).waitForLock(patience);
  if (!receiving) throw DeviceError(lockError(_folder));
  markTopicsEmptied(*known);
  if (const auto error = PrivateFile(_folder / PeerFile).remove()) throw DeviceError(*error);
  static_cast<void>(PrivateFile(_folder / SealingFile).remove());
  IncomingFile(_folder).forget();
}

}  // namespace pellor
