// bus = "session"

#include "pellor/linux/sdbus/SessionBus.h"
#include "pellor/linux/services/internal/BuiltAdapters.h"

namespace pellor {
namespace {

SessionBusOptions optionsOf(const Configuration& configuration) {
  SessionBusOptions options;
  if (const auto address = configuration.text("session-bus.address")) options.address = *address;
  return options;
}

void choose(const Configuration& configuration, LinuxPlatformOptions& options) {
  options.parts.notifyBus = [bus = optionsOf(configuration)](Process& process, std::shared_ptr<NotifyFolder> folder) {
    return std::make_shared<SessionBus>(process, std::move(folder), serviceLog(process, "bus"), bus);
  };
}

ServiceReport report(Process&, const Configuration& configuration) {
  return SessionBus::report(optionsOf(configuration));
}

}  // namespace

ServiceAdapters sdbusAdapters() { return {{"bus", "session", choose, report, {}}}; }

}  // namespace pellor
