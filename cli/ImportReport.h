// What an import did to the list, for the user.
#pragma once

#include <string>

#include "cli/Session.h"
#include "pellor/list/ListImport.h"

namespace pellor::cli {

/// `isDry`: it is what would be done.
std::string textOf(const ImportAnswer& answer, ImportMode mode, bool isDry);
Json jsonOf(const ImportAnswer& answer, bool isDry);

}  // namespace pellor::cli
