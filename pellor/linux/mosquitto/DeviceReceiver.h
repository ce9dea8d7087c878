// The receiving side of a pairing.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "pellor/linux/files/internal/FileLock.h"
#include "pellor/linux/mosquitto/DevicePairing.h"
#include "pellor/linux/mosquitto/GenerationMerge.h"
#include "pellor/linux/mosquitto/MQTTConnection.h"
#include "pellor/linux/mosquitto/MessageStore.h"
#include "pellor/linux/mosquitto/PushState.h"
#include "pellor/platform/PreferencesStore.h"
#include "pellor/platform/PreferencesSyncService.h"
#include "pellor/platform/SystemNotifyBus.h"
#include "pellor/runtime/BackOff.h"
#include "pellor/runtime/Process.h"

namespace pellor {

struct DeviceReceiverOptions {
  MQTTOptions broker;
  std::filesystem::path folder;  ///< the device folder (see DevicePairing)
  /// Where the values go. Only this object sets values in it.
  std::shared_ptr<PreferencesStore> preferences;
  /// Where the users of those values listen.
  std::shared_ptr<SystemNotifyBus> notifyBus;
  /// The names to be posted, in this order, after those keys of a domain were written. Called on the connection's
  /// thread, when they are.
  std::function<std::vector<std::string>(const std::string& domain, const std::set<std::string>& keys)> changeNames;
  /// Brings together what came and what was edited here. Called on the connection's thread.
  ValuesMerge merge;
  /// Sends what came of a merge to the paired device. May be null: this device sends nothing.
  std::shared_ptr<PreferencesSyncService> sync;
  /// Whether also a much smaller list takes the place of one that did not come from the paired device.
  bool acceptsSmaller = false;
  /// Called on the main queue with what happened, one line for the user: stored, refused, away, back. May be empty.
  std::function<void(const std::string& text)> tell;
};

/// Takes what PairedDevice sends on the paired device: merges the values of one generation with what is stored here,
/// writes those that differ in one write a domain, posts the change names, and acknowledges the generation.
///
/// Taken is only what the paired device has sealed for this one, in a generation later than the last one that was
/// stored here, with the very values of its manifest. So strangers, a revoked device, a tampered value and an old
/// message that is sent again change nothing. Until all values of a manifest have arrived nothing of it is written.
///
/// The base of the merge is what both devices have had (see IncomingState), so that edits of both survive. When others
/// write in between it is made again with what they wrote. What differs from what came goes back by `sync`; both
/// devices are at rest when what comes is what is stored.
///
/// The first generation takes the place of the stored values, unless this device sends as well: then that may be on its
/// way, and both lists are merged with nobody counting as removed. A list of friends (an array with dictionaries that
/// are not empty) that would be replaced is protected: a generation that would leave fewer than half as many of them,
/// or none, is refused as a whole. That is said on the log and in the acknowledgement, and remembered for
/// `IncomingFile`. It ends with a later generation that is large enough, or with `acceptsSmaller`.
///
/// One process receives for a device at a time.
class DeviceReceiver final : private MQTTConnection::Client {
  struct Passkey {};

 public:
  /// Main queue, as is the end of the object. Throws DeviceError when another process receives already.
  static std::shared_ptr<DeviceReceiver> make(Process& process, DeviceReceiverOptions options, LogHandle log);
  DeviceReceiver(Passkey, Process& process, DeviceReceiverOptions options, LogHandle log, FileLock lock);
  ~DeviceReceiver() override;

 private:
  struct Pairing {
    std::string peer;
    SyncTopics fromPeer;
    SyncTopics toPeer;
    SealingKeys keys;
    bool isNameFirst;      ///< this device's, by name
    std::uint64_t writer;  ///< of writes for this pairing
  };
  struct Arrival {
    std::uint64_t generation = 0;
    Data digest;
    Data content;
  };
  struct NextManifest {
    std::uint64_t generation = 0;
    ManifestMessage manifest;
  };
  struct StoreResult {
    std::map<std::string, std::set<std::string>> changed;  ///< keys by domain
    bool isMerged = false;                                 ///< what is stored is not what came
    std::size_t leftOut = 0;
  };

  void work() override;
  void connected() override;
  void disconnected() override;
  void declined(std::size_t size) override;
  void arrived(const std::string& topic, std::span<const std::uint8_t> payload) override;
  void subscribed() override {}
  void delivered(bool) override {}

  std::optional<Pairing> pairing() const;
  void startPairing();
  void listen(const std::optional<Pairing>& pairing);
  void unopened(const Pairing& pairing, std::span<const std::uint8_t> payload);
  void takeKey(std::uint64_t generation, const Data& content);
  void takeManifest(const Pairing& pairing, std::uint64_t generation, const Data& content);
  std::optional<ArrivedGeneration> arrivedGeneration() const;
  void store(const Pairing& pairing);
  void storeLater(PreferenceWriteOutcome outcome);
  bool findRefusal(const GenerationMerge& merge, std::string& refusal) const;
  void refuse(const Pairing& pairing, const std::string& reason);
  PreferenceWriteOutcome write(const Pairing& pairing, const GenerationMerge& merge, StoreResult& storing);
  bool remember(const GenerationMerge& merge);
  void acknowledge(const Pairing& pairing);
  void post(const std::map<std::string, std::set<std::string>>& changed);
  void tellStored(const StoreResult& storing);
  void ignore(const char* what);
  void tell(std::string text);

  Process& _process;
  const DeviceReceiverOptions _options;
  const LogHandle _log;
  const FileLock _lock;
  const DevicePairing _pairing;
  const IncomingFile _file;
  const MessageStore _kept;
  const std::shared_ptr<std::function<void(const std::string&)>> _tell;  ///< emptied when the object ends

  // Of the connection's thread.
  std::optional<std::string> _fingerprint;  ///< of the pairing that all that follows belongs to
  bool _hasToldOfUnopened = false;          ///< of a message of this pairing
  IncomingState _state;
  std::map<DomainKey, Arrival> _received;
  std::optional<NextManifest> _next;  ///< not stored yet
  BackOff _pauses;                    ///< after a failure
  BackOff _retryPauses;               ///< because others wrote in between
  int _retries = 0;                   ///< of the next generation, also because others wrote
  bool _storeFails = false;
  bool _isAway = false;
  std::string _listensTo;
  MQTTConnection _connection;  ///< last: its thread ends first
};

}  // namespace pellor
