// The contract suites of the port's four services.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <functional>
#include <list>

#include "FileBus.h"
#include "FileContacts.h"
#include "FilePreferences.h"
#include "pellor/testing/SimulatedScheduler.h"
#include "pellor/testing/SimulatedWorld.h"
#include "pellor/testing/contract/AddressBookStoreContract.h"
#include "pellor/testing/contract/ContactStoreContract.h"
#include "pellor/testing/contract/FavoritesSourceContract.h"
#include "pellor/testing/contract/PreferencesProcessesContract.h"
#include "pellor/testing/contract/PreferencesVersionsContract.h"
#include "pellor/testing/contract/SystemNotifyBusContract.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

struct Folder {
  Folder() : path(::mkdtemp((fs::temp_directory_path() / "port-XXXXXX").string().data())) {}
  ~Folder() { fs::remove_all(path); }
  const fs::path path;
};

/// Processes in virtual time.
struct Processes {
  Process& at(int number) {
    while (list.size() <= static_cast<std::size_t>(number)) list.emplace_back(scheduler, nullptr);
    return *std::next(list.begin(), number);
  }

  std::shared_ptr<SimulatedScheduler> scheduler = std::make_shared<SimulatedScheduler>(1);
  std::list<Process> list;
};

struct Stores {
  std::shared_ptr<PreferencesStore> open() { return std::make_shared<port::FilePreferences>(folder.path); }
  std::shared_ptr<PreferencesStore> openInChild() { return open(); }
  fs::path fileOf(std::string_view domain) { return folder.path / ("domain-" + port::hex(domain)); }
  void damage(std::string_view key, std::string_view domain) {
    Array parts = *port::decoded(port::readFile(fileOf(domain)).value().value())->array();
    Dictionary entries = *parts[2].dictionary();
    Array entry = *entries.find(key)->second.array();
    entry[0] = entry[0].string()->substr(1);
    entries.insert_or_assign(std::string(key), entry);
    parts[2] = entries;
    port::replaceFile(fileOf(domain), port::encoded(parts).value());
  }
  void makeUnreadable() { fs::rename(folder.path, elsewhere()); }
  void makeReadable() { fs::rename(elsewhere(), folder.path); }
  void failWrites(bool fail) {
    const fs::path draft = fileOf(ContractDomain).string() + ".draft";
    fail ? void(fs::create_directory(draft)) : void(fs::remove(draft));
  }
  fs::path elsewhere() { return folder.path.string() + "-elsewhere"; }

  Folder folder;
};

class Buses {
 public:
  Buses() {
    for (int number = 0; number < 3; ++number)
      _buses.push_back(port::FileBus::make(process(number), _folder.path / "bus"));
  }
  Process& process(int number) { return _processes.at(number); }
  SystemNotifyBus& bus(int number) { return *_buses[static_cast<std::size_t>(number)]; }
  bool runUntil(const std::function<bool()>& condition) { return _processes.scheduler->runUntil(condition, 10); }
  void breakConnection(int /*number*/) { fs::remove(_folder.path / "bus"); }

 private:
  Folder _folder;
  Processes _processes;
  std::vector<std::shared_ptr<port::FileBus>> _buses;
};

class Contacts {
 public:
  Process& process() { return _processes.at(0); }
  AddressBookStore& store() { return *platform().addressBook; }
  ContactStore& contacts() { return *platform().contacts; }
  static Contact contactFor(const std::string& guid) { return {guid}; }
  FavoritesSource& favorites() { return *platform().favorites; }
  std::string add(const TestContact& contact) {
    const std::string guid = "contact " + std::to_string(++_last);
    change(guid, contact);
    return guid;
  }
  void change(const std::string& guid, const TestContact& contact) {
    EXPECT_TRUE(port::FileContacts::put(_file, guid, contact));
  }
  void remove(const std::string& guid) { EXPECT_TRUE(port::FileContacts::remove(_file, guid)); }
  void link(const std::string& guid, const std::string& other) {
    EXPECT_TRUE(port::FileContacts::link(_file, guid, other));
  }
  void breakReading() {
    fs::rename(_file, _file.string() + "-elsewhere");
    const auto isBroken = [&] {
      bool isReadable = true;
      store().performWithAddressBook([&](AddressBook& book) { isReadable = book.isReadable(); });
      return !isReadable;
    };
    EXPECT_TRUE(runUntil(isBroken));
  }
  void restoreReading() { fs::rename(_file.string() + "-elsewhere", _file); }
  void setFavorites(const std::vector<std::string>& guids) {
    EXPECT_TRUE(port::FileFavorites::store(_folder.path / "favorites", guids));
  }
  bool runUntil(const std::function<bool()>& condition) { return _processes.scheduler->runUntil(condition, 10); }

 private:
  Platform& platform() {
    if (_platform.addressBook) return _platform;
    _contacts.emplace(process(), _world.addressBook(), _file);
    _platform = _world.makePlatform(process());
    _platform.favorites = std::make_shared<port::FileFavorites>(_platform.addressBook, _folder.path / "favorites");
    return _platform;
  }

  Folder _folder;
  const fs::path _file = _folder.path / "contacts";
  int _last = 0;
  SimulatedWorld _world;
  Processes _processes;
  std::optional<port::FileContacts> _contacts;
  Platform _platform;
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Files, PreferencesStoreContract, Stores);
INSTANTIATE_TYPED_TEST_SUITE_P(Files, PreferencesVersionsContract, Stores);
INSTANTIATE_TYPED_TEST_SUITE_P(Files, PreferencesProcessesContract, Stores);
INSTANTIATE_TYPED_TEST_SUITE_P(Files, SystemNotifyBusContract, Buses);
INSTANTIATE_TYPED_TEST_SUITE_P(Files, AddressBookStoreContract, Contacts);
INSTANTIATE_TYPED_TEST_SUITE_P(Files, ContactStoreContract, Contacts);
INSTANTIATE_TYPED_TEST_SUITE_P(Files, FavoritesSourceContract, Contacts);

}  // namespace pellor
