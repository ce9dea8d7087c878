#include "linux/postgresql/PostgreSQLPreferences.h"

#include <gtest/gtest.h>

#include <atomic>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "linux/StoreRegion.h"
#include "linux/postgresql/PostgreSQLBus.h"
#include "testing/LogCollector.h"
#include "tests/contract/PreferencesStoreContract.h"
#include "tests/contract/SystemNotifyBusContract.h"
#include "tests/linux/ServedProcesses.h"
#include "tests/services/Detour.h"
#include "tests/services/PostgreSQLCluster.h"

namespace pellor {
namespace {

constexpr const char* Domain = "org.tapnote.TN";
constexpr const char* SocketName = ".s.PGSQL.5432";

/// One for all tests of the program, each of which has a database of its own.
PostgreSQLCluster& cluster() {
  static PostgreSQLCluster shared;
  return shared;
}

/// Limits that no slow machine reaches.
PostgreSQLOptions patient(const std::string& connection) {
  PostgreSQLOptions options;
  options.connection = connection;
  options.mainQueueLimit = options.limit = options.connectLimit = options.answerLimit = 60;
  options.firstPause = options.longestPause = 0.01;
  return options;
}

/// A process of another machine, as far as the server can tell.
struct Client {
  Client(Process& process, PostgreSQLOptions options)
      : service(std::make_shared<PostgreSQLService>(process, std::move(options), LogHandle("test", "service", log))),
        store(std::make_shared<PostgreSQLPreferences>(service, "/nonexistent/defaults.json",
                                                      LogHandle("test", "preferences", log))) {}
  bool becomesConnected() const {
    return comesTrue([this] { return service->isConnected(); });
  }
  bool save(std::string_view key, const std::optional<Value>& value) const {
    store->setValue(key, value, Domain);
    return store->synchronize(Domain);
  }
  std::optional<Value> value(std::string_view key) const { return store->copyValue(key, Domain).value(); }

  std::shared_ptr<LogCollector> log = std::make_shared<LogCollector>();
  std::shared_ptr<PostgreSQLService> service;
  std::shared_ptr<PostgreSQLPreferences> store;
};

// The contracts

class PostgreSQLStores {
 public:
  std::shared_ptr<PreferencesStore> open() { return _clients.emplace_back(_process, patient(connection())).store; }

  void damage(std::string_view key, std::string_view domain) {
    const std::string next = "(SELECT revision + 1 FROM pellor.domains WHERE domain = $1)";
    const std::string cut = "SET value = substr(value, 1, length(value) - 1), revision = " + next;
    run({{"UPDATE pellor.preferences " + cut + " WHERE list IS NULL AND domain = $1 AND key = $2", {domain, key}},
         {"UPDATE pellor.runs " + cut +
              " WHERE list = (SELECT list FROM pellor.preferences WHERE domain = $1 AND key = $2)",
          {domain, key}},
         {"UPDATE pellor.domains SET revision = revision + 1 WHERE domain = $1", {domain}}});
  }
  void makeUnreadable() { run({{"UPDATE pellor.version SET version = 99"}}); }
  void makeReadable() {
    run({{"UPDATE pellor.version SET version = 1"}});
    for (const Client& client : _clients) EXPECT_TRUE(client.becomesConnected());
  }
  void failWrites(bool fail) {
    if (!fail) return run({{"DROP TRIGGER refused ON pellor.last_good"}});
    run({{"CREATE FUNCTION refuse() RETURNS trigger LANGUAGE plpgsql AS $$BEGIN RAISE 'full'; END$$"},
         {"CREATE TRIGGER refused BEFORE INSERT ON pellor.last_good EXECUTE FUNCTION refuse()"}});
  }

 private:
  std::string connection() const { return cluster().connection(_database); }
  void run(const PostgreSQLBatch& batch) { cluster().run(_database, batch); }

