// address-book = "eds"

#include <utility>

#include "pellor/linux/Configuration.h"
#include "pellor/linux/EmbeddedReports.h"
#include "pellor/linux/eds/EDSContacts.h"
#include "pellor/linux/services/internal/BuiltAdapters.h"

namespace pellor {
namespace {

constexpr double ReportWait = 5;

EDSContactsOptions optionsOf(const Configuration& configuration) {
  return {configuration.text("eds.source"), configuration.seconds("eds.wait")};
}

void choose(const Configuration& configuration, LinuxPlatformOptions& options) {
  options.parts.cards = [contacts = optionsOf(configuration)](Process&) {
    return std::make_shared<EDSContacts>(contacts);
  };
}

ServiceReport report(Process&, const Configuration& configuration) {
  EDSContacts contacts(optionsOf(configuration));
  ServiceReport report = contacts.report(ReportWait);
  return withHeldRefresh(std::move(report), embeddedOptions(configuration).folders.data, contacts.name(),
                         contacts.contactCount());
}

}  // namespace

ServiceAdapters edsAdapters() { return {{"address-book", "eds", choose, report, {}}}; }

}  // namespace pellor
