// What each side of a pairing remembers on the disk.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "pellor/linux/files/internal/FileLock.h"
#include "pellor/linux/mosquitto/SyncMessages.h"

namespace pellor {

/// A generation that the receiving device did not take, and why, for the user.
struct RefusedGeneration {
  std::uint64_t generation = 0;
  std::string reason;
  friend bool operator==(const RefusedGeneration&, const RefusedGeneration&) = default;
};

/// The sending side. Every key of a pairing is in `sent`, in `due`, or in both.
struct OutgoingState {
  struct Delivery {
    Data digest;
    std::uint64_t generation = 0;
  };
  std::uint64_t generation = 0;    ///< the last one that was begun; it counts from 1 with each pairing
  std::uint64_t acknowledged = 0;  ///< the last one that the device has stored; 0 until its initial sync has completed
  std::optional<RefusedGeneration> refused;  ///< later than `acknowledged`
  std::uint64_t requests = 0;                ///< counts what was asked for, over all keys
  std::map<DomainKey, std::uint64_t> due;    ///< keys to be sent, each with the number of its last request
  std::map<DomainKey, Delivery> sent;        ///< what the broker is known to hold
  std::set<std::string> emptied;             ///< topics of a former pairing that the broker still has to empty

  void request(const DomainKey& key) { due[key] = ++requests; }
  /// The key is no longer due, unless it was requested again after that request.
  void fulfil(const DomainKey& key, std::uint64_t requestNumber);
  /// Takes what the device said of a generation. The first one that it has stored completes the initial sync, and then
  /// all keys are compared again: what was edited until then was not requested. A generation that is later than ours
  /// shows that this state was lost: counting goes on after it, and everything is sent again. One before what was
  /// acknowledged shows that the device lost its state, and gets what came after it.
  void take(std::uint64_t of, const Acknowledgement& acknowledgement);
  /// Every key is due, to be compared with what was sent.
  void requestAll();
  /// Sends the keys again that came after a generation, whether they changed or not.
  void requestAgainAfter(std::uint64_t last);
};

/// The receiving side, and of both what has to be known when edits meet; the values are among the MessageStore.
///
/// What arrives is merged with the base that `baseOf` names: values that both devices have had, so that an edit is what
/// differs from them. When generations cross on the way there are two such, what was sent and what was received; then
/// the base is both, merged. A base may lack what both have had, and then some removal comes undone. It never has what
/// one of them never had: that would look removed there, and somebody would be lost.
struct IncomingState {
  std::uint64_t generation = 0;  ///< the last one that is stored; 0 until the initial sync has completed
  std::optional<RefusedGeneration> refused;
  Manifest stored;  ///< what came from the paired device and is stored, by digest, as it came

  std::uint64_t included = 0;  ///< the last own generation that was in what came
  /// Own generations after that one, which the other device may have taken by now: what both have had once it has.
  std::map<std::uint64_t, Manifest> sent;
  /// What the other device will have of each key if nothing more is sent; an empty digest: that is not known.
  Manifest expected;
  /// The file was there and could not be read: what is stored here may have been exchanged and edited before.
  bool wasDamaged = false;

  /// What both devices have had of a generation that includes own ones up to `ofOurs`; null: nothing is known to be so.
  const Manifest* baseOf(std::uint64_t ofOurs) const;
  /// A generation is about to be sent; the device has acknowledged those up to `acknowledged`.
  void addSent(std::uint64_t ofOurs, const Manifest& manifest, std::uint64_t acknowledged);
  /// All digests that are named, some more than once.
  std::vector<Data> digests() const;
};

Data encode(const OutgoingState& state);
Data encode(const IncomingState& state);
// Absent unless the bytes are one whole state.
std::optional<OutgoingState> decodeOutgoingState(std::span<const std::uint8_t> bytes);
std::optional<IncomingState> decodeIncomingState(std::span<const std::uint8_t> bytes);

/// Held by the one process that is sending a generation.
inline constexpr const char* SendingLockFile = "sending.lock";

/// The sending side's state as a file that the user's processes share: each change is made under a lock and seen whole.
/// A damaged file reads as an empty state, with which the initial sync begins anew. Any thread.
class OutgoingFile {
 public:
  explicit OutgoingFile(const std::filesystem::path& folder);
  OutgoingState read() const;
  /// Absent when the changed state is written, else the error. An unchanged state is not written.
  std::optional<std::string> update(const std::function<void(OutgoingState&)>& change) const;

 private:
  const std::filesystem::path _file;
  mutable LockPatience _patience{std::chrono::seconds(3)};
};

/// The receiving side's. The one process that serves writes it, and those that send, each while it holds the lock. Any
/// thread.
class IncomingFile {
 public:
  explicit IncomingFile(const std::filesystem::path& folder);
  /// Held from the reading of the state until it is written, with all that is done to the store in between: so no
  /// generation is sent of which nobody knows what it includes. Absent while another one holds it.
  std::optional<FileLock> tryLock() const;
  /// Waits for this lock until it is free; absent, with errno set, when the file cannot be made or the patience is at
  /// its end.
  std::optional<FileLock> waitForLock(LockPatience& patience) const;
  IncomingState read() const;
  std::optional<std::string> write(const IncomingState& state) const;
  /// With the messages that are kept.
  void forget() const;

 private:
  const std::filesystem::path _file;
};

}  // namespace pellor
