// The contract suites of the services that are in files.
#include <gtest/gtest.h>

#include <list>

#include "FilePlatform.h"
#include "pellor/testing/SimulatedScheduler.h"
#include "pellor/testing/contract/AddressBookStoreContract.h"
#include "pellor/testing/contract/ContactStoreContract.h"
#include "pellor/testing/contract/FavoritesSourceContract.h"
#include "pellor/testing/contract/PreferencesProcessesContract.h"
#include "pellor/testing/contract/PreferencesVersionsContract.h"
#include "pellor/testing/contract/SystemNotifyBusContract.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

/// A folder, and processes in virtual time that use it, each from its first call on.
class Files {
 public:
  Files() { fs::create_directory(_folder); }
  ~Files() { fs::remove_all(_folder); }

  std::shared_ptr<PreferencesStore> open() { return std::make_shared<port::FilePreferences>(_folder); }
  std::shared_ptr<PreferencesStore> openInChild() { return open(); }
  void damage(const std::string& key, const std::string& domain) {
    std::fstream file(_folder / ("domain-" + domain), std::ios::in | std::ios::out | std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {}), entry = port::encoded(key) + "a5:s";
    file.seekp(static_cast<std::streamoff>(bytes.find(':', bytes.find(entry) + entry.size()) + 1)).put('?');
  }
  void makeUnreadable() { fs::rename(_folder, _elsewhere); }
  void makeReadable() { fs::rename(_elsewhere, _folder); }
  void failWrites(bool fail) {
    const fs::path draft = _folder / ("domain-" + std::string(ContractDomain) + ".draft");
    fail ? void(fs::create_directory(draft)) : void(fs::remove(draft));
  }

  Process& process(int number = 0) { return program(number).process; }
  bool runUntil(const std::function<bool()>& condition) { return _scheduler->runUntil(condition, 10); }
  SystemNotifyBus& bus(int number) { return *program(number).files.platform.notifyBus; }
  void breakConnection(int /*number*/) { fs::remove(_folder / "bus"); }

  AddressBookStore& store() { return *program(0).files.platform.addressBook; }
  ContactStore& contacts() { return *program(0).files.platform.contacts; }
  FavoritesSource& favorites() { return *program(0).files.platform.favorites; }
  static Contact contactFor(const std::string& guid) { return {guid}; }
  std::string add(const TestContact& contact) {
    const std::string guid = std::to_string(++_lastContact);
    change(guid, contact);
    return guid;
  }
  void change(const std::string& guid, const TestContact& contact) {
    Array change{"put", guid};
    for (const auto& name : {contact.first, contact.last, contact.nickname}) change.push_back(name.value_or(""));
    for (const auto& [label, value] : contact.phones) change.insert(change.end(), {"phone", label, value});
    for (const auto& [label, value] : contact.emails) change.insert(change.end(), {"email", label, value});
    append(change);
  }
  void remove(const std::string& guid) { append({"remove", guid}); }
  void link(const std::string& guid, const std::string& other) { append({"link", guid, other}); }
  void setFavorites(const std::vector<std::string>& guids) {
    Array change{"favorites"};
    for (const std::string& guid : guids) {
      const auto contact = program(0).files.world.addressBook().contact(guid).value();
      const auto& values = contact.phones.empty() ? contact.emails : contact.phones;
      change.insert(change.end(), {guid, contact.first.value(), values.front().value});
    }
    append(change);
  }
  void breakReading() {
    makeUnreadable();
    program(0).files.contacts.look();
  }
  void restoreReading() { makeReadable(); }

 private:
  struct Program {
    Program(const std::shared_ptr<Scheduler>& scheduler, const fs::path& folder)
        : process(scheduler, nullptr), files(process, folder) {}
    Process process;
    port::FilePlatform files;
  };
  Program& program(int number) {
    while (_programs.size() <= static_cast<std::size_t>(number)) _programs.emplace_back(_scheduler, _folder);
    return *std::next(_programs.begin(), number);
  }
  void append(const Array& change) { EXPECT_TRUE(port::FileContacts::append(_folder, change)); }

  const fs::path _folder = fs::temp_directory_path() / ("port-" + std::to_string(port::randomNumber()));
  const fs::path _elsewhere = _folder.string() + "-elsewhere";
  int _lastContact = 0;
  const std::shared_ptr<SimulatedScheduler> _scheduler = std::make_shared<SimulatedScheduler>(1);
  std::list<Program> _programs;
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Port, PreferencesStoreContract, Files);
INSTANTIATE_TYPED_TEST_SUITE_P(Port, PreferencesVersionsContract, Files);
INSTANTIATE_TYPED_TEST_SUITE_P(Port, PreferencesProcessesContract, Files);
INSTANTIATE_TYPED_TEST_SUITE_P(Port, SystemNotifyBusContract, Files);
INSTANTIATE_TYPED_TEST_SUITE_P(Port, AddressBookStoreContract, Files);
INSTANTIATE_TYPED_TEST_SUITE_P(Port, ContactStoreContract, Files);
INSTANTIATE_TYPED_TEST_SUITE_P(Port, FavoritesSourceContract, Files);

}  // namespace pellor
