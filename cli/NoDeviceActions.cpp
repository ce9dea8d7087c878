// `pellor device` where the adapter for paired devices is not built.

#include "cli/CommandError.h"
#include "cli/DeviceActions.h"
#include "pellor/linux/Configuration.h"

namespace pellor::cli {
namespace {

[[noreturn]] void fail() {
  throw CommandError("this program has no adapter for paired devices: " + adapterAdvice("mqtt"));
}

}  // namespace

void pairDevice(Session&, const DevicePairArguments&) { fail(); }
void serveDevice(Session&, const DeviceServeArguments&) { fail(); }
void showDeviceStatus(Session&) { fail(); }
void revokeDevice(Session&) { fail(); }

}  // namespace pellor::cli
