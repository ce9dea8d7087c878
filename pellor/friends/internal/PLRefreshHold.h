// Whether refreshing waits for contacts that are gone.
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "pellor/platform/AddressBookStore.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Timer.h"

namespace pellor {

/// While it holds refreshes back, the log has said so, with both numbers of contacts, and a timer is set after which a
/// refresh is asked for again. Main queue.
class PLRefreshHold {
 public:
  /// `refresh` is called while this object lives, to ask for a refresh that was held back.
  PLRefreshHold(Process& process, std::function<void()> refresh) : _process(process), _refresh(std::move(refresh)) {}

  /// Asks the contacts whether a refresh that is due has to wait. In the work of their `performWithAddressBook`.
  bool holdsBack();
  /// Whether it had to at the last time.
  bool isHolding() const { return _timer != nullptr; }
  /// A refresh ran against the contacts as they are. In the work of `performWithAddressBook` that `holdsBack` was asked
  /// in.
  void noteRefresh();

 private:
  Process& _process;
  const std::function<void()> _refresh;
  std::shared_ptr<Timer> _timer;
};

}  // namespace pellor
