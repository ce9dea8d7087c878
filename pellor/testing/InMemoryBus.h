// Cross-process notifications in memory.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pellor/platform/SystemNotifyBus.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

class ProcessLink;

/// The bus that connects the processes of a world. Deliveries are tasks on the main queue of the receiving process. An
/// observer gets the posts that were made after its registration. Any thread. Made with `std::make_shared`.
class InMemoryBus : public std::enable_shared_from_this<InMemoryBus> {
 public:
  /// The connection of a process, made on the first call. Main queue.
  std::shared_ptr<SystemNotifyBus> busFor(Process& process);

  /// Posts as a process outside the simulation would.
  void post(std::string_view name);

  /// Lets posts of others that are still to be delivered merge into one delivery, as a transport under load may do. Off
  /// at first: each post of another process is one delivery.
  void setCoalescesPostsOfOthers(bool coalesces);
  /// Cuts a process off: what is on its way to it is lost, and what it posts waits.
  void breakConnection(Process& process);
  /// Connects it again: its waiting posts go out, its outstanding own posts are delivered, and for each name that it
  /// observes one more delivery says that somebody may have posted.
  void restoreConnection(Process& process);

  /// What may become of a delivery on a transport that does not keep its promise.
  enum class Fault {
    lost,     ///< it never arrives
    doubled,  ///< it arrives twice
    late,     ///< it arrives with `deliverLate`
  };
  /// Lets the next `times` deliveries fare like that, those of a poster's own posts among them.
  void disturb(Fault fault, std::uint64_t times);
  /// Lets the late ones arrive, in their order, and all further deliveries fare well. What is late for a process that
  /// has ended, or lost its connection since, is lost.
  void endDisturbance();

  /// How often the name was posted, by processes of the world and by `post`.
  std::uint64_t postCount(std::string_view name) const;

 private:
  class Connection;

  std::vector<std::shared_ptr<Connection>> connections() PELLOR_REQUIRES(_mutex);
  std::shared_ptr<Connection> connectionOf(Process& process) PELLOR_REQUIRES(_mutex);
  void postToAllBut(const Connection* poster, std::string_view name) PELLOR_REQUIRES(_mutex);
  /// Whether the delivery is on its way: not if it is lost or late.
  bool transmit(const std::shared_ptr<ProcessLink>& link, const Task& delivery) PELLOR_REQUIRES(_mutex);

  mutable Mutex _mutex;  // guards the fields of all connections, too
  std::vector<std::weak_ptr<Connection>> _connections PELLOR_GUARDED_BY(_mutex);
  std::uint64_t _lastEvent PELLOR_GUARDED_BY(_mutex) = 0;  // numbers posts and registrations in their order
  bool _coalescesPostsOfOthers PELLOR_GUARDED_BY(_mutex) = false;
  Fault _fault PELLOR_GUARDED_BY(_mutex) = Fault::lost;
  std::uint64_t _deliveriesToDisturb PELLOR_GUARDED_BY(_mutex) = 0;
  std::vector<std::pair<std::shared_ptr<ProcessLink>, Task>> _late PELLOR_GUARDED_BY(_mutex);
  std::map<std::string, std::uint64_t, std::less<>> _postCounts PELLOR_GUARDED_BY(_mutex);
};

}  // namespace pellor
