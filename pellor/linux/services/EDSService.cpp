// address-book = "eds"

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "pellor/linux/Configuration.h"
#include "pellor/linux/EmbeddedReports.h"
#include "pellor/linux/contacts/internal/CardSurvey.h"
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

std::vector<std::string> unusableCards(EDSContacts& contacts) {
  try {
    return surveyCards(contacts).unusable;
  } catch (const std::runtime_error&) {
    return {};  // it went away just now
  }
}

ServiceReport report(Process&, const Configuration& configuration) {
  EDSContacts contacts(optionsOf(configuration));
  ServiceReport report = contacts.report(ReportWait);
  if (report.state == ServiceReport::State::works) report.remarks = unusableCards(contacts);
  return withHeldRefresh(std::move(report), embeddedOptions(configuration).folders.data, contacts.name(),
                         contacts.contactCount());
}

}  // namespace

ServiceAdapters edsAdapters() { return {{"address-book", "eds", choose, report, {}}}; }

}  // namespace pellor