  const std::string _database = cluster().makeDatabase();
  Process _process;
  std::list<Client> _clients;
};

INSTANTIATE_TYPED_TEST_SUITE_P(PostgreSQL, PreferencesStoreContract, PostgreSQLStores);

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

TEST_F(PostgreSQLTest, AnEditWritesAndReadsOneRowAndTheOtherRunsStayTheObjectsThatTheyWere) {
  Client &writer = open(), &reader = open();
  ASSERT_TRUE(writer.save("key", persons(240)));
  const auto runsIn = [](const Client& client) { return client.value("key")->longArray()->runs(); };
  const auto read = runsIn(reader), written = runsIn(writer);
  ASSERT_TRUE(writer.save("key", withElement(*writer.value("key")->longArray(), 70, Dictionary{})));
  // A row that has no newer revision is not read again.
  run({{"UPDATE pellor.runs SET value = 'x' WHERE number = 5"}});
  ASSERT_TRUE(reader.store->synchronize(Domain));
  for (std::size_t number = 0; number < 8; ++number) {
    EXPECT_EQ(runsIn(reader)[number] == read[number], number != 2) << number;
    EXPECT_EQ(runsIn(writer)[number] == written[number], number != 2) << number;
  }
  EXPECT_EQ(runsIn(reader)[2]->at(6), Value(Dictionary{}));
  EXPECT_EQ(integer("SELECT count(*) FROM pellor.runs WHERE revision = 2"), 1);
  ASSERT_TRUE(writer.save("key", Array(*reader.value("key")->array())));
  EXPECT_EQ(integer("SELECT revision FROM pellor.domains"), 2) << "equal values are no change";

  Client& late = open();
  EXPECT_EQ(late.value("key")->kind(), Value::Kind::data) << "one row is damaged";
  for (int time = 0; time < 2; ++time) EXPECT_EQ(late.store->putAside("key", Domain).lastGood, reader.value("key"));
  EXPECT_EQ(integer("SELECT count(*) FROM pellor.aside WHERE put_aside <= now()"), 1);
}

TEST_F(PostgreSQLTest, MachinesThatStartAtOnceMakeOneSchemaAndAgreeOnTheRegion) {
  std::vector<std::thread> machines;
  std::atomic<int> agreeing = 0;
  for (const std::string region : {"DE", "FR", "US"}) {
    machines.emplace_back([&, region] {
      Process process;
      const Client client(process, patient(cluster().connection(_database)));
      StoreRegion chosen(client.store, [region] { return RegionAndLocale{region, "en_" + region}; });
      if (chosen.locale() == "en_" + chosen.region()) ++agreeing;
    });
  }
  for (std::thread& machine : machines) machine.join();
  EXPECT_EQ(agreeing, 3);
  EXPECT_EQ(integer("SELECT count(*) FROM pellor.version"), 1);
  EXPECT_EQ(integer("SELECT count(*) FROM pellor.preferences"), 2);
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
    EXPECT_FALSE(client.store->isWritable());
    EXPECT_NE(client.store->lastError().find(reason), std::string::npos) << client.store->lastError();
    EXPECT_EQ(client.log->count("cannot be used"), 1u);
  };
  const auto schemas = [this] { return integer("SELECT count(*) FROM pg_namespace WHERE nspname = 'pellor'"); };
  fails(open("locked", " password=wrong"), "does not let the role in", "password");
  fails(open("pellor", " dbname=nowhere"), "no such database", "createdb");
  fails(open("pellor", " host=/nonexistent"), "cannot be reached", "host");
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
  run({{"UPDATE pellor.version SET version = 1"}});
  run({{"GRANT USAGE ON SCHEMA pellor TO stranger"}, {"GRANT SELECT ON ALL TABLES IN SCHEMA pellor TO stranger"}});
  ASSERT_TRUE(stranger.becomesConnected());
  EXPECT_EQ(stranger.value("key"), Value("stored"));
  EXPECT_FALSE(stranger.store->synchronize(Domain)) << "what was set is still to be written";
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

std::int64_t numberIn(const Value& list) {
  return *valueForKey(*list.longArray()->at(0).dictionary(), "ABRecordID")->integer();
}

/// Writes one value after the other, as long as it may, and remembers the last one of which it was told that it is
/// stored.
class Editor {
 public:
  Editor(const Client& client, std::string key) : _client(client), _key(std::move(key)), _thread([this] { edit(); }) {}
  void stop() {
    _isStopped = true;
    _thread.join();
  }
  std::int64_t confirmed() const { return _confirmed; }

