#include "cli/DeviceActions.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "cli/CommandError.h"
#include "cli/Interruption.h"
#include "cli/JsonForms.h"
#include "cli/Output.h"
#include "pellor/linux/mosquitto/DevicePairing.h"
#include "pellor/linux/mosquitto/DeviceReceiver.h"
#include "pellor/linux/mosquitto/PairedDevice.h"
#include "pellor/list/SyncedKeys.h"
#include "pellor/list/SyncedMerge.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/BundleIdentifier.h"
#include "pellor/runtime/Timer.h"

namespace pellor::cli {
namespace {

// In seconds.
constexpr double LongestAnswer = 5;

DevicePairing pairingOf(Session& session) { return DevicePairing(session.platform().dataFolder() / "device"); }

LogHandle logOf(Session& session) { return {BundleIdentifier, "device", session.process().logSink()}; }

bool sends(Session& session) { return session.options().configuration.text("paired-device") == "mqtt"; }

template <class Work>
void translated(Work work) {
  try {
    work();
  } catch (const DeviceError& error) {
    throw CommandError(error.what());
  }
}

/// A connection of this command's own.
class DeviceQuery {
 public:
  DeviceQuery(Session& session, bool isSending) : _process(session.process()) {
    PairedDeviceOptions options;
    options.broker = MQTTOptions::from(session.options().configuration);
    options.folder = pairingOf(session).folder();
    if (isSending) options.keys = {{session.options().domain(), syncedKeys()}};
    // Nobody else in this process sets values.
    options.preferences = platformOf(_process).preferences;
    options.alwaysConnects = isSending;
    options.statusChanged = [this] { _process.mainQueue().stop(); };
    _device = PairedDevice::make(_process, std::move(options), logOf(session));
  }

  PairedDeviceStatus status() const { return _device->status(); }

  /// Runs until `isDone` of the status, or the broker is away, or for a few seconds.
  template <class Condition>
  void runUntil(Condition isDone) {
    bool isOver = false;
    const auto limit = Timer::after(_process.mainQueue(), LongestAnswer, [&] {
      isOver = true;
      _process.mainQueue().stop();
    });
    while (!isOver && _device->status().problem.empty() && !isDone(_device->status())) _process.mainQueue().run();
  }

