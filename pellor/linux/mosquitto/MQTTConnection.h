// A connection to the broker that is kept up as long as it is wanted.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>

#include "pellor/linux/mosquitto/MQTTOptions.h"
#include "pellor/runtime/Log.h"

namespace pellor {

/// Has a thread of its own, on which its client lives: the client is called there alone, so that it needs no lock. A
/// connection that breaks, cannot be made or is refused is tried again with a growing pause; the log hears once that
/// the broker is away and once that it is back. Nothing is kept over a break: neither here, nor at the broker, where a
/// session of an absent client would queue every value that came and went, and past its limit drop the newest. The
/// client subscribes again after each `connected` and gets the latest values, which are retained.
class MQTTConnection {
 public:
  /// What a connection is for. Called on its thread.
  class Client {
   public:
    virtual ~Client() = default;
    /// Does what there is to do: called at first, after each `wake`, after each event below, and when `workAgainIn`
    /// said so.
    virtual void work() = 0;
    virtual void connected() = 0;
    /// The connection is gone, or could not be made. What was published may have arrived or not.
    virtual void disconnected() = 0;
    /// A message of more bytes than the options allow was not taken.
    virtual void declined(std::size_t size) { static_cast<void>(size); }
    /// A message; never an empty one, which is how a topic is emptied.
    virtual void arrived(const std::string& topic, std::span<const std::uint8_t> payload) = 0;
    /// All that was retained under a topic that was subscribed has arrived.
    virtual void subscribed() = 0;
    /// The broker has everything that was published; or not `isAccepted`: it did not allow a part of it.
    virtual void delivered(bool isAccepted) = 0;
  };

  /// Several connections of one certificate have to have different client ids: the broker ends the older of two. An
  /// existing `watchedFolder` wakes the client when a file in it is replaced, also by another process.
  MQTTConnection(Client& client, MQTTOptions options, MQTTCredentials credentials, std::string clientId,
                 std::filesystem::path watchedFolder, LogHandle log);
  /// Says goodbye to the broker, and waits for the thread. A name that the resolver is looking up may delay it.
  ~MQTTConnection();
  MQTTConnection(const MQTTConnection&) = delete;
  MQTTConnection& operator=(const MQTTConnection&) = delete;

  /// A client id that nobody else has.
  static std::string anyClientId();

  /// Starts the thread, once, when the client is ready for it. Where the system refuses the thread the log and
  /// `problem` say so, and the client is told here that it is disconnected; each `wake` tries again.
  void start();
  /// Makes the client work. Any thread.
  void wake();
  /// Why there is no connection; empty while there is one, and before the first attempt. Any thread.
  std::string problem() const;

  // For the client, on the thread.
  /// Whether a connection is to be made and kept. One that is there stays until it breaks. At first it is not wanted.
  void setWanted(bool isWanted);
  bool isConnected() const;
  /// At least once, beginning with what is retained. While connected.
  void subscribe(const std::string& topic);
  /// Retained, at least once; empty bytes empty the topic. `delivered` tells of the last of all that was published.
  /// While connected. Not of more bytes than the options allow.
  void publish(const std::string& topic, std::span<const std::uint8_t> payload);
  void workAgainIn(double seconds);

 private:
  class Thread;
  std::unique_ptr<Thread> _thread;
};

}  // namespace pellor
