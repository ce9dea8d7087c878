#include "pellor/linux/postgresql/PostgreSQLPreferences.h"

#include <gtest/gtest.h>

#include <atomic>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "pellor/linux/postgresql/PostgreSQLBus.h"
#include "pellor/linux/postgresql/PostgreSQLLink.h"
#include "pellor/linux/preferences/StoreRegion.h"
#include "pellor/linux/preferences/internal/MachinePreferences.h"
#include "pellor/testing/contract/PreferencesProcessesContract.h"
#include "pellor/testing/contract/PreferencesReadOnlyContract.h"
#include "pellor/testing/contract/PreferencesStoreContract.h"
#include "pellor/testing/contract/PreferencesVersionsContract.h"
#include "pellor/testing/contract/SystemNotifyBusContract.h"
#include "pellor/testing/contract/VersionedWriter.h"
#include "tests/linux/RefusedThreads.h"
#include "tests/linux/ServedProcesses.h"
#include "tests/linux/TemporaryFolder.h"
#include "tests/services/PostgreSQLClient.h"
#include "tests/services/servers/Detour.h"

namespace pellor {
namespace {

constexpr const char* Domain = Client::Domain;

// The contracts

INSTANTIATE_TYPED_TEST_SUITE_P(PostgreSQL, PreferencesStoreContract, PostgreSQLStores);
INSTANTIATE_TYPED_TEST_SUITE_P(PostgreSQL, PreferencesReadOnlyContract, PostgreSQLStores);
INSTANTIATE_TYPED_TEST_SUITE_P(PostgreSQL, PreferencesVersionsContract, PostgreSQLStores);
INSTANTIATE_TYPED_TEST_SUITE_P(PostgreSQL, PreferencesProcessesContract, PostgreSQLStores);

class PostgreSQLBuses {
 public:
  PostgreSQLBuses() {
    for (int number = 0; number < 3; ++number) {
      const auto service = std::make_shared<PostgreSQLService>(process(number), patient(connectionOf(number)),
                                                               LogHandle("test", "service", nullptr));
      EXPECT_EQ(service->report().state, ServiceReport::State::works);
      _buses.push_back(PostgreSQLBus::make(process(number), service, 0.01));
    }
  }

  Process& process(int number) { return _processes.at(number); }
  SystemNotifyBus& bus(int number) { return *_buses[static_cast<std::size_t>(number)]; }
  std::string connectionOf(int number) const {
    return cluster().connection(_database) + " application_name=" + nameOf(number);
  }
  template <class Condition>
  bool runUntil(Condition condition) {
    return _processes.runUntil(condition);
  }
  void breakConnection(int number) {
    const std::string name = nameOf(number);
    cluster().run(_database,
                  {{"SELECT pg_terminate_backend(pid, 60000) FROM pg_stat_activity WHERE application_name = $1",
                    {std::string_view(name)}}});
  }

 private:
  static std::string nameOf(int number) { return "process" + std::to_string(number); }

  const std::string _database = cluster().makeDatabase();
  ServedProcesses _processes;
  std::vector<std::shared_ptr<SystemNotifyBus>> _buses;
};

INSTANTIATE_TYPED_TEST_SUITE_P(PostgreSQL, SystemNotifyBusContract, PostgreSQLBuses);

// What is stored

class PostgreSQLTest : public testing::Test {
 protected:
  Client& open(const std::string& user = "pellor", const std::string& more = "") {
    Client& client = _clients.emplace_back(_process, patient(cluster().connection(_database, user) + more));
    client.service->report();
    return client;
  }
  std::vector<PostgreSQLRows> run(const PostgreSQLBatch& batch) const { return cluster().run(_database, batch); }
  std::int64_t integer(const std::string& query) const { return cluster().integer(_database, query); }

