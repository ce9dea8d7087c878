#include "pellor/linux/LinuxPlatform.h"

#include "pellor/linux/Configuration.h"
#include "pellor/linux/contacts/CardSource.h"
#include "pellor/linux/contacts/internal/ContactFile.h"
#include "pellor/linux/contacts/internal/FavoritesFile.h"
#include "pellor/linux/contacts/internal/IndexedAddressBook.h"
#include "pellor/linux/contacts/internal/IndexedContactSearch.h"
#include "pellor/linux/contacts/internal/IndexedContactStore.h"
#include "pellor/linux/contacts/internal/MarkedFavorites.h"
#include "pellor/linux/files/UserFolders.h"
#include "pellor/linux/files/internal/NettleDigest.h"
#include "pellor/linux/files/internal/PrivatePlace.h"
#include "pellor/linux/internal/DataFolderTraces.h"
#include "pellor/linux/internal/PrometheusCounters.h"
#include "pellor/linux/notify/NotifyFolder.h"
#include "pellor/linux/notify/UnsharedBus.h"
#include "pellor/linux/phone/CanonicalFormStore.h"
#include "pellor/linux/phone/LibPhoneNumber.h"
#include "pellor/linux/preferences/SharedPreferences.h"
#include "pellor/linux/preferences/StoreRegion.h"
#include "pellor/linux/preferences/internal/SQLitePreferences.h"
#include "pellor/linux/preferences/internal/StoreCopyKeeper.h"
#include "pellor/linux/preferences/internal/UnpairedDevice.h"
#include "pellor/linux/preferences/internal/UnsharedPreferences.h"
#include "pellor/linux/reachability/IdentityService.h"
#include "pellor/linux/text/GettextStrings.h"
#include "pellor/linux/text/IcuText.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/BundleIdentifier.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Queue.h"
#include "pellor/runtime/WallClock.h"

