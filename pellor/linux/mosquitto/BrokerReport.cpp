#include "pellor/linux/mosquitto/BrokerReport.h"

#include <chrono>
#include <optional>

#include "pellor/linux/mosquitto/MQTTConnection.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {
namespace {

constexpr const char* VersionTopic = "$SYS/broker/version";
constexpr auto LongestReportWait = std::chrono::seconds(5);

/// Asks once.
class VersionQuestion final : private MQTTConnection::Client {
 public:
  VersionQuestion(const MQTTOptions& broker, const DevicePairing& pairing)
      : _connection(*this, broker, pairing.credentials(), MQTTConnection::anyClientId(), {},
                    LogHandle("", "", nullptr)) {
    _connection.start();
  }

  struct Answer {
    bool isReached = false;
    std::string text;  ///< the version, or why there is none
  };
  Answer answer() {
    const auto end = std::chrono::steady_clock::now() + LongestReportWait;
    const MutexLock lock(_mutex);
    while (!_answer && _hasAnswer.waitUntil(_mutex, end)) continue;
    return _answer.value_or(Answer{false, "no answer"});
  }

 private:
  void work() override { _connection.setWanted(true); }
  void connected() override { _connection.subscribe(VersionTopic); }
  void disconnected() override { take({false, _connection.problem()}); }
  void arrived(const std::string&, std::span<const std::uint8_t> payload) override {
    _version.assign(payload.begin(), payload.end());
  }
  void subscribed() override { take({true, _version.empty() ? "a broker" : _version}); }
  void delivered(bool) override {}

  void take(Answer answer) {
    const MutexLock lock(_mutex);
    if (!_answer) _answer = std::move(answer);
    _hasAnswer.notifyAll();
  }

  Mutex _mutex;
  Condition _hasAnswer;
  std::optional<Answer> _answer PELLOR_GUARDED_BY(_mutex);
  std::string _version;  ///< of the connection's thread
  MQTTConnection _connection;
};

}  // namespace

ServiceReport reportOnBroker(const MQTTOptions& broker, const DevicePairing& pairing) {
  const auto name = pairing.name(), peer = pairing.peer();
  const std::string place = broker.host + ":" + std::to_string(broker.port);
  if (!name || !pairing.hasCertificate()) {
    return ServiceReport::failing("this device has no certificate", "pellor device pair --help tells how to get one");
  }
  const auto answer = VersionQuestion(broker, pairing).answer();
  if (!answer.isReached) {
    return ServiceReport::failing("the broker at " + place + " is away: " + answer.text,
                                  "look at the broker and its log, or set mqtt.host and mqtt.port");
  }
  if (!peer) {
    return ServiceReport::failing(
        answer.text + " at " + place + " knows this device as " + *name + ", but no device is paired",
        "exchange invitations with pellor device pair");
  }
  return ServiceReport::working(answer.text + " at " + place + ", " + *name + " paired with " + *peer);
}

}  // namespace pellor
