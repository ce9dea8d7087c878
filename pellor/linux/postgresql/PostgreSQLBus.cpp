#include "pellor/linux/postgresql/PostgreSQLBus.h"

#include <set>
#include <utility>

#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/linux/postgresql/PostgreSQLLink.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// What waits to be sent, and the bus's ear on the service's thread.
class PostgreSQLBus::Outbox final : public PostgreSQLListener, public std::enable_shared_from_this<Outbox> {
 public:
  Outbox(Process& process, std::weak_ptr<PostgreSQLBus> bus) : _queue(process.mainQueue()), _bus(std::move(bus)) {}

  void add(const std::string& payload, PostgreSQLLink& link) {
    {
      const MutexLock lock(_mutex);
      _waiting.insert(payload);
    }
    link.performSoon([self = shared_from_this()](PostgreSQLConnection& connection) { self->send(connection); });
  }

  bool isEmpty() const {
    const MutexLock lock(_mutex);
    return _waiting.empty() && _underWay.empty();
  }

  void connected(PostgreSQLConnection& connection) override {
    tell([](PostgreSQLBus& bus) { bus.wasConnected(); });
    send(connection);
  }

  void notified(PostgreSQLLink& /*link*/, const PostgreSQLNotification& notification) override {
    const int sender = notification.sender;
    if (notification.channel == PostgreSQLLink::PostChannel) {
      tell([sender, payload = notification.payload](PostgreSQLBus& bus) { bus.heardPost(sender, payload); });
    } else if (notification.payload.starts_with(PostgreSQLLink::ListWritten)) {
      tell([sender](PostgreSQLBus& bus) { bus.heardListWritten(sender); });
    }
  }

 private:
  void tell(std::function<void(PostgreSQLBus&)> message) {
    _queue.async([bus = _bus, message = std::move(message)] {
      if (const auto living = bus.lock()) message(*living);
    });
  }

  void send(PostgreSQLConnection& connection) {
    PostgreSQLBatch batch;
    {
      const MutexLock lock(_mutex);
      // What an earlier sending left is sent again: nobody knows whether it arrived.
      _underWay.merge(std::exchange(_waiting, {}));
      for (const std::string& payload : _underWay) {
        batch.push_back({"SELECT pg_notify($1, $2)", {PostgreSQLLink::PostChannel, std::string_view(payload)}});
      }
    }
    if (batch.empty()) return;
    connection.run(batch);
    {
      const MutexLock lock(_mutex);
      _underWay.clear();
    }
    // A process that settles looks again.
    _queue.async([] {});
  }

  MainQueue& _queue;
  const std::weak_ptr<PostgreSQLBus> _bus;
  mutable Mutex _mutex;
  std::set<std::string> _waiting PELLOR_GUARDED_BY(_mutex);
  std::set<std::string> _underWay PELLOR_GUARDED_BY(_mutex);  ///< filled and cleared on the service's thread
};

std::shared_ptr<PostgreSQLBus> PostgreSQLBus::make(Process& process, std::shared_ptr<PostgreSQLService> service,
                                                   double postLimit) {
  const auto bus = std::make_shared<PostgreSQLBus>(Passkey{}, process, std::move(service), postLimit);
  bus->_outbox = std::make_shared<Outbox>(process, bus);
  bus->_service->link().addListener(bus->_outbox);
  return bus;
}

PostgreSQLBus::PostgreSQLBus(Passkey, Process& process, std::shared_ptr<PostgreSQLService> service, double postLimit)
    : _process(process), _service(std::move(service)), _postLimit(postLimit) {
  _process.addSettleParticipant(*this);
}

PostgreSQLBus::~PostgreSQLBus() { _process.removeSettleParticipant(*this); }

void PostgreSQLBus::addObserver(const void* observer, std::function<void()> callback, std::string_view name) {
  _process.requireMainQueue("PostgreSQLBus::addObserver");
  noticeConnection();
  _observers.add(observer, std::move(callback), name);
}

void PostgreSQLBus::removeObserver(const void* observer, std::string_view name) {
  _process.requireMainQueue("PostgreSQLBus::removeObserver");
  _observers.remove(observer, name);
}

void PostgreSQLBus::post(std::string_view name) {
  _process.requireMainQueue("PostgreSQLBus::post");
  _outbox->add(fileNameOf(name), _service->link());
  if (!_observers.isObserved(name)) return;
  _process.mainQueue().async(
      [weak = weak_from_this(), posted = std::string(name), endSerial = _observers.nextSerial()] {
        if (const auto self = weak.lock()) self->_observers.deliver(posted, endSerial);
      });
}

bool PostgreSQLBus::isSettled() const { return _outbox->isEmpty() || !_service->isConnected(); }

void PostgreSQLBus::deliverAll(std::uint64_t endSerial) {
  for (const std::string& name : _observers.names()) _observers.deliver(name, endSerial);
}

void PostgreSQLBus::heardPost(int sender, const std::string& payload) {
  _awaited.erase(sender);
  for (const std::string& name : _observers.names()) {
    if (fileNameOf(name) == payload) _observers.deliver(name, _observers.nextSerial());
  }
}

void PostgreSQLBus::heardListWritten(int sender) {
  _awaited[sender] = Timer::after(_process.mainQueue(), _postLimit, [weak = weak_from_this(), sender] {
    const auto self = weak.lock();
    if (!self) return;
    self->_awaited.erase(sender);
    self->deliverAll(self->_observers.nextSerial());
  });
}

void PostgreSQLBus::wasConnected() {
  noticeConnection();
  // One delivery for several connections that were made meanwhile.
  if (std::exchange(_deliveredConnection, _connectionCount) == _connectionCount) return;
  // The sessions of before post no more.
  _awaited.clear();
  deliverAll(_firstSerialOfConnection);
}

/// Registrations that are made from then on miss nothing.
void PostgreSQLBus::noticeConnection() {
  const std::uint64_t count = _service->link().connectionCount();
  if (std::exchange(_connectionCount, count) != count) _firstSerialOfConnection = _observers.nextSerial();
}

}  // namespace pellor