 private:
  Process& _process;
  std::shared_ptr<PairedDevice> _device;
};

// pair

void requireName(bool isNamed) {
  if (!isNamed)
    throw CommandError(
        "this device has no name yet: \"pellor device pair --name NAME\" makes a request for a certificate");
}

void prepare(const DevicePairing& pairing, const DevicePairArguments& arguments) {
  if (!arguments.name.empty()) pairing.requestCertificate(arguments.name);
  if (!arguments.certificate.empty()) pairing.importCertificate(arguments.certificate, arguments.ca, arguments.key);
  requireName(pairing.name().has_value());
  if (!arguments.invitation.empty()) pairing.pair(arguments.invitation);
}

void requireFile(const std::filesystem::path& file) {
  std::error_code ignored;
  if (!file.empty() && !std::filesystem::is_regular_file(file, ignored))
    throw CommandError("there is no file " + printable(file.string()));
}

// What would be written. That certificate, keys and invitation fit together is seen when they are taken over.
std::vector<std::string> plannedFor(const DevicePairing& pairing, const DevicePairArguments& arguments) {
  if (!arguments.name.empty() && !isDeviceName(arguments.name))
    throw CommandError(inQuotes(arguments.name) + " is no name of a device: letters, digits, - and _");
  for (const auto& file : {arguments.certificate, arguments.ca, arguments.key}) requireFile(file);
  requireName(!arguments.name.empty() || !arguments.certificate.empty() || pairing.name());
  const std::string folder = " in " + printable(pairing.folder().string());
  std::vector<std::string> planned;
  if (!arguments.name.empty()) planned.push_back("made a private key and a request for a certificate" + folder);
  if (!arguments.certificate.empty()) planned.push_back("taken over the certificate and its key" + folder);
  if (!arguments.invitation.empty()) planned.push_back("paired with the device of that invitation");
  return planned;
}

void tellPlanned(Session& session, const std::vector<std::string>& planned) {
  const auto text = [&] {
    std::string all;
    for (const std::string& each : planned) all += session.would() + each + "\n";
    return all.empty() ? std::string("nothing would be changed\n") : all;
  };
  session.answer(text, [&] { return Json{{"wouldHave", planned}}; });
}

/// What became of sending the list to a device that was paired just now.
struct FirstPush {
  bool isChosen;  ///< whether changes go to a paired device at all
  bool isSent = false;
  bool isTaken = false;  ///< by the other device, which then is told of each later change
  std::string problem;
};

FirstPush pushFirst(Session& session) {
  if (!sends(session)) return {.isChosen = false, .isSent = false, .isTaken = false, .problem = ""};
  DeviceQuery query(session, true);
  const auto isSent = [](const PairedDeviceStatus& status) { return status.isUpToDate && status.due.empty(); };
  query.runUntil([&](const auto& status) { return isSent(status) && status.hasCompletedInitialSync; });
  const PairedDeviceStatus status = query.status();
  return {.isChosen = true,
          .isSent = isSent(status),
          .isTaken = isSent(status) && status.hasCompletedInitialSync,
          .problem = status.problem};
}

std::string textOf(const FirstPush& push) {
  if (!push.isChosen) return "it gets nothing from here: paired-device = \"mqtt\" in the configuration changes that\n";
  if (push.isTaken) return "the list was sent, and taken\n";
  if (push.isSent) return "the list was sent; the other device has not taken it yet (pellor device serve, there)\n";
  return "the list is still to be sent" + (push.problem.empty() ? "" : ": " + printable(push.problem)) +
         " (pellor device status)\n";
}

std::string pairingText(const std::string& peer, const std::optional<std::string>& fingerprint) {
  return "paired with: " + printable(peer) + "\nfingerprint, the same on both: " + fingerprint.value_or("(none)") +
         "\n";
}

std::string textOf(const DevicePairing& pairing, const std::string& request) {
  std::string text = "device: " + printable(*pairing.name()) + "\n";
  if (!request.empty()) text += "request to be signed by the broker's authority: " + request + "\n";
  if (!pairing.hasCertificate()) text += "then: pellor device pair --certificate FILE --ca FILE\n";
  text += "invitation for the other device: " + pairing.invitation() + "\n";
  const auto peer = pairing.peer();
  return peer ? text + pairingText(*peer, pairing.fingerprint()) : text;
}

Json jsonOf(const DevicePairing& pairing, const std::string& request) {
  return {{"device", cli::jsonOf(pairing.name())},      {"request", request.empty() ? Json(nullptr) : Json(request)},
          {"hasCertificate", pairing.hasCertificate()}, {"invitation", pairing.invitation()},
          {"peer", cli::jsonOf(pairing.peer())},        {"fingerprint", cli::jsonOf(pairing.fingerprint())}};
}

// status, revoke

struct DeviceStatus {
  bool isSending;
  std::optional<std::string> fingerprint;
  PairedDeviceStatus sent;
  IncomingState received;
};

std::string textOf(const std::optional<RefusedGeneration>& refused, const std::string& by) {
  if (!refused) return "";
  return "generation " + std::to_string(refused->generation) + " was refused by " + by + ": " +
         printable(refused->reason) + "\n-> pellor device serve --accept-smaller, there, takes it all the same\n";
}

std::string nameOf(bool isCompleted) { return isCompleted ? "completed" : "not completed"; }

std::string sendingText(const DeviceStatus& status) {
  const PairedDeviceStatus& sent = status.sent;
  if (!status.isSending && sent.generation == 0) return "sending: no (paired-device is not mqtt)\n";
  std::string text = "sent: generation " + std::to_string(sent.generation) + "\nacknowledged: generation " +
                     std::to_string(sent.acknowledged) + (sent.isUpToDate ? "" : " (as far as is known)") +
                     "\ninitial sync: " + nameOf(sent.hasCompletedInitialSync) + "\n";
  if (sent.isUpToDate && !sent.refused && sent.acknowledged < sent.generation)
    text += "-> the paired device has not taken it yet: pellor device serve, there, with the same fingerprint\n";
  for (const DomainKey& key : sent.due) text += "to be sent: " + printable(key.second) + "\n";
  return text + textOf(sent.refused, "the paired device");
}

std::string textOf(const DeviceStatus& status) {
  if (!status.sent.peer) return "no device is paired\n";
  std::string text = "device: " + printable(status.sent.name.value_or("(none)")) + "\n" +
                     pairingText(*status.sent.peer, status.fingerprint);
  if (!status.sent.problem.empty()) text += "the broker is away: " + printable(status.sent.problem) + "\n";
  text += sendingText(status);
  if (status.received.generation > 0) {
    text += "received: generation " + std::to_string(status.received.generation) + "\n";
  }
  return text + textOf(status.received.refused, "this device");
}

Json jsonOf(const std::optional<RefusedGeneration>& refused) {
  if (!refused) return nullptr;
  return {{"generation", refused->generation}, {"reason", refused->reason}};
}

Json jsonOf(const DeviceStatus& status) {
  Json due = Json::array();
  for (const auto& [domain, key] : status.sent.due) due.push_back({{"domain", domain}, {"key", key}});
  return {{"device", cli::jsonOf(status.sent.name)},
          {"peer", cli::jsonOf(status.sent.peer)},
          {"fingerprint", cli::jsonOf(status.fingerprint)},
          {"brokerProblem", status.sent.problem.empty() ? Json(nullptr) : Json(status.sent.problem)},
          {"sending",
           {{"isChosen", status.isSending},
            {"generation", status.sent.generation},
            {"acknowledged", status.sent.acknowledged},
            {"isUpToDate", status.sent.isUpToDate},
            {"hasCompletedInitialSync", status.sent.hasCompletedInitialSync},
            {"refused", jsonOf(status.sent.refused)},
            {"due", due}}},
          {"receiving",
           {{"generation", status.received.generation},
            {"hasCompletedInitialSync", status.received.generation > 0},
            {"refused", jsonOf(status.received.refused)}}}};
}

DeviceReceiverOptions receiverOptions(Session& session, const DeviceServeArguments& arguments) {
  const Platform& platform = platformOf(session.process());
  DeviceReceiverOptions options;
  options.broker = MQTTOptions::from(session.options().configuration);
  options.folder = pairingOf(session).folder();
  options.preferences = platform.preferences;
  options.notifyBus = platform.notifyBus;
  options.changeNames = [preferences = platform.preferences](const std::string& domain,
                                                             const std::set<std::string>& keys) {
    return changeNames(*preferences, domain, keys);
  };
  options.merge = [&process = session.process(), preferences = platform.preferences](
                      const std::string& domain, const Dictionary& base, const Dictionary& theirs,
                      const Dictionary& ours) {
    const Process::Scope scope(process);
    SyncedValues merged = mergeSynced(*preferences, domain, base, theirs, ours);
    return MergedValues{std::move(merged.values), merged.leftOut};
  };
  options.sync = platform.preferencesSync;
  options.acceptsSmaller = arguments.acceptsSmaller;
  return options;
}

}  // namespace

void pairDevice(Session& session, const DevicePairArguments& arguments) {
  translated([&] {
    const DevicePairing pairing = pairingOf(session);
    if (session.isDry()) return tellPlanned(session, plannedFor(pairing, arguments));
    prepare(pairing, arguments);
    const std::string request = arguments.name.empty() ? "" : (pairing.folder() / "request.pem").string();
    pairing.invitation();
    std::optional<FirstPush> push;
    if (!arguments.invitation.empty()) push = pushFirst(session);
    session.answer([&] { return textOf(pairing, request) + (push ? textOf(*push) : ""); },
                   [&] {
                     Json json = jsonOf(pairing, request);
                     json["isSent"] = push ? Json(push->isSent) : Json(nullptr);
                     json["isTaken"] = push ? Json(push->isTaken) : Json(nullptr);
                     return json;
                   });
  });
}

void serveDevice(Session& session, const DeviceServeArguments& arguments) {
  translated([&] {
    const auto peer = pairingOf(session).peer();
    if (!peer) throw CommandError("no device is paired (pellor device pair)");
    if (session.isDry()) return tellPlanned(session, {"taken what " + printable(*peer) + " sends, until interrupted"});
    MainQueue& mainQueue = session.process().mainQueue();
    bool couldPrintAll = true;
    DeviceReceiverOptions options = receiverOptions(session, arguments);
    options.tell = [&](const std::string& text) {
      const std::string line = session.options().json ? textOf(Json{{"event", text}}) : printable(text);
      couldPrintAll = couldPrintAll && writeOutput(line + "\n") != OutputResult::failed;
    };
    const auto receiver = DeviceReceiver::make(session.process(), std::move(options), logOf(session));
    const Interruption interruption([&] { mainQueue.stop(); });
    writeError("serving");
    mainQueue.run();
    if (!couldPrintAll) throw CommandError("the output could not be written");
  });
}

void showDeviceStatus(Session& session) {
  const DevicePairing pairing = pairingOf(session);
  DeviceStatus status{sends(session), pairing.fingerprint(), {}, IncomingFile(pairing.folder()).read()};
  DeviceQuery asking(session, status.isSending);
  if (status.isSending && asking.status().peer) {
    asking.runUntil([](const PairedDeviceStatus& sent) { return sent.isUpToDate && sent.due.empty(); });
  }
  status.sent = asking.status();
  session.answer([&] { return textOf(status); }, [&] { return jsonOf(status); });
}

void revokeDevice(Session& session) {
  translated([&] {
    const DevicePairing pairing = pairingOf(session);
    const std::string peer = pairing.peer().value_or("");
    if (session.isDry() && !peer.empty()) return tellPlanned(session, {"revoked " + printable(peer)});
    pairing.revoke();
    DeviceQuery asking(session, false);
    const OutgoingFile file(pairing.folder());
    asking.runUntil([&](const PairedDeviceStatus&) { return file.read().emptied.empty(); });
    const bool isEmptied = file.read().emptied.empty();
    const std::string rest = "; the broker still has what was sent to it, until it can be reached";
    const std::string next = "\nto pair again, each device needs the other one's new invitation (pellor device pair)\n";
    session.answer([&] { return "revoked " + printable(peer) + (isEmptied ? "" : rest) + next; },
                   [&] {
                     return Json{{"revoked", peer}, {"isEmptied", isEmptied}};
                   });
  });
}

}  // namespace pellor::cli
