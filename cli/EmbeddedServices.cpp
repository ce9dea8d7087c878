// `pellor`: the embedded platform alone.

#include <unistd.h>

#include <filesystem>
#include <string>
#include <system_error>

#include "cli/Services.h"
#include "pellor/linux/Configuration.h"
#include "pellor/linux/EmbeddedReports.h"

namespace pellor::cli {
namespace {

namespace fs = std::filesystem;

constexpr const char* ServicesProgram = "pellor-services";

// In the build tree beside this program, installed where programs lie that are not called by hand.
fs::path servicesProgram() {
  std::error_code ignored;
  const fs::path folder = fs::read_symlink("/proc/self/exe", ignored).parent_path();
  for (const fs::path& candidate :
       {folder / ServicesProgram, folder.parent_path() / "libexec/pellor" / ServicesProgram}) {
    if (::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return {};
}

bool isNeeded(const CommandLine& line) {
  if (line.services == Services::needed) return true;
  return line.services == Services::ifChosen && line.options.configuration.choosesServices();
}

// The program without adapters was built where the libraries of none were found.
std::string adviceFor(const CommandLine& line) {
  const Configuration& configuration = line.options.configuration;
  for (const std::string_view part : configurationParts()) {
    if (configuration.choosesService(part))
      return adapterAdvice(*configuration.text(part)) + ", or choose another " + std::string(part) + " (pellor doctor)";
  }
  return adapterAdvice("mqtt");
}

}  // namespace

void chooseProgram(const CommandLine& line, char** arguments) {
  if (line.services == Services::ifChosen && !isNeeded(line)) return;
  const fs::path other = servicesProgram();
  if (!other.empty()) ::execv(other.c_str(), arguments);
  if (!isNeeded(line)) return;
  throw CommandError(std::string(ServicesProgram) + " is missing, which is needed for this: " + adviceFor(line));
}

LinuxPlatformOptions platformOptionsFor(const Configuration& configuration) { return embeddedOptions(configuration); }

std::shared_ptr<LogSink> logSinkFor(const Configuration&) { return nullptr; }

ServiceReport reportOn(Process&, std::string_view part, const Configuration& configuration) {
  if (const auto report = reportOnEmbedded(part, configuration)) return *report;
  return ServiceReport::failing("this program has no adapter for it",
                                adapterAdvice(*configuration.text(part)) + ", or choose another one");
}

}  // namespace pellor::cli
