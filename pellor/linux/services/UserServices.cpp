#include "pellor/linux/services/UserServices.h"

#include <algorithm>
#include <string>
#include <utility>

#include "pellor/linux/Configuration.h"
#include "pellor/linux/EmbeddedReports.h"
#include "pellor/linux/files/internal/SecretFile.h"
#include "pellor/linux/reachability/DirectoryReachability.h"
#include "pellor/linux/services/internal/BuiltAdapters.h"
#include "pellor/linux/services/internal/ServiceAdapter.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/BundleIdentifier.h"

namespace pellor {
namespace {

const ServiceAdapter* chosenAdapter(const ServiceAdapters& adapters, std::string_view part,
                                    const Configuration& configuration) {
  const std::string choice = configuration.text(part).value_or("");
  const auto found = std::ranges::find_if(
      adapters, [&](const ServiceAdapter& adapter) { return adapter.part == part && adapter.choice == choice; });
  return found == adapters.end() ? nullptr : &*found;
}

[[noreturn]] void throwNotBuilt(std::string_view part, const Configuration& configuration) {
  const std::string choice = *configuration.text(part);
  throw ConfigurationError(std::string(part) + " = \"" + choice + "\": this program was built without that adapter: " +
                           adapterAdvice(choice) + ", or choose another one");
}

}  // namespace

std::string requiredText(const Configuration& configuration, const char* key, const std::string& choice) {
  if (auto text = configuration.text(key)) return *std::move(text);
  throw ConfigurationError(choice + " needs the key " + key + " (pellor doctor --keys says what it means)");
}

ServiceReport reportOf(const DestinationDirectory::State& state, const char* advice,
                       const std::filesystem::path& secretFile) {
  ServiceReport report =
      state.answers ? ServiceReport::working(state.text) : ServiceReport::failing(state.text, advice);
  if (!secretFile.empty() && readSecret(secretFile).isOpenToOthers) {
    report.remarks.push_back("others can use what is in " + secretFile.string() +
                             ": make it readable for yourself alone (chmod 600)");
  }
  return report;
}

std::shared_ptr<ReachabilityService> reachabilityOf(Process& process, std::shared_ptr<ReachabilityService> conversions,
                                                    std::unique_ptr<DestinationDirectory> directory,
                                                    const std::filesystem::path& dataFolder) {
  DirectoryReachabilityOptions options;
  options.dataFolder = dataFolder;
  options.notifyBus = [&process] { return platformOf(process).notifyBus; };
  return std::make_shared<DirectoryReachability>(process, std::move(conversions), std::move(directory),
                                                 serviceLog(process, "reachability"), std::move(options));
}

LogHandle serviceLog(Process& process, const char* category) { return {BundleIdentifier, category, process.logSink()}; }

LinuxPlatformOptions servicesOptions(const Configuration& configuration, ListKeys keys) {
  LinuxPlatformOptions options = embeddedOptions(configuration);
  options.listKeys = std::move(keys);
  const ServiceAdapters adapters = builtAdapters();
  for (const std::string_view part : configurationParts()) {
    if (!configuration.choosesService(part)) continue;
    const ServiceAdapter* adapter = chosenAdapter(adapters, part, configuration);
    if (!adapter) throwNotBuilt(part, configuration);
    if (adapter->choose) adapter->choose(configuration, options);
  }
  return options;
}

std::shared_ptr<LogSink> logSinkOf(const Configuration& configuration, std::shared_ptr<LogSink> fallback) {
  if (!configuration.choosesService("log")) return fallback;
  const ServiceAdapters adapters = builtAdapters();
  const ServiceAdapter* adapter = chosenAdapter(adapters, "log", configuration);
  if (!adapter) throwNotBuilt("log", configuration);
  return adapter->makeLog(configuration, std::move(fallback));
}

ServiceReport reportOnPart(Process& process, std::string_view part, const Configuration& configuration) {
  if (const auto report = reportOnEmbedded(part, configuration)) return *report;
  try {
    const ServiceAdapters adapters = builtAdapters();
    const ServiceAdapter* adapter = chosenAdapter(adapters, part, configuration);
    if (!adapter) throwNotBuilt(part, configuration);
    return adapter->report(process, configuration);
  } catch (const ConfigurationError& error) {
    return ServiceReport::failing(error.what(), "");
  }
}

}  // namespace pellor
