// `pellor device` on both sides of a real broker, beside other programs that use the list.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <nlohmann/json.hpp>
#include <string>

#include "tests/cli/Program.h"
#include "tests/services/Broker.h"

namespace pellor {
namespace {

using nlohmann::json;
using testing::HasSubstr;

class DeviceCommandsTest : public testing::Test {
 protected:
  std::vector<std::string> command(std::vector<std::string> arguments) const {
    arguments.insert(arguments.end(),
                     {"--mqtt-host", "127.0.0.1", "--mqtt-port", std::to_string(_broker.options().port)});
    return arguments;
  }
  json run(const Home& home, const std::vector<std::string>& arguments) const {
    std::vector<std::string> all = command(arguments);
    all.emplace_back("--json");
    const ProgramResult result = pellor(home, all);
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    return json::parse(result.output, nullptr, false);
  }
  /// Gets a certificate; gives the invitation.
  std::string introduce(const Home& home, const std::string& name) const {
    const json requested = run(home, {"device", "pair", "--name", name});
    EXPECT_FALSE(requested["hasCertificate"]);
    const std::filesystem::path certificate = home / "certificate.pem";
    _broker.authority().sign(std::string(requested["request"]), certificate);
    return run(home,
               {"device", "pair", "--certificate", certificate, "--ca", _broker.authority().file()})["invitation"];
  }

  Broker _broker{{"laptop", "phone"}};
  const Home _laptop, _phone;
};

TEST_F(DeviceCommandsTest, TheOtherDevicesProgramsFollowFromPairingToRevoking) {
  const std::string laptop = introduce(_laptop, "laptop"), phone = introduce(_phone, "phone");
  const json paired = run(_phone, {"device", "pair", laptop});
  EXPECT_EQ(run(_laptop, {"device", "pair", phone})["fingerprint"], paired["fingerprint"]);
  EXPECT_EQ(paired["peer"], "laptop");
  EXPECT_EQ(pellor(_phone, {"device", "pair", "nonsense"}).exitCode, 1);

  Program watch(_phone, pellorCommand({"watch"}));
  watch.readErrorLine();
  Program serve(_phone, pellorCommand(command({"device", "serve"})));
  EXPECT_EQ(serve.readErrorLine(), "pellor: serving");
  EXPECT_EQ(serve.readLine(), "receiving from laptop");
  run(_laptop, {"add", "0301112233", "--paired-device", "mqtt"});
  run(_laptop, {"device", "status", "--paired-device", "mqtt"});
  EXPECT_EQ(watch.readLine(), "added 1:1 030 1112233");
  EXPECT_THAT(serve.readLine(), HasSubstr("stored generation "));
  run(_laptop, {"title", "1", "Family", "--paired-device", "mqtt"});
  const json status = run(_laptop, {"device", "status", "--paired-device", "mqtt"});
  EXPECT_TRUE(status["sending"]["hasCompletedInitialSync"]) << status;
  EXPECT_GE(status["sending"]["acknowledged"], 1) << status;
  // A refresh may report the friend once more.
  while (watch.readLine() != "titled 1 Family" && !HasFailure()) continue;
  EXPECT_THAT(pellor(_phone, command({"device", "serve"})).errors, HasSubstr("another process receives"));
  EXPECT_THAT(pellor(_phone, command({"device", "status"})).output, HasSubstr("received: generation "));
  EXPECT_THAT(pellor(_laptop, command({"doctor", "--paired-device", "mqtt"})).output,
              HasSubstr("laptop paired with phone"));

  // Revoking, also for a process that receives already
  EXPECT_EQ(run(_phone, {"device", "revoke"}), (json{{"revoked", "laptop"}, {"isEmptied", true}}));
  EXPECT_EQ(pellor(_phone, {"device", "revoke"}).errors, "pellor: no device is paired\n");
  EXPECT_EQ(pellor(_phone, {"device", "status"}).output, "no device is paired\n");
  serve.sendSignal(SIGINT);
  EXPECT_EQ(serve.finish().exitCode, 0);
  EXPECT_EQ(pellor(_phone, {"device", "serve"}).exitCode, 1);
  _broker.kill();
  EXPECT_THAT(pellor(_laptop, command({"doctor", "--paired-device", "mqtt"})).output, HasSubstr("is away: "));
}

}  // namespace
}  // namespace pellor
