#include "linux/LinuxPlatform.h"

#include "linux/ContactFolder.h"
#include "linux/GettextStrings.h"
#include "linux/IcuText.h"
#include "linux/IndexedContactStore.h"
#include "linux/LibPhoneNumber.h"
#include "linux/NettleDigest.h"
#include "linux/NotifyFolder.h"
#include "linux/PrometheusCounters.h"
#include "linux/UnpairedDevice.h"
#include "runtime/Queue.h"

namespace pellor {
namespace {

constexpr const char* LogSubsystem = "org.tapnote.Pellor";

LogHandle logOf(Process& process, const char* category) { return {LogSubsystem, category, process.logSink()}; }

std::shared_ptr<SQLitePreferences> makePreferences(Process& process, const UserFolders& folders) {
  return std::make_shared<SQLitePreferences>(folders.data, folders.config / "defaults.json",
                                             logOf(process, "preferences"));
}

RegionSource regionSource(const std::shared_ptr<StoreRegion>& region) {
  return [region] { return region->region(); };
}

// What is new while a list is loaded is written together, when the main queue is done with the load.
std::shared_ptr<IdentityService> makeIdentities(Process& process, const UserFolders& folders,
                                                const std::shared_ptr<StoreRegion>& region) {
  const Process::Scope scope(process);
  auto later = [&process, queue = SerialQueue::make("org.tapnote.Pellor.canonicalForms")](Task task) {
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

std::shared_ptr<IndexedAddressBook> makeAddressBook(Process& process, const std::filesystem::path& contactsFolder,
                                                    const LinuxPlatformOptions& options,
                                                    const std::shared_ptr<StoreRegion>& region,
                                                    const std::shared_ptr<IdentityService>& identities) {
  IndexedAddressBookOptions result;
  result.index.dataFolder = options.folders.data;
  result.index.canonicalDestination = canonicalDestinations(identities);
  result.index.canonicalForm = regionSource(region);
  result.index.progress = options.indexProgress;
  result.noticesChanges = options.noticesChanges;
  result.surnameFirst = [region] { return writesSurnameFirst(region->locale()); };
  return IndexedAddressBook::make(process, std::make_shared<ContactFolder>(contactsFolder), std::move(result));
}

}  // namespace

LinuxPlatformOptions embeddedOptions(const Configuration& configuration) {
  LinuxPlatformOptions options;
  if (const auto folder = configuration.path("data")) options.folders.data = *folder;
  options.contactsFolder = configuration.path("contacts");
  options.region = configuration.text("region");
  return options;
}

LinuxPlatform::LinuxPlatform(Process& process, const LinuxPlatformOptions& options)
    : _dataFolder(options.folders.data),
      _contactsFolder(normalisedFolder(options.contactsFolder.value_or(options.folders.data / "contacts"))),
      _preferences(makePreferences(process, options.folders)),
      _region(
          std::make_shared<StoreRegion>(_preferences, [region = options.region] { return proposedRegion(region); })),
      _identities(makeIdentities(process, options.folders, _region)),
      _addressBook(makeAddressBook(process, _contactsFolder, options, _region, _identities)),
      _favorites(std::make_shared<FavoritesFile>(_addressBook, _contactsFolder)) {
  installPlatform(process, assemble(process, options));
}

Platform LinuxPlatform::assemble(Process& process, const LinuxPlatformOptions& options) {
  const UserFolders& folders = options.folders;
  const auto hearing = options.noticesChanges ? NotifyFolder::Hearing::always : NotifyFolder::Hearing::whenSettling;
  const auto text = std::make_shared<IcuText>([region = _region] { return region->locale(); });
  Platform platform;
  platform.addressBook = _addressBook;
  platform.preferences = _preferences;
  platform.preferencesSync = std::make_shared<UnpairedDevice>();
  platform.reachability = _identities;
  platform.phoneNumbers = std::make_shared<LibPhoneNumber>(regionSource(_region));
  platform.personNames = text;
  platform.notifyBus = NotifyFolder::make(process, folders, logOf(process, "bus"), hearing);
  platform.counters =
      std::make_shared<PrometheusCounters>(process, folders.data / "counters.prom", logOf(process, "counters"));
  platform.favorites = _favorites;
  platform.contacts = std::make_shared<IndexedContactStore>(_addressBook);
  platform.text = text;
  platform.digests = std::make_shared<NettleDigest>();
  platform.strings = std::make_shared<GettextStrings>();
  return platform;
}

}  // namespace pellor
