// Who is reachable, asked of a Matrix identity service.
#include "pellor/linux/matrix/MatrixDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "pellor/linux/matrix/MatrixAddress.h"
#include "pellor/testing/LogCollector.h"
#include "tests/services/DirectoryFactories.h"
#include "tests/services/servers/MatrixStub.h"
#include "tests/services/servers/Server.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using enum DestinationStatus;

TEST(MatrixAddressTest, IsMadeOfWhatIsMeantForAllCountriesAndHashedAsPublished) {
  const struct {
    const char *identifier, *address, *medium, *hash;
  } cases[] = {
      {"mailto:alice@example.com", "alice@example.com", "email", "4kenr7N9drpCJ4AfalmlGQVsOn3o2RHjkADUpXJWZUc"},
      {"mailto:bob@example.com", "bob@example.com", "email", "LJwSazmv46n0hlMlsb_iYxI0_HXEqy_yj6Jm636cdT8"},
      {"tel:+18005552067", "18005552067", "msisdn", "nlo35_T5fzSGZzJApqu8lgIudJvmOQtDaHtr-I4rU7I"},
  };
  for (const auto& test : cases) {
    const auto address = matrixAddressOf(test.identifier);
    ASSERT_TRUE(address) << test.identifier;
    EXPECT_EQ(address->address, test.address);
    EXPECT_EQ(address->medium, test.medium);
    EXPECT_EQ(hashedMatrixAddress(*address, "matrixrocks"), test.hash);
  }
  for (const char* identifier :
       {"tel:911", "tel:+", "tel:+49301234567;ext=5", "mailto:Ada", "mailto:\xC3\x84@example.org", "ada@example.org"}) {
    EXPECT_FALSE(matrixAddressOf(identifier)) << identifier;
  }
}

/// A service with a user who has a number and an address, and the options to ask it with.
struct MatrixWorld {
  MatrixWorld() {
    behaviour.users = {{"49301234567", "msisdn"}, {"ada@example.org", "email"}};
    stub.set(behaviour);
    options.url = stub.url();
    options.accessTokenFile = folder / "token";
    replacePrivateFile(options.accessTokenFile, "secret token\n");
  }
  std::unique_ptr<MatrixDirectory> directory() const {
    return std::make_unique<MatrixDirectory>(options, LogHandle("test", "matrix", log));
  }

  TemporaryFolder folder;
  MatrixStub stub;
  MatrixStub::Behaviour behaviour;
  MatrixDirectoryOptions options;
  std::shared_ptr<LogCollector> log = std::make_shared<LogCollector>();
};

INSTANTIATE_TYPED_TEST_SUITE_P(Matrix, ReachabilityConversionsContract, DirectoryConversions<MatrixWorld>);
INSTANTIATE_TYPED_TEST_SUITE_P(Matrix, ReachabilityQueriesContract, DirectoryQueries<MatrixWorld>);

struct MatrixDirectoryTest : testing::Test, MatrixWorld {
  const std::set<std::string> both = {"tel:+49301234567", "mailto:bob@example.org"};
  const DestinationStatuses told = {{"tel:+49301234567", valid}, {"mailto:bob@example.org", invalid}};
};

TEST_F(MatrixDirectoryTest, AsksWithThePepperOfTheMomentAndRetriesOnce) {
  const auto directory = this->directory();
  EXPECT_EQ(directory->lookUp(both).statuses, told);
  EXPECT_EQ(directory->lookUp(both).statuses, told);
  EXPECT_THAT(stub.takeRequests(), ElementsAre("hash_details", "lookup", "lookup"));

  behaviour.pepper = "another";
  stub.set(behaviour);
  const auto answer = directory->lookUp(both);
  EXPECT_EQ(answer.statuses, told);
  EXPECT_EQ(answer.problem, "");
  EXPECT_THAT(stub.takeRequests(), ElementsAre("lookup", "hash_details", "lookup"));

  behaviour.changesPepper = true;
  behaviour.pepper = "a third";
  stub.set(behaviour);
  EXPECT_THAT(directory->lookUp(both).problem, HasSubstr("pepper"));
  EXPECT_THAT(stub.takeRequests(), ElementsAre("lookup", "hash_details", "lookup"));
}

TEST_F(MatrixDirectoryTest, PlainAddressesAreSentOnlyWhereThatIsAllowed) {
  behaviour.algorithms = {"none"};
  stub.set(behaviour);
  EXPECT_THAT(directory()->lookUp(both).problem, HasSubstr("sha256"));
  EXPECT_THAT(stub.takeRequests(), ElementsAre("hash_details"));
  options.allowsPlainAddresses = true;
  EXPECT_EQ(directory()->lookUp(both).statuses, told);
}

