#include "pellor/runtime/NotificationCenter.h"

#include <atomic>
#include <map>
#include <utility>
#include <vector>

#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// Shared with the registrations, which may outlive the centre.
class NotificationCenter::Registry : public std::enable_shared_from_this<Registry> {
 public:
  explicit Registry(Process& process) : _process(process) {}

  /// `sender` absent: any.
  std::shared_ptr<Observation> observe(std::string name, std::optional<std::weak_ptr<Object>> sender,
                                       Callback callback);
  void post(const Notification& notification) const;

 private:
  struct Entry {
    const std::string name;
    const std::optional<std::weak_ptr<Object>> sender;
    const Callback callback;
    std::atomic<bool> hasEnded = false;  // set once, by the end of the registration on any thread

    bool accepts(const Notification& notification) const;
  };
  using Entries = std::vector<std::shared_ptr<Entry>>;
  class Registration;

  Entries entriesFor(const std::string& name) const;
  void remove(const std::shared_ptr<Entry>& entry);

  Process& _process;
  mutable Mutex _mutex;  // registrations end on any thread
  std::map<std::string, Entries> _entries PELLOR_GUARDED_BY(_mutex);
};

class NotificationCenter::Registry::Registration final : public Observation {
 public:
  Registration(std::weak_ptr<Registry> registry, std::shared_ptr<Entry> entry)
      : _registry(std::move(registry)), _entry(std::move(entry)) {}
  ~Registration() override {
    _entry->hasEnded = true;
    if (const auto registry = _registry.lock()) registry->remove(_entry);
  }

 private:
  std::weak_ptr<Registry> _registry;
  std::shared_ptr<Entry> _entry;
};

bool NotificationCenter::Registry::Entry::accepts(const Notification& notification) const {
  if (hasEnded) return false;
  if (!sender) return true;
  // Compared while both live: a new object at the address of one that is gone is somebody else.
  const auto observed = sender->lock();
  return observed && observed == notification.object;
}

std::shared_ptr<Observation> NotificationCenter::Registry::observe(std::string name,
                                                                   std::optional<std::weak_ptr<Object>> sender,
                                                                   Callback callback) {
  _process.requireMainQueue("NotificationCenter::addObserver");
  require(callback != nullptr, "an observer with a callback");
  auto entry = std::make_shared<Entry>(std::move(name), std::move(sender), std::move(callback));
  {
    const MutexLock lock(_mutex);
    _entries[entry->name].push_back(entry);
  }
  return std::make_shared<Registration>(weak_from_this(), std::move(entry));
}

NotificationCenter::Registry::Entries NotificationCenter::Registry::entriesFor(const std::string& name) const {
  const MutexLock lock(_mutex);
  const auto found = _entries.find(name);
  return found == _entries.end() ? Entries() : found->second;
}

void NotificationCenter::Registry::remove(const std::shared_ptr<Entry>& entry) {
  const MutexLock lock(_mutex);
  const auto found = _entries.find(entry->name);
  std::erase(found->second, entry);
  if (found->second.empty()) _entries.erase(found);
}

void NotificationCenter::Registry::post(const Notification& notification) const {
  _process.requireMainQueue("NotificationCenter::post");
  for (const auto& entry : entriesFor(notification.name)) {
    if (entry->accepts(notification)) entry->callback(notification);
  }
}

NotificationCenter::NotificationCenter() : _registry(std::make_shared<Registry>(Process::current())) {}

NotificationCenter::~NotificationCenter() = default;

std::shared_ptr<Observation> NotificationCenter::addObserver(std::string name, Callback callback) {
  return _registry->observe(std::move(name), std::nullopt, std::move(callback));
}

std::shared_ptr<Observation> NotificationCenter::addObserver(std::string name, const std::shared_ptr<Object>& sender,
                                                             Callback callback) {
  require(sender != nullptr, "a sender to observe");
  return _registry->observe(std::move(name), std::weak_ptr(sender), std::move(callback));
}

void NotificationCenter::post(Notification notification) { _registry->post(notification); }

}  // namespace pellor
