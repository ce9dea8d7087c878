// `pellor device` on both sides of a real broker, beside other programs that use the list.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/cli/Program.h"
#include "tests/services/servers/Broker.h"

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
    return run(home, {"device", "pair", "--certificate", certificate, "--ca", _broker.authority().file})["invitation"];
  }

  /// Names, and numbers of those who have none.
  std::multiset<std::string> friendsOn(const Home& home) const {
    std::multiset<std::string> friends;
    const json list = run(home, {"list"});
    for (const json& page : list["pages"]) {
      for (const json& slot : page["slots"]) {
        if (!slot.is_null()) friends.insert(slot["name"].is_null() ? slot["primaryDestination"] : slot["name"]);
      }
    }
    return friends;
  }
  /// Reads what a receiving program says until the friends of a device are those.
  void readUntilFriendsAre(Program& serve, const Home& home, const std::multiset<std::string>& expected) const {
    while (friendsOn(home) != expected && !HasFailure()) {
      if (serve.readLine().empty()) ADD_FAILURE() << "these are there: " << testing::PrintToString(friendsOn(home));
    }
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
  EXPECT_EQ(run(_phone, {"device", "revoke"}), (json{{"version", 1}, {"revoked", "laptop"}, {"isEmptied", true}}));
  EXPECT_EQ(pellor(_phone, {"device", "revoke"}).errors, "pellor: no device is paired\n");
  EXPECT_EQ(pellor(_phone, {"device", "status"}).output, "no device is paired\n");
  serve.sendSignal(SIGINT);
  EXPECT_EQ(serve.finish().exitCode, 0);
  EXPECT_EQ(pellor(_phone, {"device", "serve"}).exitCode, 1);
  _broker.kill();
  EXPECT_THAT(pellor(_laptop, command({"doctor", "--paired-device", "mqtt"})).output, HasSubstr("is away: "));
}

// The laptop has revoked, and with it changed its keys; the phone still has the former ones.
TEST_F(DeviceCommandsTest, APairingWithFormerKeysIsToldOfOnBothDevices) {
  const std::string laptop = introduce(_laptop, "laptop"), phone = introduce(_phone, "phone");
  run(_laptop, {"device", "pair", phone});
  run(_laptop, {"device", "revoke"});
  run(_laptop, {"device", "pair", phone});
  run(_laptop, {"add", "0301112233"});
  const json sent = run(_laptop, {"device", "status", "--paired-device", "mqtt"});
  EXPECT_EQ(sent["sending"]["acknowledged"], 0);
  run(_phone, {"device", "pair", laptop});
  Program serve(_phone, pellorCommand(command({"device", "serve"})));
  EXPECT_EQ(serve.readLine(), "receiving from laptop");
  EXPECT_EQ(serve.readLine(),
            "what comes from laptop cannot be opened: both devices have to show the same fingerprint");
  const json received = run(_phone, {"device", "status"});
  EXPECT_TRUE(sent["fingerprint"].is_string() && received["fingerprint"].is_string());
  EXPECT_NE(sent["fingerprint"], received["fingerprint"]);
  EXPECT_TRUE(friendsOn(_phone).empty());
}

TEST_F(DeviceCommandsTest, PairingSendsTheListAndTellsWhenItCouldNot) {
  const std::string laptop = introduce(_laptop, "laptop"), phone = introduce(_phone, "phone");
  run(_laptop, {"add", "0301112233"});
  EXPECT_EQ(run(_phone, {"device", "pair", laptop})["isSent"], false) << "nothing is to go from there";
  const ProgramResult alone = pellor(_laptop, command({"device", "pair", phone, "--paired-device", "mqtt"}));
  EXPECT_THAT(alone.output, HasSubstr("the other device has not taken it yet (pellor device serve, there)\n"));
  const auto status = [&] { return pellor(_laptop, command({"device", "status", "--paired-device", "mqtt"})).output; };
  EXPECT_THAT(
      status(),
      HasSubstr("-> the paired device has not taken it yet: pellor device serve, there, with the same fingerprint\n"));
  {
    Program late(_phone, pellorCommand(command({"device", "serve"})));
    while (late.readLine().find("stored generation") != 0 && !HasFailure()) continue;
    // The program that had sent it is gone since. The acknowledgement follows the line.
    while (status().find("initial sync: completed\n") == std::string::npos && !HasFailure()) continue;
  }
  EXPECT_THAT(status(), testing::Not(HasSubstr("->")));
  Program serve(_phone, pellorCommand(command({"device", "serve"})));
  const json sent = run(_laptop, {"device", "pair", phone, "--paired-device", "mqtt"});
  EXPECT_EQ(sent["isSent"], true);
  EXPECT_EQ(sent["isTaken"], true);
  EXPECT_EQ(friendsOn(_phone), (std::multiset<std::string>{"+49301112233"}));
  run(_laptop, {"add", "0304445566", "--paired-device", "mqtt"});
  readUntilFriendsAre(serve, _phone, {"+49301112233", "+49304445566"});

  _broker.kill();
  const ProgramResult again = pellor(_laptop, command({"device", "pair", phone, "--paired-device", "mqtt"}));
  EXPECT_EQ(again.exitCode, 0) << again.errors;
  EXPECT_THAT(again.output, HasSubstr("the list is still to be sent: "));
}

