#include "pellor/linux/mosquitto/MQTTLibrary.h"

#include <mqtt_protocol.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {
namespace {

// The library takes properties of a connection with the call that blocks alone, and keeps them for each that the client
// makes from then on: this call names a port that there is none of, and connects nowhere.
void limitPackets(mosquitto& client, const std::string& host, int keepAliveSeconds, std::uint32_t largestPacket) {
  constexpr int noPort = -1;
  mosquitto_property* properties = nullptr;
  mosquitto_property_add_int32(&properties, MQTT_PROP_MAXIMUM_PACKET_SIZE, largestPacket);
  mosquitto_connect_bind_v5(&client, host.c_str(), noPort, keepAliveSeconds, nullptr, properties);
  mosquitto_property_free_all(&properties);
}

}  // namespace

void MQTTLibrary::initialize() {
  static const bool isReady = mosquitto_lib_init() == MOSQ_ERR_SUCCESS;
  require(isReady, "an MQTT library that can be initialized");
}

int MQTTLibrary::encrypt(mosquitto& client, const MQTTCredentials& credentials, std::string& problem) {
  for (const auto* file : {&credentials.ca, &credentials.certificate, &credentials.key}) {
    if (::access(file->c_str(), R_OK) == 0) continue;
    problem = systemError("cannot read", *file);
    return MOSQ_ERR_TLS;
  }
  return mosquitto_tls_set(&client, credentials.ca.c_str(), nullptr, credentials.certificate.c_str(),
                           credentials.key.c_str(), nullptr);
}

int MQTTLibrary::connect(mosquitto& client, const std::string& host, int port, int keepAliveSeconds,
                         std::uint32_t largestPacket) {
  static Mutex connecting;
  const MutexLock lock(connecting);
  limitPackets(client, host, keepAliveSeconds, largestPacket);
  return mosquitto_connect_async(&client, host.c_str(), port, keepAliveSeconds);
}

std::string MQTTLibrary::errorText(int code) {
  return code == MOSQ_ERR_ERRNO ? std::string(std::strerror(errno)) : std::string(mosquitto_strerror(code));
}

}  // namespace pellor
