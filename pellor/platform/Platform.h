// All the services that a port supplies.
#pragma once

#include <memory>

#include "pellor/platform/AddressBookStore.h"
#include "pellor/platform/AnalyticsCounters.h"
#include "pellor/platform/ContactSearch.h"
#include "pellor/platform/ContactStore.h"
#include "pellor/platform/DigestService.h"
#include "pellor/platform/FavoritesSource.h"
#include "pellor/platform/LocalizedStrings.h"
#include "pellor/platform/PersonNameFormatter.h"
#include "pellor/platform/PersonalTraces.h"
#include "pellor/platform/PhoneNumberFormatter.h"
#include "pellor/platform/PreferencesStore.h"
#include "pellor/platform/PreferencesSyncService.h"
#include "pellor/platform/ReachabilityService.h"
#include "pellor/platform/SystemNotifyBus.h"
#include "pellor/platform/TextService.h"
#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/Process.h"

namespace pellor {

/// None may be null but the last two. The clock is the process's scheduler's.
struct Platform {
  std::shared_ptr<AddressBookStore> addressBook;
  std::shared_ptr<PreferencesStore> preferences;
  std::shared_ptr<PreferencesSyncService> preferencesSync;
  std::shared_ptr<ReachabilityService> reachability;
  std::shared_ptr<PhoneNumberFormatter> phoneNumbers;
  std::shared_ptr<PersonNameFormatter> personNames;
  std::shared_ptr<SystemNotifyBus> notifyBus;
  std::shared_ptr<AnalyticsCounters> counters;
  std::shared_ptr<FavoritesSource> favorites;
  std::shared_ptr<ContactStore> contacts;
  std::shared_ptr<TextService> text;
  std::shared_ptr<DigestService> digests;
  std::shared_ptr<LocalizedStrings> strings;
  /// Null where all contacts have to be walked through for each search: see WalkingContactSearch.
  std::shared_ptr<ContactSearch> contactSearch;
  /// Null where nothing of people is kept beside the stored values.
  std::shared_ptr<PersonalTraces> personalTraces;

  bool isComplete() const {
    return addressBook && preferences && preferencesSync && reachability && phoneNumbers && personNames && notifyBus &&
           counters && favorites && contacts && text && digests && strings;
  }
};

namespace detail {
struct InstalledPlatform {
  std::shared_ptr<const Platform> platform;
};
}  // namespace detail

/// Gives a process its services, once, before the first call of the library in it. Main queue.
inline void installPlatform(Process& process, Platform platform) {
  require(platform.isComplete(), "a Platform with every service set");
  auto& installed = process.local<detail::InstalledPlatform>();
  require(!installed.platform, "one Platform per process, installed once");
  installed.platform = std::make_shared<const Platform>(std::move(platform));
}

/// The services of a process; ends the program when none were installed. Any thread.
inline const Platform& platformOf(Process& process) {
  const auto& installed = process.local<detail::InstalledPlatform>();
  require(installed.platform != nullptr, "a Platform, installed with installPlatform before the library is used");
  return *installed.platform;
}

}  // namespace pellor
