// What earlier versions left in a database, and what they do to it later.

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "pellor/linux/postgresql/PostgreSQLConnection.h"
#include "pellor/runtime/CBOR.h"
#include "pellor/testing/contract/VersionedWriter.h"
#include "tests/services/PostgreSQLClient.h"

namespace pellor {
namespace {

constexpr std::string_view Domain = Client::Domain;

/// A database in which version 0.1 left a list.
class PostgreSQLSchemaTest : public testing::Test {
 protected:
  PostgreSQLSchemaTest() { cluster().load(_database, PELLOR_TEST_DATA "/0.1/postgresql/pellor.sql"); }

  PostgreSQLOptions options(const std::string& user = "pellor") const {
    return patient(cluster().connection(_database, user));
  }
  std::vector<PostgreSQLRows> run(const PostgreSQLBatch& batch) const { return cluster().run(_database, batch); }
  std::int64_t integer(const std::string& query) const { return cluster().integer(_database, query); }
  std::int64_t version() const { return integer("SELECT max(version) FROM pellor.version"); }

  const std::string _database = cluster().makeDatabase();
  Process _process;
};

TEST_F(PostgreSQLSchemaTest, TheListOfAnEarlierVersionIsThereWithVersionsAndMayBeEdited) {
  std::vector<std::thread> machines;
  for (int number = 0; number < 3; ++number) {
    machines.emplace_back([this] {
      Process process;
      const Client machine(process, options());
      EXPECT_EQ(machine.service->report().state, ServiceReport::State::works) << machine.service->report().detail;
    });
  }
  for (std::thread& machine : machines) machine.join();
  EXPECT_EQ(version(), 2);

  const Client client(_process, options()), other(_process, options());
  const auto [list, listVersion] = client.stored("FriendList");
  EXPECT_NE(listVersion.store, 0U);
  EXPECT_GT(listVersion.count, 0U);
  EXPECT_EQ(listVersion.write, PreferenceWriteID{});
  EXPECT_EQ(client.stored("none").version, (PreferenceVersion{listVersion.store, 0, {}}));
  ASSERT_TRUE(list && list->longArray());
  EXPECT_EQ(client.store->putAside("FriendList", Domain).lastGood, list);

  const Value edited = withElement(*list->longArray(), 1, person(7));
  const auto answer = client.store->write({{"FriendList", setTo(edited, listVersion)}}, {5, 6}, Domain);
  EXPECT_EQ(answer.outcome, PreferenceWriteOutcome::written);
  const auto after = other.stored("FriendList");
  EXPECT_EQ(after.value, edited);
  EXPECT_EQ(after.version.store, listVersion.store);
  EXPECT_GT(after.version.count, listVersion.count);
  EXPECT_EQ(after.version.write, (PreferenceWriteID{5, 6}));
}

/// A program of version 0.1, by the statements that it sends.
class EarlierClient {
 public:
  explicit EarlierClient(const std::string& connection) : _connection(connection, {60, 60}, -1), _list(listNumber()) {}

  /// Its transaction up to the point where it asks for the version, and writes when that is its own.
  std::int64_t lock() {
    const auto rows = _connection.run(
        {{"BEGIN ISOLATION LEVEL READ COMMITTED READ WRITE"},
         {"INSERT INTO pellor.domains VALUES ($1, 0) ON CONFLICT DO NOTHING", {Domain}},
         {"SELECT (SELECT coalesce(max(version), 0) FROM pellor.version), revision FROM pellor.domains WHERE domain = "
          "$1"
          " FOR UPDATE",
          {Domain}},
         {"SELECT key, revision, list, count, CASE WHEN revision > $2 THEN value END FROM pellor.preferences"
          " WHERE domain = $1",
          {Domain, std::int64_t{0}}}});
    if (rows[2].integer(0, 0) != 1) {
      _connection.rollBack();
      return 0;
    }
    return rows[2].integer(0, 1);
  }
  /// False when it finds that a later version was there.
  bool editOneRow(const Value& run) {
    const std::int64_t revision = lock();
    if (revision != 0) commitOneRow(run, revision);
    return revision != 0;
  }
  void commitOneRow(const Value& run, std::int64_t revision) {
    const Data bytes = *encodeCBOR(run);
    _connection.run({{"INSERT INTO pellor.runs (list, number, value, revision) VALUES ($1, 0, $2, $3)"
                      " ON CONFLICT (list, number) DO UPDATE SET value = excluded.value, revision = excluded.revision",
                      {_list, std::span(bytes), revision + 1}},
                     {"UPDATE pellor.domains SET revision = $2 WHERE domain = $1", {Domain, revision + 1}},
                     {"COMMIT"}});
  }

