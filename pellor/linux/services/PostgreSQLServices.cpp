// store = "postgresql", bus = "postgresql"

#include <utility>

#include "pellor/linux/Configuration.h"
#include "pellor/linux/EmbeddedReports.h"
#include "pellor/linux/files/UserFolders.h"
#include "pellor/linux/notify/NotifyFolder.h"
#include "pellor/linux/postgresql/PostgreSQLBus.h"
#include "pellor/linux/postgresql/PostgreSQLPreferences.h"
#include "pellor/linux/postgresql/PostgreSQLService.h"
#include "pellor/linux/preferences/StoreCopies.h"
#include "pellor/linux/preferences/StoreRegion.h"
#include "pellor/linux/preferences/internal/MachinePreferences.h"
#include "pellor/linux/services/internal/BuiltAdapters.h"

namespace pellor {
namespace {

/// The connection that the parts of a process share.
struct SharedConnection {
  std::shared_ptr<PostgreSQLService> service;
};

// Apart from those of a store on this machine, whose place they must not take.
std::filesystem::path copiesFolder(const UserFolders& folders) { return folders.data / "copies-postgresql"; }

PostgreSQLOptions optionsOf(const Configuration& configuration) {
  PostgreSQLOptions options;
  options.connection = requiredText(configuration, "postgresql.connection", "postgresql");
  return options;
}

std::shared_ptr<PostgreSQLService> serviceOf(Process& process, const PostgreSQLOptions& options) {
  auto& shared = process.local<SharedConnection>();
  if (!shared.service)
    shared.service = std::make_shared<PostgreSQLService>(process, options, serviceLog(process, "postgresql"));
  return shared.service;
}

// By the name that the user gives the data folder, whatever it leads to.
std::string machineOf(const Configuration& configuration) {
  return MachinePreferences::machineName(configuration.path("data").value_or(UserFolders::find().data));
}

void chooseStore(const Configuration& configuration, LinuxPlatformOptions& options) {
  options.parts.preferences = [postgresql = optionsOf(configuration), folders = options.folders,
                               machine = machineOf(configuration),
                               followsContacts = options.listKeys.followsContacts](Process& process) {
    auto store =
        std::make_shared<PostgreSQLPreferences>(serviceOf(process, postgresql), copiesFolder(folders),
                                                folders.config / "defaults.json", serviceLog(process, "preferences"));
    return std::make_shared<MachinePreferences>(std::move(store), machine, followsContacts);
  };
}

void chooseBus(const Configuration& configuration, LinuxPlatformOptions& options) {
  options.parts.notifyBus = [postgresql = optionsOf(configuration)](Process& process,
                                                                    const std::shared_ptr<NotifyFolder>&) {
    return PostgreSQLBus::make(process, serviceOf(process, postgresql));
  };
}

ServiceReport reportOnBus(Process& process, const Configuration& configuration) {
  return serviceOf(process, optionsOf(configuration))->report();
}

ServiceReport reportOnStore(Process& process, const Configuration& configuration) {
  const UserFolders folders = embeddedOptions(configuration).folders;
  ServiceReport report = reportOnBus(process, configuration);
  if (report.state == ServiceReport::State::works) {
    PostgreSQLPreferences store(serviceOf(process, optionsOf(configuration)), copiesFolder(folders),
                                folders.config / "defaults.json", serviceLog(process, "preferences"));
    report = withRegion(std::move(report), StoreRegion::stored(store));
  }
  return withCopies(std::move(report), StoreCopies(copiesFolder(folders)));
}

}  // namespace

ServiceAdapters postgresqlAdapters() {
  return {{"store", "postgresql", chooseStore, reportOnStore, {}}, {"bus", "postgresql", chooseBus, reportOnBus, {}}};
}

}  // namespace pellor
