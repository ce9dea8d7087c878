// Notifications between the user's machines, by a PostgreSQL server.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "pellor/linux/notify/NotifyObservers.h"
#include "pellor/linux/postgresql/PostgreSQLService.h"
#include "pellor/platform/SystemNotifyBus.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Timer.h"

namespace pellor {

/// A post goes out on the service's thread. While there is no connection it waits there and others hear of it later;
/// own deliveries do not go through the server at all. Several posts of a name that wait are one. After a connection
/// was made, each name that was observed before gets a delivery, since somebody may have posted meanwhile.
///
/// A list that another process writes is notified with the write itself (see PostgreSQLPreferences). When no post of
/// that process follows soon, because it ended in between, every observed name gets a delivery.
///
/// While a process settles it waits for its posts to go out, unless the server is away. Main queue. Destroyed on it
/// too, at the latest with the process.
class PostgreSQLBus final : public SystemNotifyBus,
                            public SettleParticipant,
                            public std::enable_shared_from_this<PostgreSQLBus> {
  struct Passkey {};

 public:
  /// `postLimit` is how long after a list was written its post is awaited, in seconds.
  static std::shared_ptr<PostgreSQLBus> make(Process& process, std::shared_ptr<PostgreSQLService> service,
                                             double postLimit = 2);

  PostgreSQLBus(Passkey, Process& process, std::shared_ptr<PostgreSQLService> service, double postLimit);
  ~PostgreSQLBus() override;

  /// A second registration of the same observer for the same name takes the place of the first.
  void addObserver(const void* observer, std::function<void()> callback, std::string_view name) override;
  void removeObserver(const void* observer, std::string_view name) override;
  void post(std::string_view name) override;

  bool isSettled() const override;
  bool isWritten() const override { return true; }

 private:
  class Outbox;

  void deliverAll(std::uint64_t endSerial);
  void heardPost(int sender, const std::string& payload);
  void heardListWritten(int sender);
  void wasConnected();
  void noticeConnection();

  Process& _process;
  const std::shared_ptr<PostgreSQLService> _service;
  const double _postLimit;
  std::shared_ptr<Outbox> _outbox;
  NotifyObservers _observers;
  std::uint64_t _connectionCount = 0;          ///< of the last connection that was noticed
  std::uint64_t _deliveredConnection = 0;      ///< of the last one after which all names were delivered
  std::uint64_t _firstSerialOfConnection = 0;  ///< registrations below were made before the last one that was noticed
  std::map<int, std::shared_ptr<Timer>> _awaited;  ///< by the sessions of which a post is due
};

}  // namespace pellor