 private:
  std::int64_t listNumber() {
    return _connection
        .run({{"SELECT list FROM pellor.preferences WHERE domain = $1 AND key = 'FriendList'", {Domain}}})[0]
        .integer(0, 0);
  }

  PostgreSQLConnection _connection;
  const std::int64_t _list;
};

TEST_F(PostgreSQLSchemaTest, AnEarlierVersionThatStillRunsWritesBeforeTheSchemaChangesOrNotAtAll) {
  EarlierClient writing(cluster().connection(_database)), idle(cluster().connection(_database));
  Array edited(15, Value(Dictionary{}));
  edited.push_back(person(1));
  ASSERT_TRUE(idle.editOneRow(edited));
  const std::int64_t revision = writing.lock();
  ASSERT_GT(revision, 0);
  const Client client(_process, options());
  // It waits for the writing that has begun.
  EXPECT_TRUE(comesTrue([this] {
    return integer("SELECT count(*) FROM pg_locks WHERE relation = 'pellor.domains'::regclass AND NOT granted") == 1;
  }));
  EXPECT_EQ(version(), 1);
  edited.back() = person(2);
  writing.commitOneRow(edited, revision);
  EXPECT_TRUE(client.becomesConnected());
  EXPECT_EQ(version(), 2);
  EXPECT_EQ(client.value("FriendList"), Value(edited));
  edited.back() = person(3);
  EXPECT_FALSE(idle.editOneRow(edited));
  EXPECT_FALSE(writing.editOneRow(edited));
  edited.back() = person(2);
  EXPECT_EQ(client.stored("FriendList").value, Value(edited));
}

TEST_F(PostgreSQLSchemaTest, ARoleThatMayNotChangeTheTablesSaysSoUntilTheirOwnerHasDoneIt) {
  cluster().run("postgres", {{"CREATE ROLE guest LOGIN"}});
  run({{"GRANT USAGE ON SCHEMA pellor TO guest"},
       {"GRANT SELECT, INSERT, UPDATE, DELETE ON ALL TABLES IN SCHEMA pellor TO guest"}});
  const Client guest(_process, options("guest"));
  const ServiceReport report = guest.service->report();
  EXPECT_NE(report.detail.find("an earlier version"), std::string::npos) << report.detail;
  EXPECT_NE(report.advice.find("owner"), std::string::npos) << report.advice;
  EXPECT_FALSE(guest.store->read(std::vector<std::string>{"key"}, Domain).isReadable());
  EXPECT_EQ(version(), 1);

  const Client owner(_process, options());
  EXPECT_TRUE(owner.becomesConnected());
  EXPECT_TRUE(guest.becomesConnected());
  EXPECT_EQ(guest.store->write({{"key", setTo(1)}}, {1, 1}, Domain).outcome, PreferenceWriteOutcome::written);
  EXPECT_EQ(owner.stored("key").version.write, (PreferenceWriteID{1, 1}));
}

TEST_F(PostgreSQLSchemaTest, AStoreThatIsMadeAnewFromACopyIsAnotherStore) {
  const Client client(_process, options());
  const auto before = client.stored("FriendList");
  // As a dump does it: tables with other names take the place, and rows are copied.
  run({{"CREATE TABLE pellor.copy (LIKE pellor.version INCLUDING ALL)"},
       {"INSERT INTO pellor.copy SELECT * FROM pellor.version"},
       {"DROP TABLE pellor.version"},
       {"ALTER TABLE pellor.copy RENAME TO version"}});
  const Client late(_process, options());
  const auto copied = late.stored("FriendList");
  EXPECT_EQ(copied.value, before.value);
  EXPECT_NE(copied.version.store, before.version.store);
  EXPECT_EQ(client.stored("FriendList").version, copied.version);
  EXPECT_EQ(client.store->write({{"FriendList", setTo(1, before.version)}}, {1, 1}, Domain).outcome,
            PreferenceWriteOutcome::overtaken);
  const Client last(_process, options());
  EXPECT_EQ(last.stored("FriendList").version, copied.version) << "it keeps its number";
}

}  // namespace
}  // namespace pellor
