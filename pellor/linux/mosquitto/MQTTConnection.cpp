#include "pellor/linux/mosquitto/MQTTConnection.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <random>
#include <set>
#include <utility>

#include "pellor/linux/files/FileDescriptor.h"
#include "pellor/linux/mosquitto/MQTTLibrary.h"
#include "pellor/linux/threads/ServiceThread.h"
#include "pellor/runtime/BackOff.h"
#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int AtLeastOnce = 1;
constexpr int KeepAliveSeconds = 15;
// The library has to be called from time to time, so that it notices a broker that went silent.
constexpr milliseconds LongestWait = std::chrono::seconds(5);
constexpr milliseconds LongestAttempt = std::chrono::seconds(10);
constexpr BackOff::Pauses ConnectionPauses{.first = 0.25, .longest = 60};
constexpr milliseconds LongestFlicker = std::chrono::seconds(1);
constexpr int FirstRefusal = 128;
// Of a packet around a message: its topic and its head.
constexpr std::size_t MostAroundMessage = 1024;
// Subscribed to after another topic only for the answer: what that one retained has gone out by then.
constexpr const char* Barrier = "pellor/barrier";

}  // namespace

class MQTTConnection::Thread {
 public:
  Thread(Client& client, MQTTOptions options, MQTTCredentials credentials, std::string clientId,
         std::filesystem::path watchedFolder, LogHandle log)
      : _client(client),
        _options(std::move(options)),
        _credentials(std::move(credentials)),
        _clientId(std::move(clientId)),
        _watchedFolder(std::move(watchedFolder)),
        _log(std::move(log)),
        _wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
        _changes(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    MQTTLibrary::initialize();
  }

  ~Thread() {
    {
      const MutexLock lock(_mutex);
      if (!_thread.isStarted()) return;
      _isEnding = true;
    }
    raise();
    _thread.join();
  }
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  void start() {
    {
      const MutexLock lock(_mutex);
      _isToRun = true;
    }
    if (!ensureStarted()) _client.disconnected();
  }

  void wake() {
    ensureStarted();
    raise();
  }

  std::string problem() const {
    const MutexLock lock(_mutex);
    return _problem;
  }

  // On the thread.
  void setWanted(bool isWanted) { _isWanted = isWanted; }
  bool isConnected() const { return _isConnected; }
  void workAgainIn(double seconds) { _nextWork = std::min(_nextWork, Clock::now() + steadyDuration(seconds)); }

  void subscribe(const std::string& topic) {
    mosquitto_subscribe(_mosquitto.get(), nullptr, topic.c_str(), AtLeastOnce);
    mosquitto_subscribe(_mosquitto.get(), &_barrier, Barrier, AtLeastOnce);
  }

  void publish(const std::string& topic, std::span<const std::uint8_t> payload) {
    int id = 0;
    const int result = mosquitto_publish(_mosquitto.get(), &id, topic.c_str(), static_cast<int>(payload.size()),
                                         payload.data(), AtLeastOnce, true);
    // A broken connection is noticed when its socket is served.
    if (result == MOSQ_ERR_SUCCESS || result == MOSQ_ERR_NO_CONN || result == MOSQ_ERR_CONN_LOST) {
      _undelivered.insert(id);
      return;
    }
    _log.log("a message could not be published: %@", MQTTLibrary::errorText(result));
    _isRefused = _hasPublished = true;
  }

 private:
  /// False when the system refuses the thread.
  bool ensureStarted() {
    std::optional<std::string> refusal;
    {
      const MutexLock lock(_mutex);
      if (!_isToRun || _thread.isStarted()) return true;
      refusal = _thread.start("pellor-mqtt", [this] { run(); });
    }
    if (refusal) away(ServiceThread::problemText(*refusal));
    return !refusal;
  }

  void raise() const {
    const std::uint64_t one = 1;
    while (::write(_wake.get(), &one, sizeof one) < 0 && errno == EINTR) continue;
  }

