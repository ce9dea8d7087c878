#include "pellor/friends/internal/PLStoreFailures.h"

#include <utility>

#include "pellor/friends/internal/PLListWriter.h"

namespace pellor {
namespace {

// Between the attempts to read a store that fails.
constexpr BackOff::Pauses LoadRetryPauses{.first = 0.1, .longest = 60};
// An edit that was overtaken is made again at once and then, while others keep writing, after random parts of these.
constexpr BackOff::Pauses OvertakenPauses{.first = 0.005, .longest = 0.25};

}  // namespace

PLStoreFailures::PLStoreFailures(Process& process, const PLListWriter& writer, Handlers handlers)
    : _writer(writer),
      _handlers(std::move(handlers)),
      _loadRetry(process.mainQueue(), LoadRetryPauses),
      _overtakenRetry(process.mainQueue(), OvertakenPauses, &process.scheduler()) {}

std::optional<PLStoreTrouble> PLStoreFailures::trouble() const {
  if (_isUnreadable) return PLStoreTrouble::reading;
  return _writer.hasFailed() ? std::optional(PLStoreTrouble::writing) : std::nullopt;
}

void PLStoreFailures::noteUnreadable() {
  _isUnreadable = true;
  tellIfChanged();
  loadLater();
}

void PLStoreFailures::noteRead() {
  _isUnreadable = false;
  tellIfChanged();
  _loadRetry.reset();
  _loadRetry.cancel();
}

void PLStoreFailures::noteWrites() { tellIfChanged(); }

void PLStoreFailures::loadLater() { _loadRetry.retry(_handlers.load); }

void PLStoreFailures::noteOvertaken() {
  if (!std::exchange(_wasOvertaken, true)) return _handlers.loadIfNewer();
  _overtakenRetry.retry(_handlers.loadIfNewer);
}

void PLStoreFailures::noteAccepted() {
  _wasOvertaken = false;
  _overtakenRetry.reset();
}

void PLStoreFailures::tellIfChanged() {
  const auto now = trouble();
  if (std::exchange(_told, now) != now) _handlers.troubleChanged();
}

}  // namespace pellor
