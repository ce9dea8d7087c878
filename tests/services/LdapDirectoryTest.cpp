// Who is reachable, asked of an LDAP directory.
#include "pellor/linux/ldap/LdapDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/linux/ldap/LdapFilter.h"
#include "pellor/testing/LogCollector.h"
#include "tests/services/DirectoryFactories.h"
#include "tests/services/servers/Server.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using enum DestinationStatus;

TEST(LdapFilterTest, EscapesAsPublished) {
  const std::pair<std::string, const char*> cases[] = {
      {"Parens R Us (for all your parenthetical needs)", R"(Parens R Us \28for all your parenthetical needs\29)"},
      {R"(C:\MyFile)", R"(C:\5cMyFile)"},
      {std::string("\0\0\0\4", 4), R"(\00\00\00\04)"},
      {"+49301234567", "+49301234567"},
  };
  for (const auto& [value, escaped] : cases) EXPECT_EQ(escapedFilterValue(value), escaped);
  EXPECT_EQ(filterOfAny({{"mail", "a*"}, {"mobile", "5"}}, ""), R"((|(mail=a\2a)(mobile=5)))");
  EXPECT_EQ(filterOfAny({{"mail", "a"}}, "(objectClass=person)"), "(&(objectClass=person)(|(mail=a)))");
}

/// A server with people, and the options to ask it with.
class LdapWorld {
 public:
  explicit LdapWorld(const std::string& settings = "", const std::string& scheme = "ldap") : _scheme(scheme) {
    std::filesystem::create_directory(_folder / "db");
    writeFile(_folder / "slapd.conf",
              "include /etc/ldap/schema/core.schema\ninclude /etc/ldap/schema/cosine.schema\n"
              "include /etc/ldap/schema/inetorgperson.schema\nmodulepath /usr/lib/ldap\nmoduleload back_mdb\n" +
                  settings + "\ndatabase mdb\nsuffix dc=example\nrootdn cn=admin,dc=example\nrootpw right\ndirectory " +
                  (_folder / "db").string() + "\n");
    load();
    start();
    options.url = _url;
    options.base = "ou=people,dc=example";
  }

  void start() {
    const std::string urls = _url + " " + urlWith(_scheme, "127.0.0.2");
    _server.emplace(std::vector<std::string>{"slapd", "-d", "0", "-f", _folder / "slapd.conf", "-h", urls},
                    [this] { return isListening(_port); });
  }
  void kill() { _server.reset(); }

  std::unique_ptr<LdapDirectory> directory() const {
    return std::make_unique<LdapDirectory>(options, conversionsIn("DE"), LogHandle("test", "ldap", log));
  }
  /// The address of the server with another scheme and host.
  std::string urlWith(const std::string& scheme, const std::string& host) const {
    return scheme + "://" + host + ":" + std::to_string(_port);
  }
  DestinationDirectory::Answer lookUp(const std::set<std::string>& identifiers) const {
    return directory()->lookUp(identifiers);
  }

  LdapDirectoryOptions options;
  std::shared_ptr<LogCollector> log = std::make_shared<LogCollector>();

 protected:
  const TemporaryFolder& folder() const { return _folder; }

 private:
  void load() {
    std::string entries =
        "dn: dc=example\nobjectClass: domain\n\ndn: ou=people,dc=example\nobjectClass: organizationalUnit\n\n"
        "dn: ou=elsewhere,dc=example\nobjectClass: referral\nobjectClass: extensibleObject\n"
        "ref: ldap://127.0.0.1:1/ou=elsewhere,dc=example\n\n";
    for (const auto& [name, lines] :
         std::map<std::string, std::string>{{"Ada", "mail: Ada@Example.org\ntelephoneNumber: +49 30 123-4567\n"},
                                            {"Bert", "mail: b1@example.org\nmail: b2@example.org\nmobile: 9-1 1\n"},
                                            {"Carl", "mail: twice@example.org\nemployeeType: staff\n"},
                                            {"Cleo", "mail: twice@example.org\nmail: c@example.org\n"},
                                            {"Carla", "mail: twice@example.org\n"}}) {
      entries += "dn: cn=" + name + ",ou=people,dc=example\nobjectClass: inetOrgPerson\nsn: x\n" + lines + "\n";
    }
    writeFile(_folder / "people.ldif", entries);
    runTool({"slapadd", "-f", _folder / "slapd.conf", "-l", _folder / "people.ldif"});
  }

  TemporaryFolder _folder;
  const int _port = freePort();
  const std::string _scheme;
  const std::string _url = _scheme + "://127.0.0.1:" + std::to_string(_port);
  std::optional<Server> _server;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Ldap, ReachabilityConversionsContract, DirectoryConversions<LdapWorld>);
