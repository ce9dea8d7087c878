// How the broker of the paired device is.
#pragma once

#include "pellor/linux/ServiceReport.h"
#include "pellor/linux/mosquitto/DevicePairing.h"
#include "pellor/linux/mosquitto/MQTTOptions.h"

namespace pellor {

/// Connects, asks for the broker's version and leaves again; waits for a few seconds at most. The version is told where
/// the broker lets the device read `$SYS/broker/version`. Publishes nothing. Any thread.
ServiceReport reportOnBroker(const MQTTOptions& broker, const DevicePairing& pairing);

}  // namespace pellor
