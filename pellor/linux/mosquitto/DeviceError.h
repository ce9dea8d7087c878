// Why a step of pairing was not done.
#pragma once

#include <stdexcept>

namespace pellor {

/// The text is one line for the user. Nothing was changed.
class DeviceError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace pellor
