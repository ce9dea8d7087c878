// Whether skipped work is done after all, and the results compared.
#pragma once

#include <atomic>
#include <string_view>

#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/Process.h"

namespace pellor {

/// The checks of one process: `process.local<PLSkipChecks>()`. Off at first; for simulations, in which nothing else
/// runs while a skip is checked. A skip that changes what comes out ends the program. Any thread.
class PLSkipChecks {
 public:
  void switchOn() { _areOn.store(true, std::memory_order_relaxed); }
  bool areOn() const { return _areOn.load(std::memory_order_relaxed); }

 private:
  std::atomic<bool> _areOn{false};
};

/// Whether the checks of the current process are on.
inline bool areSkipsChecked() { return Process::current().local<PLSkipChecks>().areOn(); }

/// Stands where work is skipped. Ends the program if the checks of the current process are on and `isRight`, which
/// does the work and compares, is false; `expected` names the skip.
template <class IsRight>
void checkSkip(std::string_view expected, const IsRight& isRight) {
  if (areSkipsChecked()) require(isRight(), expected);
}

}  // namespace pellor
