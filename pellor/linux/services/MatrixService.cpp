// reachability = "matrix"

#include "pellor/linux/matrix/MatrixDirectory.h"
#include "pellor/linux/reachability/DirectoryReachability.h"
#include "pellor/linux/services/internal/BuiltAdapters.h"

namespace pellor {
namespace {

MatrixDirectoryOptions optionsOf(const Configuration& configuration) {
  MatrixDirectoryOptions options;
  options.url = requiredText(configuration, "matrix.url", "matrix");
  options.accessTokenFile = requiredText(configuration, "matrix.token-file", "matrix");
  options.certificates = configuration.path("matrix.ca-file").value_or("");
  options.allowsPlainHttp = configuration.flag("matrix.plain-http");
  options.allowsPlainAddresses = configuration.flag("matrix.plain-addresses");
  return options;
}

void choose(const Configuration& configuration, LinuxPlatformOptions& options) {
  options.parts.reachability = [directory = optionsOf(configuration)](
                                   Process& process, std::shared_ptr<ReachabilityService> conversions) {
    const LogHandle log = serviceLog(process, "reachability");
    return std::make_shared<DirectoryReachability>(process, std::move(conversions),
                                                   std::make_unique<MatrixDirectory>(directory, log), log);
  };
}

ServiceReport report(Process& process, const Configuration& configuration) {
  return reportOf(MatrixDirectory(optionsOf(configuration), serviceLog(process, "reachability")).state());
}

}  // namespace

ServiceAdapters matrixAdapters() { return {{"reachability", "matrix", choose, report, {}}}; }

}  // namespace pellor
