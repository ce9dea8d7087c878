#include "tests/services/servers/Broker.h"

namespace pellor {

void Authority::sign(const std::filesystem::path& request, const std::filesystem::path& certificate) const {
  runTool({"openssl", "x509", "-req", "-in", request, "-CA", file, "-CAkey", key, "-CAcreateserial", "-days", "2",
           "-out", certificate});
}

void Authority::issue(const DevicePairing& device, const std::string& name, const Authority& trusted) const {
  const std::filesystem::path certificate = folder / "issued.pem", authorities = folder / "authorities.pem";
  sign(device.requestCertificate(name), certificate);
  writeFile(authorities, contentOf(trusted.file) + contentOf(file));
  device.importCertificate(certificate, authorities, {});
}

Broker::Broker(const std::set<std::string>& allowed) {
  const std::string authority = _authority.file.string(), folder = _folder.path().string();
  writeFile(_folder / "mosquitto.conf",
            "listener " + std::to_string(_port) + " 127.0.0.1\ncafile " + authority + "\ncertfile " + authority +
                "\nkeyfile " + _authority.key.string() +
                "\nrequire_certificate true\nuse_identity_as_username true\nallow_anonymous false\nacl_file " + folder +
                "/rules\npersistence true\npersistence_location " + folder +
                "/\nautosave_on_changes true\nautosave_interval 1\nuser root\n"
                // Few, so that an absent receiver for whom messages were queued loses some.
                "max_queued_messages 4\n");
  writeRules(allowed);
  start();
}

void Broker::start() {
  _server.emplace(std::vector<std::string>{"mosquitto", "-c", _folder / "mosquitto.conf"},
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
