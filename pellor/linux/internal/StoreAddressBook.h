// The contacts, with the settings of the store for their names.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "pellor/linux/preferences/internal/StoreNameSettings.h"
#include "pellor/platform/AddressBookStore.h"

namespace pellor {

/// Main queue, but for the text tests.
class StoreAddressBook final : public AddressBookStore {
 public:
  StoreAddressBook(std::shared_ptr<AddressBookStore> contacts, std::shared_ptr<SharedPreferences> store)
      : _contacts(std::move(contacts)), _settings(std::move(store)) {}

  /// Inside, names are formed by one state of the settings, read when they are first asked for. Outside, each question
  /// asks the store.
  void performWithAddressBook(const std::function<void(AddressBook&)>& work) override;
  bool shortNameFormatEnabled() const override { return settings().shortNames; }
  bool shortNamePreferNicknames() const override { return settings().prefersNicknames; }

  std::shared_ptr<AddressBook> openPrivateAddressBook() override { return _contacts->openPrivateAddressBook(); }
  std::string addressBookChangedNotification() const override { return _contacts->addressBookChangedNotification(); }
  std::optional<ContactsFall> contactsFall() override { return _contacts->contactsFall(); }
  void noteRefresh() override { _contacts->noteRefresh(); }
  void acceptContacts() override { _contacts->acceptContacts(); }
  std::uint32_t propertyType(RecordProperty property) const override { return _contacts->propertyType(property); }
  std::int32_t addMultiValueEntry(MultiValue& multiValue, std::string value, std::string label) const override {
    return _contacts->addMultiValueEntry(multiValue, std::move(value), std::move(label));
  }
  bool containsNonLatinCharacters(std::string_view text) const override {
    return _contacts->containsNonLatinCharacters(text);
  }
  bool containsEmojiCharacters(std::string_view text) const override {
    return _contacts->containsEmojiCharacters(text);
  }

 private:
  /// For as long as it lives, names are formed by one state of the settings.
  class Inside;

  NameSettings settings() const;

  const std::shared_ptr<AddressBookStore> _contacts;
  mutable StoreNameSettings _settings;
  int _depth = 0;                               ///< of `performWithAddressBook` within itself
  mutable std::optional<NameSettings> _inside;  ///< what holds until the outermost one ends
};

}  // namespace pellor
