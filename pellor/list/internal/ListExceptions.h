// The automatic decisions that were taken back, as they are stored with the list.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/friends/internal/PLException.h"
#include "pellor/list/internal/StepRecord.h"
#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/LongArrayElements.h"

namespace pellor {

class ForgottenPerson;
class PLFriendsManager;

/// What taking back `step` by `undone` asks of the manager from then on; absent where nothing was taken back that could
/// be decided again.
std::optional<PLException> exceptionFrom(const StepRecord& step, const StepRecord& undone);

/// Puts exceptions where every manager of the list reads and respects them. Within a step of the manager, or while
/// steps are judged. Main queue.
class ListExceptions {
 public:
  explicit ListExceptions(std::shared_ptr<PLFriendsManager> manager) : _manager(std::move(manager)) {}

  /// Those that hold.
  std::vector<PLException> all() const;
  void add(const PLException& exception);
  /// The one of that step; nothing happens where there is none.
  void remove(const std::string& step);

  bool tellsOf(const ForgottenPerson& person) const;
  /// Takes out those that tell of that person.
  void forget(const ForgottenPerson& person);
  /// What is left of such an array; absent where nothing in it tells of the person.
  static std::optional<LongArrayElements> elementsWithout(const LongArray& stored, const ForgottenPerson& person);

 private:
  const std::shared_ptr<PLFriendsManager> _manager;
};

}  // namespace pellor
