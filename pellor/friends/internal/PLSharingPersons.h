// The persons that share one identifier.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <unordered_map>
#include <vector>

namespace pellor {

class PLPerson;

/// Persons, each once, in no order that means anything. Adding one costs equally much however many there are, and so
/// does removal: once a person leaves many, the position of each is written down.
class PLSharingPersons {
 public:
  std::size_t count() const { return _persons.size(); }
  PLPerson* front() const { return _persons.front(); }
  const std::vector<PLPerson*>& all() const { return _persons; }

  void add(PLPerson& person) {
    if (_positions) _positions->emplace(&person, _persons.size());
    _persons.push_back(&person);
  }

  /// The person must be one of them. Gives how many it looked at.
  std::size_t remove(const PLPerson& person) {
    const std::size_t lookedAt = preparePositions();
    const std::size_t position = positionOf(person);
    if (_positions) {
      _positions->insert_or_assign(_persons.back(), position);
      _positions->erase(&person);
    }
    _persons[position] = _persons.back();
    _persons.pop_back();
    return lookedAt + (_positions ? 1 : position + 1);
  }

 private:
  // As many as are found no slower by looking at each.
  static constexpr std::size_t Few = 16;

  std::size_t preparePositions() {
    if (_positions || _persons.size() <= Few) return 0;
    _positions = std::make_unique<Positions>(_persons.size());
    for (PLPerson* person : _persons) _positions->emplace(person, _positions->size());
    return _persons.size();
  }

  std::size_t positionOf(const PLPerson& person) const {
    if (_positions) return _positions->at(&person);
    return static_cast<std::size_t>(std::ranges::find(_persons, &person) - _persons.begin());
  }

  using Positions = std::unordered_map<const PLPerson*, std::size_t>;
  std::vector<PLPerson*> _persons;
  std::unique_ptr<Positions> _positions;  // null before somebody left many
};

}  // namespace pellor
