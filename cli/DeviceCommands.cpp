// device pair, device serve, device status, device revoke

#include <memory>

#include "cli/CommandLine.h"
#include "cli/CommandSyntax.h"
#include "cli/DeviceActions.h"
#include "cli/Interruption.h"

namespace pellor::cli {
namespace {

void addPair(CommandSyntax device, Command& chosen) {
  const auto command = device.command("pair", "Make this device known to the broker, and pair it with another one");
  command.offersDryRun();
  const auto arguments = std::make_shared<DevicePairArguments>();
  const auto name =
      command.option("--name", arguments->name, "Make a private key and a request for a certificate with this name")
          .typeName("NAME");
  const auto certificate =
      command.option("--certificate", arguments->certificate, "Take over the certificate that was issued")
          .typeName("FILE")
          .excludes(name);
  const auto ca = command.option("--ca", arguments->ca, "The authority that issued it, and the broker's certificate")
                      .typeName("FILE")
                      .needs(certificate);
  certificate.needs(ca);
  command.option("--key", arguments->key, "The private key, where it was made elsewhere")
      .typeName("FILE")
      .needs(certificate);
  command.option("INVITATION", arguments->invitation, "What \"pellor device pair\" printed on the other device");
  command.whenGiven(
      [&chosen, arguments] { chosen = [arguments](Session& session) { pairDevice(session, *arguments); }; });
}

void addServe(CommandSyntax device, Command& chosen) {
  const auto command = device.command("serve", "Receive what the paired device sends, until interrupted");
  command.offersDryRun();
  const auto arguments = std::make_shared<DeviceServeArguments>();
  command.flag("--accept-smaller", arguments->acceptsSmaller,
               "Let the first list of the paired device replace a much larger one");
  command.whenGiven([&chosen, arguments] {
    // Before the process starts its threads.
    Interruption::blockSignals();
    chosen = [arguments](Session& session) { serveDevice(session, *arguments); };
  });
}

}  // namespace

void addDeviceCommands(CommandSyntax program, CommandLine& line) {
  Command& chosen = line.command;
  const auto device = program.command("device", "Keep the list of another device in step with this one");
  device.requireCommand();
  device.whenGiven([&line] { line.services = Services::needed; });
  addPair(device, chosen);
  addServe(device, chosen);
  device.command("status", "Tell what was sent, what has arrived, and what is still to be sent").whenGiven([&chosen] {
    chosen = showDeviceStatus;
  });
  const auto revoking =
      device.command("revoke", "End the pairing: the other device gets nothing more, and nothing of it is taken");
  revoking.offersDryRun();
  revoking.whenGiven([&chosen] { chosen = revokeDevice; });
}

}  // namespace pellor::cli
