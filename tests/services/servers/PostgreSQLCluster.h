// A PostgreSQL server of a test's own.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "pellor/linux/postgresql/PostgreSQLConnection.h"
#include "tests/services/servers/Server.h"

namespace pellor {

/// Reached by a Unix socket in its folder. Everybody is let in without a password but the role `locked`.
class PostgreSQLCluster {
 public:
  static constexpr const char* SocketName = ".s.PGSQL.5432";

  PostgreSQLCluster();
  ~PostgreSQLCluster();

  const std::filesystem::path& folder() const { return _folder.path(); }
  /// Of an administrator who makes what is missing, unless another user is named.
  std::string connection(const std::string& database, const std::string& user = "pellor") const;
  /// An empty database, one more at each call.
  std::string makeDatabase();

  /// As an administrator.
  std::vector<PostgreSQLRows> run(const std::string& database, const PostgreSQLBatch& batch) const;
  std::int64_t integer(const std::string& database, const std::string& query) const;

  /// Runs the statements of a file with psql.
  void load(const std::string& database, const std::filesystem::path& file) const;

  void start();
  /// Ends all of its processes as a crash would.
  void kill();

 private:
  TemporaryFolder _folder;
  std::filesystem::path _programs;
  std::optional<Server> _server;
  int _databases = 0;
};

/// Waits for what other threads bring about. Only a failing test waits long.
template <class Condition>
bool comesTrue(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace pellor
