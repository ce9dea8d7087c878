// Finds persons by what identifies them: their GUID and their destinations.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Pellor/PLDestination.h"
#include "Pellor/PLPersonIdentityChanges.h"
#include "runtime/Value.h"

namespace pellor {

class PLPerson;

/// An index over some persons by their GUID and by each of their destinations as they stand. It follows the persons'
/// changes by itself. Holds no person: whoever enters one removes it before it goes. Main queue.
///
/// The two questions that the library asks of a collection, "who is like this person" and "whom does this stored form
/// describe", are answered by candidates: every person that fits is among them, and the caller, who knows the order
/// that decides, asks the person itself. An empty GUID identifies nobody.
class PLPersonIndex : private PLPersonIdentityObserver {
 public:
  PLPersonIndex();
  ~PLPersonIndex() override;
  PLPersonIndex(const PLPersonIndex&) = delete;
  PLPersonIndex& operator=(const PLPersonIndex&) = delete;

  /// Enters a person; one that is entered already stays as it is.
  void add(PLPerson& person);
  /// Takes a person out; nothing happens for one that is not entered.
  void remove(PLPerson& person);

  /// The persons that may be like `person` (`isLikePerson:`), each once, in no order that means anything.
  std::vector<PLPerson*> candidatesLike(const PLPerson& person) const;
  /// The persons that `stored` may describe (`isEqualToDictionaryRepresentation:`), each once, in no order that means
  /// anything.
  std::vector<PLPerson*> candidatesFor(const Dictionary& stored) const;

 private:
  using Postings = std::unordered_map<std::string, std::vector<PLPerson*>>;
  // What a person was entered under: by the time it is told to have changed, the person knows only the new keys.
  struct Keys {
    std::optional<std::string> guid;
    std::shared_ptr<const DestinationSet> destinations;
  };

  void personIdentityWillChange(PLPerson&) override {}
  void personIdentityDidChange(PLPerson& person) override;
  void enter(PLPerson& person);
  void leave(PLPerson& person, const Keys& keys);

  PLPersonIdentityChanges& _changes;
  Postings _byGUID;
  Postings _byDestination;
  std::unordered_map<PLPerson*, Keys> _keys;
};

}  // namespace pellor
