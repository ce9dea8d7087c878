// reachability = "ldap"

#include <iterator>
#include <sstream>

#include "pellor/linux/ldap/LdapDirectory.h"
#include "pellor/linux/reachability/IdentityService.h"
#include "pellor/linux/services/internal/BuiltAdapters.h"

namespace pellor {
namespace {

std::vector<std::string> wordsOf(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>()};
}

LdapDirectoryOptions optionsOf(const Configuration& configuration) {
  LdapDirectoryOptions options;
  options.url = requiredText(configuration, "ldap.url", "ldap");
  options.base = requiredText(configuration, "ldap.base", "ldap");
  options.bindName = configuration.text("ldap.bind-name").value_or("");
  options.passwordFile = configuration.path("ldap.password-file").value_or("");
  options.startsTls = configuration.flag("ldap.start-tls");
  options.allowsPlain = configuration.flag("ldap.plain");
  options.certificates = configuration.path("ldap.ca-file").value_or("");
  options.condition = configuration.text("ldap.condition").value_or("");
  options.emailAttributes = wordsOf(*configuration.text("ldap.email-attributes"));
  options.phoneAttributes = wordsOf(*configuration.text("ldap.phone-attributes"));
  return options;
}

void choose(const Configuration& configuration, LinuxPlatformOptions& options) {
  options.parts.reachability = [directory = optionsOf(configuration), dataFolder = options.folders.data](
                                   Process& process, std::shared_ptr<ReachabilityService> conversions) {
    auto ldap = std::make_unique<LdapDirectory>(directory, conversions, serviceLog(process, "reachability"));
    return reachabilityOf(process, std::move(conversions), std::move(ldap), dataFolder);
  };
}

// Nothing is converted for a report.
ServiceReport report(Process& process, const Configuration& configuration) {
  const auto conversions = std::make_shared<IdentityService>([]() -> const std::string& {
    static const std::string none;
    return none;
  });
  const LdapDirectoryOptions options = optionsOf(configuration);
  return reportOf(LdapDirectory(options, conversions, serviceLog(process, "reachability")).state(),
                  "see that it can be reached, and look at the keys of [ldap]: pellor help services",
                  options.bindName.empty() ? std::filesystem::path() : options.passwordFile);
}

}  // namespace

ServiceAdapters ldapAdapters() { return {{"reachability", "ldap", choose, report, {}}}; }

}  // namespace pellor
