// `pellor-services`: with the adapters for the user's own services.

#include "pellor/linux/services/UserServices.h"
#include "pellor/linux/Configuration.h"
#include "pellor/runtime/Process.h"

#include "cli/CommandError.h"
#include "cli/Services.h"
#include "pellor/list/SyncedKeys.h"

namespace pellor::cli {

void chooseProgram(const CommandLine&, char**) {}

LinuxPlatformOptions platformOptionsFor(const Configuration& configuration) {
  try {
    return servicesOptions(configuration, {{{*configuration.text("domain"), syncedKeys()}}, followsContactsKey()});
  } catch (const ConfigurationError& error) {
    throw UsageError(error.what());
  }
}

std::shared_ptr<LogSink> logSinkFor(const Configuration& configuration) {
  try {
    return logSinkOf(configuration, nullptr);
  } catch (const ConfigurationError& error) {
    throw UsageError(error.what());
  }
}

ServiceReport reportOn(Process& process, std::string_view part, const Configuration& configuration) {
  return reportOnPart(process, part, configuration);
}

}  // namespace pellor::cli
