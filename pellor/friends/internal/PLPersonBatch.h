// Many persons on their way into an index, in an order that is kind to memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pellor {

class PLPerson;

/// A person under a hash, with a number that says what was hashed.
struct PLHashedPerson {
  PLPerson* person;
  std::uint32_t hash;
  std::uint32_t number;
};

/// Brings them into an order in which a table whose buckets are in the order of the hashes is filled from front to end,
/// roughly: each stretch of the table fits into the nearest memory. Entering a long list so takes a fraction of the
/// time that it takes in any other order. Those of one stretch keep their order.
std::vector<PLHashedPerson> inTableOrder(std::vector<PLHashedPerson> persons);

/// Persons that have no place in an index yet, each once, to be entered all at once. Until then they must not change.
/// Holds no person. Main queue.
class PLPersonBatch {
 public:
  void add(PLPerson& person, std::uint64_t place);
  bool isEmpty() const { return _places.empty(); }
  /// The place of the person that was added last.
  std::uint64_t lastPlace() const { return _places.back().number; }

 private:
  friend class PLPersonIndex;
  std::vector<PLHashedPerson> _places;        // by the person, with its place
  std::vector<PLHashedPerson> _guids;         // of those that identify somebody
  std::vector<PLHashedPerson> _destinations;  // with the number of the destination
  std::size_t _destinationlessCount = 0;
};

}  // namespace pellor