INSTANTIATE_TYPED_TEST_SUITE_P(Ldap, ReachabilityQueriesContract, DirectoryQueries<LdapWorld>);

struct LdapDirectoryTest : testing::Test, LdapWorld {
  const std::string ada = "tel:+49301234567", bob = "mailto:bob@example.org";
};

TEST_F(LdapDirectoryTest, FindsWhatIsWrittenInAnotherWayAndTellsInvalidOnlyOfAWholeSearch) {
  EXPECT_EQ(
      lookUp({ada, "mailto:ADA@example.org", "mailto:b2@example.org", "tel:911", bob, "tel:+4930123456"}).statuses,
      (DestinationStatuses{{ada, valid},
                           {"mailto:ADA@example.org", valid},
                           {"mailto:b2@example.org", valid},
                           {"tel:911", valid},
                           {bob, invalid},
                           {"tel:+4930123456", invalid}}));
  options.condition = "(employeeType=staff)";
  EXPECT_EQ(lookUp({ada, "mailto:twice@example.org"}).statuses,
            (DestinationStatuses{{ada, invalid}, {"mailto:twice@example.org", valid}}));
  options.condition = "";
  options.phoneAttributes = {"mobile"};
  EXPECT_EQ(lookUp({ada, "tel:911"}).statuses, (DestinationStatuses{{ada, invalid}, {"tel:911", valid}}));
  options.phoneAttributes = {"telephoneNumber"};
  options.base = "dc=example";
  const auto answer = lookUp({ada, bob});
  EXPECT_EQ(answer.problem, "");
  EXPECT_EQ(answer.statuses, (DestinationStatuses{{ada, valid}})) << "another server may know more";
  for (const char* identifier : {"tel:+49301234567;ext=5", "mailto:\xC3\x84@example.org", "mailto:Ada", "tel:"}) {
    EXPECT_FALSE(directory()->couldKnow(identifier)) << identifier;
  }
}

TEST_F(LdapDirectoryTest, OneThatWasAwayIsAskedAgainAtOnce) {
  const auto kept = directory();
  EXPECT_EQ(kept->lookUp({ada}).statuses, (DestinationStatuses{{ada, valid}}));
  kill();
  EXPECT_THAT(kept->lookUp({ada}).problem, HasSubstr("nothing answers at its port"));
  EXPECT_THAT(kept->state().text, HasSubstr("nothing answers at its port"));
  EXPECT_FALSE(kept->state().answers);
  start();
  EXPECT_EQ(kept->lookUp({ada}).statuses, (DestinationStatuses{{ada, valid}}));
  kill();
  start();
  EXPECT_EQ(kept->lookUp({ada}).problem, "") << "a connection that was closed meanwhile is no problem";
  kill();
  start();
  const auto state = kept->state();
  EXPECT_TRUE(state.answers);
  EXPECT_THAT(state.text, StartsWith("LDAP version 3"));
}

TEST_F(LdapDirectoryTest, OptionsThatCannotBeUsedAreProblems) {
  const LdapDirectoryOptions good = options;
  options.bindName = "cn=admin,dc=example";
  options.passwordFile = folder() / "password";
  writeFile(options.passwordFile, "right\n");
  const auto loggedIn = directory();
  EXPECT_EQ(loggedIn->lookUp({ada}).statuses, (DestinationStatuses{{ada, valid}}));
  EXPECT_THAT(log->messages(), ElementsAre(HasSubstr("chmod 600")));

  const auto problem = [this] {
    const std::string said = lookUp({ada}).problem;
    EXPECT_EQ(directory()->state().text, said);
    return said;
  };
  replacePrivateFile(options.passwordFile, "wrong");
  EXPECT_THAT(problem(), HasSubstr("refuses the name or the password"));
  replacePrivateFile(options.passwordFile, "");
  EXPECT_THAT(problem(), HasSubstr("nothing in the first line"));
  options = good;
  options.base = "ou=nobody,dc=example";
  EXPECT_THAT(problem(), HasSubstr("base"));
  options.url = "ldap://127.example.org:389";
  EXPECT_THAT(problem(), HasSubstr("ldaps:"));
  options.url = "ldaps://127.0.0.1 ldap://127.0.0.1";
  EXPECT_THAT(problem(), HasSubstr("URL"));
  options = good;
  options.condition = "(unbalanced";
  EXPECT_THAT(lookUp({ada}).problem, HasSubstr("filter"));
  options.certificates = folder() / "missing";
  EXPECT_THAT(problem(), HasSubstr("trusted certificates"));
}

