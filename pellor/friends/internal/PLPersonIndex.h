// Finds persons, and the places in which they stand, by what identifies them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "pellor/friends/detail/PLPersonForm.h"
#include "pellor/friends/internal/PLPersonBatch.h"
#include "pellor/friends/internal/PLPersonIdentityChanges.h"
#include "pellor/friends/internal/PLPersonKeyTable.h"
#include "pellor/friends/internal/PLPersonKeys.h"
#include "pellor/friends/internal/PLPersonPlaces.h"

namespace pellor {

/// Told before an index answers otherwise for the identifiers that a person has at that moment: before the person
/// enters or leaves a place, before it gives up identifiers, and before those that it has taken on are entered.
class PLPersonIndexObserver {
 public:
  virtual ~PLPersonIndexObserver() = default;
  /// Must neither edit persons nor change the index.
  virtual void answersWillChange(PLPerson& person) = 0;
};

/// An index over the persons that stand in the places of a list, some of them in several: by the very person, by the
/// GUID and by each destination, as they stand. It follows the persons' changes by itself. Main queue.
///
/// It has three tables: the places of each person, the persons of each GUID, the persons of each destination. Together
/// they take some 75 bytes for a person with a GUID and two or three destinations, because they copy no identifier: the
/// persons' own are compared. Holds no person: the list that enters one takes it out before it goes.
///
/// An empty GUID identifies nobody. Visits are in no order that means anything and may come to a person several times;
/// the caller, which knows the order that decides, compares places. They must not edit persons or the index.
class PLPersonIndex : private PLPersonIdentityObserver {
 public:
  PLPersonIndex();
  ~PLPersonIndex() override;
  PLPersonIndex(const PLPersonIndex&) = delete;
  PLPersonIndex& operator=(const PLPersonIndex&) = delete;

  /// One observer at most, not owned; null for none.
  void setObserver(PLPersonIndexObserver* observer) { _observer = observer; }

  // Places: effects and limits are those of PLPersonPlaces.
  void enter(PLPerson& person, std::uint64_t place);
  void leave(PLPerson& person, std::uint64_t place);
  void move(PLPerson& person, std::uint64_t from, std::uint64_t to);
  /// Enters all of the batch: as if one after the other, and much faster when they are many.
  void enter(const PLPersonBatch& batch);
  void moveDown(std::uint64_t first, std::uint64_t count) { _places.moveDown(first, count); }
  void moveUp(std::uint64_t first, std::uint64_t count) { _places.moveUp(first, count); }
  const PLPersonPlaces& places() const { return _places; }

  /// How many GUIDs several persons share.
  std::size_t sharedGUIDCount() const { return _byGUID.sharedCount(); }
  /// How many persons have no destination.
  std::size_t destinationlessPersonCount() const { return _destinationlessPersonCount; }
  /// How many persons with shared identifiers were looked at so far: what an edit costs where many share one.
  std::size_t stepCount() const { return _byGUID.stepCount() + _byDestination.stepCount(); }

  /// Whether there is a person with that GUID.
  bool containsGUID(std::string_view guid) const { return _byGUID.contains(guid); }
  /// Whether there is a person with it as the GUID or as a destination.
  bool containsIdentifier(std::string_view identifier) const {
    return _byGUID.contains(identifier) || _byDestination.contains(identifier);
  }
  template <class Visit>
  void forEachWithGUID(std::string_view guid, const Visit& visit) const {
    _byGUID.forEach(guid, identifierHash(guid), visit);
  }
  template <class Visit>
  void forEachWithDestination(std::string_view destination, const Visit& visit) const {
    _byDestination.forEach(destination, identifierHash(destination), visit);
  }
  /// Calls `visit` for persons that have it as their GUID, then for those with such a destination.
  template <class Visit>
  void forEachWithIdentifier(std::string_view identifier, const Visit& visit) const {
    const std::uint32_t hash = identifierHash(identifier);
    _byDestination.prefetch(hash);
    _byGUID.forEach(identifier, hash, visit);
    _byDestination.forEach(identifier, hash, visit);
  }

  /// The lowest place of a person that is like `person` (`isLikePerson:`); absent when there is none.
  std::optional<std::uint64_t> firstLike(const PLPerson& person) const;
  /// The lowest place, not below `from`, of a person that the stored form describes
  /// (`isEqualToDictionaryRepresentation:`); absent when there is none.
  std::optional<std::uint64_t> firstDescribedBy(const PLPersonForm& stored, std::uint64_t from = 0) const;
  /// Has the memory brought near that searches for persons with these GUIDs will look at, so that they do not wait for
  /// it one after the other.
  void prefetch(std::span<const std::string_view> guids) const;

 private:
  class Lowest;

  void personIdentityWillChange(PLPerson& person) override;
  void personIdentityDidChange(PLPerson& person) override;
  void tellObserver(PLPerson& person) {
    if (_observer) _observer->answersWillChange(person);
  }
  void addIdentifiers(PLPerson& person);
  void removeIdentifiers(PLPerson& person);

  PLPersonIdentityChanges& _changes;
  PLPersonIndexObserver* _observer = nullptr;
  PLPersonPlaces _places;
  PLPersonKeyTable<hasGUID> _byGUID;
  PLPersonKeyTable<hasDestination> _byDestination;
  std::size_t _destinationlessPersonCount = 0;
};

}  // namespace pellor
