// The services in memory keep the contracts that every platform keeps.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <mutex>

#include "pellor/platform/WholeDomainPreferences.h"
#include "pellor/testing/SimulatedProcesses.h"
#include "pellor/testing/SimulatedWorld.h"
#include "pellor/testing/contract/AddressBookStoreContract.h"
#include "pellor/testing/contract/AnalyticsCountersContract.h"
#include "pellor/testing/contract/ContactSearchContract.h"
#include "pellor/testing/contract/ContactStoreContract.h"
#include "pellor/testing/contract/DigestServiceContract.h"
#include "pellor/testing/contract/FavoritesSourceContract.h"
#include "pellor/testing/contract/LocalizedStringsContract.h"
#include "pellor/testing/contract/PersonNameFormatterContract.h"
#include "pellor/testing/contract/PhoneNumberFormatterContract.h"
#include "pellor/testing/contract/PreferencesReadOnlyContract.h"
#include "pellor/testing/contract/PreferencesStoreContract.h"
#include "pellor/testing/contract/PreferencesSyncServiceContract.h"
#include "pellor/testing/contract/PreferencesUntoldContract.h"
#include "pellor/testing/contract/PreferencesVersionsContract.h"
#include "pellor/testing/contract/ReachabilityServiceContract.h"
#include "pellor/testing/contract/SystemNotifyBusContract.h"
#include "pellor/testing/contract/TextServiceContract.h"
#include "pellor/testing/internal/Addresses.h"

namespace pellor {
namespace {

struct World {
  SimulatedWorld world;
};

/// The processes of a world. Factories of services that wait are made of it.
class ProcessesInMemory : protected World, public SimulatedProcesses<Platform> {
 public:
  ProcessesInMemory()
      : SimulatedProcesses(
            [this](Process& process) { return std::make_unique<Platform>(world.makePlatform(process)); }) {}
};

class StoresInMemory : public ProcessesInMemory {
 public:
  std::shared_ptr<PreferencesStore> open() { return services(count()).preferences; }
  void damage(std::string_view key, std::string_view domain) { stored().damage(key, Data{0x9F}, domain); }
  void makeUnreadable() { stored().makeUnreadable(); }
  void makeReadable() { stored().makeReadable(); }
  void failWrites(bool fail) { stored().failWrites(fail ? InMemoryPreferences::Always : 0); }
  std::shared_ptr<PreferencesStore> openReadOnly() {
    stored().setReadOnly(true);
    return open();
  }
  static std::vector<UntoldWrite> untoldWrites() {
    return {UntoldWrite::stored, UntoldWrite::lost, UntoldWrite::delayed};
  }
  void leaveUntold(UntoldWrite way) {
    using Untold = InMemoryPreferences::Untold;
    const auto fate = way == UntoldWrite::stored ? Untold::stored
                      : way == UntoldWrite::lost ? Untold::lost
                                                 : Untold::delayed;
    stored().leaveUntold(fate, 1);
  }
  void deliver() { stored().storeDelayedWrites(); }

 private:
  InMemoryPreferences& stored() { return world.preferences(); }
};

/// Stores over one value a domain, each of which works as one of another process does.
class StoresOfWholeDomains {
 public:
  std::shared_ptr<PreferencesStore> open() { return std::make_shared<Store>(_disk); }
  void damage(const std::string& key, std::string_view domain) {
    Value& content = _disk->contents.find(domain)->second;
    Array parts = *content.array();
    Dictionary entries = *parts[2].dictionary();
    Array entry = *entries.at(key).array();
    entry[0] = Data{0xFF};
    entries.insert_or_assign(key, std::move(entry));
    parts[2] = std::move(entries);
    content = std::move(parts);
  }
  void makeUnreadable() { _disk->isReadable = false; }
  void makeReadable() { _disk->isReadable = true; }
  void failWrites(bool fail) { _disk->isFull = fail; }
  /// Replaces what is stored of a domain.
  void replace(std::string_view domain, Value content) {
    _disk->contents.insert_or_assign(std::string(domain), content);
  }

 private:
  struct Disk {
    std::mutex mutex;
    std::map<std::string, Value, std::less<>> contents;
    bool isReadable = true;
    bool isFull = false;
  };
  struct Domain : WholeDomainPreferences::LockedDomain {
    Domain(Disk& theDisk, std::string_view theName) : disk(theDisk), name(theName) {}
    std::optional<Value> read(const Value& initial) override {
      if (!disk.isReadable) return std::nullopt;
      return disk.contents.try_emplace(name, initial).first->second;
    }
    PreferenceWriteOutcome replace(const Value& content) override {
      if (!disk.isReadable || disk.isFull) return PreferenceWriteOutcome::failed;
      disk.contents.insert_or_assign(name, content);
      return PreferenceWriteOutcome::written;
    }
    bool putAside(std::string_view, const Data&) override { return disk.isReadable; }

