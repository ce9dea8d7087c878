// In-process notifications by name.
#pragma once

#include <any>
#include <functional>
#include <memory>
#include <string>

#include "pellor/runtime/Object.h"

namespace pellor {

/// What an observer is given.
struct Notification {
  std::string name;
  std::shared_ptr<Object> object;  ///< the sender; null when there is none or it is gone
  std::any userInfo;               ///< further information; its type goes with the name

  /// The sender as a T; null when it is absent or something else.
  template <class T>
  std::shared_ptr<T> objectAs() const {
    return std::dynamic_pointer_cast<T>(object);
  }
  /// The further information as a T; null when it is something else. Lives as long as the notification.
  template <class T>
  const T* userInfoAs() const {
    return std::any_cast<T>(&userInfo);
  }
};

/// A registration. Ends with its last handle; after that the callback is never called again, not even by a post that is
/// under way. May be dropped on any thread and outlive the centre.
class Observation {
 public:
  virtual ~Observation() = default;
};

/// The notification centre of a process. Used on the main queue alone.
class NotificationCenter {
 public:
  using Callback = std::function<void(const Notification&)>;

  NotificationCenter();
  ~NotificationCenter();
  NotificationCenter(const NotificationCenter&) = delete;
  NotificationCenter& operator=(const NotificationCenter&) = delete;

  /// Calls `callback` for every post of `name`, from any sender.
  [[nodiscard]] std::shared_ptr<Observation> addObserver(std::string name, Callback callback);
  /// Only for posts whose object is `sender`.
  [[nodiscard]] std::shared_ptr<Observation> addObserver(std::string name, const std::shared_ptr<Object>& sender,
                                                         Callback callback);

  /// Calls the observers that are registered at this moment, in the order of their registration, before it returns.
  /// Observers may post, add and remove observers.
  void post(Notification notification);

 private:
  class Registry;
  std::shared_ptr<Registry> _registry;
};

}  // namespace pellor
