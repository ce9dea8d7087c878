// The map from identifiers, that is, canonical destinations and GUIDs, to persons.
#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "pellor/friends/PLDestination.h"
#include "pellor/friends/internal/PLPersonIndex.h"
#include "pellor/friends/internal/PLPersonSequence.h"

namespace pellor {

/// A person is entered under the canonical form of each of its destinations and under its GUID, when that is not empty.
/// A key has one person: the later entry replaces the earlier one. A rebuild enters the friends, by slot, and then the
/// sourced persons; from then on the map changes by `add` and `remove` alone, whatever becomes of the list and of its
/// friends' identifiers. Holds its persons strongly. Main queue.
///
/// It has next to nothing of this in memory. A key that no change has touched since the rebuild names the person in the
/// highest slot among those that the friends' own index finds under the key. The other keys are exceptions, which have
/// their person, or nobody, written down: those that were added or removed, and those that the index is about to answer
/// otherwise. So a rebuild costs as much as there are exceptions and sourced persons, and not as the list is long.
///
/// Friends' destinations are their own canonical forms, but perhaps for friends that were made from typed destinations
/// and have not been stored and loaded since: the keys of such friends are exceptions as well.
class PLIdentifierMap : private PLPersonIndexObserver {
 public:
  /// The map of these friends, which outlive it, from their next entry on: empty until the first rebuild. It becomes
  /// the observer of the index.
  explicit PLIdentifierMap(PLPersonIndex& friends);
  ~PLIdentifierMap() override;
  PLIdentifierMap(const PLIdentifierMap&) = delete;
  PLIdentifierMap& operator=(const PLIdentifierMap&) = delete;

  /// From here to `rebuild` the list is loaded: changes of it leave no exceptions, and nobody may ask.
  void beginRebuild() { _isRebuilding = true; }
  /// Forgets everything, and enters the friends and then these persons. All destinations of friends that came into the
  /// list since `beginRebuild` must be in canonical form.
  void rebuild(const PLPersonSequence& sourced);

  /// Enters the person, never null, under the keys that it has now.
  void add(const std::shared_ptr<PLPerson>& person);
  /// Drops the keys that the person has now, also where they name somebody else.
  void remove(const PLPerson& person);

  /// The person under one key; null when there is none.
  std::shared_ptr<PLPerson> personFor(std::string_view identifier) const;
  /// The person under the first of these keys, by key, that the map has; null when it has none of them.
  std::shared_ptr<PLPerson> firstPersonFor(const DestinationSet& identifiers) const;
  /// The person of every key, by key: a person with three keys is listed three times.
  std::vector<std::shared_ptr<PLPerson>> allPersons() const;

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view key) const { return std::hash<std::string_view>()(key); }
  };

  void answersWillChange(PLPerson& person) override;
  PLPerson* lastFriendUnder(std::string_view identifier) const;
  void enterFriendsWithOtherForms();
  PLPerson* lastFriendWithCanonical(const std::string& key) const;

  PLPersonIndex& _friends;
  bool _isRebuilding = false;
  std::unordered_map<std::string, std::shared_ptr<PLPerson>, Hash, std::equal_to<>> _exceptions;  // null: nobody
  // Persons that were edited into the list with a destination that is not its canonical form, or was not looked at yet.
  std::set<std::weak_ptr<PLPerson>, std::owner_less<>> _mayHaveOtherForms;
};

}  // namespace pellor
