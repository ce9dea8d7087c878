// Whom a list tells of, and its history.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "pellor/list/Snapshot.h"
#include "pellor/list/internal/FriendIdentity.h"
#include "pellor/list/internal/StepRecord.h"

namespace pellor {

/// Everybody by what any version of the person was known by, and the numbers of whom pages tell alone. A plain value.
class ToldPeople {
 public:
  void add(const FriendIdentity& identity);
  void add(const Snapshot& list);
  void add(const std::vector<StepRecord>& steps);

  /// Whether it may be one of them: by the GUID; by a number or an address where one side has no GUID, or the names
  /// are equal; without any of these by the name.
  bool tellOf(const FriendIdentity& identity) const;
  bool tellOf(std::uint32_t fingerprint) const { return _fingerprints.contains(fingerprint); }

  /// Each once.
  const std::vector<FriendIdentity>& identities() const { return _identities; }
  const std::set<std::uint32_t>& fingerprints() const { return _fingerprints; }

 private:
  std::vector<FriendIdentity> _identities;
  std::set<std::uint32_t> _fingerprints;
  std::set<FriendIdentity> _entered;
  std::set<std::string> _guids;
  std::set<std::string> _names;
  std::multimap<std::string, std::size_t> _byDestination;  // numbers of identities
};

}  // namespace pellor
