// Contacts that are kept as cards, for the contracts of address books and favorites.
#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/linux/contacts/internal/IndexedContactSearch.h"
#include "pellor/linux/contacts/internal/IndexedContactStore.h"
#include "pellor/linux/contacts/internal/MarkedFavorites.h"
#include "pellor/linux/phone/LibPhoneNumber.h"
#include "pellor/linux/text/IcuText.h"
#include "pellor/testing/TestContact.h"
#include "tests/linux/AddressBookProgram.h"
#include "tests/linux/ContactsFixture.h"

namespace pellor {

/// What a card says beyond the contact.
struct CardMarks {
  std::string linkedWith;
  int place = 0;  ///< among the favorites, from 1 on
};

inline std::string cardOf(const std::string& uid, const TestContact& contact, const CardMarks& marks = {}) {
  const std::string first = contact.first.value_or(""), last = contact.last.value_or("");
  std::string card = "BEGIN:VCARD\nVERSION:3.0\n";
  if (!uid.empty()) card += "UID:" + uid + "\n";
  card += "N:" + last + ";" + first + ";;;\n";
  if (contact.first) card += "FN:" + first + (contact.last ? " " + last : "") + "\n";
  if (contact.organization) card += "ORG:" + *contact.organization + "\n";
  if (contact.nickname) card += "NICKNAME:" + *contact.nickname + "\n";
  const auto add = [&card](const char* name, const std::vector<LabelledValue>& values) {
    for (const LabelledValue& value : values)
      card += name + (value.label.empty() ? "" : ";TYPE=" + value.label) + ":" + value.value + "\n";
  };
  add("TEL", contact.phones);
  add("EMAIL", contact.emails);
  if (!marks.linkedWith.empty()) card += "X-FOLKS-CONTACTS-IDS:" + marks.linkedWith + "\n";
  if (marks.place > 0) card += "X-QTPROJECT-FAVORITE:true;" + std::to_string(marks.place) + "\n";
  return card + "END:VCARD\n";
}

inline IndexedContactSearch searchOf(const std::shared_ptr<IndexedAddressBook>& addressBook,
                                     const ContactsFixture& contacts) {
  const auto region = [&contacts]() -> const std::string& { return contacts.region; };
  return {addressBook, std::make_shared<IcuText>([] { return std::string(); }),
          std::make_shared<IdentityService>(region), std::make_shared<LibPhoneNumber>(region)};
}

/// One program with these contacts; the index is its own.
class CardContacts {
 public:
  virtual ~CardContacts() = default;

  Process& process() { return program().process; }
  AddressBookStore& store() { return *program().store; }
  FavoritesSource& favorites() {
    if (!_favorites) _favorites = MarkedFavorites::make(process(), program().store);
    return *_favorites;
  }
  ContactStore& contacts() {
    if (!_pickable) _pickable = std::make_shared<IndexedContactStore>(program().store);
    return *_pickable;
  }
  ContactSearch& search() {
    if (!_search) _search = std::make_shared<IndexedContactSearch>(searchOf(program().store, _fixture));
    return *_search;
  }
  static Contact contactFor(const std::string& guid) { return {guid}; }
  AddressBookProgram& program() {
    if (!_program) _program.emplace(_fixture.log, makeSource(), _fixture.options());
    return *_program;
  }

  std::string add(const TestContact& contact) {
    const std::string guid = put("", contact, {});
    _contacts[guid] = {contact, {}};
    return guid;
  }
  void change(const std::string& guid, const TestContact& contact) {
    _contacts[guid].contact = contact;
    write(guid);
  }
  void remove(const std::string& guid) {
    _contacts.erase(guid);
    drop(guid);
  }
  void link(const std::string& guid, const std::string& other) {
    _contacts[guid].marks.linkedWith = other;
    write(guid);
  }
  void setFavorites(const std::vector<std::string>& guids) {
    for (auto& [guid, kept] : _contacts) {
      const auto found = std::find(guids.begin(), guids.end(), guid);
      kept.marks.place = found == guids.end() ? 0 : static_cast<int>(found - guids.begin()) + 1;
      write(guid);
    }
  }
  void breakReading() { _fixture.executeInIndex("ALTER TABLE cards RENAME TO lost"); }
  void restoreReading() { _fixture.executeInIndex("ALTER TABLE lost RENAME TO cards"); }
  template <class Condition>
  bool runUntil(Condition condition) {
    return program().waitUntil(condition);
  }

 protected:
  virtual std::shared_ptr<CardSource> makeSource() = 0;
  /// Writes a contact; a new one for an empty GUID. Gives its GUID.
  virtual std::string put(const std::string& guid, const TestContact& contact, const CardMarks& marks) = 0;
  virtual void drop(const std::string& guid) = 0;
  /// Before whatever the source reads from ends.
  void end() { _program.reset(); }

  ContactsFixture _fixture;

 private:
  struct Kept {
    TestContact contact;
    CardMarks marks;
  };

  void write(const std::string& guid) { put(guid, _contacts[guid].contact, _contacts[guid].marks); }

  std::map<std::string, Kept> _contacts;
  std::optional<AddressBookProgram> _program;
  std::shared_ptr<MarkedFavorites> _favorites;
  std::shared_ptr<IndexedContactStore> _pickable;
  std::shared_ptr<IndexedContactSearch> _search;
};

}  // namespace pellor
