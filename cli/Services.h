// The user's own services, as far as this program has them.
//
// Loading the libraries of all adapters takes longer than listing the friends. So there are two programs of the same
// sources: `pellor` has the embedded platform alone, and becomes `pellor-services` where more is asked for.
#pragma once

#include <memory>
#include <string_view>

#include "cli/CommandLine.h"
#include "pellor/linux/Configuration.h"
#include "pellor/linux/LinuxPlatform.h"
#include "pellor/linux/ServiceReport.h"
#include "pellor/runtime/Log.h"

namespace pellor::cli {

/// Returns if this program can do what the command line asks for; else the other one takes its place, with these
/// arguments. Throws CommandError when there is none.
void chooseProgram(const CommandLine& line, char** arguments);

/// How the platform is made by this configuration.
LinuxPlatformOptions platformOptionsFor(const Configuration& configuration);

/// Where the log goes; null: nowhere.
std::shared_ptr<LogSink> logSinkFor(const Configuration& configuration);

/// How a part (see configurationParts) is. In a process without a platform.
ServiceReport reportOn(Process& process, std::string_view part, const Configuration& configuration);

}  // namespace pellor::cli
