#include "pellor/linux/sdbus/SessionBus.h"

#include <array>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <map>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/linux/sdbus/BusConnection.h"
#include "pellor/linux/sdbus/SdBus.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {
namespace {

/// A path as part of an address.
std::string escaped(const std::string& path) {
  std::string text;
  for (const char character : path) {
    const auto byte = static_cast<unsigned char>(character);
    const bool isPlain =
        byte < 0x80 && (std::isalnum(byte) != 0 || std::string_view("-_/.").find(character) != std::string_view::npos);
    std::array<char, 4> digits{};
    std::snprintf(digits.data(), digits.size(), "%%%02x", byte);
    text += isPlain ? std::string(1, character) : std::string(digits.data());
  }
  return text;
}

/// Waits until the bus has greeted us. Below zero when it does not.
int awaitGreeting(sd_bus* bus, std::chrono::microseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (sd_bus_is_ready(bus) <= 0) {
    int result = sd_bus_process(bus, nullptr);
    const auto left = std::chrono::ceil<std::chrono::microseconds>(end - std::chrono::steady_clock::now());
    if (result >= 0 && left.count() <= 0) return -ETIMEDOUT;
    if (result == 0) result = sd_bus_wait(bus, static_cast<std::uint64_t>(left.count()));
    if (result < 0 && result != -EINTR) return result;
  }
  return 0;
}

}  // namespace

std::string SessionBusOptions::addressOfUser(const Environment& environment) {
  const std::string address = environment("DBUS_SESSION_BUS_ADDRESS").value_or("");
  const std::string runtime = environment("XDG_RUNTIME_DIR").value_or("");
  if (!address.empty()) return address;
  return "unix:path=" + (runtime.empty() ? "/run/user/" + std::to_string(::getuid()) : escaped(runtime)) + "/bus";
}

/// Takes what was heard from the connection's thread to the main queue: there a name counts once, however often it was
/// heard meanwhile.
class SessionBus::Inbox : public std::enable_shared_from_this<Inbox> {
 public:
  Inbox(Process& process, std::shared_ptr<NotifyFolder> folder) : _process(process), _folder(std::move(folder)) {}

  /// On the connection's thread.
  void add(const std::string& spelled) {
    const MutexLock lock(_mutex);
    const bool isFirst = _waiting.empty();
    _waiting.insert(spelled);
    if (isFirst) deliverLater();
  }

  std::map<std::string, std::string> names;  ///< the observed ones by their spelling on the bus; main queue

 private:
  void deliverLater() {
    _process.mainQueue().async([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->deliver();
    });
  }

  void deliver() {
    std::set<std::string> heard;
    {
      const MutexLock lock(_mutex);
      std::swap(heard, _waiting);
    }
    for (const std::string& spelled : heard) {
      if (const auto name = names.find(spelled); name != names.end()) _folder->othersMayHavePosted(name->second);
    }
  }

  Process& _process;
  const std::shared_ptr<NotifyFolder> _folder;
  Mutex _mutex;
  std::set<std::string> _waiting PELLOR_GUARDED_BY(_mutex);
};

SessionBus::SessionBus(Process& process, std::shared_ptr<NotifyFolder> folder, LogHandle log, SessionBusOptions options)
    : _process(process),
      _folder(std::move(folder)),
      _log(std::move(log)),
      _options(std::move(options)),
      _heard(std::make_shared<Inbox>(process, _folder)) {
  _process.addSettleParticipant(*this);
}

SessionBus::~SessionBus() { _process.removeSettleParticipant(*this); }

void SessionBus::addObserver(const void* observer, std::function<void()> callback, std::string_view name) {
  _folder->addObserver(observer, std::move(callback), name);
  if (_folder->hearing() == NotifyFolder::Hearing::whenSettling) return;
  const std::string spelled = fileNameOf(name);
  _heard->names.try_emplace(spelled, name);
  connection().observe(spelled);
}

void SessionBus::removeObserver(const void* observer, std::string_view name) {
  _folder->removeObserver(observer, name);
  const std::string spelled = fileNameOf(name);
  if (_folder->isObserved(name) || _heard->names.erase(spelled) == 0) return;
  if (_connection) _connection->forget(spelled);
}

void SessionBus::post(std::string_view name) {
  _folder->post(name);
  connection().send(fileNameOf(name));
}

bool SessionBus::isSettled() const { return !_connection || _connection->isSettled(); }

BusConnection& SessionBus::connection() {
  if (_connection) return *_connection;
  BusConnection::Client client;
  client.heard = [heard = _heard](const std::string& spelled) { heard->add(spelled); };
  client.didSettle = [&process = _process] { process.mainQueue().async([] {}); };
  _connection = std::make_unique<BusConnection>(_options.address, _options.answerLimit, _log, std::move(client));
  return *_connection;
}

ServiceReport SessionBus::report(const SessionBusOptions& options) {
  constexpr const char* advice = "log in where a session bus runs, or choose bus = folder";
  BusHandle bus;
  sd_id128_t identity{};
  int result = openBus(options.address, bus);
  if (result >= 0) result = awaitGreeting(bus.get(), options.answerLimit);
  if (result >= 0) result = sd_bus_get_bus_id(bus.get(), &identity);
  if (result < 0)
    return ServiceReport::failing(options.address + ": " + std::system_category().message(-result), advice);
  std::array<char, SD_ID128_STRING_MAX> digits{};
  return ServiceReport::working(options.address + ", bus " + sd_id128_to_string(identity, digits.data()));
}

}  // namespace pellor
