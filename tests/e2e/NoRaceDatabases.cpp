// For builds without PostgreSQL.

#include "tests/e2e/RaceGround.h"

namespace pellor {

bool hasRaceDatabases() { return false; }

std::unique_ptr<RaceDatabases> makeRaceDatabases() { return nullptr; }

}  // namespace pellor