    Disk& disk;
    const std::string name;
    const std::lock_guard<std::mutex> lock{disk.mutex};
  };
  class Store : public WholeDomainPreferences {
   public:
    explicit Store(std::shared_ptr<Disk> disk) : _disk(std::move(disk)) {}

   private:
    std::unique_ptr<LockedDomain> lockDomain(std::string_view domain) override {
      return std::make_unique<Domain>(*_disk, domain);
    }
    const std::shared_ptr<Disk> _disk;
  };

  const std::shared_ptr<Disk> _disk = std::make_shared<Disk>();
};

template <bool CoalescesPostsOfOthers>
class BusesInMemory : public ProcessesInMemory {
 public:
  BusesInMemory() {
    world.bus().setCoalescesPostsOfOthers(CoalescesPostsOfOthers);
    process(2);
  }
  SystemNotifyBus& bus(int number) { return *services(number).notifyBus; }
  void breakConnection(int number) {
    world.bus().breakConnection(process(number));
    world.bus().restoreConnection(process(number));
  }
};

struct SimulatedConversions {
  static std::vector<std::string> regions() { return {"DE", "US", "ES"}; }
  static std::shared_ptr<ReachabilityService> make(const std::string& region) {
    const auto numbers = std::make_shared<SimulatedPhoneNumbers>();
    numbers->setHomeCountry(region);
    return std::make_shared<SimulatedIdentityService>(numbers);
  }
};

/// Knows who is reachable by a script, and answers in two parts.
class SimulatedQueries : public ProcessesInMemory {
 public:
  SimulatedQueries() {
    service().setScript([this](const SimulatedIdentityService::Query& query) {
      std::vector<SimulatedIdentityService::AnswerPart> parts = {{1, {}}, {2, {}}};
      for (const std::string& destination : query.destinations) {
        parts[parts[0].statuses.size() % 2].statuses.emplace(destination, statusOf(destination));
      }
      return parts;
    });
  }
  SimulatedIdentityService& service() { return world.identityService(); }

 private:
  DestinationStatus statusOf(const std::string& destination) {
    const std::string raw = lowerCasedAddress(service().rawAddressForDestination(destination));
    const bool isKnown = raw == "ada@example.org" || service().comparableNumber(raw) == "+49301234567";
    return isKnown ? DestinationStatus::valid : DestinationStatus::invalid;
  }
};

class RecordedDevice {
 public:
  static constexpr bool CanPair = true;
  PreferencesSyncService& service() { return _world.pairedDevice(); }
  void store(const std::string& key, std::optional<Value> value) {
    _world.preferences().setValue(key, std::move(value), ContractSyncDomain);
  }
  void completeInitialSync() { _world.pairedDevice().setCompletedInitialSync(true); }
  std::optional<Value> arrived(const std::string& key) {
    std::optional<Value> value;
    for (const auto& push : _world.pairedDevice().pushes()) {
      if (!push.keys.contains(key)) continue;
      const auto pushed = push.values.find(key);
      value = pushed == push.values.end() ? std::nullopt : std::optional(pushed->second);
    }
    return value;
  }

 private:
  SimulatedWorld _world;
};

using BothBusesInMemory = ::testing::Types<BusesInMemory<false>, BusesInMemory<true>>;

class ContactsInMemory : public ProcessesInMemory {
 public:
  AddressBookStore& store() { return *services().addressBook; }
  FavoritesSource& favorites() { return *services().favorites; }
  ContactStore& contacts() { return *services().contacts; }
  ContactSearch& search() { return *services().contactSearch; }
  static Contact contactFor(const std::string& guid) { return {guid}; }
  std::string add(const TestContact& contact) { return book().add(contact); }
  void change(const std::string& guid, TestContact contact) {
    contact.guid = guid;
    book().put(std::move(contact));
  }
  void remove(const std::string& guid) { book().remove(guid); }
  void link(const std::string& guid, const std::string& other) { book().link({guid, other}); }
  void breakReading() { book().setReadable(false); }
  void restoreReading() { book().setReadable(true); }
  void setFavorites(const std::vector<std::string>& guids) { world.setFavorites(guids); }

