// The key under which contacts are found by a phone number or an e-mail address.
#pragma once

#include <string>

#include "pellor/linux/text/CardText.h"

namespace pellor {

/// E-mail addresses are found whatever their case: hardly any server tells them apart, and people do not.
inline std::string destinationKey(const std::string& canonical) {
  return canonical.find('@') == std::string::npos ? canonical : lowerCased(canonical);
}

}  // namespace pellor
