// What is written by version to a server that does not answer.

#include <gtest/gtest.h>

#include <atomic>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "pellor/linux/postgresql/PostgreSQLPreferences.h"
#include "pellor/testing/contract/PreferencesUntoldContract.h"
#include "tests/services/PostgreSQLClient.h"
#include "tests/services/servers/Detour.h"

namespace pellor {
namespace {

/// In the request that a COMMIT of changes comes with, and in no other.
constexpr const char* Committing = "UPDATE pellor.domains SET revision";

/// A way to a database that can be cut.
struct DetourToDatabase {
  std::string connection() const { return "host=" + folder.path().string() + " user=pellor dbname=" + database; }

  const std::string database = cluster().makeDatabase();
  const TemporaryFolder folder;
  Detour detour{folder / PostgreSQLCluster::SocketName, cluster().folder() / PostgreSQLCluster::SocketName};
};

class PostgreSQLDetours {
 public:
  std::shared_ptr<PreferencesStore> open() {
    PostgreSQLOptions options = patient(_way.connection());
    // A session whose client is gone holds the domain for a quarter of it, and the others wait for half of it.
    options.answerLimit = 8;
    return _clients.emplace_back(_process, options).store;
  }
  static std::vector<UntoldWrite> untoldWrites() {
    return {UntoldWrite::stored, UntoldWrite::lost, UntoldWrite::delayed};
  }
  void leaveUntold(UntoldWrite way) {
    using Fate = Detour::Fate;
    _way.detour.stopAt(Committing, way == UntoldWrite::stored ? Fate::served
                                   : way == UntoldWrite::lost ? Fate::lost
                                                              : Fate::held);
  }
  void becomeUsable() const {
    for (const Client& client : _clients) EXPECT_TRUE(client.becomesConnected());
  }
  void deliver() { _way.detour.serveHeld(); }

 private:
  DetourToDatabase _way;
  Process _process;
  std::list<Client> _clients;
};

INSTANTIATE_TYPED_TEST_SUITE_P(PostgreSQL, PreferencesUntoldContract, PostgreSQLDetours);

PreferenceWriteAnswer write(const Client& client, PreferenceWriteID id, const PreferenceChanges& changes) {
  return client.store->write(changes, id, Client::Domain);
}

TEST(PostgreSQLUntoldTest, AWriteThatIsGivenUpBeforeItIsSentIsNeverWritten) {
  DetourToDatabase way;
  Process process;
  PostgreSQLOptions options = patient(way.connection());
  options.mainQueueLimit = 0.01;
  const Client other(process, patient(cluster().connection(way.database)));
  way.detour.block(true);
  const Client hasty(process, options);
  EXPECT_FALSE(hasty.store->synchronize(Client::Domain)) << "while it connects";
  way.detour.block(false);
  EXPECT_TRUE(hasty.becomesConnected());

  // One that has begun, and others that wait for its end.
  way.detour.block(true);
  for (std::uint64_t number = 1; number <= 2; ++number) {
    EXPECT_EQ(write(hasty, {1, number}, {{"key", setTo("by version")}}).outcome, PreferenceWriteOutcome::failed);
    EXPECT_FALSE(hasty.save("set", "a setting"));
    EXPECT_FALSE(hasty.store->insertIfAbsent({{"absent", 1}}, Client::Domain));
  }
  EXPECT_FALSE(hasty.store->copyValue("key", Client::Domain).isReadable());
  way.detour.block(false);
  // Its jobs are done in their order.
  EXPECT_TRUE(comesTrue([&] { return hasty.store->synchronize(Client::Domain); }));
  for (const char* key : {"key", "set", "absent"}) EXPECT_EQ(other.stored(key).value, std::nullopt) << key;
  EXPECT_EQ(hasty.log->messages(), std::vector<std::string>()) << "nothing was wrong";
}

TEST(PostgreSQLUntoldTest, AWriteThatIsGivenUpAfterItWasSentIsUnknownAndCountsOnceItIsDone) {
  DetourToDatabase way;
  Process process;
  PostgreSQLOptions options = patient(way.connection());
  options.mainQueueLimit = 0.1;
  const Client hasty(process, options), other(process, patient(cluster().connection(way.database)));
  EXPECT_TRUE(comesTrue([&] { return hasty.store->synchronize(Client::Domain); }));
  way.detour.stopAt(Committing, Detour::Fate::blocked);
  PreferenceWriteID id{1, 0};
  // A slow machine may give it up before it is sent.
  EXPECT_TRUE(comesTrue([&] {
    ++id.number;
    return write(hasty, id, {{"key", setTo("sent")}}).outcome == PreferenceWriteOutcome::unknown;
  }));
  EXPECT_EQ(hasty.value("key"), std::nullopt) << "it is not known to be written";
  EXPECT_EQ(other.stored("key").value, std::nullopt);
  way.detour.block(false);
  EXPECT_TRUE(comesTrue([&] { return hasty.store->synchronize(Client::Domain); }));
  EXPECT_EQ(other.stored("key").version.write, id);
  EXPECT_EQ(hasty.value("key"), Value("sent"));
}

/// Counts on in a counter that others count on in too, as often as it may. Of each count it knows whether it was
/// written, sooner or later: the key that it alone writes tells.
class Counter {
 public:
  /// `saves`: it also edits a list of its own without versions.
  Counter(const Client& client, std::uint64_t writer, bool saves)
      : _client(client), _saves(saves), _id{writer, 0}, _own("of " + std::to_string(writer)), _thread([this] {
          count();
        }) {}
  void stop() {
    _isStopped = true;
    _thread.join();
  }
  std::int64_t written() const { return _written; }
  bool wasUntold() const { return _wasUntold; }
  /// Whether the last edit without versions that was reported as saved is stored, or a later one.
  bool keptWhatWasSaved(const Client& reader) const {
    return static_cast<std::int64_t>(reader.value(_own + " without versions")->array()->size()) >= _saved;
  }

