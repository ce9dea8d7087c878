#include "pellor/testing/InMemoryBus.h"

#include <algorithm>
#include <functional>
#include <set>
#include <utility>

#include "pellor/testing/internal/ProcessLink.h"

namespace pellor {

class InMemoryBus::Connection : public SystemNotifyBus, public std::enable_shared_from_this<Connection> {
 public:
  Connection(std::shared_ptr<InMemoryBus> bus, std::shared_ptr<ProcessLink> link)
      : _bus(std::move(bus)), _link(std::move(link)) {}

  void addObserver(const void* observer, std::function<void()> callback, std::string_view name) override;
  void removeObserver(const void* observer, std::string_view name) override;
  void post(std::string_view name) override;

  const std::shared_ptr<ProcessLink>& link() const { return _link; }

  // With the bus locked, by the bus
  void postOfOther(std::string_view name, std::uint64_t event);
  void disconnect();
  void connectAgain();

 private:
  using Callback = std::shared_ptr<const std::function<void()>>;
  struct Registration {
    const void* observer;
    std::string name;
    Callback callback;
    std::uint64_t event;  // when it was made; unique
  };
  struct Post {
    std::string name;
    std::uint64_t event;
  };
  using PostRef = std::shared_ptr<Post>;

  bool observes(std::string_view name) const PELLOR_REQUIRES(_bus->_mutex);
  bool scheduleOwn(const PostRef& post) PELLOR_REQUIRES(_bus->_mutex);
  void schedule(std::string_view name, std::uint64_t event) PELLOR_REQUIRES(_bus->_mutex);

  void deliverOwn(const PostRef& post, std::uint64_t connectionNumber);
  void deliver(const PostRef& post, std::uint64_t connectionNumber);
  void callObservers(const Post& post);
  Callback callbackOf(std::uint64_t registrationEvent);

  const std::shared_ptr<InMemoryBus> _bus;
  const std::shared_ptr<ProcessLink> _link;

