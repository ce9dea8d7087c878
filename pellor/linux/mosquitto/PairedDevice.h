// Pushes preferences to the paired device, over MQTT.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/files/internal/FileLock.h"
#include "pellor/linux/mosquitto/DevicePairing.h"
#include "pellor/linux/mosquitto/MQTTConnection.h"
#include "pellor/linux/mosquitto/MessageStore.h"
#include "pellor/linux/mosquitto/PushState.h"
#include "pellor/platform/PreferencesStore.h"
#include "pellor/platform/PreferencesSyncService.h"
#include "pellor/runtime/BackOff.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

struct PairedDeviceOptions {
  MQTTOptions broker;
  std::filesystem::path folder;  ///< the device folder (see DevicePairing)
  /// The keys that the initial sync brings to the device, by domain. They are sent as soon as a device is paired.
  std::map<std::string, std::set<std::string>> keys;
  /// Where their values are read. Of this object alone: it is synchronised at any time, when other code may have set
  /// one half of the values that it is about to write.
  std::shared_ptr<PreferencesStore> preferences;
  /// Whether a connection is made even when nothing is to be sent, to hear what the device acknowledged.
  bool alwaysConnects = false;
  /// Called on the main queue after the result of `status` has changed. May be empty.
  std::function<void()> statusChanged;
};

/// What the user may want to know of the paired device.
struct PairedDeviceStatus {
  std::optional<std::string> name;  ///< of this device
  std::optional<std::string> peer;  ///< absent: no device is paired
  std::uint64_t generation = 0;     ///< the last one that was sent or is being sent; 0: none
  std::uint64_t acknowledged = 0;   ///< the last one that the device has stored; 0: none
  bool hasCompletedInitialSync = false;
  std::optional<RefusedGeneration> refused;  ///< one that came after that, and that the device did not take
  std::vector<DomainKey> due;                ///< what is still to be sent
  std::string problem;                       ///< why the broker is away; empty: it is not, or was not needed
  bool isUpToDate = false;                   ///< the broker was asked what the device acknowledged last
};

/// One device, paired with DevicePairing, that receives with DeviceReceiver. Without a paired one the initial sync has
/// never completed and nothing is sent.
///
/// Each value goes out as a retained message of its own, followed by a manifest of the generation, so that a device
/// that was away finds the latest values and stores those of one generation together. What is to be sent is a set of
/// keys in a file of the device folder: it survives the process, and several edits while the broker is away are one
/// value on return. A value that the device has, because it was sent or came from there, is not sent again. What the
/// device has not acknowledged is sent again on each new connection, so that it arrives also through a broker that lost
/// it.
///
/// A generation is what the store had at one moment under all keys of the pairing, and says which generation of the
/// other device is in it (see DeviceReceiver): with that the other one tells an edit from what this device does not
/// know yet.
///
/// The initial sync has completed once the device has stored a first generation. Callers do not push edits until then,
/// so all keys are compared then.
///
/// Of the user's processes each connects for itself, with a client id of its own under the one certificate, when it
/// finds keys to be sent; a lock in the device folder lets one of them send at a time, and what another one asked for
/// meanwhile is in the file. So no process depends on one that is about to end, and a killed one leaves nothing behind
/// but keys that are still to be sent.
class PairedDevice final : public PreferencesSyncService, private SettleParticipant, private MQTTConnection::Client {
  struct Passkey {};

 public:
  /// Main queue, as is the end of the object.
  static std::shared_ptr<PairedDevice> make(Process& process, PairedDeviceOptions options, LogHandle log);
  PairedDevice(Passkey, Process& process, PairedDeviceOptions options, LogHandle log);
  ~PairedDevice() override;

  /// Reads a small file. Any thread.
  bool hasCompletedInitialSync() override;
  /// Writes a small file and returns; the rest is done by the thread of the connection. Any thread.
  void synchronizeDomainKeys(std::string_view domain, const std::set<std::string>& keys) override;

  /// Reads small files. Any thread.
  PairedDeviceStatus status() const;

 private:
  struct Push {
    FileLock lock;
    std::uint64_t generation = 0;
    std::map<DomainKey, std::uint64_t> requests;
    std::map<DomainKey, Data> values;    ///< the encoded messages of all keys of the pairing
    std::map<DomainKey, Data> messages;  ///< those of them that go out
    std::uint64_t included = 0;          ///< the other device's generation that the values have
    std::set<std::string> emptied;
  };
  struct Pairing {
    std::string name;
    std::string peer;
    SealingKeys keys;
  };

  // A process that is about to end waits while something is being sent, not for a broker that is away.
  bool isSettled() const override;
  bool isWritten() const override;

  void work() override;
  void connected() override;
  void disconnected() override;
  void arrived(const std::string& topic, std::span<const std::uint8_t> payload) override;
  void subscribed() override;
  void delivered(bool isAccepted) override;

  std::optional<Pairing> pairing() const;
  bool request(const std::set<DomainKey>& keys);
  void requestKept();
  void requestMissing(const OutgoingState& state);
  void listen(const std::optional<Pairing>& pairing);
  void send();
  bool readAndBegin(OutgoingState& state, Push& sending);
  bool readValues(const OutgoingState& state, Push& sending);
  static void chooseMessages(const OutgoingState& state, const Manifest& expected, Push& sending);
  bool areSmallEnough(const Push& sending);
  static void begin(OutgoingState& state, Push& sending);
  bool keepSent(IncomingState exchanged, const OutgoingState& state, const Push& sending);
  void publish(const std::optional<Pairing>& pairing, const Push& sending, const OutgoingState& state);
  void finish();
  void pause();
  void endBusy();
  bool update(const std::function<void(OutgoingState&)>& change);
  void tellStatus();

  Process& _process;
  const PairedDeviceOptions _options;
  const LogHandle _log;
  const DevicePairing _pairing;
  const OutgoingFile _file;
  const IncomingFile _exchanged;
  const MessageStore _messageStore;
  const std::shared_ptr<std::function<void()>> _statusChanged;  ///< emptied when the object ends
  mutable Mutex _mutex;
  std::set<DomainKey> _kept PELLOR_GUARDED_BY(_mutex);  ///< asked for, and not in the file yet
  std::chrono::steady_clock::time_point _busyUntil PELLOR_GUARDED_BY(_mutex);
  std::atomic<bool> _fileFails = false;   ///< written where the file is changed
  std::atomic<bool> _isUpToDate = false;  ///< written by the connection's thread
  std::atomic<bool> _isTooLarge = false;  ///< written by the connection's thread

  // Of the connection's thread.
  std::optional<Push> _sending;
  std::string _listensTo;  ///< the topic that is subscribed
  BackOff _pauses;
  bool _needsConnection = false;
  std::array<std::uint64_t, 3> _told{};  ///< generation, acknowledged, how many keys are due
  bool _storeFails = false;
  bool _isRefused = false;
  MQTTConnection _connection;  ///< last: its thread ends first
};

}  // namespace pellor
