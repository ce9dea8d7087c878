// contacts import
#pragma once

#include "cli/CommandLine.h"

namespace pellor::cli {

/// Adds the command below `contacts`; given on the command line, it becomes `chosen`.
void addContactImport(CLI::App& contacts, Command& chosen);

}  // namespace pellor::cli
