// Persons in the order in which they came, found by what identifies them.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>

#include "pellor/friends/internal/PLPersonIndex.h"

namespace pellor {

/// Holds persons strongly, in the order of their arrival: the sourced persons. A person may stand in it several times.
/// No operation walks the sequence but `forEach`. Main queue.
class PLPersonSequence {
 public:
  /// Enters a person, never null, at the end.
  void append(std::shared_ptr<PLPerson> person);
  bool isEmpty() const { return _inOrder.empty(); }
  bool contains(const PLPerson* person) const { return _index.places().contains(person); }
  /// Takes out the earliest entry of the person; false when there is none.
  bool remove(const PLPerson* person);

  /// The earliest member that `person` is like; null when it is like none.
  std::shared_ptr<PLPerson> firstLike(const PLPerson& person) const {
    return _inOrder.empty() ? nullptr : memberAt(_index.firstLike(person));
  }

  /// Calls `visit` with each entry, in order. It must not change the sequence.
  template <class Visit>
  void forEach(Visit&& visit) const {
    for (const auto& [place, person] : _inOrder) visit(person);
  }

 private:
  std::shared_ptr<PLPerson> memberAt(std::optional<std::uint64_t> place) const {
    return place ? _inOrder.at(*place) : nullptr;
  }

  std::uint64_t _nextPlace = 0;
  std::map<std::uint64_t, std::shared_ptr<PLPerson>> _inOrder;
  PLPersonIndex _index;
};

}  // namespace pellor
