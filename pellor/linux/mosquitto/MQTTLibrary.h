// The MQTT library as one process uses it.
#pragma once

#include <mosquitto.h>

#include <cstdint>
#include <string>

#include "pellor/linux/mosquitto/MQTTOptions.h"

namespace pellor {

/// What has to be done once a process, or by one thread at a time. Any thread.
class MQTTLibrary {
 public:
  struct Deleter {
    void operator()(mosquitto* client) const { mosquitto_destroy(client); }
  };

  /// Before the first client is made; again it does nothing. A library that cannot be initialized ends the program.
  static void initialize();
  /// Has the client connect with these credentials alone. Gives the library's result, and in `problem` the file that
  /// cannot be read, if it is that.
  static int encrypt(mosquitto& client, const MQTTCredentials& credentials, std::string& problem);
  /// Begins to connect, and asks the broker for packets of at most so many bytes; may wait until the host's name is
  /// resolved. Gives the library's result. One at a time: the library makes what TLS needs with the first connection of
  /// a process, and takes no care that it is made once.
  static int connect(mosquitto& client, const std::string& host, int port, int keepAliveSeconds,
                     std::uint32_t largestPacket);
  /// One of the library's results, for the user. On the thread that got it.
  static std::string errorText(int code);
};

}  // namespace pellor
