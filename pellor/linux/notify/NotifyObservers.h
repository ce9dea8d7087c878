// The observers of a bus, by the names that they observe.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace pellor {

/// The registrations of one process, which may change while a name is delivered. Main queue.
class NotifyObservers {
 public:
  /// A second registration of the same observer for the same name takes the place of the first.
  void add(const void* observer, std::function<void()> callback, std::string_view name);
  void remove(const void* observer, std::string_view name);
  bool isObserved(std::string_view name) const { return _registrations.contains(name); }
  std::vector<std::string> names() const;

  /// Registrations from now on have this serial or a greater one.
  std::uint64_t nextSerial() const { return _nextSerial; }
  /// Calls the registrations of the name that were made before `endSerial` and still stand when their turn comes. The
  /// object has to live until it returns.
  void deliver(std::string_view name, std::uint64_t endSerial);

 private:
  struct Registration {
    const void* observer;
    std::uint64_t serial;
    std::shared_ptr<const std::function<void()>> callback;
  };

  std::map<std::string, std::vector<Registration>, std::less<>> _registrations;  ///< never empty ones
  std::uint64_t _nextSerial = 0;
};

}  // namespace pellor
