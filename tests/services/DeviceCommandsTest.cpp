// `pellor device` on both sides of a real broker, beside other programs that use the list.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <nlohmann/json.hpp>
#include <string>

#include "linux/mosquitto/BrokerReport.h"
#include "tests/cli/Program.h"
#include "tests/services/PairedDevices.h"

namespace pellor {
namespace {

using nlohmann::json;
using testing::HasSubstr;

class DeviceCommandsTest : public testing::Test {
 protected:
  static json answerOf(const ProgramResult& result) {
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    return json::parse(result.output, nullptr, false);
  }
  std::vector<std::string> command(std::vector<std::string> arguments) const {
    arguments.insert(arguments.end(),
                     {"--mqtt-host", "127.0.0.1", "--mqtt-port", std::to_string(_broker.options().port)});
    return arguments;
  }
  json run(const std::vector<std::string>& arguments) const {
    std::vector<std::string> all = command(arguments);
    all.emplace_back("--json");
    return answerOf(pellor(_phone, all));
  }
  /// The laptop, as its programs are.
  std::shared_ptr<PairedDevice> send() {
    PairedDeviceOptions options;
    options.broker = _broker.options();
    options.folder = _laptop.pairing.folder();
    options.keys = {{SyncDomain, {"FriendList", "TNFriendGroupTitles"}}};
    options.preferences = _laptop.openStore();
    return PairedDevice::make(_process, std::move(options), LogHandle("", "", nullptr));
  }
  /// What the programs of the laptop would store: the list of a phone that has it.
  void storeFriend(const std::string& number) {
    const Home home;
    pellor(home, {"add", number});
    SQLitePreferences made(home.dataFolder(), home / "none", LogHandle("", "", nullptr));
    _laptop.store("FriendList", made.copyValue("FriendList", SyncDomain).value());
  }

  Broker _broker{{"laptop", "phone"}};
  Device _laptop{_broker.authority(), "laptop"};
  const Home _phone;
  Process _process;
};

TEST_F(DeviceCommandsTest, TheOtherDevicesProgramsFollowFromPairingToRevoking) {
  // Pairing
  const json requested = run({"device", "pair", "--name", "phone"});
  EXPECT_FALSE(requested["hasCertificate"]);
  const std::filesystem::path certificate = _phone / "certificate.pem";
  _broker.authority().sign(std::string(requested["request"]), certificate);
  const json paired = run({"device", "pair", "--certificate", certificate, "--ca", _broker.authority().file(),
                           _laptop.pairing.invitation()});
  _laptop.pairing.pair(std::string(paired["invitation"]));
  EXPECT_EQ(paired["fingerprint"], *_laptop.pairing.fingerprint());
  EXPECT_EQ(paired["peer"], "laptop");
  EXPECT_EQ(pellor(_phone, {"device", "pair", "nonsense"}).exitCode, 1);

  // A first list, then a title
  storeFriend("0301112233");
  Program watch(_phone, pellorCommand({"watch"}));
  watch.readErrorLine();
  Program serve(_phone, pellorCommand(command({"device", "serve"})));
  EXPECT_EQ(serve.readErrorLine(), "pellor: serving");
  const auto sender = send();
  EXPECT_EQ(watch.readLine(), "added 1:1 030 1112233");
  _laptop.store("TNFriendGroupTitles", Array{"Family"});
  sender->synchronizeDomainKeys(SyncDomain, {"TNFriendGroupTitles"});
  // A refresh may report the friend once more.
  while (watch.readLine() != "titled 1 Family" && !HasFailure()) continue;
  EXPECT_EQ(serve.readLine(), "receiving from laptop");
  EXPECT_EQ(serve.readLine(), "stored generation 1");
  EXPECT_THAT(pellor(_phone, command({"device", "serve"})).errors, HasSubstr("another process receives"));
  EXPECT_THAT(pellor(_phone, command({"device", "status"})).output, HasSubstr("received: generation "));
  EXPECT_TRUE(run({"device", "status"})["receiving"]["hasCompletedInitialSync"]);
  const auto report = reportOnBroker(_broker.options(), _laptop.pairing);
  EXPECT_EQ(report.state, ServiceReport::State::works) << report.detail;

  // Revoking, also for a process that receives already
  EXPECT_EQ(run({"device", "revoke"}), (json{{"revoked", "laptop"}, {"isEmptied", true}}));
  EXPECT_EQ(pellor(_phone, {"device", "revoke"}).errors, "pellor: no device is paired\n");
  EXPECT_EQ(pellor(_phone, {"device", "status"}).output, "no device is paired\n");
  serve.sendSignal(SIGINT);
  EXPECT_EQ(serve.finish().exitCode, 0);
  EXPECT_EQ(pellor(_phone, {"device", "serve"}).exitCode, 1);
  _broker.kill();
  EXPECT_THAT(reportOnBroker(_broker.options(), _laptop.pairing).detail, HasSubstr("is away: "));
}

}  // namespace
}  // namespace pellor