 private:
  void count() {
    for (std::int64_t number = 1; !_isStopped; ++number) {
      if (countOnce()) ++_written;
      if (_saves && _client.save(_own + " without versions", Array(static_cast<std::size_t>(number), "edit")))
        _saved = number;
    }
  }

  bool countOnce() {
    const auto found = read();
    const auto& counter = found.at("counter");
    ++_id.number;
    const auto next = counter.value ? *counter.value->integer() + 1 : 1;
    const auto answer = write(_client, _id, {{"counter", setTo(next, counter.version)}, {_own, setTo("counted")}});
    if (answer.outcome != PreferenceWriteOutcome::unknown) return answer.outcome == PreferenceWriteOutcome::written;
    _wasUntold = true;
    return read().at(_own).version.write == _id;
  }

  VersionedPreferences read() const {
    while (true) {
      EXPECT_TRUE(_client.becomesConnected());
      const auto answer = _client.store->read(std::vector<std::string>{"counter", _own}, Client::Domain);
      if (answer.isReadable()) return *answer.value();
    }
  }

  const Client& _client;
  const bool _saves;
  PreferenceWriteID _id;
  const std::string _own;
  std::atomic<bool> _isStopped = false;
  std::atomic<bool> _wasUntold = false;
  std::atomic<std::int64_t> _written = 0;
  std::atomic<std::int64_t> _saved = 0;
  std::thread _thread;
};

TEST(PostgreSQLUntoldTest, MachinesThatCountTogetherLoseAndDoubleNoCountWhenAnswersAreLostAndTheServerIsKilled) {
  PostgreSQLCluster own;
  const TemporaryFolder folder;
  Detour detour(folder / PostgreSQLCluster::SocketName, own.folder() / PostgreSQLCluster::SocketName);
  Process process;
  const Client first(process, patient(own.connection("postgres"))),
      second(process, patient("host=" + folder.path().string() + " user=pellor dbname=postgres"));
  Counter one(first, 1, true), other(second, 2, false);
  const auto bothCount = [&] {
    const std::int64_t atOne = one.written() + 20, atOther = other.written() + 20;
    EXPECT_TRUE(comesTrue([&] { return one.written() >= atOne && other.written() >= atOther; }));
  };
  bothCount();
  for (const Detour::Fate fate : {Detour::Fate::served, Detour::Fate::lost}) {
    detour.stopAt(Committing, fate);
    bothCount();
  }
  own.kill();
  for (const Client* client : {&first, &second})
    EXPECT_TRUE(comesTrue([client] { return client->log->contains("cannot be used"); }));
  own.start();
  bothCount();
  for (Counter* counter : {&one, &other}) counter->stop();
  const Client reader(process, patient(own.connection("postgres")));
  EXPECT_TRUE(reader.store->synchronize(Client::Domain));
  EXPECT_TRUE(one.keptWhatWasSaved(reader));
  EXPECT_EQ(first.log->count("cannot be used"), 1u) << "away once";
  EXPECT_EQ(first.log->messages().size(), 2u) << "and back";
  EXPECT_TRUE(other.wasUntold());
  EXPECT_EQ(first.stored("counter").value, Value(one.written() + other.written()));
}

}  // namespace
}  // namespace pellor
