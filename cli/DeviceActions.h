// What `pellor device` does. The program without the services has them for their names alone.
#pragma once

#include <filesystem>
#include <string>

#include "cli/Session.h"

namespace pellor::cli {

struct DevicePairArguments {
  std::string name;
  std::filesystem::path certificate;
  std::filesystem::path ca;
  std::filesystem::path key;
  std::string invitation;
};

struct DeviceServeArguments {
  bool acceptsSmaller = false;
};

void pairDevice(Session& session, const DevicePairArguments& arguments);
void serveDevice(Session& session, const DeviceServeArguments& arguments);
void showDeviceStatus(Session& session);
void revokeDevice(Session& session);

}  // namespace pellor::cli