  void run() {
    watchFolder();
    while (!isEnding()) {
      workIfDue();
      connectIfDue();
      wait();
      serve();
    }
    sayGoodbye();
  }

  bool isEnding() const {
    const MutexLock lock(_mutex);
    return _isEnding;
  }

  void watchFolder() {
    if (_watchedFolder.empty() || _isWatching) return;
    _isWatching = ::inotify_add_watch(_changes.get(), _watchedFolder.c_str(), IN_MOVED_TO | IN_DELETE) >= 0;
  }

  void workIfDue() {
    if (Clock::now() < _nextWork) return;
    _nextWork = Clock::time_point::max();
    _client.work();
    // The folder may have been made meanwhile.
    watchFolder();
  }
  void workSoon() { _nextWork = Clock::now(); }

  void connectIfDue() {
    if (_mosquitto || !_isWanted || Clock::now() < _nextAttempt) return;
    _deadline = Clock::now() + LongestAttempt;
    _mosquitto.reset(mosquitto_new(_clientId.c_str(), true, this));
    if (!_mosquitto) return lose(std::strerror(errno));
    setCallbacks();
    const int result = connect();
    if (result != MOSQ_ERR_SUCCESS) lose(MQTTLibrary::errorText(result));
  }

  void setCallbacks() {
    mosquitto* client = _mosquitto.get();
    mosquitto_connect_v5_callback_set(client, [](mosquitto*, void* self, int result, int, const mosquitto_property*) {
      static_cast<Thread*>(self)->answered(result);
    });
    mosquitto_message_callback_set(client, [](mosquitto*, void* self, const mosquitto_message* message) {
      static_cast<Thread*>(self)->take(*message);
    });
    mosquitto_publish_v5_callback_set(client,
                                      [](mosquitto*, void* self, int id, int result, const mosquitto_property*) {
                                        static_cast<Thread*>(self)->published(id, result);
                                      });
    mosquitto_subscribe_callback_set(client, [](mosquitto*, void* self, int id, int, const int*) {
      static_cast<Thread*>(self)->subscriptionAnswered(id);
    });
    mosquitto_log_callback_set(client, [](mosquitto*, void* self, int level, const char* text) {
      if (level == MOSQ_LOG_ERR) static_cast<Thread*>(self)->_detail = text;
    });
  }

  int connect() {
    mosquitto* client = _mosquitto.get();
    // The version in which a broker says that it did not allow something.
    mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    const int result = MQTTLibrary::encrypt(*client, _credentials, _detail);
    if (result != MOSQ_ERR_SUCCESS) return result;
    return MQTTLibrary::connect(*client, _options.host, _options.port, KeepAliveSeconds,
                                static_cast<std::uint32_t>(_options.largestMessage + MostAroundMessage));
  }

  void wait() {
    std::array<pollfd, 3> files{pollfd{_wake.get(), POLLIN, 0}, pollfd{_changes.get(), POLLIN, 0}, pollfd{-1, 0, 0}};
    if (_mosquitto) files[2] = {mosquitto_socket(_mosquitto.get()), POLLIN, 0};
    if (_mosquitto && (!_isEstablished || mosquitto_want_write(_mosquitto.get()))) files[2].events |= POLLOUT;
    const int result = ::poll(files.data(), files.size(), timeout());
    _socketEvents = result > 0 ? files[2].revents : short{0};
  }

  int timeout() const {
    auto end = std::min(Clock::now() + LongestWait, _nextWork);
    if (!_mosquitto && _isWanted) end = std::min(end, _nextAttempt);
    if (_mosquitto && !_isConnected) end = std::min(end, _deadline);
    const auto left = std::chrono::ceil<milliseconds>(end - Clock::now()).count();
    return static_cast<int>(std::max<std::int64_t>(left, 0));
  }

  bool takeWake() const {
    std::uint64_t count = 0;
    return ::read(_wake.get(), &count, sizeof count) == sizeof count;
  }

