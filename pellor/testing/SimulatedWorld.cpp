#include "pellor/testing/SimulatedWorld.h"

#include <utility>

#include "pellor/platform/WalkingContactSearch.h"

namespace pellor {

SimulatedWorld::SimulatedWorld()
    : _phoneNumbers(std::make_shared<SimulatedPhoneNumbers>()),
      _personNames(std::make_shared<SimulatedPersonNames>()),
      _addressBook(std::make_shared<InMemoryAddressBook>(_phoneNumbers, _personNames)),
      _preferences(std::make_shared<InMemoryPreferences>()),
      _bus(std::make_shared<InMemoryBus>()),
      _pairedDevice(std::make_shared<RecordingSyncService>(_preferences)),
      _favorites(std::make_shared<InMemoryFavorites>()),
      _counters(std::make_shared<RecordingCounters>()),
      _identityService(std::make_shared<SimulatedIdentityService>(_phoneNumbers)),
      _text(std::make_shared<SimulatedText>()),
      _strings(std::make_shared<InMemoryStrings>()),
      _digests(std::make_shared<SimulatedDigests>()) {}

Platform SimulatedWorld::makePlatform(Process& process) {
  Platform platform;
  platform.addressBook = _addressBook->storeFor(process);
  platform.preferences = _preferences->storeFor(process);
  platform.preferencesSync = _pairedDevice;
  platform.reachability = _identityService;
  platform.phoneNumbers = _phoneNumbers;
  platform.personNames = _personNames;
  platform.notifyBus = _bus->busFor(process);
  platform.counters = _counters;
  platform.favorites = _favorites;
  platform.contacts = _addressBook->contactStoreFor(process);
  platform.text = _text;
  platform.digests = _digests;
  platform.strings = _strings;
  platform.personalTraces = _personalTraces;
  platform.contactSearch = std::make_shared<WalkingContactSearch>(platform);
  return platform;
}

void SimulatedWorld::setFavorites(const std::vector<std::string>& guids) {
  std::vector<FavoriteEntry> entries;
  for (const std::string& guid : guids) {
    const auto contact = _addressBook->contact(guid);
    if (!contact) continue;
    const auto& values = contact->phones.empty() ? contact->emails : contact->phones;
    entries.push_back({_personNames->fullName(contact->first, contact->last).value_or(""),
                       values.empty() ? "" : values.front().value, contact->recordID});
  }
  _favorites->setEntries(std::move(entries));
}

}  // namespace pellor