namespace pellor {
namespace {

LogHandle logOf(Process& process, const char* category) { return {BundleIdentifier, category, process.logSink()}; }

std::shared_ptr<SharedPreferences> makeStore(Process& process, const LinuxPlatformOptions& options) {
  if (options.parts.preferences) return options.parts.preferences(process);
  return std::make_shared<SQLitePreferences>(options.folders.data, options.folders.config / "defaults.json",
                                             logOf(process, "preferences"));
}

std::shared_ptr<SharedPreferences> makePreferences(Process& process, const LinuxPlatformOptions& options) {
  auto store = makeStore(process, options);
  return options.keepsWritesToItself ? std::make_shared<UnsharedPreferences>(std::move(store)) : store;
}

/// Of the process's store, as long as the process.
struct CopyKeeperOwner {
  std::shared_ptr<StoreCopyKeeper> keeper;
};

void keepCopies(Process& process, const std::shared_ptr<SharedPreferences>& preferences) {
  process.local<CopyKeeperOwner>().keeper =
      StoreCopyKeeper::make(process, preferences, logOf(process, "copies"), wallClockNow);
}

std::filesystem::path contactsPathOf(const LinuxPlatformOptions& options) {
  return normalisedFolder(options.contactsFolder.value_or(options.folders.data / "contacts"));
}

std::optional<std::filesystem::path> contactsFolderOf(const LinuxPlatformOptions& options) {
  if (options.parts.cards || isContactsFile(contactsPathOf(options))) return std::nullopt;
  return contactsPathOf(options);
}

std::shared_ptr<CardSource> makeCards(Process& process, const LinuxPlatformOptions& options) {
  return options.parts.cards ? options.parts.cards(process) : contactsAt(contactsPathOf(options));
}

std::shared_ptr<FavoritesFile> makeFavoritesFile(const std::shared_ptr<IndexedAddressBook>& addressBook,
                                                 const std::optional<std::filesystem::path>& contactsFolder) {
  return contactsFolder ? std::make_shared<FavoritesFile>(addressBook, *contactsFolder) : nullptr;
}

std::shared_ptr<SystemNotifyBus> makeNotifyBus(Process& process, const LinuxPlatformOptions& options) {
  if (options.keepsWritesToItself) return std::make_shared<UnsharedBus>(process);
  const auto hearing = options.noticesChanges ? NotifyFolder::Hearing::always : NotifyFolder::Hearing::whenSettling;
  auto embedded = NotifyFolder::make(process, options.folders, logOf(process, "bus"), hearing);
  return options.parts.notifyBus ? options.parts.notifyBus(process, std::move(embedded)) : embedded;
}

std::shared_ptr<PreferencesSyncService> makePreferencesSync(Process& process, const LinuxPlatformOptions& options) {
  if (!options.parts.preferencesSync || options.keepsWritesToItself) return std::make_shared<UnpairedDevice>();
  return options.parts.preferencesSync(process, makePreferences(process, options));
}

RegionSource regionSource(const std::shared_ptr<StoreRegion>& region) {
  return [region]() -> const std::string& { return region->region(); };
}

// What is new while a list is loaded is written together, when the main queue is done with the load.
std::shared_ptr<IdentityService> makeIdentities(Process& process, const UserFolders& folders,
                                                const std::shared_ptr<StoreRegion>& region) {
  const Process::Scope scope(process);
  auto later = [&process, queue = SerialQueue::make(std::string(BundleIdentifier) + ".canonicalForms")](Task task) {
    process.mainQueue().async([queue, task = std::move(task)] { queue->async(task); });
  };
  return std::make_shared<IdentityService>(
      regionSource(region), CanonicalFormFolder{folders.data, logOf(process, "numbers"), std::move(later)});
}

// The spelling under which the library stores destinations, so that a friend's number finds its contact.
std::function<std::string(std::string_view)> canonicalDestinations(const std::shared_ptr<IdentityService>& identities) {
  return [identities](std::string_view destination) {
    const bool isAddress = destination.find('@') != std::string_view::npos;
    const auto identifier = isAddress ? std::nullopt : identities->identifierForPhoneNumber(destination);
    return identities->rawAddressForDestination(identifier.value_or(std::string(destination)));
  };
}

std::shared_ptr<IndexedAddressBook> makeAddressBook(Process& process, const LinuxPlatformOptions& options,
                                                    const std::shared_ptr<StoreRegion>& region,
                                                    const std::shared_ptr<IdentityService>& identities,
                                                    const std::shared_ptr<SharedPreferences>& preferences) {
  IndexedAddressBookOptions result;
  result.index.dataFolder = options.folders.data;
  result.index.canonicalDestination = canonicalDestinations(identities);
  result.index.canonicalForm = [region] { return region->region() + " " + std::to_string(KeptFormsVersion); };
  result.index.progress = options.indexProgress;
  result.noticesChanges = options.noticesChanges;
  result.locale = [region] { return region->locale(); };
  result.nameSettings = [settings = std::make_shared<StoreNameSettings>(preferences)] { return settings->current(); };
  return IndexedAddressBook::make(process, makeCards(process, options), std::move(result));
}

/// The contacts stay where they are named: they are the user's to arrange, and known by that name.
LinuxPlatformOptions withPlaces(LinuxPlatformOptions options) {
  options.contactsFolder = options.contactsFolder.value_or(options.folders.data / "contacts");
  options.folders = options.folders.behindLinks();
  return options;
}

LinuxPlatformOptions withClosedPlaces(Process& process, LinuxPlatformOptions options) {
  const UserFolders& folders = options.folders;
  const LogHandle log = logOf(process, "files");
  for (const std::filesystem::path& place : {folders.data, folders.state, folders.runtime.value_or(folders.state)}) {
    if (!PrivateFolder(place).enter().wasOpenToOthers) continue;
    log.log("the folder %@ was open to other users; it is its owner's alone now", place.string());
  }
  return options;
}

}  // namespace

LinuxPlatformOptions embeddedOptions(const Configuration& configuration) {
  LinuxPlatformOptions options;
  if (const auto folder = configuration.path("data")) options.folders.data = *folder;
  options.contactsFolder = configuration.path("contacts");
  options.region = configuration.text("region");
  return withPlaces(std::move(options));
}

LinuxPlatform::LinuxPlatform(Process& process, const LinuxPlatformOptions& options)
    : LinuxPlatform(Passkey{}, process, withClosedPlaces(process, withPlaces(options))) {}

LinuxPlatform::LinuxPlatform(Passkey, Process& process, const LinuxPlatformOptions& options)
    : _dataFolder(options.folders.data),
      _contactsFolder(contactsFolderOf(options)),
      _preferences(makePreferences(process, options)),
      _region(
          std::make_shared<StoreRegion>(_preferences, [region = options.region] { return proposedRegion(region); })),
      _identities(makeIdentities(process, options.folders, _region)),
      _addressBook(makeAddressBook(process, options, _region, _identities, _preferences)),
      _favoritesFile(makeFavoritesFile(_addressBook, _contactsFolder)) {
  keepCopies(process, _preferences);
  installPlatform(process, assemble(process, options));
}

std::string LinuxPlatform::region() const { return _region->region(); }

bool LinuxPlatform::isRegionAssumed() const { return _region->isAssumed(); }

std::string LinuxPlatform::locale() const { return _region->locale(); }

EditableFavorites* LinuxPlatform::favorites() const { return _favoritesFile.get(); }

UserContacts& LinuxPlatform::contacts() const { return *_addressBook; }

std::shared_ptr<FavoritesSource> LinuxPlatform::favoritesSource(Process& process) const {
  if (_favoritesFile) return _favoritesFile;
  return MarkedFavorites::make(process, _addressBook);
}

std::shared_ptr<PersonalTraces> LinuxPlatform::personalTraces(Process& process) const {
  const Process::Scope scope(process);
  DataFolderTracesOptions options;
  options.folder = _dataFolder;
  if (_contactsFolder) options.favorites = *_contactsFolder / FavoritesFileName;
  options.store = _preferences;
  options.updateContacts = [addressBook = _addressBook] { addressBook->performWithAddressBook([](AddressBook&) {}); };
  return std::make_shared<DataFolderTraces>(process, std::move(options));
}

Platform LinuxPlatform::assemble(Process& process, const LinuxPlatformOptions& options) {
  const LinuxParts& parts = options.parts;
  const auto text = std::make_shared<IcuText>([region = _region] { return region->locale(); });
  Platform platform;
  platform.addressBook = _addressBook;
  platform.preferences = _preferences;
  platform.notifyBus = makeNotifyBus(process, options);
  platform.reachability = parts.reachability ? parts.reachability(process, _identities) : _identities;
  platform.preferencesSync = makePreferencesSync(process, options);
  platform.phoneNumbers = std::make_shared<LibPhoneNumber>(regionSource(_region));
  platform.personNames = text;
  platform.counters =
      std::make_shared<PrometheusCounters>(process, _dataFolder / "counters.prom", logOf(process, "counters"));
  platform.favorites = favoritesSource(process);
  platform.contacts = std::make_shared<IndexedContactStore>(_addressBook);
  platform.text = text;
  // With a memory of its own: the forms that are kept are those of numbers that somebody has, not of what was typed.
  platform.contactSearch = std::make_shared<IndexedContactSearch>(
      _addressBook, text, std::make_shared<IdentityService>(regionSource(_region)), platform.phoneNumbers);
  platform.personalTraces = personalTraces(process);
  platform.digests = std::make_shared<NettleDigest>();
  platform.strings = std::make_shared<GettextStrings>();
  return platform;
}

}  // namespace pellor
