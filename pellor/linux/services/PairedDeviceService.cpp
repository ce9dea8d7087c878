// paired-device = "mqtt"

#include "pellor/linux/mosquitto/BrokerReport.h"
#include "pellor/linux/mosquitto/PairedDevice.h"
#include "pellor/linux/services/internal/BuiltAdapters.h"

namespace pellor {
namespace {

std::filesystem::path deviceFolder(const UserFolders& folders) { return folders.data / "device"; }

void choose(const Configuration& configuration, LinuxPlatformOptions& options) {
  PairedDeviceOptions device;
  device.broker = MQTTOptions::from(configuration);
  device.folder = deviceFolder(options.folders);
  device.keys = options.listKeys.synced;
  options.parts.preferencesSync = [device](Process& process, std::shared_ptr<PreferencesStore> store) {
    PairedDeviceOptions made = device;
    made.preferences = std::move(store);
    return PairedDevice::make(process, std::move(made), serviceLog(process, "device"));
  };
}

ServiceReport report(Process&, const Configuration& configuration) {
  return reportOnBroker(MQTTOptions::from(configuration),
                        DevicePairing(deviceFolder(embeddedOptions(configuration).folders)));
}

}  // namespace

ServiceAdapters mosquittoAdapters() { return {{"paired-device", "mqtt", choose, report, {}}}; }

}  // namespace pellor