TEST_F(DeviceCommandsTest, TheWatcherOnTheOtherDeviceIsToldOfWhatChangedAlone) {
  const std::string laptop = introduce(_laptop, "laptop"), phone = introduce(_phone, "phone");
  // Each device has contacts of its own, and so another record for each friend.
  for (const std::string name : {"ann", "bob", "cid"}) {
    const std::string lines = "N:;" + name + ";;;\nEMAIL:" + name + "@example.org\n";
    _laptop.addContact(name + "-laptop", name, lines);
    _phone.addContact(name + "-phone", name, lines);
  }
  run(_laptop, {"add", "ann", "bob", "cid"});
  run(_phone, {"device", "pair", laptop});
  Program serve(_phone, pellorCommand(command({"device", "serve"})));
  run(_laptop, {"device", "pair", phone, "--paired-device", "mqtt"});
  readUntilFriendsAre(serve, _phone, {"ann", "bob", "cid"});

  Program watch(_phone, pellorCommand({"watch"}));
  watch.readErrorLine();
  run(_laptop, {"add", "0301112233", "--paired-device", "mqtt"});
  readUntilFriendsAre(serve, _phone, {"ann", "bob", "cid", "+49301112233"});
  run(_laptop, {"title", "1", "Family", "--paired-device", "mqtt"});
  std::vector<std::string> lines;
  while (lines.empty() || (lines.back() != "titled 1 Family" && !HasFailure())) lines.push_back(watch.readLine());
  EXPECT_EQ(lines, (std::vector<std::string>{"added 1:4 030 1112233", "titled 1 Family"}));
}

TEST_F(DeviceCommandsTest, DevicesOfVersion01LoseNobodyWhenTheyMeetAgain) {
  const std::filesystem::path before = std::filesystem::path(PELLOR_TEST_DATA) / "0.1";
  for (const auto& [home, name] : {std::pair(&_laptop, "laptop"), std::pair(&_phone, "phone")}) {
    std::filesystem::copy(before / "device" / name / "data", home->dataFolder(),
                          std::filesystem::copy_options::recursive);
    for (const auto& contact : std::filesystem::directory_iterator(before / "contacts")) {
      std::filesystem::copy(contact, home->contactsFolder());
    }
    const std::filesystem::path certificate = *home / "certificate.pem";
    _broker.authority().sign(home->dataFolder() / "device/request.pem", certificate);
    run(*home, {"device", "pair", "--certificate", certificate, "--ca", _broker.authority().file});
  }
  std::multiset<std::string> expected = friendsOn(_phone);
  EXPECT_EQ(friendsOn(_laptop), expected);
  // Never sent, and on its way.
  run(_phone, {"add", "0307778899"});
  run(_laptop, {"add", "0304445566", "--paired-device", "mqtt"});
  expected.insert({"+49304445566", "+49307778899"});
  Program serve(_phone, pellorCommand(command({"device", "serve"})));
  run(_laptop, {"device", "status", "--paired-device", "mqtt"});
  readUntilFriendsAre(serve, _phone, expected);
  EXPECT_EQ(run(_phone, {"list"})["pages"][0]["title"], "Zuhause") << "which was still to be sent";
}

}  // namespace
}  // namespace pellor
