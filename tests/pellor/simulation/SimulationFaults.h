// Everything that goes wrong around the processes of a simulated world.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "pellor/testing/TestContact.h"
#include "tests/pellor/simulation/SimulationWorld.h"

namespace pellor {

class SimulationFaults {
 public:
  explicit SimulationFaults(SimulationWorld& world) : _world(world) {}

  /// Lets one thing go wrong, or an earlier one come right: the store, the bus, the contacts, the favorites, the clock,
  /// a whole process.
  void disturb();
  /// Ends all faults and waits until nothing is left to do.
  void calm();

 private:
  // Store
  void failWrites();
  void leaveWritesUntold();
  void storeDelayedWrites();
  void toggleReadOnly();
  void toggleUnreadable();
  void tearList();
  void replaceStore();

  // Bus
  void disturbDeliveries();
  void endDisturbance();
  void breakConnection();
  void restoreConnection();

  // Contacts, favorites, clock
  void toggleContacts();
  void loseContacts();
  void bringContactsBack();
  void rebuildContacts();
  void toggleFavorites();
  void setWallClock();

  // Processes
  void kill();
  void killInTheMiddleOfAWrite();

  InMemoryPreferences& preferences() { return _world.services().preferences(); }
  InMemoryBus& bus() { return _world.services().bus(); }
  InMemoryAddressBook& contacts() { return _world.services().addressBook(); }
  InMemoryPreferences::Untold anyFate();

  SimulationWorld& _world;
  bool _isReadOnly = false;
  bool _isUnreadable = false;
  bool _areFavoritesReadable = true;
};

}  // namespace pellor