 private:
  InMemoryAddressBook& book() { return world.addressBook(); }
};

struct TextInMemory {
  static std::shared_ptr<TextService> make(const std::string& locale) {
    const auto text = std::make_shared<SimulatedText>();
    text->setTurkish(locale == "tr_TR");
    return text;
  }
};

struct NamesInMemory {
  static std::shared_ptr<PersonNameFormatter> make(const std::string& locale) {
    const auto names = std::make_shared<SimulatedPersonNames>();
    names->setFamilyNameFirst(locale == "hu_HU");
    return names;
  }
};

struct NumbersInMemory {
  static std::shared_ptr<PhoneNumberFormatter> make(const std::string& homeCountry) {
    const auto numbers = std::make_shared<SimulatedPhoneNumbers>();
    numbers->setHomeCountry(homeCountry);
    return numbers;
  }
};

struct StringsInMemory {
  static std::map<std::string, std::string> favorites() { return {{"en", "Favorites"}, {"de", "Favoriten"}}; }
  static std::shared_ptr<LocalizedStrings> make(const std::string& language) {
    const auto strings = std::make_shared<InMemoryStrings>();
    if (language == "de") strings->setText("FAVORITES", "Favoriten");
    return strings;
  }
};

struct DigestsInMemory {
  static std::shared_ptr<DigestService> make() { return std::make_shared<SimulatedDigests>(); }
};

class CountersInMemory : public ProcessesInMemory {
 public:
  AnalyticsCounters& counters() { return *services().counters; }
  std::optional<std::int64_t> recorded(const std::string& key) { return world.counters().value(key); }
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(InMemory, AnalyticsCountersContract, CountersInMemory);
INSTANTIATE_TYPED_TEST_SUITE_P(InMemory, ContactSearchContract, ContactsInMemory);
INSTANTIATE_TYPED_TEST_SUITE_P(InMemory, ContactStoreContract, ContactsInMemory);
INSTANTIATE_TYPED_TEST_SUITE_P(InMemory, DigestServiceContract, DigestsInMemory);
INSTANTIATE_TYPED_TEST_SUITE_P(InMemory, LocalizedStringsContract, StringsInMemory);
INSTANTIATE_TYPED_TEST_SUITE_P(InMemory, PersonNameFormatterContract, NamesInMemory);
INSTANTIATE_TYPED_TEST_SUITE_P(InMemory, PhoneNumberFormatterContract, NumbersInMemory);
INSTANTIATE_TYPED_TEST_SUITE_P(InMemory, TextServiceContract, TextInMemory);
INSTANTIATE_TYPED_TEST_SUITE_P(InMemory, AddressBookStoreContract, ContactsInMemory);
INSTANTIATE_TYPED_TEST_SUITE_P(InMemory, FavoritesSourceContract, ContactsInMemory);
INSTANTIATE_TYPED_TEST_SUITE_P(InMemory, PreferencesReadOnlyContract, StoresInMemory);
INSTANTIATE_TYPED_TEST_SUITE_P(InMemory, PreferencesStoreContract, StoresInMemory);
INSTANTIATE_TYPED_TEST_SUITE_P(InMemory, PreferencesUntoldContract, StoresInMemory);
INSTANTIATE_TYPED_TEST_SUITE_P(InMemory, PreferencesVersionsContract, StoresInMemory);
INSTANTIATE_TYPED_TEST_SUITE_P(InMemory, PreferencesSyncServiceContract, RecordedDevice);
INSTANTIATE_TYPED_TEST_SUITE_P(InMemory, SystemNotifyBusContract, BothBusesInMemory);
INSTANTIATE_TYPED_TEST_SUITE_P(WholeDomains, PreferencesStoreContract, StoresOfWholeDomains);
INSTANTIATE_TYPED_TEST_SUITE_P(WholeDomains, PreferencesVersionsContract, StoresOfWholeDomains);
INSTANTIATE_TYPED_TEST_SUITE_P(Simulated, ReachabilityConversionsContract, SimulatedConversions);
INSTANTIATE_TYPED_TEST_SUITE_P(Simulated, ReachabilityQueriesContract, SimulatedQueries);

TEST(SimulatedIdentityServiceTest, WithoutAScriptTakesNoQueries) {
  SimulatedWorld world;
  Process process(std::make_shared<SimulatedScheduler>(1), nullptr);
  expectNoQueries(process, world.identityService());
}

TEST(WholeDomainPreferencesTest, ContentOfAnotherMakingCannotBeRead) {
  const Array entry{Data{1}, Data{1}, 1, 0, 0};
  const std::vector<Value> contents = {
      "text",
      Array{},
      Array{1, 1, Array{}},
      Array{"1", 1, Dictionary{}},
      Array{1, 1, Dictionary{{"key", 1}}},
      Array{1, 1, Dictionary{{"key", Array{Data{1}, Data{1}, 1, 0}}}},
      Array{1, 1, Dictionary{{"key", Array{Data{1}, "no bytes", 1, 0, 0}}}},
      Array{1, 1, Dictionary{{"key", Array{Data{1}, Data{1}, 1, 0, "no number"}}, {"other", entry}}},
  };
  StoresOfWholeDomains stores;
  for (const Value& content : contents) {
    stores.replace(ContractDomain, content);
    const auto store = stores.open();
    EXPECT_FALSE(store->copyValue("key", ContractDomain).isReadable()) << content.description();
    EXPECT_EQ(store->write({{"key", {PreferenceChange::Kind::set, 1, {}}}}, {}, ContractDomain).outcome,
              PreferenceWriteOutcome::failed);
  }
  stores.replace(ContractDomain, Array{1, 1, Dictionary{{"key", entry}}});
  EXPECT_EQ(stores.open()->copyValue("key", ContractDomain).value(), Value(1));
}

}  // namespace pellor
