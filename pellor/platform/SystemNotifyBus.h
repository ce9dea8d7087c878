// Cross-process notifications by name.
#pragma once

#include <functional>
#include <string_view>

namespace pellor {

/// Used on the main queue; callbacks arrive on it, never inside a call.
///
/// A poster pairs each of its own posts with one delivery. So for every observed name a process gets exactly one
/// delivery for each post of its own, in order; at least one delivery after the last of any posts of others; nothing
/// for a name that it does not observe; and after a broken connection the outstanding deliveries of its own posts and
/// one more that says that somebody may have posted.
class SystemNotifyBus {
 public:
  virtual ~SystemNotifyBus() = default;

  /// Runs `callback` for each delivery of `name`, from any process, this one included. `observer` tells registrations
  /// of one name apart; with several of them each gets every delivery, in the order of registration.
  virtual void addObserver(const void* observer, std::function<void()> callback, std::string_view name) = 0;
  /// Ends the registration: the callback is never called again. Unknown ones are ignored.
  virtual void removeObserver(const void* observer, std::string_view name) = 0;
  /// Posts the name to all processes at once. Carries nothing else.
  virtual void post(std::string_view name) = 0;
};

}  // namespace pellor
