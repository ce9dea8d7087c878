// Who of an exported list is a friend already.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "pellor/list/ExportedList.h"
#include "pellor/list/ListImport.h"
#include "pellor/list/Snapshot.h"

namespace pellor {

class AddressBookStore;
class PLPerson;

/// Somebody of an exported list, and what becomes of it.
struct ImportedPerson {
  Place place;                               ///< in the exported list
  std::string guid = {};                     ///< that it has there; empty without one
  std::shared_ptr<PLPerson> person = {};     ///< of its own, linked with the contact that fits, if one does
  std::shared_ptr<const Friend> shown = {};  ///< that person, without an id
  std::shared_ptr<const Friend> known = {};  ///< the friend of the list who it is; null: none
  bool isRepeated = false;                   ///< its contact is that of somebody before it
  bool isUnreachable = false;                ///< it has neither a number nor an address
};

/// Reads an exported list, links each of it with the contact that fits, and finds those who are friends already, as
/// `ImportMode` says: one to one, those with an equal GUID first, of several the first one in the order of slots.
/// Nothing changes by it. Main queue.
class ImportMatching {
 public:
  using Show = std::function<std::shared_ptr<const Friend>(const std::shared_ptr<PLPerson>&)>;
  /// `show` makes a friend without an id of a person.
  ImportMatching(const ExportedList& exported, const Snapshot& list, AddressBookStore& contacts, const Show& show);

  /// In the order of slots; nobody where somebody is there twice.
  const std::vector<ImportedPerson>& persons() const { return _persons; }

  /// Somebody who is in the exported list twice: with one GUID, or with one name and the same numbers and addresses
  /// where one of both has no GUID.
  struct Twice {
    ImportAnswer::Placed again;
    Place first;
  };
  const std::optional<Twice>& twice() const { return _twice; }

 private:
  enum class Match { guid, name, destination };
  struct Known {
    std::shared_ptr<const Friend> person;
    std::size_t order = 0;  // of its slot
  };
  using Table = std::unordered_multimap<std::string, const Known*>;

  void read(const ExportedList& exported);
  void link(AddressBookStore& contacts, const Show& show);
  void enter(const Snapshot& list);
  void matchBy(Match how);
  const Known* friendFor(const ImportedPerson& person, Match how) const;
  const Known* firstIn(const Table& table, const std::string& key, const ImportedPerson& person, Match how) const;
  static bool isSame(const ImportedPerson& person, const Friend& known, Match how);
  void markRepeated();

  std::vector<ImportedPerson> _persons;
  std::optional<Twice> _twice;
  std::vector<Known> _friends;
  Table _byGUID;
  Table _byDestination;
  std::unordered_set<const Known*> _taken;
};

/// Whether a contact is known to be the person's.
bool isLinked(const PLPerson& person);

}  // namespace pellor