TEST_F(MatrixDirectoryTest, WhatIsNoAnswerIsAProblemThatPasses) {
  const auto reply = [](const std::string& status, const std::string& body, const std::string& header = "") {
    return "HTTP/1.1 " + status + " X\r\n" + header + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           body;
  };
  const struct {
    std::string raw, problem;
    int pause = 0;
  } cases[] = {
      {reply("401", R"({"errcode":"M_UNAUTHORIZED"})"), "access token"},
      {reply("403", R"({"errcode":"M_TERMS_NOT_SIGNED","policies":{}})"), "terms of service"},
      {reply("429", R"({"errcode":"M_LIMIT_EXCEEDED","retry_after_ms":2500})"), "too often", 2500},
      {reply("429", "", "Retry-After: 7\r\n"), "too often", 7000},
      {reply("503", "down for repairs"), "503"},
      {reply("404", R"({"errcode":"M_UNRECOGNIZED"})"), "no Matrix identity service"},
      {reply("200", "{"), "JSON"},
      {reply("200", std::string(std::size_t{9} << 20, ' ')), "too large"},
      {reply("200", R"({"algorithms":)" + std::string(1 << 17, '[') + std::string(1 << 17, ']') + "}"), "mappings"},
      {"HTTP/1.1 200 X\r\nContent-Length: 100\r\n\r\n{\"mappings\":{}", ""},
      {"no HTTP\r\n\r\n", ""},
  };
  const auto directory = this->directory();
  for (const auto& test : cases) {
    SCOPED_TRACE(test.raw.substr(0, 100));
    stub.set(behaviour);
    EXPECT_EQ(directory->lookUp(both).statuses, told) << "all is well again";
    auto faulty = behaviour;
    faulty.raw = test.raw;
    stub.set(faulty);
    const auto answer = directory->lookUp(both);
    EXPECT_THAT(answer.statuses, IsEmpty());
    EXPECT_THAT(answer.problem, HasSubstr(test.problem));
    EXPECT_FALSE(answer.problem.empty());
    EXPECT_EQ(answer.pause.count(), test.pause);
    EXPECT_FALSE(directory->state().answers);
  }
}

TEST_F(MatrixDirectoryTest, AnswersHoldAsLongAsTheServiceSays) {
  const auto directory = this->directory();
  EXPECT_EQ(directory->lookUp(both).lifetime, std::nullopt);
  const std::string body = R"({"mappings":{}})";
  const struct {
    std::string header;
    std::optional<std::chrono::seconds> lifetime;
  } cases[] = {{"Cache-Control: private, max-age=3600", std::chrono::seconds(3600)},
               {"cache-control: max-age=0", std::chrono::seconds(0)},
               {"Cache-Control: no-cache", std::nullopt},
               {"Cache-Control: max-age=soon", std::nullopt},
               {"Cache-Control: max-age=99999999999999999999", std::nullopt}};
  for (const auto& test : cases) {
    // How to ask is known, so this is the answer to a look-up.
    auto saying = behaviour;
    saying.raw =
        "HTTP/1.1 200 OK\r\n" + test.header + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    stub.set(saying);
    const auto answer = directory->lookUp(both);
    EXPECT_EQ(answer.problem, "") << test.header;
    EXPECT_EQ(answer.lifetime, test.lifetime) << test.header;
  }
}

TEST_F(MatrixDirectoryTest, OptionsThatCannotBeUsedAreProblems) {
  const auto refused = "http://127.0.0.1:" + std::to_string(freePort());
  const struct {
    std::string url, token, problem;
  } cases[] = {{"", "t", "URL"},
               {"ftp://127.0.0.1", "t", "https"},
               {"http://id.example.org", "t", "https:"},
               {"https://u:p@127.0.0.1", "t", "parts beside"},
               {refused, "t", "connect"},
               {stub.url(), "another token", "access token"},
               {stub.url(), " \n", "nothing in the first line"},
               {stub.url(), "t\x01\r\nHost: x", "no text"}};
  for (const auto& test : cases) {
    options.url = test.url;
    replacePrivateFile(options.accessTokenFile, test.token);
    EXPECT_THAT(directory()->lookUp(both).problem, HasSubstr(test.problem)) << test.url;
  }
  std::filesystem::remove(options.accessTokenFile);
  EXPECT_THAT(directory()->lookUp(both).problem, HasSubstr("cannot read"));
}

TEST_F(MatrixDirectoryTest, SaysWhatItIsAndThatATokenIsOpenToOthers) {
  options.url += "/";
  const auto directory = this->directory();
  EXPECT_EQ(directory->state().text, "Matrix identity service, API version 2, Matrix v1.5");
  EXPECT_THAT(log->messages(), IsEmpty());
  std::filesystem::permissions(options.accessTokenFile, std::filesystem::perms{0640});
  directory->lookUp(both);
  directory->lookUp(both);
  EXPECT_THAT(log->messages(), ElementsAre(HasSubstr("chmod 600")));
}

TEST_F(MatrixDirectoryTest, OneThatHangsIsWaitedForAsLongAsIsAllowedOrUntilItIsCancelled) {
  behaviour.hangs = true;
  stub.set(behaviour);
  options.limit = std::chrono::milliseconds(50);
  EXPECT_FALSE(directory()->lookUp(both).problem.empty());
  options.limit = std::chrono::hours(1);
  stub.takeRequests();
  const auto held = directory();
  const std::jthread canceller([&] {
    EXPECT_TRUE(stub.waitForRequest());
    held->cancel();
  });
  EXPECT_EQ(held->lookUp(both).problem, "cancelled");
  EXPECT_EQ(held->lookUp(both).problem, "cancelled");
}

TEST_F(MatrixDirectoryTest, OneWhoseCertificateIsNotTrustedIsToldNothing) {
  const Certificate certificate;
  const int port = freePort();
  const std::string place = "127.0.0.1:" + std::to_string(port);
  const Server server(
      {"openssl", "s_server", "-accept", place, "-cert", certificate.file, "-key", certificate.key, "-www"},
      [&] { return isListening(port); });
  options.url = "https://" + place;
  EXPECT_THAT(directory()->lookUp(both).problem, HasSubstr("certificate"));
  options.certificates = certificate.file;
  EXPECT_THAT(directory()->lookUp(both).problem, HasSubstr("JSON")) << "it speaks HTTP and no more";
}

}  // namespace
}  // namespace pellor
