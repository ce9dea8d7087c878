// Refreshing friends against many contacts, of which others changed.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "bench/Friends.h"
#include "bench/Kept.h"
#include "bench/Stopwatch.h"
#include "bench/WorkFolder.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/linux/LinuxPlatform.h"
#include "pellor/linux/contacts/UserContacts.h"
#include "pellor/linux/contacts/internal/ContactIndexCards.h"
#include "pellor/linux/contacts/internal/IndexedContact.h"
#include "pellor/linux/files/UserFolders.h"
#include "pellor/linux/preferences/SharedPreferences.h"
#include "pellor/linux/sqlite/SQLiteDatabase.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/Process.h"

namespace pellor::bench {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t Contacts = 100'000;
/// To be raised when the cards become other ones.
constexpr const char* Edition = "1";

/// A user with 100,000 contacts, which take a minute to read and are kept for the next run.
class UserWithContacts {
 public:
  explicit UserWithContacts(std::size_t) {
    const fs::path mark = _home / "contacts-are-complete";
    if (fs::exists(mark)) return;
    std::cerr << "making " << Contacts << " contacts in " << _home << '\n';
    fs::remove_all(_home);
    fs::create_directories(contactsFolder());
    for (std::size_t number = 0; number < Contacts; ++number) writeCard(number, personAt(number));
    std::ofstream(mark).flush();
  }

  UserFolders folders() const { return foldersOf(_home); }
  fs::path indexFile() const { return folders().data / "contacts-index.sqlite"; }

  /// Changes a contact that is no friend.
  void changeStranger() {
    Person person = personAt(Contacts - 1);
    person.name += " " + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count());
    writeCard(Contacts - 1, person);
  }

 private:
  fs::path contactsFolder() const { return folders().data / "contacts"; }

  // In one step, as synchronisers do.
  void writeCard(std::size_t number, const Person& person) const {
    const fs::path draft = _home / "draft";
    std::ofstream(draft) << cardOf(person);
    fs::rename(draft, contactsFolder() / (std::to_string(number) + ".vcf"));
  }

  const fs::path _home = lastingFolder("contacts") / Edition;
};

/// A process of that user with a list of friends among the contacts, each in step with its contact. Refreshing is off
/// but while it is measured.
class RefreshedList {
 public:
  explicit RefreshedList(std::size_t size) {
    const Process::Scope scope(_process);
    LinuxPlatformOptions options;
    options.folders = kept<UserWithContacts>(0).folders();
    options.region = "DE";
    _platform.emplace(_process, options);
    const std::string domain = "org.tapnote.bench." + std::to_string(size);
    PreferencesStore& store = _platform->preferences();
    store.setValue(PLMaxGroupCountKey, size / 12 + 1, domain);
    store.setValue(PLFriendListKey, storedList(0, size), domain);
    require(store.synchronize(domain), "a store that can be written");
    _manager = PLFriendsManager::managerForDomain(domain);
    disable();
  }

  Process::Scope enter() { return Process::Scope(_process); }

  /// Waits until the index of this process has that change of the contacts.
  template <class Change>
  void await(Change change) {
    const std::int32_t before = sequenceNumber();
    change();
    while (sequenceNumber() == before) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      _process.mainQueue().drain();
    }
    settle();
  }

  /// Runs the refresh that is due.
  void enable() { _manager->setRefreshAgainstContactsEnabled(true); }
  void disable() {
    settle();
    _manager->setRefreshAgainstContactsEnabled(false);
  }

 private:
  void settle() { require(_process.settle(600), "every change on the disk"); }

  std::int32_t sequenceNumber() {
    std::int32_t number = 0;
    _platform->contacts().performWithAddressBook([&](AddressBook& book) { number = book.sequenceNumber(); });
    return number;
  }

  Process _process;
  std::optional<LinuxPlatform> _platform;
  std::shared_ptr<PLFriendsManager> _manager;
};

RefreshedList& listFor(const benchmark::State& state) {
  return kept<RefreshedList>(static_cast<std::size_t>(state.range(0)));
}

void refresh(benchmark::State& state) {
  RefreshedList& list = listFor(state);
  const auto scope = list.enter();
  for (auto _ : state) {
    list.await([] { kept<UserWithContacts>(0).changeStranger(); });
    time(state, [&list] { list.enable(); });
    list.disable();
  }
}
BENCHMARK(refresh)->Arg(240)->Iterations(5)->UseManualTime();
BENCHMARK(refresh)->Arg(24'000)->Iterations(1)->UseManualTime();

// The yardstick: the friends' records, read from the index at once.
void readInBulk(benchmark::State& state) {
  listFor(state);
  const SQLiteDatabase database(kept<UserWithContacts>(0).indexFile(), SQLiteDatabase::Access::readOnly, 5);
  const auto friends = static_cast<std::size_t>(state.range(0));
  std::string guids;
  for (std::size_t number = 0; number < friends; ++number) guids += (number > 0 ? "\",\"" : "") + personAt(number).guid;
  guids = "[\"" + guids + "\"]";
  for (auto _ : state) {
    SQLiteStatement query = database.prepare("SELECT id, guid, link, " + std::string(CardColumns) +
                                             " FROM (SELECT value AS friend FROM json_each(?1))"
                                             " CROSS JOIN cards ON folder = 1 AND guid = friend");
    query.bind(1, guids);
    std::vector<IndexedContact> records;
    while (query.step()) {
      const auto recordID = static_cast<std::int32_t>(query.integer(0)),
                 linkID = static_cast<std::int32_t>(query.integer(2));
      records.push_back({recordID, query.text(1), linkID, cardOfRow(query, 3)});
    }
    require(records.size() == friends, "a record of each friend");
  }
}
BENCHMARK(readInBulk)->Arg(240)->Iterations(20);
BENCHMARK(readInBulk)->Arg(24'000)->Iterations(2);

}  // namespace
}  // namespace pellor::bench
