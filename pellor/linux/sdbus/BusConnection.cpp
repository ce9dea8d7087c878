#include "pellor/linux/sdbus/BusConnection.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace pellor {
namespace {

constexpr const char* Path = "/org/tapnote/Pellor/Notify1";
constexpr const char* Interface = "org.tapnote.Pellor.Notify1";
constexpr const char* Member = "Posted";

constexpr BackOff::Pauses Pauses{.first = 0.25, .longest = 60};
constexpr std::chrono::milliseconds LongestWait(60'000);

std::string matchRule(const std::string& name) {
  return std::string("type='signal',path='") + Path + "',interface='" + Interface + "',member='" + Member + "',arg0='" +
         name + "'";
}

}  // namespace

/// What the library calls, from inside of sd_bus_process.
struct BusConnection::Callbacks {
  static int installed(sd_bus_message* reply, void* data, sd_bus_error* /*error*/) {
    Match& match = *static_cast<Match*>(data);
    match.owner->_role.isThisThread();
    match.isInstalled = sd_bus_message_is_method_error(reply, nullptr) == 0;
    if (!match.isInstalled) match.owner->_refusal = -sd_bus_message_get_errno(reply);
    return 1;
  }

  static int heard(sd_bus_message* signal, void* data, sd_bus_error* /*error*/) {
    const Match& match = *static_cast<Match*>(data);
    const char* self = nullptr;
    const char* sender = sd_bus_message_get_sender(signal);
    sd_bus_get_unique_name(sd_bus_message_get_bus(signal), &self);
    const bool isOwn = sender && self && std::string_view(sender) == self;
    if (!isOwn) match.owner->_client.heard(match.name);
    return 0;
  }
};

BusConnection::BusConnection(std::string address, std::chrono::microseconds answerLimit, LogHandle log, Client client)
    : _address(std::move(address)),
      _answerLimit(answerLimit),
      _log(std::move(log)),
      _client(std::move(client)),
      _wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      _opensAt(Clock::now()),
      _pauses(Pauses) {
  const MutexLock lock(_mutex);
  ensureStarted();
}

BusConnection::~BusConnection() {
  {
    const MutexLock lock(_mutex);
    _isEnding = true;
  }
  wake();
  _thread.join();
}

// Once the thread runs it says itself when the bus is there.
void BusConnection::ensureStarted() {
  if (_thread.isStarted()) return;
  const auto refusal = _thread.start("pellor-bus", [this] { serve(); });
  if (!refusal) return;
  _role.isThisThread();  // there is none yet
  _isAway = true;
  sayAway(ServiceThread::problemText(*refusal));
}

void BusConnection::observe(const std::string& name) {
  const MutexLock lock(_mutex);
  ensureStarted();
  Interest& interest = _interests[name];
  interest.isAwaited = true;
  wake();
  while (!interest.isHeard && !_isAway) _changed.wait(_mutex);
  interest.isAwaited = false;
}

void BusConnection::forget(const std::string& name) {
  const MutexLock lock(_mutex);
  _interests.erase(name);
  wake();
}

void BusConnection::send(const std::string& name) {
  const MutexLock lock(_mutex);
  ensureStarted();
  if (_unsent.insert(name).second) wake();
}

bool BusConnection::isSettled() {
  const MutexLock lock(_mutex);
  _isRestAwaited = !isAtRest();
  return !_isRestAwaited;
}

bool BusConnection::isAtRest() const { return _isAway || (_unsent.empty() && _onTheWay.empty()); }

void BusConnection::wake() {
  const std::uint64_t one = 1;
  // Fails only where the counter is full, and then it wakes already.
  while (::write(_wake.get(), &one, sizeof one) < 0 && errno == EINTR) {
  }
}

bool BusConnection::isEnding() {
  const MutexLock lock(_mutex);
  return _isEnding;
}

void BusConnection::serve() {
  _role.isThisThread();
  while (!isEnding()) {
    const int result = turn();
    if (result < 0) lose(result);
    if (result <= 0) waitForWork();
  }
  _matches.clear();
  _bus.reset();
}

/// One piece of work. Above zero when there is more at once, below when the connection has failed.
int BusConnection::turn() {
  if (!_bus && Clock::now() < _opensAt) return 0;
  int result = _bus ? 0 : openBus(_address, _bus);
  if (result < 0) return result;
  const int processed = sd_bus_process(_bus.get(), nullptr);
  if (processed < 0) return processed;
  if (_refusal < 0) return std::exchange(_refusal, 0);
  result = updateMatches();
  if (result < 0) return result;
  const int sent = sendAll();
  if (sent < 0) return sent;
  result = checkAnswers();
  if (result < 0) return result;
  tellOfHeard();
  return std::max(processed, sent);
}

int BusConnection::updateMatches() {
  const MutexLock lock(_mutex);
  std::erase_if(_matches, [this](const auto& match) {
    _mutex.isHeld();
    return !_interests.contains(match.first);
  });
  for (const auto& [name, interest] : _interests) {
    const auto [match, isNew] = _matches.try_emplace(name);
    const int added = isNew ? add(name, match->second) : 0;
    if (added < 0) return added;
  }
  return 0;
}

int BusConnection::add(const std::string& name, Match& match) {
  match.owner = this;
  match.name = name;
  sd_bus_slot* slot = nullptr;
  const int added = sd_bus_add_match_async(_bus.get(), &slot, matchRule(name).c_str(), Callbacks::heard,
                                           Callbacks::installed, &match);
  match.slot.reset(slot);
  return added;
}

/// What nobody waited for may have been sent before it could be heard.
void BusConnection::tellOfHeard() {
  std::vector<std::string> unawaited;
  {
    const MutexLock lock(_mutex);
    for (auto& [name, interest] : _interests) {
      const auto match = _matches.find(name);
      if (match == _matches.end() || !match->second.isInstalled || std::exchange(interest.isHeard, true)) continue;
      if (!interest.isAwaited) unawaited.push_back(name);
    }
    _changed.notifyAll();
  }
  for (const std::string& name : unawaited) _client.heard(name);
}

/// Above zero when it is to be asked again whether the names have gone out.
int BusConnection::sendAll() {
  std::uint64_t queued = 0;
  if (sd_bus_is_ready(_bus.get()) <= 0) return 0;
  const int known = sd_bus_get_n_queued_write(_bus.get(), &queued);
  if (known < 0 || queued > 0) return std::min(known, 0);
  std::set<std::string> names;
  {
    const MutexLock lock(_mutex);
    std::swap(names, _unsent);
    _onTheWay = names;
  }
  for (const std::string& name : names) {
    const int sent = sd_bus_emit_signal(_bus.get(), Path, Interface, Member, "s", name.c_str());
    if (sent < 0) return sent;
  }
  if (names.empty()) tellOfRest();
  return names.empty() ? 0 : 1;
}

void BusConnection::tellOfRest() {
  {
    const MutexLock lock(_mutex);
    if (!_isRestAwaited || !isAtRest()) return;
    _isRestAwaited = false;
  }
  _client.didSettle();
}

bool BusConnection::hasAllAnswers() {
  std::uint64_t queued = 0;
  return sd_bus_is_ready(_bus.get()) > 0 && sd_bus_get_n_queued_write(_bus.get(), &queued) >= 0 && queued == 0 &&
         std::ranges::all_of(_matches, [](const auto& match) { return match.second.isInstalled; });
}

int BusConnection::checkAnswers() {
  if (!hasAllAnswers()) {
    if (_answersBy == Clock::time_point::max()) _answersBy = Clock::now() + _answerLimit;
    return Clock::now() < _answersBy ? 0 : -ETIMEDOUT;
  }
  _answersBy = Clock::time_point::max();
  _pauses.reset();
  if (std::exchange(_isReportedAway, false)) _log.log("the session bus is there, notifications go by it too");
  const MutexLock lock(_mutex);
  _isAway = false;
  return 0;
}

void BusConnection::lose(int error) {
  _matches.clear();
  _bus.reset();
  _answersBy = Clock::time_point::max();
  _opensAt = Clock::now() + steadyDuration(_pauses.next());
  sayAway(std::system_category().message(-error));
  {
    const MutexLock lock(_mutex);
    _isAway = true;
    _unsent.merge(_onTheWay);
    _onTheWay.clear();
    for (auto& known : _interests) known.second.isHeard = false;
    _changed.notifyAll();
  }
  tellOfRest();
}

void BusConnection::sayAway(const std::string& reason) {
  if (!std::exchange(_isReportedAway, true))
    _log.log("the session bus is away, notifications go by the folder alone: %@", reason);
}

void BusConnection::waitForWork() {
  std::array<pollfd, 2> files{pollfd{_wake.get(), POLLIN, 0}, pollfd{-1, 0, 0}};
  if (_bus) files[1] = {sd_bus_get_fd(_bus.get()), static_cast<short>(sd_bus_get_events(_bus.get())), 0};
  const Clock::time_point next = nextTurn();
  int timeout = -1;
  if (next != Clock::time_point::max()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now());
    timeout = static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, LongestWait.count()));
  }
  ::poll(files.data(), files.size(), timeout);
  std::uint64_t ignored = 0;
  if (files[0].revents & POLLIN) (void)!::read(_wake.get(), &ignored, sizeof ignored);
}

BusConnection::Clock::time_point BusConnection::nextTurn() {
  if (!_bus) return _opensAt;
  std::uint64_t ofBus = UINT64_MAX;
  sd_bus_get_timeout(_bus.get(), &ofBus);
  if (ofBus == UINT64_MAX) return _answersBy;
  return std::min(_answersBy, Clock::time_point(std::chrono::microseconds(ofBus)));
}

}  // namespace pellor
