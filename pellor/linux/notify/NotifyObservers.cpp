#include "pellor/linux/notify/NotifyObservers.h"

#include <algorithm>
#include <utility>

namespace pellor {

void NotifyObservers::add(const void* observer, std::function<void()> callback, std::string_view name) {
  remove(observer, name);
  _registrations[std::string(name)].push_back(
      {observer, _nextSerial++, std::make_shared<const std::function<void()>>(std::move(callback))});
}

void NotifyObservers::remove(const void* observer, std::string_view name) {
  const auto found = _registrations.find(name);
  if (found == _registrations.end()) return;
  std::erase_if(found->second, [&](const Registration& known) { return known.observer == observer; });
  if (found->second.empty()) _registrations.erase(found);
}

std::vector<std::string> NotifyObservers::names() const {
  std::vector<std::string> names;
  for (const auto& [name, registrations] : _registrations) names.push_back(name);
  return names;
}

void NotifyObservers::deliver(std::string_view name, std::uint64_t endSerial) {
  for (std::uint64_t nextSerial = 0; nextSerial < endSerial;) {
    const auto found = _registrations.find(name);
    if (found == _registrations.end()) return;
    const auto& registrations = found->second;
    const auto next =
        std::ranges::find_if(registrations, [&](const Registration& known) { return known.serial >= nextSerial; });
    if (next == registrations.end() || next->serial >= endSerial) return;
    nextSerial = next->serial + 1;
    const auto callback = next->callback;
    (*callback)();
  }
}

}  // namespace pellor
