// What the tests of PostgreSQL have in common: one server, and processes of several machines.
#pragma once

#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/postgresql/PostgreSQLPreferences.h"
#include "pellor/linux/postgresql/PostgreSQLSchema.h"
#include "pellor/linux/postgresql/PostgreSQLService.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/LogCollector.h"
#include "tests/services/servers/PostgreSQLCluster.h"

namespace pellor {

/// One for all tests of the program, each of which has a database of its own.
inline PostgreSQLCluster& cluster() {
  static PostgreSQLCluster shared;
  return shared;
}

/// Limits that no slow machine reaches.
inline PostgreSQLOptions patient(const std::string& connection) {
  PostgreSQLOptions options;
  options.connection = connection;
  options.mainQueueLimit = options.limit = options.connectLimit = options.answerLimit = 60;
  options.firstPause = options.longestPause = 0.01;
  return options;
}

/// A process of another machine, as far as the server can tell.
struct Client {
  static constexpr const char* Domain = "org.tapnote.TN";

  Client(Process& process, PostgreSQLOptions options)
      : service(std::make_shared<PostgreSQLService>(process, std::move(options), LogHandle("test", "service", log))),
        store(std::make_shared<PostgreSQLPreferences>(service, "/nonexistent/copies", "/nonexistent/defaults.json",
                                                      LogHandle("test", "preferences", log))) {}
  bool becomesConnected() const {
    return comesTrue([this] { return service->isConnected(); });
  }
  bool save(std::string_view key, const std::optional<Value>& value) const {
    store->setValue(key, value, Domain);
    return store->synchronize(Domain);
  }
  std::optional<Value> value(std::string_view key) const { return store->copyValue(key, Domain).value(); }
  /// By version; expects that it can be read.
  VersionedPreference stored(const std::string& key) const {
    const auto answer = store->read(std::vector{key}, Domain);
    EXPECT_TRUE(answer.isReadable()) << key;
    return answer.value() ? answer.value()->at(key) : VersionedPreference{};
  }

  std::shared_ptr<LogCollector> log = std::make_shared<LogCollector>();
  std::shared_ptr<PostgreSQLService> service;
  std::shared_ptr<PostgreSQLPreferences> store;
};

/// For the contracts.
class PostgreSQLStores {
 public:
  std::shared_ptr<PreferencesStore> open() { return _clients.emplace_back(_process, patient(connection())).store; }
  std::shared_ptr<PreferencesStore> openInChild() const {
    // They end with the child.
    auto* const process = new Process;
    return (new Client(*process, patient(connection())))->store;
  }

  std::shared_ptr<PreferencesStore> openReadOnly() {
    const std::string reader = "reader_of_" + _database;
    run({{"CREATE ROLE " + reader + " LOGIN"},
         {"GRANT USAGE ON SCHEMA pellor TO " + reader},
         {"GRANT SELECT ON ALL TABLES IN SCHEMA pellor TO " + reader}});
    return _clients.emplace_back(_process, patient(cluster().connection(_database, reader))).store;
  }

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
    run({{"UPDATE pellor.version SET version = " + std::to_string(PostgreSQLSchema::Version)}});
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

}  // namespace pellor
