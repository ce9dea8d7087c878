// The platform as the user's configuration chooses it.
//
//   pellor::Process process(pellor::logSinkOf(configuration, nullptr));
//   pellor::LinuxPlatform platform(process, pellor::servicesOptions(configuration, keys));
//
// Links every adapter that was built. A program that needs few of them, or starts often, links these alone and fills in
// LinuxParts itself.
#pragma once

#include <memory>
#include <string_view>

#include "pellor/linux/Configuration.h"
#include "pellor/linux/LinuxPlatform.h"
#include "pellor/linux/ServiceReport.h"
#include "pellor/runtime/Log.h"

namespace pellor {

/// `keys` are those of the library: PLFriendListKey, PLGroupTitlesKey and PLDidNormalizeFriendListDestinationsKey of
/// each domain, and PLRefreshAgainstContactsOnInitEnabledKey. Nothing is connected yet. Throws ConfigurationError for a
/// choice whose adapter was not built, or that lacks a key which it needs.
LinuxPlatformOptions servicesOptions(const Configuration& configuration, ListKeys keys);

/// Where the log goes. `fallback`, which may be null, takes lines where nothing is chosen and while what is chosen is
/// not there.
std::shared_ptr<LogSink> logSinkOf(const Configuration& configuration, std::shared_ptr<LogSink> fallback);

/// How one of configurationParts is. May wait for a service, for some seconds; makes and changes nothing. Main queue of
/// `process`, which needs no platform.
ServiceReport reportOnPart(Process& process, std::string_view part, const Configuration& configuration);

}  // namespace pellor
