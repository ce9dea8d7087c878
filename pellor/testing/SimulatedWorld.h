// A platform in memory, for tests of programs that use the library.
//
// A world is what the processes of one user share: the contacts, the stored preferences, the bus between processes, the
// paired device, the favorites. Each simulated process gets its own view of it:
//
//   SimulatedWorld world;
//   const std::string ada = world.addressBook().add({.first = "Ada", .phones = {{"mobile", "0151 2345678"}}});
//   auto scheduler = std::make_shared<SimulatedScheduler>(seed);
//   auto log = std::make_shared<LogCollector>();
//   Process first(scheduler, log), second(scheduler, log);
//   installPlatform(first, world.makePlatform(first));
//   installPlatform(second, world.makePlatform(second));
//   {
//     Process::Scope scope(first);
//     ... call the library as the first process ...
//   }
//
// The test then acts as everything around the library: it changes contacts (`addressBook`), makes the store fail
// (`preferences`), cuts a process off (`bus`), and reads what came out: stored values, pushes, posts, counters,
// lookups. Nothing is delivered inside a call: what a change causes are tasks on the main queues of the processes, so
// let the scheduler run before looking.
//
// It is strict where a real platform is only strict at times: a service that belongs to the main queue ends the program
// when it is called elsewhere, another process's write shows only after `synchronize`, a record ends with its handle.
//
// The operations of the parts are for the test and may be called on any thread, with the simulated scheduler as well as
// with real threads. A world may be destroyed before or after its processes. A process that ends loses what it had not
// synchronised and hears no more posts, as if it had been killed.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "pellor/platform/Platform.h"
#include "pellor/testing/InMemoryAddressBook.h"
#include "pellor/testing/InMemoryBus.h"
#include "pellor/testing/InMemoryPreferences.h"
#include "pellor/testing/RecordingSyncService.h"
#include "pellor/testing/SimulatedIdentityService.h"
#include "pellor/testing/SimulatedPhoneNumbers.h"
#include "pellor/testing/SimulatedServices.h"
#include "pellor/testing/SimulatedText.h"

namespace pellor {

class SimulatedWorld {
 public:
  SimulatedWorld();
  SimulatedWorld(const SimulatedWorld&) = delete;
  SimulatedWorld& operator=(const SimulatedWorld&) = delete;

  /// The process's view of the world, to be given to `installPlatform`; a test may exchange services in it before. Main
  /// queue of the process.
  Platform makePlatform(Process& process);

  /// Makes these contacts the favorites, in this order: their names with the first phone number of each, else its first
  /// e-mail address. GUIDs of no contact are left out. Any thread.
  void setFavorites(const std::vector<std::string>& guids);
  /// What is kept of people beside the store, of processes that are made later; null, as at first: nothing.
  void setPersonalTraces(std::shared_ptr<PersonalTraces> traces) { _personalTraces = std::move(traces); }

  InMemoryAddressBook& addressBook() { return *_addressBook; }
  InMemoryPreferences& preferences() { return *_preferences; }
  InMemoryBus& bus() { return *_bus; }
  RecordingSyncService& pairedDevice() { return *_pairedDevice; }
  InMemoryFavorites& favorites() { return *_favorites; }
  RecordingCounters& counters() { return *_counters; }
  SimulatedIdentityService& identityService() { return *_identityService; }
  SimulatedPhoneNumbers& phoneNumbers() { return *_phoneNumbers; }
  SimulatedPersonNames& personNames() { return *_personNames; }
  SimulatedText& text() { return *_text; }
  InMemoryStrings& strings() { return *_strings; }

 private:
  const std::shared_ptr<SimulatedPhoneNumbers> _phoneNumbers;
  const std::shared_ptr<SimulatedPersonNames> _personNames;
  const std::shared_ptr<InMemoryAddressBook> _addressBook;
  const std::shared_ptr<InMemoryPreferences> _preferences;
  const std::shared_ptr<InMemoryBus> _bus;
  const std::shared_ptr<RecordingSyncService> _pairedDevice;
  const std::shared_ptr<InMemoryFavorites> _favorites;
  const std::shared_ptr<RecordingCounters> _counters;
  const std::shared_ptr<SimulatedIdentityService> _identityService;
  const std::shared_ptr<SimulatedText> _text;
  const std::shared_ptr<InMemoryStrings> _strings;
  const std::shared_ptr<SimulatedDigests> _digests;
  std::shared_ptr<PersonalTraces> _personalTraces;
};

}  // namespace pellor
