// Posts between processes as counters in one file.
#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "Files.h"
#include "pellor/platform/SystemNotifyBus.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Timer.h"

namespace port {

/// Own posts are delivered here, each once; posts of others are seen as counters that have grown. The file bears a
/// number: another one says that it was lost, and that anybody may have posted. Main queue; the process outlives it.
class FileBus : public pellor::SystemNotifyBus, public std::enable_shared_from_this<FileBus> {
 public:
  static std::shared_ptr<FileBus> make(pellor::Process& process, fs::path file) {
    auto bus = std::make_shared<FileBus>(process, std::move(file));
    bus->_timer = pellor::Timer::make(process.mainQueue(), [weak = std::weak_ptr(bus)] {
      if (const auto alive = weak.lock()) alive->lookNowAndThen();
    });
    bus->lookNowAndThen();
    return bus;
  }
  FileBus(pellor::Process& process, fs::path file) : _process(process), _file(std::move(file)) {}

  void addObserver(const void* observer, std::function<void()> callback, std::string_view name) override {
    look();  // so that what was posted before is not taken for new
    _observers[std::string(name)].emplace_back(observer, std::move(callback));
  }
  void removeObserver(const void* observer, std::string_view name) override {
    auto& observers = _observers[std::string(name)];
    std::erase_if(observers, [&](const auto& each) { return each.first == observer; });
    if (observers.empty()) _observers.erase(std::string(name));
  }
  void post(std::string_view name) override {
    _unposted.emplace_back(name);
    deliver(_unposted.back());
    look();
  }

 private:
  using Observers = std::vector<std::pair<const void*, std::function<void()>>>;  // in the order of registration
  using Counts = std::map<std::string, std::int64_t>;
  struct State {
    std::int64_t number = 0;
    Counts counts;
  };

  void lookNowAndThen() {
    look();
    _timer->fireAt(_process.now() + 0.02);
  }
  /// Reads what others posted, and posts what is not yet posted: again and again, should the file not take it.
  void look() {
    if (const auto state = read(); state && _unposted.empty()) return hear(*state);
    const FileLock lock(_file.string() + ".lock");
    State state = read().value_or(State{randomNumber(), {}});
    State next = state;
    for (const std::string& name : _unposted) ++next.counts[name];
    pellor::Dictionary counts(next.counts.begin(), next.counts.end());
    const std::string bytes = encoded(pellor::Array{next.number, std::move(counts)}).value();
    if (!lock.isHeld() || replaceFile(_file, bytes) == Replaced::no) return;
    hear(state);
    _last = std::move(next);
    _unposted.clear();
  }
  std::optional<State> read() const {
    const auto bytes = readFile(_file).value();
    const auto content = bytes ? decoded(*bytes) : std::nullopt;
    const pellor::Array* parts = content ? content->array() : nullptr;
    if (!parts || parts->size() != 2 || !(*parts)[0].integer() || !(*parts)[1].dictionary()) return std::nullopt;
    State state{*(*parts)[0].integer(), {}};
    for (const auto& [name, count] : *(*parts)[1].dictionary()) state.counts[name] = count.integer().value_or(0);
    return state;
  }
  void hear(const State& state) {
    const auto countIn = [](const State& some, const std::string& name) {
      const auto found = some.counts.find(name);
      return found != some.counts.end() ? found->second : 0;
    };
    for (const auto& [name, observers] : _observers)
      if (state.number != _last.number || countIn(state, name) != countIn(_last, name)) deliver(name);
    _last = state;
  }
  Observers observersOf(const std::string& name) const {
    const auto found = _observers.find(name);
    return found != _observers.end() ? found->second : Observers();
  }
  /// Later, to the observers of that time.
  void deliver(const std::string& name) {
    if (!_observers.contains(name)) return;
    _process.mainQueue().async([weak = weak_from_this(), name] {
      const auto bus = weak.lock();
      for (const auto& [observer, callback] : bus ? bus->observersOf(name) : Observers()) {
        // An earlier callback may have removed it.
        const Observers now = bus->observersOf(name);
        if (std::ranges::count(now, observer, &Observers::value_type::first) > 0) callback();
      }
    });
  }

  pellor::Process& _process;
  const fs::path _file;
  State _last;
  std::vector<std::string> _unposted;
  std::map<std::string, Observers> _observers;
  std::shared_ptr<pellor::Timer> _timer;
};

}  // namespace port