 private:
  void edit() {
    for (std::int64_t number = 1; !_isStopped; ++number) {
      EXPECT_TRUE(_client.becomesConnected());
      if (_client.save(_key, Array(static_cast<std::size_t>(number % 70) + 1, person(number)))) _confirmed = number;
    }
  }

  const Client& _client;
  const std::string _key;
  std::atomic<bool> _isStopped = false;
  std::atomic<std::int64_t> _confirmed = 0;
  std::thread _thread;
};

TEST(PostgreSQLFailureTest, AServerThatIsKilledAmidEditsLosesNoneThatWasSaved) {
  PostgreSQLCluster own;
  Process process;
  const PostgreSQLOptions options = patient(own.connection("postgres"));
  const Client first(process, options), second(process, options);
  Editor one(first, "one"), other(second, "other");
  const auto bothHaveSaved = [&](std::int64_t more) {
    const std::int64_t atOne = one.confirmed() + more, atOther = other.confirmed() + more;
    EXPECT_TRUE(comesTrue([&] { return one.confirmed() >= atOne && other.confirmed() >= atOther; }));
  };
  bothHaveSaved(50);
  own.kill();
  for (const Client* client : {&first, &second}) {
    EXPECT_TRUE(comesTrue([client] { return client->log->contains("cannot be used"); }));
  }
  own.start();
  bothHaveSaved(50);
  for (Editor* editor : {&one, &other}) editor->stop();
  const Client reader(process, options);
  for (const Client* client : {&first, &second}) {
    EXPECT_TRUE(client->store->synchronize(Domain));
    EXPECT_EQ(client->log->messages().size(), 2u) << "away and back";
    EXPECT_EQ(client->log->count("can be used again"), 1u);
    for (const auto& [key, editor] : {std::pair{"one", &one}, std::pair{"other", &other}}) {
      EXPECT_EQ(client->value(key), reader.value(key));
      EXPECT_GE(numberIn(*client->value(key)), editor->confirmed());
    }
  }
}

TEST(PostgreSQLFailureTest, WhoeverDoesNotWaitForTheServerIsToldSoAndTheWriteCountsOnceItIsDone) {
  const std::string database = cluster().makeDatabase();
  const TemporaryFolder folder;
  Detour detour(folder / SocketName, cluster().folder() / SocketName);
  Process process;
  PostgreSQLOptions options = patient("host=" + folder.path().string() + " user=pellor dbname=" + database);
  options.mainQueueLimit = 0.01;
  const Client other(process, patient(cluster().connection(database)));
  detour.block(true);
  const Client hasty(process, options);
  EXPECT_FALSE(hasty.store->synchronize(Domain)) << "while it connects";
  detour.block(false);
  EXPECT_TRUE(hasty.becomesConnected());
  detour.block(true);
  EXPECT_FALSE(hasty.save("key", 1));
  EXPECT_FALSE(hasty.store->copyValue("key", Domain).isReadable());
  detour.block(false);
  EXPECT_TRUE(comesTrue([&] { return other.store->synchronize(Domain) && other.value("key") == Value(1); }));
  EXPECT_TRUE(comesTrue([&] { return hasty.store->synchronize(Domain); }));
  EXPECT_EQ(hasty.value("key"), Value(1));
  EXPECT_EQ(hasty.log->messages(), std::vector<std::string>()) << "nothing was wrong";
}

TEST(PostgreSQLFailureTest, APartitionIsNoticedAndHealsByItself) {
  const std::string database = cluster().makeDatabase();
  const TemporaryFolder folder;
  Detour detour(folder / SocketName, cluster().folder() / SocketName);
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
  EXPECT_EQ(other.value("mine"), Value(1));
  EXPECT_EQ(cutOff.log->messages().size(), 2u) << "away and back";
}

}  // namespace
}  // namespace pellor
