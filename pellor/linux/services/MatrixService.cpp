// reachability = "matrix"

#include "pellor/linux/matrix/MatrixDirectory.h"
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
  options.parts.reachability = [directory = optionsOf(configuration), dataFolder = options.folders.data](
                                   Process& process, std::shared_ptr<ReachabilityService> conversions) {
    auto matrix = std::make_unique<MatrixDirectory>(directory, serviceLog(process, "reachability"));
    return reachabilityOf(process, std::move(conversions), std::move(matrix), dataFolder);
  };
}

ServiceReport report(Process& process, const Configuration& configuration) {
  const MatrixDirectoryOptions options = optionsOf(configuration);
  return reportOf(MatrixDirectory(options, serviceLog(process, "reachability")).state(),
                  "see that it can be reached, and look at the keys of [matrix]: pellor help services",
                  options.accessTokenFile);
}

}  // namespace

ServiceAdapters matrixAdapters() { return {{"reachability", "matrix", choose, report, {}}}; }

}  // namespace pellor
