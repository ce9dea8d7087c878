// The program with an identity service: who is reachable, asked and remembered.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "pellor/linux/matrix/MatrixDirectory.h"
#include "pellor/linux/reachability/AnswerMemory.h"
#include "pellor/runtime/WallClock.h"
#include "tests/cli/Program.h"
#include "tests/services/servers/MatrixStub.h"

namespace pellor {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

/// A user with two friends, of whom the service knows one.
class ReachabilityCommandsTest : public testing::Test {
 protected:
  ReachabilityCommandsTest() {
    behaviour.users = {{"49301234567", "msisdn"}};
    stub.set(behaviour);
    replacePrivateFile(home / "token", "secret token\n");
    home.addContact("ann", "Ann Lee", "TEL:+49301234567\n");
    home.addContact("bob", "Bob Ray", "TEL:+49307654321\n");
    pellor(home, {"--region", "DE", "add", "ann", "bob"});
  }

  ProgramResult run(std::vector<std::string> arguments) const {
    return pellor(home, withService(std::move(arguments)));
  }
  std::vector<std::string> withService(std::vector<std::string> arguments) const {
    arguments.insert(arguments.end(), {"--reachability", "matrix", "--matrix-url", stub.url(), "--matrix-token-file",
                                       (home / "token").string()});
    return arguments;
  }
  /// As if a program had been told that long ago.
  void setAnswers(double age, std::optional<double> lifetime = std::nullopt) const {
    MatrixDirectoryOptions options;
    options.url = stub.url();
    options.accessTokenFile = home / "token";
    const LogHandle log("test", "matrix", nullptr);
    AnswerMemory memory({home.dataFolder(), MatrixDirectory(options, log).account()}, wallClockNow, log);
    const double time = wallClockNow() - age;
    memory.add({{"tel:+49301234567", {DestinationStatus::invalid, time, "", lifetime}},
                {"tel:+49307654321", {DestinationStatus::valid, time, "", lifetime}}});
    EXPECT_TRUE(memory.write());
  }

  const Home home;
  MatrixStub stub;
  MatrixStub::Behaviour behaviour;
};

TEST_F(ReachabilityCommandsTest, WhatWasAskedOnceIsShownByLaterProgramsWithItsAge) {
  EXPECT_THAT(run({"list"}).output, AllOf(HasSubstr(" ? AL Ann Lee"), HasSubstr(" ? BR Bob Ray")));
  EXPECT_THAT(stub.takeRequests(), IsEmpty()) << "a list asks nobody";
  const std::string asked = run({"list", "--requery"}).output;
  EXPECT_THAT(asked, AllOf(HasSubstr(" + AL Ann Lee"), HasSubstr(" - BR Bob Ray"), Not(HasSubstr("ago"))));
  EXPECT_EQ(run({"list"}).output, asked);
  EXPECT_THAT(run({"status"}).output, HasSubstr("+ Ann Lee (1:1): reachable at 030 1234567\n- Bob Ray"));
  EXPECT_THAT(pellor(home, {"list", "--service", "Notes"}).output, HasSubstr(" ? AL Ann Lee"))
      << "those are answers of another service";
  const auto json = nlohmann::json::parse(run({"status", "--json"}).output, nullptr, false)["friends"][0];
  EXPECT_EQ(json["status"], "valid");
  EXPECT_TRUE(json["statusTime"].is_string() && json["statusTime"].get<std::string>().ends_with("Z")) << json;
  EXPECT_EQ(json["statusService"], "the Matrix identity service " + stub.url());
  EXPECT_EQ(json["reachableDestinations"], nlohmann::json({"+49301234567"}));

  for (const auto& entry : std::filesystem::directory_iterator(home.dataFolder())) {
    if (entry.path().filename().string().starts_with("reachable-")) std::filesystem::remove(entry.path());
  }
  behaviour.hangs = true;
  stub.set(behaviour);
  setAnswers(2.5 * 3600);
  const std::string late = run({"list", "--requery"}).output;
  EXPECT_THAT(late, AllOf(HasSubstr(" - AL Ann Lee"), HasSubstr(" + BR Bob Ray"), HasSubstr("2 h ago")));
  EXPECT_THAT(run({"status"}).output, HasSubstr("+ Bob Ray (1:2): reachable at 030 7654321 (2 h ago)\n"));
}

TEST_F(ReachabilityCommandsTest, ATokenThatOthersCanReadIsRemarkedOn) {
  const auto remark = HasSubstr("others can use what is in " + (home / "token").string());
  EXPECT_THAT(run({"doctor"}).output, Not(remark));
  std::filesystem::permissions(home / "token", std::filesystem::perms(0640));
  EXPECT_THAT(run({"doctor"}).output, AllOf(remark, HasSubstr("chmod 600")));
}

TEST_F(ReachabilityCommandsTest, AServiceThatRefusesIsToldOfBesideWhatWasKnown) {
  setAnswers(2.5 * 3600);
  const std::string body = R"({"errcode":"M_UNAUTHORIZED","error":"no"})";
  behaviour.raw = "HTTP/1.1 401 Unauthorized\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  stub.set(behaviour);
  EXPECT_THAT(run({"status"}).output, HasSubstr("- Ann Lee (1:1): not reachable (2 h ago)\n+ Bob Ray"));
  for (const char* command : {"status", "list"}) {
    const ProgramResult refused = run({command, "--requery"});
    EXPECT_EQ(refused.exitCode, 1) << command;
    EXPECT_THAT(refused.output, AllOf(HasSubstr("Ann Lee"), HasSubstr("2 h ago"))) << command;
    EXPECT_THAT(refused.errors,
                AllOf(HasSubstr("was not asked: it refuses the access token"), HasSubstr("pellor doctor")))
        << command;
  }
  EXPECT_THAT(run({"doctor"}).output, HasSubstr("-> see that it can be reached, and look at the keys of [matrix]"));
  behaviour.raw.reset();
  stub.set(behaviour);
  EXPECT_EQ(run({"status", "--requery"}).errors, "");
}

TEST_F(ReachabilityCommandsTest, WatchAsksAnewForWhatIsTooOld) {
  const struct {
    double age;
    std::optional<double> lifetime;
    bool isAsked;
  } cases[] = {
      {100'000, std::nullopt, true}, {95'000, 1'000'000, false}, {85'000, 80'000, true}, {3600, std::nullopt, false}};
  // No answer comes in place of those that are set here, each newer than the one before.
  behaviour.hangs = true;
  stub.set(behaviour);
  for (const auto& test : cases) {
    SCOPED_TRACE(test.age);
    setAnswers(test.age, test.lifetime);
    stub.takeRequests();
    Program watch(home, pellorCommand(withService({"watch"})));
    EXPECT_EQ(watch.readErrorLine(), "pellor: watching");
    EXPECT_TRUE(!test.isAsked || stub.waitForRequest());
    watch.sendSignal(SIGINT);
    EXPECT_EQ(watch.finish().exitCode, 0);
    EXPECT_TRUE(test.isAsked || stub.takeRequests().empty());
  }
}

}  // namespace
}  // namespace pellor
