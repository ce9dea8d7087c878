#include "pellor/linux/notify/UnsharedBus.h"

#include <string>
#include <utility>

namespace pellor {

void UnsharedBus::addObserver(const void* observer, std::function<void()> callback, std::string_view name) {
  _observers->add(observer, std::move(callback), name);
}

void UnsharedBus::removeObserver(const void* observer, std::string_view name) { _observers->remove(observer, name); }

void UnsharedBus::post(std::string_view name) {
  _process.mainQueue().async([observers = _observers, name = std::string(name), end = _observers->nextSerial()] {
    observers->deliver(name, end);
  });
}

}  // namespace pellor
