// Phone numbers as the user sees them.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "pellor/linux/phone/CanonicalFormStore.h"
#include "pellor/runtime/Process.h"

namespace pellor::cli {

/// How numbers are shown, remembered for later runs: to start the phone library takes longer than all else that a run
/// does. One a process. Main queue.
class ShownNumbers {
 public:
  /// Keeps what `shown` finds out in a folder, for a region. Where nobody called this each number is worked out.
  void keepIn(const std::filesystem::path& folder, const std::string& region);
  /// A number in the form in which it is shown; any other text as it is.
  std::string shown(const std::string& number);

 private:
  void remember(const std::string& number, const std::string& shown);

  std::shared_ptr<CanonicalFormStore> _known;
};

}  // namespace pellor::cli
