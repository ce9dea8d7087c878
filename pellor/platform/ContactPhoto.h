// The picture of a contact.
#pragma once

#include <string>

#include "pellor/runtime/Value.h"

namespace pellor {

struct ContactPhoto {
  std::string type;      ///< "image/jpeg"; empty when it is not said
  Data bytes;            ///< as they are in the contact; empty when it names a place instead
  std::string location;  ///< the path of a file, from the root on, or a URI; empty with bytes
};

}  // namespace pellor