TEST(LdapLimitsTest, WhatIsCutOffIsAskedForInSmallerParts) {
  const LdapWorld world("sizelimit 2");
  const auto answer = world.lookUp({"mailto:ada@example.org", "mailto:b1@example.org", "mailto:b2@example.org",
                                    "mailto:c@example.org", "mailto:twice@example.org", "mailto:bob@example.org"});
  EXPECT_EQ(answer.problem, "");
  EXPECT_EQ(answer.statuses, (DestinationStatuses{{"mailto:ada@example.org", valid},
                                                  {"mailto:b1@example.org", valid},
                                                  {"mailto:b2@example.org", valid},
                                                  {"mailto:c@example.org", valid},
                                                  {"mailto:twice@example.org", valid},
                                                  {"mailto:bob@example.org", invalid}}));
}

TEST(LdapEncryptionTest, WhichOfCertificateNameAndPortIsWrongIsSaid) {
  const Certificate certificate, other;
  const std::string settings =
      "TLSCertificateFile " + certificate.file.string() + "\nTLSCertificateKeyFile " + certificate.key.string();
  LdapWorld plain, both(settings), strict(settings + "\nsecurity ssf=1"), encrypted(settings, "ldaps");
  const struct {
    const char* what;
    LdapWorld& world;
    const char *scheme, *host;
    bool startsTls;
    std::filesystem::path trusted;
    const char* problem;
  } cases[] = {
      {"ldaps", encrypted, "ldaps", "127.0.0.1", false, certificate.file, ""},
      {"ldaps, another authority", encrypted, "ldaps", "127.0.0.1", false, other.file, "certificate is not trusted"},
      {"ldaps, another name", encrypted, "ldaps", "127.0.0.2", false, certificate.file, "that of another server"},
      {"ldaps, a plain port", both, "ldaps", "127.0.0.1", false, certificate.file, "does not encrypt in this way"},
      {"no encryption, though it is asked for", strict, "ldap", "127.0.0.1", false, {}, "encrypted connection"},
      {"StartTLS", strict, "ldap", "127.0.0.1", true, certificate.file, ""},
      {"StartTLS, no authority", strict, "ldap", "127.0.0.1", true, {}, "certificate is not trusted"},
      {"StartTLS, another authority", both, "ldap", "127.0.0.1", true, other.file, "certificate is not trusted"},
      {"StartTLS, another name", both, "ldap", "127.0.0.2", true, certificate.file, "that of another server"},
      {"StartTLS, an encrypted port", encrypted, "ldap", "127.0.0.1", true, certificate.file,
       "does not encrypt in this way"},
      {"StartTLS, a server without", plain, "ldap", "127.0.0.1", true, certificate.file,
       "does not encrypt in this way"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.what);
    test.world.options.url = test.world.urlWith(test.scheme, test.host);
    test.world.options.startsTls = test.startsTls;
    test.world.options.certificates = test.trusted;
    const std::string problem = test.world.lookUp({"tel:911"}).problem, state = test.world.directory()->state().text;
    EXPECT_EQ(problem.empty(), *test.problem == '\0') << problem;
    EXPECT_THAT(problem, HasSubstr(test.problem));
    EXPECT_TRUE(problem.empty() || state == problem) << state;
  }
  encrypted.options.url = encrypted.urlWith("ldaps", "127.0.0.1");
  encrypted.options.startsTls = false;
  encrypted.kill();
  EXPECT_THAT(encrypted.lookUp({"tel:911"}).problem, HasSubstr("nothing answers at its port"));
}

TEST(LdapSilenceTest, OneThatHangsIsWaitedForAsLongAsIsAllowedOrUntilItIsCancelled) {
  // Takes connections and says nothing.
  const auto [listener, port] = listenOnLoopback();
  LdapDirectoryOptions options;
  options.url = "ldap://127.0.0.1:" + std::to_string(port);
  options.limit = std::chrono::milliseconds(50);
  const LogHandle log("test", "ldap", nullptr);
  const auto silent = std::make_unique<LdapDirectory>(options, conversionsIn("DE"), log);
  EXPECT_THAT(silent->lookUp({"tel:911"}).problem, HasSubstr("in time"));
  EXPECT_FALSE(silent->state().answers);

  options.limit = std::chrono::hours(1);
  LdapDirectory held(options, conversionsIn("DE"), log);
  for (int connection = 0; connection < 2; ++connection) FileDescriptor(::accept(listener.get(), nullptr, nullptr));
  FileDescriptor connection;  // stays open: its end would end the search as well
  const std::jthread canceller([&, &listener = listener] {
    connection = FileDescriptor(::accept(listener.get(), nullptr, nullptr));
    char byte = 0;
    EXPECT_EQ(::recv(connection.get(), &byte, 1, 0), 1) << "it is being asked";
    held.cancel();
  });
  EXPECT_FALSE(held.lookUp({"tel:911"}).problem.empty());
  EXPECT_FALSE(held.lookUp({"tel:911"}).problem.empty());
}

}  // namespace
}  // namespace pellor