  bool takeChanges() const {
    std::array<char, 4096> ignored;
    bool hasChanged = false;
    while (::read(_changes.get(), ignored.data(), ignored.size()) > 0) hasChanged = true;
    return hasChanged;
  }

  void serve() {
    const bool isWoken = takeWake(), hasChanged = takeChanges();
    if (isWoken || hasChanged) workSoon();
    if (!_mosquitto) return;
    int result = MOSQ_ERR_SUCCESS;
    if (_socketEvents & POLLOUT) _isEstablished = true;
    if (_socketEvents & (POLLIN | POLLERR | POLLHUP)) result = mosquitto_loop_read(_mosquitto.get(), 1);
    if (result == MOSQ_ERR_SUCCESS && (_socketEvents & POLLOUT)) result = mosquitto_loop_write(_mosquitto.get(), 1);
    if (result == MOSQ_ERR_SUCCESS) result = mosquitto_loop_misc(_mosquitto.get());
    if (result != MOSQ_ERR_SUCCESS) return lose(MQTTLibrary::errorText(result));
    // The library overlooks a refusal that it meets as it begins the handshake.
    const bool isClosed = (_socketEvents & (POLLERR | POLLHUP)) || mosquitto_socket(_mosquitto.get()) < 0;
    if (isClosed) return lose(_isConnected ? "the connection was closed" : "the connection was refused");
    if (!_refusal.empty()) return lose(_refusal);
    if (!_isConnected && Clock::now() >= _deadline) return lose("no answer");
    tellClient();
  }

  // Not inside the library's callbacks: the client calls the library again.
  void tellClient() {
    if (std::exchange(_hasConnected, false)) {
      back();
      _client.connected();
      workSoon();
    }
    for (const std::size_t size : std::exchange(_tooLarge, {})) decline(size);
    for (const auto& [topic, payload] : std::exchange(_arrived, {})) {
      _client.arrived(topic, payload);
      workSoon();
    }
    if (std::exchange(_hasSubscribed, false)) {
      _client.subscribed();
      workSoon();
    }
    if (!std::exchange(_hasPublished, false) || !_undelivered.empty()) return;
    _client.delivered(!std::exchange(_isRefused, false));
    workSoon();
  }

  // Of a broker that passes on what it was asked to keep back. Again and again with each connection.
  void decline(std::size_t size) {
    if (!std::exchange(_hasDeclined, true))
      _log.log("a message of %lu bytes was declined: at most %lu are taken", size, _options.largestMessage);
    _client.declined(size);
  }

  // The library's callbacks.
  void answered(int result) {
    _isConnected = _hasConnected = result == 0;
    if (result != 0) _refusal = std::string("refused: ") + mosquitto_reason_string(result);
  }
  void take(const mosquitto_message& message) {
    const auto* bytes = static_cast<const std::uint8_t*>(message.payload);
    const auto size = static_cast<std::size_t>(message.payloadlen);
    if (size > _options.largestMessage) return _tooLarge.push_back(size);
    if (message.payloadlen > 0) _arrived.emplace_back(message.topic, Data(bytes, bytes + message.payloadlen));
  }
  void published(int id, int result) {
    _isRefused = _isRefused || result >= FirstRefusal;
    _undelivered.erase(id);
    _hasPublished = true;
  }
  void subscriptionAnswered(int id) { _hasSubscribed = _hasSubscribed || id == _barrier; }

  void lose(const std::string& reason) {
    const bool wasConnected = std::exchange(_isConnected, false);
    _mosquitto.reset();
    _isEstablished = _hasConnected = _hasSubscribed = _hasPublished = _isRefused = false;
    _undelivered.clear();
    _arrived.clear();
    _tooLarge.clear();
    const std::string refusal = std::exchange(_refusal, {}), detail = std::exchange(_detail, {});
    away(detail.empty() ? reason : detail);
    // One that is ended at once, as when two clients have one id, is not made again at once.
    if (wasConnected && Clock::now() - _connectedSince >= LongestFlicker) _pauses.reset();
    _nextAttempt = Clock::now() + steadyDuration(_pauses.next());
    _client.disconnected();
    workSoon();
  }

