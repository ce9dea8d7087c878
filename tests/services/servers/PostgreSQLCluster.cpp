#include "tests/services/servers/PostgreSQLCluster.h"

#include <unistd.h>

#include <fstream>
#include <iterator>

namespace pellor {
namespace {

constexpr const char* ServerUser = "postgres";
constexpr PostgreSQLConnection::Limits PatientLimits{60, 60};
constexpr int NeverStopped = -1;

std::vector<pid_t> childrenOf(pid_t parent) {
  const std::string id = std::to_string(parent);
  std::ifstream file("/proc/" + id + "/task/" + id + "/children");
  return {std::istream_iterator<pid_t>(file), {}};
}

bool isGone(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string id, name, state;
  return !(file >> id >> name >> state) || state == "Z";
}

}  // namespace

PostgreSQLCluster::PostgreSQLCluster() {
  // The server does not run as root, so the folder has to be its user's.
  if (::geteuid() == 0) runTool({"chown", ServerUser, folder()});
  std::string programs = runTool({"pg_config", "--bindir"});
  programs.pop_back();
  _programs = programs;
  runTool(asUser(ServerUser, {"env", "LC_ALL=C", _programs / "initdb", "-D", folder() / "data", "-A", "trust", "-U",
                              "pellor", "-E", "UTF8", "--no-sync"}));
  writeFile(folder() / "data/pg_hba.conf", "local all locked scram-sha-256\nlocal all all trust\n");
  start();
}

PostgreSQLCluster::~PostgreSQLCluster() {
  // At once, but so that it leaves nothing behind.
  if (_server) _server->end(SIGQUIT);
}

void PostgreSQLCluster::start() {
  const auto isReady = [this] {
    try {
      run("postgres", {{"SELECT 1"}});
      return true;
    } catch (const PostgreSQLError&) {
      return false;
    }
  };
  _server.emplace(
      asUser(ServerUser, {"env", "LC_ALL=C", _programs / "postgres", "-D", folder() / "data", "-k", folder(), "-h", "",
                          "-c", "fsync=off", "-c", "dynamic_shared_memory_type=mmap", "-c", "shared_buffers=16MB"}),
      isReady);
}

void PostgreSQLCluster::kill() {
  const std::vector<pid_t> children = childrenOf(_server->id());
  _server->end(SIGKILL);
  // It does not start again before they have left its memory.
  for (const pid_t child : children) ::kill(child, SIGKILL);
  for (const pid_t child : children) EXPECT_TRUE(comesTrue([child] { return isGone(child); }));
}

std::string PostgreSQLCluster::connection(const std::string& database, const std::string& user) const {
  return "host=" + folder().string() + " dbname=" + database + " user=" + user;
}

std::string PostgreSQLCluster::makeDatabase() {
  const std::string name = "test" + std::to_string(++_databases);
  run("postgres", {{"CREATE DATABASE " + name}});
  return name;
}

std::vector<PostgreSQLRows> PostgreSQLCluster::run(const std::string& database, const PostgreSQLBatch& batch) const {
  return PostgreSQLConnection(connection(database), PatientLimits, NeverStopped).run(batch);
}

void PostgreSQLCluster::load(const std::string& database, const std::filesystem::path& file) const {
  runTool({_programs / "psql", "-q", "-v", "ON_ERROR_STOP=1", "-f", file, connection(database)});
}

std::int64_t PostgreSQLCluster::integer(const std::string& database, const std::string& query) const {
  return run(database, {{query}})[0].integer(0, 0);
}

}  // namespace pellor
