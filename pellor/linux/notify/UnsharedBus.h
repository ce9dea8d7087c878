// A bus for a dry run.
#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "pellor/linux/notify/NotifyObservers.h"
#include "pellor/platform/SystemNotifyBus.h"
#include "pellor/runtime/Process.h"

namespace pellor {

/// What is posted is heard by this process alone, and nothing of others is heard. Main queue.
class UnsharedBus final : public SystemNotifyBus {
 public:
  explicit UnsharedBus(Process& process) : _process(process), _observers(std::make_shared<NotifyObservers>()) {}

  void addObserver(const void* observer, std::function<void()> callback, std::string_view name) override;
  void removeObserver(const void* observer, std::string_view name) override;
  void post(std::string_view name) override;

 private:
  Process& _process;
  const std::shared_ptr<NotifyObservers> _observers;
};

}  // namespace pellor