  std::string place() const { return _options.host + ":" + std::to_string(_options.port); }

  std::string exchangeProblem(std::string problem) {
    const MutexLock lock(_mutex);
    return std::exchange(_problem, std::move(problem));
  }

  void away(const std::string& reason) {
    if (!exchangeProblem(reason).empty()) return;
    _log.log("the broker at %@ is away: %@", redactable(place()), redactable(reason));
  }

  void back() {
    _connectedSince = Clock::now();
    _detail.clear();
    if (!exchangeProblem({}).empty()) _log.log("the broker at %@ is back", redactable(place()));
  }

  void sayGoodbye() {
    if (!_isConnected) return;
    mosquitto_disconnect(_mosquitto.get());
    mosquitto_loop_write(_mosquitto.get(), 1);
  }

  Client& _client;
  const MQTTOptions _options;
  const MQTTCredentials _credentials;
  const std::string _clientId;
  const std::filesystem::path _watchedFolder;
  const LogHandle _log;
  const FileDescriptor _wake;
  const FileDescriptor _changes;
  mutable Mutex _mutex;
  bool _isEnding PELLOR_GUARDED_BY(_mutex) = false;
  bool _isToRun PELLOR_GUARDED_BY(_mutex) = false;
  std::string _problem PELLOR_GUARDED_BY(_mutex);
  ServiceThread _thread PELLOR_GUARDED_BY(_mutex);

  // All that follows belongs to the thread.
  std::unique_ptr<mosquitto, MQTTLibrary::Deleter> _mosquitto;  ///< of one attempt; a new one for the next
  bool _isWanted = false;
  bool _isWatching = false;
  bool _isEstablished = false;  ///< the socket is connected; the session may not be yet
  bool _isConnected = false;
  Clock::time_point _nextWork = Clock::time_point::min();
  Clock::time_point _nextAttempt = Clock::time_point::min();
  Clock::time_point _deadline;
  Clock::time_point _connectedSince;
  BackOff _pauses{ConnectionPauses};
  short _socketEvents = 0;
  std::set<int> _undelivered;
  int _barrier = -1;
  std::string _refusal;  ///< why the broker ended it
  std::string _detail;   ///< the last error that the library logged
  // What the callbacks noted for the client.
  bool _hasConnected = false;
  bool _hasSubscribed = false;
  bool _hasPublished = false;
  bool _isRefused = false;
  bool _hasDeclined = false;
  std::vector<std::pair<std::string, Data>> _arrived;
  std::vector<std::size_t> _tooLarge;  ///< sizes of what arrived and was not taken
};

MQTTConnection::MQTTConnection(Client& client, MQTTOptions options, MQTTCredentials credentials, std::string clientId,
                               std::filesystem::path watchedFolder, LogHandle log)
    : _thread(std::make_unique<Thread>(client, std::move(options), std::move(credentials), std::move(clientId),
                                       std::move(watchedFolder), std::move(log))) {}

std::string MQTTConnection::anyClientId() {
  std::random_device source;
  return "pellor-" + std::to_string(source()) + "-" + std::to_string(source());
}

MQTTConnection::~MQTTConnection() = default;

void MQTTConnection::start() { _thread->start(); }
void MQTTConnection::wake() { _thread->wake(); }
std::string MQTTConnection::problem() const { return _thread->problem(); }
void MQTTConnection::setWanted(bool isWanted) { _thread->setWanted(isWanted); }
bool MQTTConnection::isConnected() const { return _thread->isConnected(); }
void MQTTConnection::subscribe(const std::string& topic) { _thread->subscribe(topic); }
void MQTTConnection::publish(const std::string& topic, std::span<const std::uint8_t> payload) {
  _thread->publish(topic, payload);
}
void MQTTConnection::workAgainIn(double seconds) { _thread->workAgainIn(seconds); }

}  // namespace pellor
