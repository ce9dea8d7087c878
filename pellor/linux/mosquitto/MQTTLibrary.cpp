#include "pellor/linux/mosquitto/MQTTLibrary.h"

#include <cerrno>
#include <cstring>

#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

void MQTTLibrary::initialize() {
  static const bool isReady = mosquitto_lib_init() == MOSQ_ERR_SUCCESS;
  require(isReady, "an MQTT library that can be initialized");
}

int MQTTLibrary::connect(mosquitto& client, const std::string& host, int port, int keepAliveSeconds) {
  static Mutex connecting;
  const MutexLock lock(connecting);
  return mosquitto_connect_async(&client, host.c_str(), port, keepAliveSeconds);
}

std::string MQTTLibrary::errorText(int code) {
  return code == MOSQ_ERR_ERRNO ? std::string(std::strerror(errno)) : std::string(mosquitto_strerror(code));
}

}  // namespace pellor
