// contacts import
#pragma once

#include "cli/CommandLine.h"
#include "cli/CommandSyntax.h"

namespace pellor::cli {

/// Adds the command below `contacts`; given on the command line, it becomes `chosen`.
void addContactImport(CommandSyntax contacts, Command& chosen);

}  // namespace pellor::cli
