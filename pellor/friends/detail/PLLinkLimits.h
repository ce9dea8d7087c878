// What a user does not let a person be linked with.
#pragma once

#include <set>
#include <string>

namespace pellor {

/// Limits for a look at the address book. Without any, as made, it may do everything.
struct PLLinkLimits {
  std::set<std::string> refusedRecords = {};  ///< GUIDs: neither these records fit, nor those that are linked with them
  bool keepsLink = false;                     ///< the person keeps its GUID also where no record has it, and none fits
};

}  // namespace pellor
