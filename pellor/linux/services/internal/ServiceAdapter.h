// What the configuration may choose for a part of the platform, apart from the embedded ones.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "pellor/linux/Configuration.h"
#include "pellor/linux/LinuxPlatform.h"
#include "pellor/linux/ServiceReport.h"
#include "pellor/linux/reachability/DestinationDirectory.h"
#include "pellor/runtime/Log.h"

namespace pellor {

/// One choice. Each adapter of this build has a file of its own here that describes it.
struct ServiceAdapter {
  std::string part;    ///< a key of configurationParts
  std::string choice;  ///< a value of it
  /// Puts the maker of the part into the options. Throws ConfigurationError when a key is missing that it needs. Empty
  /// for a log.
  std::function<void(const Configuration& configuration, LinuxPlatformOptions& options)> choose;
  /// How the service is. May wait for it, for some seconds. Throws ConfigurationError likewise.
  std::function<ServiceReport(Process& process, const Configuration& configuration)> report;
  /// Makes a log, which is there before the platform; empty for other parts. `fallback` may be null.
  std::function<std::shared_ptr<LogSink>(const Configuration& configuration, std::shared_ptr<LogSink> fallback)>
      makeLog;
};

using ServiceAdapters = std::vector<ServiceAdapter>;

/// The value of a key that the choice needs. Throws ConfigurationError when it is unset.
std::string requiredText(const Configuration& configuration, const char* key, const std::string& choice);

/// What a directory says of itself, as a report, with a remark where others can use what is in its file of a password
/// or token; an empty path: it has none.
ServiceReport reportOf(const DestinationDirectory::State& state, const char* advice,
                       const std::filesystem::path& secretFile);

/// A service that asks the directory, keeps its answers in the data folder and tells of them on the process's bus.
std::shared_ptr<ReachabilityService> reachabilityOf(Process& process, std::shared_ptr<ReachabilityService> conversions,
                                                    std::unique_ptr<DestinationDirectory> directory,
                                                    const std::filesystem::path& dataFolder);

/// The log of the services, as of all parts of the platform.
LogHandle serviceLog(Process& process, const char* category);

}  // namespace pellor
