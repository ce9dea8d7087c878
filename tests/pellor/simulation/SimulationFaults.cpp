#include "tests/pellor/simulation/SimulationFaults.h"

#include <array>
#include <vector>

#include "pellor/friends/PLFriendsManager.h"

namespace pellor {
namespace {

constexpr double Year = 365.25 * 86'400;

}  // namespace

void SimulationFaults::disturb() {
  static constexpr std::array faults{
      &SimulationFaults::failWrites,
      &SimulationFaults::leaveWritesUntold,
      &SimulationFaults::storeDelayedWrites,
      &SimulationFaults::tearList,
      &SimulationFaults::replaceStore,
      &SimulationFaults::toggleReadOnly,
      &SimulationFaults::toggleUnreadable,
      &SimulationFaults::disturbDeliveries,
      &SimulationFaults::disturbDeliveries,
      &SimulationFaults::endDisturbance,
      &SimulationFaults::breakConnection,
      &SimulationFaults::restoreConnection,
      &SimulationFaults::toggleContacts,
      &SimulationFaults::loseContacts,
      &SimulationFaults::bringContactsBack,
      &SimulationFaults::rebuildContacts,
      &SimulationFaults::toggleFavorites,
      &SimulationFaults::setWallClock,
      &SimulationFaults::kill,
      &SimulationFaults::kill,
      &SimulationFaults::killInTheMiddleOfAWrite,
  };
  (this->*faults[_world.below(faults.size())])();
}

// A delivery that was lost leaves a process that nobody tells of anything with what it knew; the next post ends that.
void SimulationFaults::calm() {
  preferences().allowWrites();
  preferences().tellAgain();
  preferences().setReadOnly(_isReadOnly = false);
  preferences().makeReadable();
  _isUnreadable = false;
  _world.services().favorites().setReadable(_areFavoritesReadable = true);
  if (!_world.areContactsReadable()) toggleContacts();
  bringContactsBack();
  _world.rest();
  storeDelayedWrites();
  bus().endDisturbance();
  for (const auto& member : _world.members()) bus().restoreConnection(member->process());
  bus().post(PLFriendsChangedExternallyNotification);
  _world.rest();
}

// --- Store ---

InMemoryPreferences::Untold SimulationFaults::anyFate() {
  using Untold = InMemoryPreferences::Untold;
  return std::array{Untold::stored, Untold::delayed, Untold::lost}[_world.below(3)];
}

void SimulationFaults::failWrites() { preferences().failWrites(1 + _world.below(4)); }

void SimulationFaults::leaveWritesUntold() {
  _world.noteUntoldWrites();
  preferences().leaveUntold(anyFate(), 1 + _world.below(2));
}

void SimulationFaults::storeDelayedWrites() { preferences().storeDelayedWrites(); }

void SimulationFaults::toggleReadOnly() { preferences().setReadOnly(_isReadOnly = !_isReadOnly); }

void SimulationFaults::toggleUnreadable() {
  _isUnreadable = !_isUnreadable;
  if (!_isUnreadable) return preferences().makeReadable();
  preferences().makeUnreadable(_world.chance(2) ? std::optional(std::string(TapnoteDomain)) : std::nullopt);
}

// As if a block of the store had been written by halves: the copy of the last whole value is still there.
void SimulationFaults::tearList() {
  preferences().damage(PLFriendListKey, Data{0x62, 0x70, 0x6c, 0x69, 0x73, 0x74}, std::string(TapnoteDomain));
}

// The store was gone, and is made anew of its copy.
void SimulationFaults::replaceStore() {
  _world.noteReplacedStore();
  preferences().renew(InMemoryPreferences::Renewal::fromCopy);
}

// --- Bus ---

void SimulationFaults::disturbDeliveries() {
  using Fault = InMemoryBus::Fault;
  bus().disturb(std::array{Fault::lost, Fault::doubled, Fault::late}[_world.below(3)], 1 + _world.below(4));
}

void SimulationFaults::endDisturbance() { bus().endDisturbance(); }

void SimulationFaults::breakConnection() { bus().breakConnection(_world.anyMember().process()); }

void SimulationFaults::restoreConnection() { bus().restoreConnection(_world.anyMember().process()); }

// --- Contacts, favorites, clock ---

void SimulationFaults::toggleContacts() { _world.setContactsReadable(!_world.areContactsReadable()); }

void SimulationFaults::loseContacts() { _world.loseContacts(); }

void SimulationFaults::bringContactsBack() { _world.bringContactsBack(); }

void SimulationFaults::rebuildContacts() { contacts().rebuild(); }

void SimulationFaults::toggleFavorites() {
  _world.services().favorites().setReadable(_areFavoritesReadable = !_areFavoritesReadable);
}

void SimulationFaults::setWallClock() {
  contacts().shiftWallClock((static_cast<double>(_world.below(131)) - 30) * Year);
}

// --- Processes ---

void SimulationFaults::kill() { _world.killSomeone(); }

void SimulationFaults::killInTheMiddleOfAWrite() {
  _world.noteUntoldWrites();
  preferences().leaveUntold(anyFate(), 1);
  _world.run(_world.below(20));
  _world.killSomeone();
}

}  // namespace pellor
