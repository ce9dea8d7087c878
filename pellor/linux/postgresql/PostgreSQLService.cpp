#include "pellor/linux/postgresql/PostgreSQLService.h"

#include <utility>

#include "pellor/linux/postgresql/PostgreSQLLink.h"
#include "pellor/linux/postgresql/PostgreSQLSchema.h"

namespace pellor {

PostgreSQLService::PostgreSQLService(Process& process, PostgreSQLOptions options, LogHandle log)
    : _link(std::make_unique<PostgreSQLLink>(process, std::move(options), std::move(log))) {}

PostgreSQLService::~PostgreSQLService() = default;

bool PostgreSQLService::isConnected() const { return _link->isConnected(); }

std::string PostgreSQLService::error() const { return _link->error(); }

ServiceReport PostgreSQLService::report() const { return _link->report(); }

std::string PostgreSQLService::schemaText() {
  std::string text;
  for (const PostgreSQLStatement& statement : PostgreSQLSchema::make()) text += statement.text + ";\n";
  return text;
}

}  // namespace pellor
