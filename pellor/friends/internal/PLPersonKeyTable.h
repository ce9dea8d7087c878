// Persons by one kind of identifier: the GUID, or the destinations.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <vector>

#include "pellor/friends/internal/PLBucketTable.h"
#include "pellor/friends/internal/PLSharingPersons.h"

namespace pellor {

class PLPerson;

/// The hash of an identifier: of this process, so that nobody can make up identifiers that all fall together.
std::uint32_t identifierHash(std::string_view identifier);

/// Persons by their identifiers, of which several persons may share one. No identifier is kept: the table has its hash
/// and a person, which `HasIdentifier` asks. So a person must have its identifiers from entering to removal.
///
/// An identifier takes one entry, some 16 bytes: that of its person or, when several share it, of a list of them aside.
/// Entering and removal cost equally much however many share it; a visit of all takes as many steps.
template <bool (*HasIdentifier)(const PLPerson&, std::string_view)>
class PLPersonKeyTable {
 public:
  /// The person must not be entered under the identifier yet.
  void add(std::string_view identifier, std::uint32_t hash, PLPerson& person) {
    add([=] { return identifier; }, hash, person);
  }
  /// Adds the person under an identifier that is asked for only when the hash is known already.
  template <class Identifier>
    requires std::is_invocable_v<Identifier>
  void add(const Identifier& identifier, std::uint32_t hash, PLPerson& person) {
    const auto known = find(identifier, hash);
    if (!known) return _table.insert(addressOf(person), hash);
    if (!isList(known.address())) known.assign(makeList(personAt(known.address())), hash);
    listAt(known.address()).add(person);
  }

  /// The person must be entered under the identifier.
  void remove(std::string_view identifier, PLPerson& person) {
    const std::uint32_t hash = identifierHash(identifier);
    const auto known = find(identifier, hash);
    if (!isList(known.address())) return _table.erase(known);
    auto& persons = listAt(known.address());
    _stepCount += persons.remove(person);
    if (persons.count() > 1) return;
    PLPerson& last = *persons.front();
    dropList(known.address());
    known.assign(addressOf(last), hash);
  }

  bool contains(std::string_view identifier) const {
    return static_cast<bool>(find(identifier, identifierHash(identifier)));
  }
  /// Calls `visit` with each person that has the identifier, which has that hash, in no order that means anything. It
  /// must not change persons or the table.
  template <class Visit>
  void forEach(std::string_view identifier, std::uint32_t hash, const Visit& visit) const {
    const auto known = find(identifier, hash);
    if (!known) return;
    if (!isList(known.address())) return visit(personAt(known.address()));
    const List& sharing = _lists[known.address() >> 1];
    _stepCount += sharing.count();
    for (PLPerson* person : sharing.all()) visit(*person);
  }

  void prefetch(std::uint32_t hash) const { _table.prefetch(hash); }
  /// Somebody with an identifier of that hash, which need not be the one that is meant; null when there is nobody.
  const PLPerson* candidate(std::uint32_t hash) const {
    const auto known = _table.find(hash, [=](std::uintptr_t, std::uint32_t number) { return number == hash; });
    if (!known) return nullptr;
    return isList(known.address()) ? _lists[known.address() >> 1].front() : &personAt(known.address());
  }
  /// How many identifiers there are.
  std::size_t count() const { return _table.size(); }
  void reserve(std::size_t count) { _table.reserve(count); }
  /// How many identifiers several persons share.
  std::size_t sharedCount() const { return _lists.size() - _unusedLists.size(); }
  /// How many persons with shared identifiers visits and removals have looked at so far.
  std::size_t stepCount() const { return _stepCount; }

 private:
  struct HashOf {
    std::uint32_t operator()(std::uintptr_t, std::uint32_t number) const { return number; }
  };
  using Table = PLBucketTable<HashOf>;
  using List = PLSharingPersons;

  // An entry's address is that of a person, which is even, or stands for a list.
  static bool isList(std::uintptr_t address) { return (address & 1U) != 0; }
  static std::uintptr_t addressOf(PLPerson& person) { return reinterpret_cast<std::uintptr_t>(&person); }
  static PLPerson& personAt(std::uintptr_t address) { return *reinterpret_cast<PLPerson*>(address); }
  List& listAt(std::uintptr_t address) { return _lists[address >> 1]; }

  typename Table::Cursor find(std::string_view identifier, std::uint32_t hash) const {
    return find([=] { return identifier; }, hash);
  }
  template <class Identifier>
    requires std::is_invocable_v<Identifier>
  typename Table::Cursor find(const Identifier& identifier, std::uint32_t hash) const {
    return _table.findNumber(hash, hash, [&](std::uintptr_t address) {
      return HasIdentifier(isList(address) ? *_lists[address >> 1].front() : personAt(address), identifier());
    });
  }

  std::uintptr_t makeList(PLPerson& first) {
    if (_unusedLists.empty()) {
      _unusedLists.push_back(_lists.size());
      _lists.emplace_back();
    }
    const std::size_t index = _unusedLists.back();
    _unusedLists.pop_back();
    _lists[index].add(first);
    return (index << 1) | 1U;
  }

  void dropList(std::uintptr_t address) {
    listAt(address) = List();
    _unusedLists.push_back(address >> 1);
  }

  Table _table;  // an entry's number is the hash of the identifier
  std::vector<List> _lists;
  std::vector<std::size_t> _unusedLists;
  mutable std::size_t _stepCount = 0;
};

}  // namespace pellor