  std::vector<Registration> _registrations PELLOR_GUARDED_BY(_bus->_mutex);
  bool _isConnected PELLOR_GUARDED_BY(_bus->_mutex) = true;
  std::uint64_t _connectionNumber PELLOR_GUARDED_BY(_bus->_mutex) = 0;  // deliveries of an earlier connection are lost
  // Own posts of observed names that were not delivered yet.
  std::vector<PostRef> _outstanding PELLOR_GUARDED_BY(_bus->_mutex);
  std::vector<std::string> _unsent PELLOR_GUARDED_BY(_bus->_mutex);  // names posted while the connection was broken
  // The latest post of others, while it is on its way.
  std::map<std::string, PostRef, std::less<>> _undelivered PELLOR_GUARDED_BY(_bus->_mutex);
};

void InMemoryBus::Connection::addObserver(const void* observer, std::function<void()> callback, std::string_view name) {
  _link->requireMainQueue("SystemNotifyBus::addObserver");
  auto shared = std::make_shared<const std::function<void()>>(std::move(callback));
  const MutexLock lock(_bus->_mutex);
  const auto known = std::find_if(_registrations.begin(), _registrations.end(), [&](const Registration& registration) {
    return registration.observer == observer && registration.name == name;
  });
  if (known != _registrations.end()) {
    known->callback = std::move(shared);
  } else {
    _registrations.push_back({observer, std::string(name), std::move(shared), ++_bus->_lastEvent});
  }
}

void InMemoryBus::Connection::removeObserver(const void* observer, std::string_view name) {
  _link->requireMainQueue("SystemNotifyBus::removeObserver");
  std::vector<Registration> removed;  // destroyed after the lock: callbacks may own anything
  const MutexLock lock(_bus->_mutex);
  const auto first = std::stable_partition(
      _registrations.begin(), _registrations.end(),
      [&](const Registration& registration) { return registration.observer != observer || registration.name != name; });
  std::move(first, _registrations.end(), std::back_inserter(removed));
  _registrations.erase(first, _registrations.end());
}

void InMemoryBus::Connection::post(std::string_view name) {
  _link->requireMainQueue("SystemNotifyBus::post");
  const MutexLock lock(_bus->_mutex);
  ++_bus->_postCounts[std::string(name)];
  if (observes(name)) {
    const auto post = std::make_shared<Post>(Post{std::string(name), ++_bus->_lastEvent});
    if (!_isConnected || scheduleOwn(post)) _outstanding.push_back(post);
  }
  if (_isConnected) {
    _bus->postToAllBut(this, name);
  } else {
    _unsent.emplace_back(name);
  }
}

void InMemoryBus::Connection::postOfOther(std::string_view name, std::uint64_t event) {
  _bus->_mutex.isHeld();
  if (!_isConnected || !observes(name)) return;
  const auto underWay = _undelivered.find(name);
  if (_bus->_coalescesPostsOfOthers && underWay != _undelivered.end()) {
    underWay->second->event = event;
  } else {
    schedule(name, event);
  }
}

void InMemoryBus::Connection::disconnect() {
  _bus->_mutex.isHeld();
  _isConnected = false;
  ++_connectionNumber;
  _undelivered.clear();
}

void InMemoryBus::Connection::connectAgain() {
  _bus->_mutex.isHeld();
  if (_isConnected) return;
  _isConnected = true;
  for (const std::string& name : std::exchange(_unsent, {})) _bus->postToAllBut(this, name);
  for (const PostRef& post : std::exchange(_outstanding, {})) {
    if (scheduleOwn(post)) _outstanding.push_back(post);
  }
  std::set<std::string> names;
  for (const Registration& registration : _registrations) names.insert(registration.name);
  for (const std::string& name : names) schedule(name, ++_bus->_lastEvent);
}

bool InMemoryBus::Connection::observes(std::string_view name) const {
  return std::any_of(_registrations.begin(), _registrations.end(),
                     [&](const Registration& registration) { return registration.name == name; });
}

bool InMemoryBus::Connection::scheduleOwn(const PostRef& post) {
  return _bus->transmit(_link, [weak = weak_from_this(), post, number = _connectionNumber] {
    if (const auto connection = weak.lock()) connection->deliverOwn(post, number);
  });
}

void InMemoryBus::Connection::schedule(std::string_view name, std::uint64_t event) {
  const auto post = std::make_shared<Post>(Post{std::string(name), event});
  const bool isUnderWay = _bus->transmit(_link, [weak = weak_from_this(), post, number = _connectionNumber] {
    if (const auto connection = weak.lock()) connection->deliver(post, number);
  });
  if (isUnderWay) _undelivered.insert_or_assign(post->name, post);
}

void InMemoryBus::Connection::deliverOwn(const PostRef& post, std::uint64_t connectionNumber) {
  MutexLock lock(_bus->_mutex);
  if (connectionNumber != _connectionNumber) return;
  std::erase(_outstanding, post);
  lock.unlock();
  callObservers(*post);
}

void InMemoryBus::Connection::deliver(const PostRef& post, std::uint64_t connectionNumber) {
  MutexLock lock(_bus->_mutex);
  if (connectionNumber != _connectionNumber) return;
  const auto latest = _undelivered.find(post->name);
  if (latest != _undelivered.end() && latest->second == post) _undelivered.erase(latest);
  lock.unlock();
  callObservers(*post);
}

void InMemoryBus::Connection::callObservers(const Post& post) {
  std::vector<std::uint64_t> receivers;
  {
    const MutexLock lock(_bus->_mutex);
    for (const Registration& registration : _registrations) {
      if (registration.name == post.name && registration.event < post.event) receivers.push_back(registration.event);
    }
  }
  for (const std::uint64_t receiver : receivers) {
    if (const Callback callback = callbackOf(receiver)) (*callback)();
  }
}

InMemoryBus::Connection::Callback InMemoryBus::Connection::callbackOf(std::uint64_t registrationEvent) {
  // An observer that ran before may have removed this one.
  const MutexLock lock(_bus->_mutex);
  for (const Registration& registration : _registrations) {
    if (registration.event == registrationEvent) return registration.callback;
  }
  return nullptr;
}

std::shared_ptr<SystemNotifyBus> InMemoryBus::busFor(Process& process) {
  const MutexLock lock(_mutex);
  if (auto known = connectionOf(process)) return known;
  auto connection = std::make_shared<Connection>(shared_from_this(), ProcessLink::of(process));
  std::erase_if(_connections, [](const auto& weak) { return weak.expired(); });
  _connections.push_back(connection);
  return connection;
}

void InMemoryBus::post(std::string_view name) {
  const MutexLock lock(_mutex);
  ++_postCounts[std::string(name)];
  postToAllBut(nullptr, name);
}

void InMemoryBus::setCoalescesPostsOfOthers(bool coalesces) {
  const MutexLock lock(_mutex);
  _coalescesPostsOfOthers = coalesces;
}

void InMemoryBus::breakConnection(Process& process) {
  const MutexLock lock(_mutex);
  if (const auto connection = connectionOf(process)) connection->disconnect();
}

void InMemoryBus::restoreConnection(Process& process) {
  const MutexLock lock(_mutex);
  if (const auto connection = connectionOf(process)) connection->connectAgain();
}

void InMemoryBus::disturb(Fault fault, std::uint64_t times) {
  const MutexLock lock(_mutex);
  _fault = fault;
  _deliveriesToDisturb = times;
}

void InMemoryBus::endDisturbance() {
  const MutexLock lock(_mutex);
  _deliveriesToDisturb = 0;
  for (auto& [link, delivery] : std::exchange(_late, {})) link->async(std::move(delivery));
}

std::uint64_t InMemoryBus::postCount(std::string_view name) const {
  const MutexLock lock(_mutex);
  const auto found = _postCounts.find(name);
  return found != _postCounts.end() ? found->second : 0;
}

std::vector<std::shared_ptr<InMemoryBus::Connection>> InMemoryBus::connections() {
  std::vector<std::shared_ptr<Connection>> living;
  for (const auto& weak : _connections) {
    if (auto connection = weak.lock()) living.push_back(std::move(connection));
  }
  return living;
}

std::shared_ptr<InMemoryBus::Connection> InMemoryBus::connectionOf(Process& process) {
  for (auto& connection : connections()) {
    if (connection->link()->process() == &process) return connection;
  }
  return nullptr;
}

void InMemoryBus::postToAllBut(const Connection* poster, std::string_view name) {
  const std::uint64_t event = ++_lastEvent;
  for (const auto& connection : connections()) {
    if (connection.get() != poster) connection->postOfOther(name, event);
  }
}

bool InMemoryBus::transmit(const std::shared_ptr<ProcessLink>& link, const Task& delivery) {
  const bool isDisturbed = _deliveriesToDisturb > 0;
  if (isDisturbed) --_deliveriesToDisturb;
  if (isDisturbed && _fault == Fault::late) _late.emplace_back(link, delivery);
  if (isDisturbed && _fault != Fault::doubled) return false;
  link->async(delivery);
  if (isDisturbed) link->async(delivery);
  return true;
}

}  // namespace pellor