  const std::string _database = cluster().makeDatabase();
  Process _process;
  std::list<Client> _clients;
};

TEST_F(PostgreSQLTest, ACopyHasAllDomainsAndNeverTakesThePlaceOfTheStoreByItself) {
  const TemporaryFolder folder;
  Client& client = open();
  PostgreSQLPreferences store(client.service, folder / "copies", "/nonexistent/defaults.json", {"", "", nullptr});
  std::atomic<int> writes = 0;
  store.setWriteObserver([&] { ++writes; });
  const auto write = [&](const char* key, Value value, const char* domain, PreferenceVersion madeFrom = {}) {
    PreferenceChange change = setTo(std::move(value));
    if (madeFrom.store != 0) change.madeFrom = madeFrom;
    return store.write({{key, change}}, {7, 7}, domain).outcome;
  };
  ASSERT_EQ(write("FriendList", persons(40), Domain), PreferenceWriteOutcome::written);
  ASSERT_EQ(write("Region", "DE", "org.tapnote.Pellor"), PreferenceWriteOutcome::written);
  ASSERT_EQ(write("Region", "FR", "org.tapnote.Pellor", {1, 1, {}}), PreferenceWriteOutcome::overtaken);
  EXPECT_EQ(writes, 2);
  EXPECT_EQ(store.writeCounts().written, 2U);

  const auto copy = store.copyOfStore(700'000'000);
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->friends, 40U);
  EXPECT_EQ(copy->find({Domain, "FriendList"})->value(), Value(persons(40)));
  EXPECT_EQ(copy->find({"org.tapnote.Pellor", "Region"})->value(), Value("DE"));
  ASSERT_EQ(store.copies().keep(*copy), std::nullopt);
  ASSERT_EQ(write("FriendList", persons(41), Domain), PreferenceWriteOutcome::written);
  EXPECT_TRUE(StoreCopyHead::of(*store.copyOfStore(0)).isLaterThan(*store.copies().headOfNewest()));

