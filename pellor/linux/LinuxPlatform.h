// The Linux platform: all adapters, put together for one process.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "pellor/linux/files/UserFolders.h"
#include "pellor/runtime/Process.h"

namespace pellor {

class CardSource;
class Configuration;
class EditableFavorites;
class FavoritesFile;
class FavoritesSource;
class IdentityService;
class IndexedAddressBook;
class NotifyFolder;
class PersonalTraces;
class PreferencesStore;
class PreferencesSyncService;
class ReachabilityService;
class SharedPreferences;
class StoreRegion;
class SystemNotifyBus;
class UserContacts;
struct Platform;

/// Makers of parts that take the place of embedded ones. An empty one leaves the embedded part. Each is called once,
/// while the platform is made, in this order; what is made lives as long as the process.
struct LinuxParts {
  std::function<std::shared_ptr<SharedPreferences>(Process&)> preferences;
  /// Contacts that do not come from a folder bring their favorites along: those that are marked in the contacts.
  std::function<std::shared_ptr<CardSource>(Process&)> cards;
  /// `embedded` may serve the part or be dropped; it costs nothing until it is used.
  std::function<std::shared_ptr<SystemNotifyBus>(Process&, std::shared_ptr<NotifyFolder> embedded)> notifyBus;
  /// The conversions stay the embedded ones.
  std::function<std::shared_ptr<ReachabilityService>(Process&, std::shared_ptr<ReachabilityService> conversions)>
      reachability;
  /// `store` is the process's store opened once more, for this part alone.
  std::function<std::shared_ptr<PreferencesSyncService>(Process&, std::shared_ptr<PreferencesStore> store)>
      preferencesSync;
};

/// Keys of the friend list in the preferences that parts have to know, though not the list itself.
struct ListKeys {
  /// By domain, what the list is made of: a paired device is given it from the start.
  std::map<std::string, std::set<std::string>> synced;
  /// The setting whether the list is kept in step with the contacts: one of several machines does so.
  std::string followsContacts;
};

struct LinuxPlatformOptions {
  UserFolders folders = UserFolders::find();
  /// The folder of vCard files, or one such file; absent: `contacts` in the data folder.
  std::optional<std::filesystem::path> contactsFolder;
  /// The region of a store that has none yet (see isRegion); absent: that of the user's locale.
  std::optional<std::string> region;
  /// Called on the main queue while contacts are read for the index, with how many of how many are done. May be empty.
  std::function<void(std::size_t done, std::size_t total)> indexProgress;
  /// Whether changes that come from outside are noticed at any time; else those of the list while the process settles,
  /// and those of the contacts by the next process. For a program that ends at once.
  bool noticesChanges = true;
  /// Whether what this process writes to the store stays its own: no other process and no paired device gets it, and it
  /// ends with the process. For a dry run.
  bool keepsWritesToItself = false;
  ListKeys listKeys;
  LinuxParts parts;
};

/// What a configuration says of the embedded platform.
LinuxPlatformOptions embeddedOptions(const Configuration& configuration);

/// Makes the adapters and installs them as the platform of a process; adds what a program needs of them beyond the
/// platform interfaces. The log goes to the process's sink.
///
/// The store is opened, and a new one is given its region, when it is made; the contacts are read at their first use.
/// The adapters live as long as the process; this object may go earlier. Main queue.
class LinuxPlatform {
 public:
  explicit LinuxPlatform(Process& process, const LinuxPlatformOptions& options = {});

  /// By which national numbers are read: the store's, whatever the options said.
  std::string region() const;
  std::string locale() const;
  /// Whether this process made the store and had to assume the region, since neither the options nor the user's locale
  /// name one: worth a word to the user, who can set another one.
  bool isRegionAssumed() const;

  SharedPreferences& preferences() const { return *_preferences; }
  /// Null when the contacts do not come from a folder: then the favorites are those that are marked in the contacts.
  EditableFavorites* favorites() const;
  UserContacts& contacts() const;
  const std::filesystem::path& dataFolder() const { return _dataFolder; }
  /// Absent when the contacts do not come from a folder.
  const std::optional<std::filesystem::path>& contactsFolder() const { return _contactsFolder; }

 private:
  struct Passkey {};
  LinuxPlatform(Passkey, Process& process, const LinuxPlatformOptions& options);
  Platform assemble(Process& process, const LinuxPlatformOptions& options);
  std::shared_ptr<FavoritesSource> favoritesSource(Process& process) const;
  std::shared_ptr<PersonalTraces> personalTraces(Process& process) const;

  const std::filesystem::path _dataFolder;
  const std::optional<std::filesystem::path> _contactsFolder;
  const std::shared_ptr<SharedPreferences> _preferences;
  const std::shared_ptr<StoreRegion> _region;
  const std::shared_ptr<IdentityService> _identities;
  const std::shared_ptr<IndexedAddressBook> _addressBook;
  const std::shared_ptr<FavoritesFile> _favoritesFile;
};

}  // namespace pellor
