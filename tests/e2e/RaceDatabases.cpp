#include "tests/e2e/RaceGround.h"
#include "tests/services/servers/PostgreSQLCluster.h"

namespace pellor {
namespace {

class ClusterDatabases : public RaceDatabases {
 public:
  std::string make() override { return _cluster.makeDatabase(); }
  std::string copyOf(const std::string& name) override {
    const std::string copy = "race" + std::to_string(++_copies);
    _cluster.run("postgres", {{"CREATE DATABASE " + copy + " TEMPLATE " + name}});
    return copy;
  }
  // The server may not have noticed yet that a killed process is gone.
  void drop(const std::string& name) override {
    _cluster.run("postgres", {{"DROP DATABASE " + name + " WITH (FORCE)"}});
  }
  std::string connection(const std::string& name) const override { return _cluster.connection(name); }

 private:
  PostgreSQLCluster _cluster;
  int _copies = 0;
};

}  // namespace

bool hasRaceDatabases() { return true; }

std::unique_ptr<RaceDatabases> makeRaceDatabases() { return std::make_unique<ClusterDatabases>(); }

}  // namespace pellor