  run({{"DROP SCHEMA pellor CASCADE"}});
  const PostgreSQLPreferences late(open().service, folder / "copies", "/nonexistent/defaults.json", {"", "", nullptr});
  EXPECT_EQ(open().value("FriendList"), std::nullopt);
  EXPECT_EQ(late.copies().newest()->friends, 40U);
}

TEST_F(PostgreSQLTest, MachinesThatStartAtOnceMakeOneSchemaAndAgreeOnTheRegion) {
  std::vector<std::thread> machines;
  std::atomic<int> agreeing = 0;
  for (const std::string region : {"DE", "FR", "US"}) {
    machines.emplace_back([&, region] {
      Process process;
      const Client client(process, patient(cluster().connection(_database)));
      StoreRegion chosen(client.store, [region] { return RegionProposal{{region, "en_" + region}}; });
      if (chosen.locale() == "en_" + chosen.region()) ++agreeing;
    });
  }
  for (std::thread& machine : machines) machine.join();
  EXPECT_EQ(agreeing, 3);
  EXPECT_EQ(integer("SELECT count(*) FROM pellor.version"), 1);
  EXPECT_EQ(integer("SELECT count(*) FROM pellor.preferences"), 2);
}

// Of several machines one follows its contacts

TEST_F(PostgreSQLTest, ASettingOfTheMachineReadsTheSameByVersionAsWithout) {
  const auto machine = [this](const char* name) {
    return std::make_shared<MachinePreferences>(open().store, name, "follows");
  };
  const std::vector<std::string> keys = {"follows", "other"};
  const auto read = [&](MachinePreferences& store) { return *store.read(keys, Domain).value(); };
  const auto first = machine("first"), second = machine("second");
  EXPECT_EQ(read(*first).at("follows").value, std::nullopt) << "it is the first to ask";
  const auto hidden = read(*second).at("follows");
  EXPECT_EQ(hidden.value, Value(false));
  EXPECT_EQ(hidden.version, read(*first).at("follows").version);
  EXPECT_EQ(read(*second).size(), keys.size());

  const auto answer = second->write({{"follows", setTo(true, hidden.version)}, {"other", setTo(1)}}, {1, 2}, Domain);
  EXPECT_EQ(answer.outcome, PreferenceWriteOutcome::written);
  EXPECT_EQ(answer.written.size(), keys.size());
  EXPECT_TRUE(isSame(read(*second).at("follows"), answer.written.at("follows")));
  EXPECT_EQ(read(*first).at("follows").value, Value(false));
  for (const auto& store : {first, second}) {
    EXPECT_TRUE(store->synchronize(Domain));
    EXPECT_EQ(store->copyValue("follows", Domain).value(), read(*store).at("follows").value);
  }
}

// Who may not use it is told why, and changes nothing

TEST_F(PostgreSQLTest, WhatStandsInTheWayIsSaidWithWhatToDo) {
  for (const char* role : {"locked", "stranger"})
    cluster().run("postgres", {{std::string("CREATE ROLE ") + role + " LOGIN"}});
  const auto fails = [](const Client& client, const std::string& reason, const std::string& advice) {
    const ServiceReport report = client.service->report();
    EXPECT_NE(report.detail.find(reason), std::string::npos) << report.detail;
    EXPECT_NE(report.advice.find(advice), std::string::npos) << report.advice;
    EXPECT_FALSE(client.store->copyValue("key", Domain).isReadable());
    EXPECT_FALSE(client.save("key", 1));
    EXPECT_FALSE(client.store->insertIfAbsent({{"key", 1}}, Domain));
    EXPECT_EQ(client.store->write({{"key", setTo(1)}}, {1, 1}, Domain).outcome, PreferenceWriteOutcome::failed);
    EXPECT_FALSE(client.store->isWritable());
    EXPECT_NE(client.store->lastError().find(reason), std::string::npos) << client.store->lastError();
    EXPECT_EQ(client.log->count("cannot be used"), 1u);
  };
  const auto schemas = [this] { return integer("SELECT count(*) FROM pg_namespace WHERE nspname = 'pellor'"); };
  fails(open("locked", " password=wrong"), "does not take the password", "~/.pgpass");
  fails(open("locked"), "asks for a password", "~/.pgpass");
  fails(open("pellor", " dbname=nowhere"), "no such database", "createdb");
  fails(open("pellor", " host=/nonexistent"), "cannot be reached", "host");
  fails(open("pellor", " hots=127.0.0.1"), "is not understood", "postgresql.connection");
  fails(open("stranger"), "lacks a right", "administrator");
  EXPECT_EQ(schemas(), 0);

  run({{"CREATE SCHEMA pellor"}});
  fails(open(), "table is missing", "restore");
  run({{"DROP SCHEMA pellor"}});
  ASSERT_TRUE(open().save("key", "stored"));
  Client& stranger = open("stranger");
  fails(stranger, "lacks a right", "grant");
  run({{"UPDATE pellor.version SET version = 99"}});
  fails(open(), "later version", "update");
  EXPECT_EQ(integer("SELECT count(*) FROM pellor.preferences"), 1);

  // As the administrator mends it.
  run({{"UPDATE pellor.version SET version = 2"}});
  run({{"GRANT USAGE ON SCHEMA pellor TO stranger"}, {"GRANT SELECT ON ALL TABLES IN SCHEMA pellor TO stranger"}});
  ASSERT_TRUE(stranger.becomesConnected());
  EXPECT_EQ(stranger.value("key"), Value("stored"));
  EXPECT_FALSE(stranger.save("key", "changed"));
  EXPECT_EQ(stranger.value("key"), Value("stored"));
  EXPECT_FALSE(stranger.store->isWritable());
  EXPECT_NE(stranger.store->lastError().find("only"), std::string::npos) << stranger.store->lastError();
  EXPECT_EQ(stranger.log->count("can be used again"), 1u);
}

// What is heard

class PostgreSQLHearingTest : public SystemNotifyBusContract<PostgreSQLBuses> {};

TEST_F(PostgreSQLHearingTest, AListThatIsWrittenIsHeardOfAlsoWhenItsWriterEndsBeforeItPosts) {
  Deliveries heard, others;
  observe(0, "name", heard);
  observe(1, "name", others);
  const Client writer(_buses.process(2), patient(_buses.connectionOf(2)));
  ASSERT_TRUE(writer.save("key", persons(2)));
  EXPECT_TRUE(_buses.runUntil([&] { return heard.size() == 1 && others.size() == 1; }));
  const auto answer = writer.store->write({{"key", setTo(persons(3))}}, {1, 1}, Domain);
  EXPECT_EQ(answer.outcome, PreferenceWriteOutcome::written);
  EXPECT_TRUE(_buses.runUntil([&] { return heard.size() == 2 && others.size() == 2; }));

  // An edit is there for whoever hears of it.
  const Client reader(_buses.process(0), patient(_buses.connectionOf(0)));
  std::optional<Value> seen;
  observe(0, &seen, "posted", [&] {
    EXPECT_TRUE(reader.store->synchronize(Domain));
    seen = reader.value("text");
  });
  for (const char* text : {"first", "second"}) {
    ASSERT_TRUE(writer.save("text", text));
    post(2, "posted");
    EXPECT_TRUE(_buses.runUntil([&] { return seen == Value(text); })) << text;
  }
}

// What goes wrong

TEST(PostgreSQLFailureTest, APartitionIsNoticedAndHealsByItself) {
  const std::string database = cluster().makeDatabase();
  const TemporaryFolder folder;
  Detour detour(folder / PostgreSQLCluster::SocketName, cluster().folder() / PostgreSQLCluster::SocketName);
  Process process;
  PostgreSQLOptions options = patient("host=" + folder.path().string() + " user=pellor dbname=" + database);
  options.answerLimit = options.connectLimit = 3;
  options.heartbeat = 0.2;
  const Client cutOff(process, options), other(process, patient(cluster().connection(database)));
  const auto bus = PostgreSQLBus::make(process, cutOff.service);
  ASSERT_TRUE(cutOff.save("list", persons(40)));
  int heard = 0;
  bus->addObserver(
      &heard, [&] { ++heard; }, "name");

  detour.block(true);
  EXPECT_TRUE(comesTrue([&] { return cutOff.log->contains("cannot be used"); })) << "although nobody asks for anything";
  EXPECT_FALSE(cutOff.save("mine", 1));
  EXPECT_FALSE(cutOff.store->copyValue("list", Domain).isReadable());
  bus->post("name");
  ASSERT_TRUE(other.save("list", persons(41)));

  detour.block(false);
  EXPECT_TRUE(cutOff.becomesConnected());
  EXPECT_TRUE(process.settle(60));
  EXPECT_EQ(heard, 2) << "the own post, and that somebody may have posted";
  EXPECT_TRUE(cutOff.store->synchronize(Domain));
  EXPECT_EQ(cutOff.value("list"), Value(persons(41)));
  EXPECT_TRUE(other.store->synchronize(Domain));
  EXPECT_EQ(other.value("mine"), std::nullopt) << "a write that failed does not go over newer ones later";
  EXPECT_EQ(cutOff.log->messages().size(), 2u) << "away and back";
}

TEST(PostgreSQLRefusedThreadsTest, WithoutItsThreadTheServerIsAwayUntilItCanBeStarted) {
  runWithRefusedThreads([](const RefusedThreads& refused) {
    Process process;
    const auto log = std::make_shared<LogCollector>();
    PostgreSQLOptions options;
    options.connection = "host=/nonexistent";
    const PostgreSQLService service(process, options, LogHandle("test", "postgresql", log));
    const auto perform = [&] { service.link().perform([](PostgreSQLConnection&) {}); };
    EXPECT_THROW(perform(), PostgreSQLError);
    service.link().performSoon([](PostgreSQLConnection&) {});
    EXPECT_NE(service.error().find(RefusedThreads::Refusal), std::string::npos) << service.error();
    EXPECT_NE(service.report().advice.find("ulimit -u"), std::string::npos);
    EXPECT_EQ(log->count(RefusedThreads::Refusal), 1U);
    refused.lift();
    EXPECT_THROW(perform(), PostgreSQLError);
    EXPECT_EQ(service.error().find(RefusedThreads::Refusal), std::string::npos) << "the server itself is asked";
  });
}

}  // namespace
}  // namespace pellor
