#include "tests/services/Broker.h"

#include <signal.h>

#include <utility>

namespace pellor {
namespace {

constexpr const char* KeyKind[] = {"-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes"};

}  // namespace

Authority::Authority() {
  std::vector<std::string> arguments{
      "req", "-x509", "-subj", "/CN=authority", "-days", "2", "-keyout", _folder / "ca.key", "-out", file()};
  arguments.insert(arguments.end(), std::begin(KeyKind), std::end(KeyKind));
  run(arguments);
}

void Authority::run(std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), "openssl");
  runTool({std::move(arguments), {}, _folder / "output", {}});
}

void Authority::sign(const std::filesystem::path& request, const std::filesystem::path& certificate) const {
  run({"x509", "-req", "-in", request, "-CA", file(), "-CAkey", _folder / "ca.key", "-CAcreateserial", "-days", "2",
       "-out", certificate});
}

void Authority::issue(const DevicePairing& device, const std::string& name, const Authority& trusted) const {
  const std::filesystem::path certificate = _folder / "issued.pem", authorities = _folder / "authorities.pem";
  sign(device.requestCertificate(name), certificate);
  writeFile(authorities, contentOf(trusted.file()) + contentOf(file()));
  device.importCertificate(certificate, authorities, {});
}

void Authority::issueServer(const std::filesystem::path& key, const std::filesystem::path& certificate) const {
  std::vector<std::string> arguments{
      "req",     "-x509",      "-CA",   file(),     "-CAkey",  _folder / "ca.key",
      "-subj",   "/CN=broker", "-days", "2",        "-addext", "subjectAltName=IP:127.0.0.1",
      "-keyout", key,          "-out",  certificate};
  arguments.insert(arguments.end(), std::begin(KeyKind), std::end(KeyKind));
  run(arguments);
}

Broker::Broker(std::set<std::string> allowed) {
  _authority.issueServer(_folder / "key.pem", _folder / "certificate.pem");
  const std::string folder = _folder.path().string() + "/";
  writeFile(_folder / "mosquitto.conf", "listener " + std::to_string(_port) + " 127.0.0.1\ncafile " +
                                            _authority.file().string() + "\ncertfile " + folder +
                                            "certificate.pem\nkeyfile " + folder +
                                            "key.pem\nrequire_certificate true\nuse_identity_as_username true\n"
                                            "allow_anonymous false\nacl_file " +
                                            folder + "rules\npersistence true\npersistence_location " + folder +
                                            "\nautosave_on_changes true\nautosave_interval 1\nuser root\n"
                                            // Few, so that an absent receiver for whom messages were queued loses some.
                                            "max_queued_messages 4\n");
  writeRules(allowed);
  start();
}

void Broker::start() {
  _server.emplace(Server::Options{{"mosquitto", "-c", _folder / "mosquitto.conf"}, {}, _folder / "output", {}},
                  [this] { return isListening(_port); });
}

MQTTOptions Broker::options() const {
  MQTTOptions options;
  options.host = "127.0.0.1";
  options.port = _port;
  return options;
}

void Broker::allow(const std::set<std::string>& names) {
  writeRules(names);
  _server->sendSignal(SIGHUP);
}

void Broker::writeRules(const std::set<std::string>& names) const {
  std::string rules;
  for (const std::string& name : names) {
    rules += "user " + name + "\ntopic read pellor/" + name + "/#\ntopic write pellor/+/" + name + "/#\n";
  }
  writeFile(_folder / "rules", rules);
}

}  // namespace pellor
