// device pair, device serve, device status, device revoke

#include <CLI/CLI.hpp>
#include <memory>

#include "cli/CommandLine.h"
#include "cli/DeviceActions.h"
#include "cli/Interruption.h"

namespace pellor::cli {
namespace {

void addPair(CLI::App& device, Command& chosen) {
  auto* command = device.add_subcommand("pair", "Make this device known to the broker, and pair it with another one");
  const auto arguments = std::make_shared<DevicePairArguments>();
  auto* name =
      command
          ->add_option("--name", arguments->name, "Make a private key and a request for a certificate with this name")
          ->type_name("NAME");
  auto* certificate =
      command->add_option("--certificate", arguments->certificate, "Take over the certificate that was issued")
          ->type_name("FILE")
          ->excludes(name);
  auto* ca = command->add_option("--ca", arguments->ca, "The authority that issued it, and the broker's certificate")
                 ->type_name("FILE")
                 ->needs(certificate);
  certificate->needs(ca);
  command->add_option("--key", arguments->key, "The private key, where it was made elsewhere")
      ->type_name("FILE")
      ->needs(certificate);
  command->add_option("INVITATION", arguments->invitation, "What \"pellor device pair\" printed on the other device");
  command->callback(
      [&chosen, arguments] { chosen = [arguments](Session& session) { pairDevice(session, *arguments); }; });
}

void addServe(CLI::App& device, Command& chosen) {
  auto* command = device.add_subcommand("serve", "Receive what the paired device sends, until interrupted");
  const auto arguments = std::make_shared<DeviceServeArguments>();
  command->add_flag("--accept-smaller", arguments->acceptsSmaller,
                    "Let the first list of the paired device replace a much larger one");
  command->callback([&chosen, arguments] {
    // Before the process starts its threads.
    Interruption::blockSignals();
    chosen = [arguments](Session& session) { serveDevice(session, *arguments); };
  });
}

}  // namespace

void addDeviceCommands(CLI::App& program, CommandLine& line) {
  Command& chosen = line.command;
  auto* device = program.add_subcommand("device", "Keep the list of another device in step with this one");
  device->require_subcommand(1);
  device->callback([&line] { line.services = Services::needed; });
  addPair(*device, chosen);
  addServe(*device, chosen);
  device->add_subcommand("status", "Tell what was sent, what has arrived, and what is still to be sent")
      ->callback([&chosen] { chosen = showDeviceStatus; });
  device->add_subcommand("revoke", "End the pairing: the other device gets nothing more, and nothing of it is taken")
      ->callback([&chosen] { chosen = revokeDevice; });
}

}  // namespace pellor::cli
