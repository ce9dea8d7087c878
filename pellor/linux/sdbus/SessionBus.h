// Notifications between the user's processes over the session bus, by sd-bus.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "pellor/linux/ServiceReport.h"
#include "pellor/linux/files/UserFolders.h"
#include "pellor/linux/notify/NotifyFolder.h"
#include "pellor/platform/SystemNotifyBus.h"
#include "pellor/runtime/Log.h"
#include "pellor/runtime/Process.h"

namespace pellor {

class BusConnection;

struct SessionBusOptions {
  /// In D-Bus's form.
  std::string address = addressOfUser();
  /// A bus that does not answer for that long is taken for one that is away.
  std::chrono::microseconds answerLimit = std::chrono::seconds(2);

  /// $DBUS_SESSION_BUS_ADDRESS, else the socket "bus" in $XDG_RUNTIME_DIR, else that of the user's logins: a program
  /// that a timer starts has neither variable and finds the bus nevertheless.
  static std::string addressOfUser(const Environment& environment = processEnvironment);
};

/// The folder of counters and the session bus as one. Processes of one user need not have both in common: one that was
/// started from afar may have no bus, one in a container or started by a timer another folder. So every post goes both
/// ways and is heard from both, and two processes hear each other as long as they have either in common. Own deliveries
/// are the folder's. A post of another process that comes both ways may be delivered twice.
///
/// A post is the signal `Posted` of the interface `org.tapnote.Pellor.Notify1` at `/org/tapnote/Pellor/Notify1`, with
/// the name as its argument, spelled as a file name (see `fileNameOf`): names of letters, digits, ".", "-" and "_" are
/// as they are. Like the folder, the bus is the user's: all data folders of a user have it in common.
///
/// Without a bus, or while it is away, the folder serves alone; the log says so once, and once when the bus is there. A
/// bus that is away is sought again with a growing pause. When it is found each observed name gets a delivery, and the
/// names that were posted meanwhile are sent.
///
/// A program that ends at once (a folder that hears `whenSettling`) connects when it posts first, is not settled before
/// its posts are on the bus, and hears the others by the folder.
///
/// Main queue. Destroyed on it too, at the latest with the process. The connection has a thread of its own.
class SessionBus final : public SystemNotifyBus, public SettleParticipant {
 public:
  SessionBus(Process& process, std::shared_ptr<NotifyFolder> folder, LogHandle log, SessionBusOptions options = {});
  ~SessionBus() override;

  /// A second registration of the same observer for the same name takes the place of the first. Waits until the bus
  /// lets the name be heard, at most for the limit of an answer, and not while the bus is away.
  void addObserver(const void* observer, std::function<void()> callback, std::string_view name) override;
  void removeObserver(const void* observer, std::string_view name) override;
  void post(std::string_view name) override;

  /// Whether no own post is still to be sent over a bus that is there.
  bool isSettled() const override;
  bool isWritten() const override { return true; }

  /// How the bus is; asks it, for at most the limit of an answer. Any thread.
  static ServiceReport report(const SessionBusOptions& options);

 private:
  class Inbox;

  BusConnection& connection();

  Process& _process;
  const std::shared_ptr<NotifyFolder> _folder;
  const LogHandle _log;
  const SessionBusOptions _options;
  const std::shared_ptr<Inbox> _heard;
  std::unique_ptr<BusConnection> _connection;
};

}  // namespace pellor
