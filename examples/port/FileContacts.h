// Contacts and favorites in files. The contacts are a list of changes, which every process replays in their order into
// an address book in memory: so all of them give equal identifiers and sequence numbers.
#pragma once

#include <memory>

#include "Files.h"
#include "pellor/platform/FavoritesSource.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Timer.h"
#include "pellor/testing/InMemoryAddressBook.h"

namespace port {

/// Main queue; process and address book outlive it. Made before the process's platform, which hears of later changes.
class FileContacts {
 public:
  FileContacts(pellor::Process& process, pellor::InMemoryAddressBook& book, fs::path file)
      : _process(process), _book(book), _file(std::move(file)) {
    append(_file, {});
    _timer = pellor::Timer::make(process.mainQueue(), [this] { lookNowAndThen(); });
    lookNowAndThen();
  }

  /// What the program does that edits contacts. Whether the change is on the disk.
  static bool append(const fs::path& file, const std::optional<Value>& change) {
    const FileLock lock(file.string() + ".lock");
    const auto bytes = readFile(file);
    if (!lock.isHeld() || !bytes.isReadable()) return false;
    if (bytes.value() && !change) return true;  // it is there
    auto content = bytes.value() ? decoded(*bytes.value()) : Value(pellor::Array{std::to_string(randomNumber())});
    if (!content || !content->array()) return false;
    pellor::Array changes = *content->array();
    if (change) changes.push_back(*change);
    return replaceFile(file, encoded(changes).value()) == Replaced::yes;
  }
  static bool put(const fs::path& file, const std::string& guid, const pellor::TestContact& contact) {
    const auto text = [](const std::optional<std::string>& part) {
      return part ? pellor::Array{*part} : pellor::Array();
    };
    const auto list = [](const std::vector<pellor::LabelledValue>& values) {
      pellor::Array pairs;
      for (const auto& value : values) pairs.push_back(pellor::Array{value.label, value.value});
      return pairs;
    };
    return append(file, pellor::Array{"put", guid, text(contact.first), text(contact.last), text(contact.nickname),
                                      list(contact.phones), list(contact.emails)});
  }
  static bool remove(const fs::path& file, const std::string& guid) {
    return append(file, pellor::Array{"remove", guid});
  }
  static bool link(const fs::path& file, const std::string& guid, const std::string& other) {
    return append(file, pellor::Array{"link", guid, other});
  }

 private:
  void lookNowAndThen() {
    look();
    _timer->fireAt(_process.now() + 0.02);
  }
  void look() {
    const auto bytes = readFile(_file).value();
    const auto content = bytes ? decoded(*bytes) : std::nullopt;
    const pellor::Array* changes = content ? content->array() : nullptr;
    // Another list of changes cannot be replayed on top of this one.
    const bool isReadable = changes && changes->size() >= std::max(_replayed, std::size_t{1}) &&
                            (_replayed == 0 || changes->front() == _uid);
    if (std::exchange(_isReadable, isReadable) != isReadable) _book.setReadable(isReadable);
    if (!isReadable) return;
    if (_replayed == 0) _book.setDatabaseUID(*(_uid = changes->front()).string());
    for (_replayed = std::max(_replayed, std::size_t{1}); _replayed < changes->size(); ++_replayed)
      replay(*(*changes)[_replayed].array());
  }
  void replay(const pellor::Array& change) {
    const auto text = [&](std::size_t at) { return *change.at(at).string(); };
    if (text(0) == "remove") return _book.remove(text(1));
    if (text(0) == "link") return _book.link({text(1), text(2)});
    const auto part = [&](std::size_t at) -> std::optional<std::string> {
      if (change.at(at).array()->empty()) return std::nullopt;
      return *change.at(at).array()->front().string();
    };
    const auto list = [&](std::size_t at) {
      std::vector<pellor::LabelledValue> values;
      for (const Value& pair : *change.at(at).array())
        values.push_back({*pair.array()->at(0).string(), *pair.array()->at(1).string()});
      return values;
    };
    pellor::TestContact contact{.guid = text(1), .first = part(2), .last = part(3), .nickname = part(4)};
    contact.phones = list(5);
    contact.emails = list(6);
    if (!_book.contact(contact.guid)) return void(_book.add(contact));
    _book.change(contact.guid, [&](pellor::TestContact& stored) {
      contact.recordID = stored.recordID;
      stored = contact;
    });
  }

  pellor::Process& _process;
  pellor::InMemoryAddressBook& _book;
  const fs::path _file;
  Value _uid = "";
  std::size_t _replayed = 0;
  bool _isReadable = true;
  std::shared_ptr<pellor::Timer> _timer;
};

/// A list of GUIDs of contacts.
class FileFavorites : public pellor::FavoritesSource {
 public:
  using Entries = pellor::Answer<std::vector<pellor::FavoriteEntry>>;
  FileFavorites(std::shared_ptr<pellor::AddressBookStore> contacts, fs::path file)
      : _contacts(std::move(contacts)), _file(std::move(file)) {}

  /// What the phone application does.
  static bool store(const fs::path& file, const std::vector<std::string>& guids) {
    const FileLock lock(file.string() + ".lock");
    return lock.isHeld() &&
           replaceFile(file, encoded(pellor::Array(guids.begin(), guids.end())).value()) == Replaced::yes;
  }
  Entries favoriteEntries() override {
    const auto bytes = readFile(_file);
    if (bytes.isReadable() && !bytes.value()) return Entries::none();
    const auto guids = bytes.value() ? decoded(*bytes.value()) : std::nullopt;
    if (!guids || !guids->array()) return Entries::unreadable();
    std::vector<pellor::FavoriteEntry> entries;
    bool isReadable = true;
    _contacts->performWithAddressBook([&](pellor::AddressBook& book) {
      for (const Value& guid : *guids->array()) {
        const auto person = guid.string() ? book.copyPersonMatchingGUID(*guid.string()) : nullptr;
        auto values = person ? person->phoneValues() : std::nullopt;
        if (person && !values) values = person->emailValues();
        if (values) entries.push_back({person->compositeName().value_or(""), values->front(), person->recordID()});
      }
      isReadable = book.isReadable();
    });
    if (!isReadable) return Entries::unreadable();
    return entries.empty() ? Entries::none() : Entries::some(std::move(entries));
  }

 private:
  const std::shared_ptr<pellor::AddressBookStore> _contacts;
  const fs::path _file;
};

}  // namespace port
