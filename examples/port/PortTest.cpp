// The contract suites of the services that are in files.
#include <gtest/gtest.h>

#include "FilePlatform.h"
#include "pellor/testing/SimulatedProcesses.h"
#include "pellor/testing/contract/AddressBookStoreContract.h"
#include "pellor/testing/contract/ContactStoreContract.h"
#include "pellor/testing/contract/FavoritesSourceContract.h"
#include "pellor/testing/contract/PreferencesProcessesContract.h"
#include "pellor/testing/contract/PreferencesVersionsContract.h"
#include "pellor/testing/contract/SystemNotifyBusContract.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

/// A folder, and processes that use it.
class Files : public SimulatedProcesses<port::FilePlatform> {
 public:
  Files()
      : SimulatedProcesses(
            [this](Process& process) { return std::make_unique<port::FilePlatform>(process, _folder); }) {
    fs::create_directory(_folder);
  }
  ~Files() { fs::remove_all(_folder); }

  std::shared_ptr<PreferencesStore> open() { return std::make_shared<port::FilePreferences>(_folder); }
  std::shared_ptr<PreferencesStore> openInChild() { return open(); }
  void damage(const std::string& key, const std::string& domain) {
    const Data value = encodeCBOR(open()->copyValue(key, domain).value().value()).value();
    std::fstream file(_folder / ("domain-" + domain), std::ios::in | std::ios::out | std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    const auto place = bytes.find(std::string(value.begin(), value.end()), bytes.find(key));
    file.seekp(static_cast<std::streamoff>(place)).put('\xFF');
  }
  void makeUnreadable() { fs::rename(_folder, _elsewhere); }
  void makeReadable() { fs::rename(_elsewhere, _folder); }
  void failWrites(bool fail) {
    const fs::path draft = _folder / ("domain-" + std::string(ContractDomain) + ".draft");
    fail ? void(fs::create_directory(draft)) : void(fs::remove(draft));
  }

  SystemNotifyBus& bus(int number) { return *services(number).platform.notifyBus; }
  void breakConnection(int /*number*/) { fs::remove(_folder / "bus"); }

  AddressBookStore& store() { return *services().platform.addressBook; }
  ContactStore& contacts() { return *services().platform.contacts; }
  FavoritesSource& favorites() { return *services().platform.favorites; }
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
    change.insert(change.end(), guids.begin(), guids.end());
    append(change);
  }
  void breakReading() {
    makeUnreadable();
    services().contacts.look();
  }
  void restoreReading() { makeReadable(); }

 private:
  void append(const Array& change) { EXPECT_TRUE(port::FileContacts::append(_folder, change)); }

  const fs::path _folder = fs::temp_directory_path() / ("port-" + std::to_string(port::randomNumber()));
  const fs::path _elsewhere = _folder.string() + "-elsewhere";
  int _lastContact = 0;
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
